// The corners of the request functions: how optional strings and flags are
// sent, which preconditions each member skips, the cached liveness, the
// auth-code record and its tuple builder, the JSON adapter without a
// callback, the log lines each member writes, and many application threads
// sending at once.
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "test_requests_support.h"

namespace {

using namespace reqtest;

int g_ud;

std::string Tid()
{
    return std::to_string(SSOAPIClientUtil::GetDBusProxyThreadId());
}

// The tuple text of a journal entry without its ae_index, for comparing two
// requests sent one after the other.
std::string WithoutAeIndex(const std::string &args)
{
    size_t last = args.rfind(", ");
    size_t before = args.rfind(", ", last - 1);
    return args.substr(0, before) + args.substr(last);
}

// ------------------------------------------------------ tokens and codes

TEST_F(Requests, AccessTokenSendsTheTupleOfTheScopedRequestWithNoScope)
{
    ASSERT_EQ(sso_request_access_token("app.id", "secret-1", &StringCb, &g_ud), 0);
    ASSERT_EQ(sso_request_access_token_with_scope("app.id", "secret-1", nullptr, &StringCb, &g_ud),
              0);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 2u);
    EXPECT_EQ(journal[0].method, journal[1].method);
    EXPECT_EQ(WithoutAeIndex(journal[0].args), WithoutAeIndex(journal[1].args));
    EXPECT_NE(journal[0].args.find("'secret-1', 'HAS_NO_VALUE', int64"), std::string::npos);
    // Its own start line comes before the scoped request's.
    EXPECT_EQ(log().LinesWith({"sso_request_access_token(", "[START] "}).size(), 1u);
    EXPECT_EQ(log().LinesWith({"sso_request_access_token_with_scope(", "[START] "}).size(), 2u);
}

TEST_F(Requests, ANullScopeIsSentAsHasNoValueAndAnEmptyOneAsEmpty)
{
    ASSERT_EQ(sso_request_access_token_with_scope("a", "s", nullptr, &StringCb, &g_ud), 0);
    ASSERT_EQ(sso_request_access_token_with_scope("a", "s", "", &StringCb, &g_ud), 0);
    ASSERT_EQ(sso_request_auth_code("a", "", &StringCb, &g_ud), 0);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 3u);
    EXPECT_NE(journal[0].args.find("'a', 's', 'HAS_NO_VALUE', int64"), std::string::npos);
    EXPECT_NE(journal[1].args.find("'a', 's', '', int64"), std::string::npos);
    EXPECT_NE(journal[2].args.find("'a', '', int64"), std::string::npos);
}

TEST_F(Requests, RefusedCallsTakeNoIndexAndAcceptedOnesCountFromZero)
{
    EXPECT_EQ(sso_request_auth_code(nullptr, nullptr, &StringCb, &g_ud), -1);
    EXPECT_EQ(sso_request_auth_code("a", nullptr, &StringCb, &g_ud), 0);
    EXPECT_EQ(sso_verify_password(nullptr, &StringCb, &g_ud), -1);
    EXPECT_EQ(sso_switch_account("", &StringCb, &g_ud, nullptr), -1);
    EXPECT_EQ(sso_request_auth_code("a", nullptr, &StringCb, &g_ud), 0);
    sim_.SignOut();
    EXPECT_EQ(sso_request_auth_code("a", nullptr, &StringCb, &g_ud), -1);
    EXPECT_EQ(sso_request_device_authcode("a", nullptr, &StringCb, &g_ud), 0);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 3u);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(AeIndexOf(journal[i].args), i);
}

TEST_F(Requests, OnceAliveTheCheckIsSkippedAndAStoppedServiceFailsInTheSend)
{
    ASSERT_EQ(sso_request_auth_code("a", nullptr, &StringCb, &g_ud), 0);
    ASSERT_EQ(sso_request_account_list(&StringCb, &g_ud), 0);
    int aliveChecks = 0;
    for (const auto &entry : sim_.Journal())
        aliveChecks += entry.method == "sso_check_alive" ? 1 : 0;
    EXPECT_EQ(aliveChecks, 1);

    sim_.Stop();
    EXPECT_EQ(sso_request_auth_code("a", nullptr, &StringCb, &g_ud), -1);
    EXPECT_EQ(sso_request_reset_passwd("e@example.com", &StringCb, &g_ud), -1);
    EXPECT_FALSE(log().Contains("SSO SERVICE is not alive)"));
    EXPECT_TRUE(log().Contains(Red("Failed to CallMethodToServer(). methodName "
                                   "[sso_request_auth_code]")));
    EXPECT_TRUE(log().Contains(Red("Failed to CallMethodToServer(). methodName "
                                   "[sso_request_reset_passwd]")));
}

TEST_F(Requests, OnlyAMembersOwnLivenessCheckMarksTheServiceAlive)
{
    ASSERT_EQ(sso_check_alive(), 0);
    // The application's own check does not count: the first alive-checking
    // member still asks once, and later members share its answer.
    ASSERT_EQ(sso_get_user_family_group("a", "t", &StringCb, &g_ud), 0);
    ASSERT_EQ(sso_request_user_authcode_with_dsc("a", nullptr, nullptr, nullptr, &StringCb, &g_ud),
              0);
    int aliveChecks = 0;
    for (const auto &entry : sim_.Journal())
        aliveChecks += entry.method == "sso_check_alive" ? 1 : 0;
    EXPECT_EQ(aliveChecks, 2);
}

class RequestsSignedOut : public Requests {
protected:
    bool SignInFirst() const override { return false; }
};

TEST_F(RequestsSignedOut, ADeviceAuthcodeIsSentWhileAUserAuthcodeIsRefused)
{
    EXPECT_EQ(sso_request_device_authcode("app.id", "s", &StringCb, &g_ud), 0);
    EXPECT_EQ(sso_request_user_authcode("app.id", "s", &StringCb, &g_ud), -1);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 1u);
    EXPECT_EQ(journal[0].method, "sso_request_device_authcode");
}

TEST_F(RequestsSignedOut, TokenGenerationAndIdPasswordCodesNeedNobodySignedIn)
{
    EXPECT_EQ(sso_request_authcode_with_ID_PWD("a", "id", "pw", nullptr, &g_ud, &StringCb), 0);
    EXPECT_EQ(sso_generate_token_with_authcode_dsc("c", "u@example.com", "d", nullptr, &g_ud), 0);
    EXPECT_EQ(sso_register_account("u@example.com", "c", "d", &StringCb, &g_ud, true), 0);
    EXPECT_EQ(sso_set_passfw("id", "pw", &StringCb, &g_ud), 0);
    EXPECT_EQ(sso_switch_account("lee@example.com", &StringCb, &g_ud, nullptr), 0);
    EXPECT_EQ(sso_request_account_list(&StringCb, &g_ud), 0);
    EXPECT_EQ(Sent(sim_).size(), 6u);
}

TEST_F(Requests, TheNotificationFlagIsOneForTheDscRequestAndZeroWhenFalse)
{
    ASSERT_EQ(
        sso_generate_token_with_authcode_dsc("AC", "u@example.com", "D", &ResultOnlyCb, &g_ud), 0);
    ASSERT_EQ(sso_generate_token_with_authcode_dsc_noti("AC", "u@example.com", "D", &ResultOnlyCb,
                                                        &g_ud, false),
              0);
    ASSERT_EQ(sso_generate_token_with_authcode_dsc_noti("AC", "u@example.com", "D", &ResultOnlyCb,
                                                        &g_ud, true),
              0);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 3u);
    std::string head = "'D', int64 " + Int(&ResultOnlyCb) + ", ";
    EXPECT_NE(journal[0].args.find(head + "1, int64"), std::string::npos) << journal[0].args;
    EXPECT_NE(journal[1].args.find(head + "0, int64"), std::string::npos) << journal[1].args;
    EXPECT_NE(journal[2].args.find(head + "1, int64"), std::string::npos) << journal[2].args;
    // The wrapper writes no start line of its own.
    EXPECT_TRUE(log().LinesWith({"sso_generate_token_with_authcode_dsc(", "[START]"}).empty());
    EXPECT_EQ(log().Count("\033[0;35m[START] use_notification [1]\033[0m"), 2);
    EXPECT_EQ(log().Count("\033[0;35m[START] use_notification [0]\033[0m"), 1);
}

TEST_F(Requests, TokenGeneratingMembersAcceptANullCallback)
{
    EXPECT_EQ(sso_generate_token_with_authcode_dsc("AC", "u@example.com", nullptr, nullptr, &g_ud),
              0);
    EXPECT_EQ(sso_generate_token_with_authcode_dsc_deleteFlag("u@example.com", "AC", false, "D",
                                                              nullptr, &g_ud),
              0);
    EXPECT_EQ(sso_generate_token_with_ID_PWD("u@example.com", "pw", true, nullptr, &g_ud), 0);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 3u);
    for (const auto &entry : journal)
        EXPECT_NE(entry.args.find("int64 0, "), std::string::npos) << entry.args;
    // Their results arrive and are dropped.
    ASSERT_TRUE(sim_.WaitForDeliveries(3));
    EXPECT_TRUE(ssotest::WaitUntil([&] { return log().Count(Red("pCallback is 0")) == 3; }));
    EXPECT_EQ(Recorder::Get().Count(), 0u);
}

// --------------------------------------------------- account operations

TEST_F(Requests, SwitchingWithAnEmptyAccountIdAndAGuidSwitchesByGuid)
{
    ASSERT_EQ(sso_private_request_switch_account_by_id_or_guid("", leeGuid_.c_str(), &StringCb,
                                                               &g_ud, "x"),
              0);
    // Both given: the account id wins.
    ASSERT_EQ(sso_private_request_switch_account_by_id_or_guid("lee@example.com", leeGuid_.c_str(),
                                                               &StringCb, &g_ud, "x"),
              0);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 2u);
    EXPECT_EQ(journal[0].method, "sso_switch_account_by_guid");
    EXPECT_EQ(journal[0].args, "('" + ObjectName() + "', '" + leeGuid_ + "', 'x', int64 " +
                                   Int(&StringCb) + ", int64 " + Tid() + ", int64 " + Int(&g_ud) +
                                   ", 0, 'sso_switch_account_by_guid')");
    EXPECT_EQ(journal[1].method, "sso_switch_account");
    EXPECT_NE(journal[1].args.find("'lee@example.com', 'x'"), std::string::npos);
}

TEST_F(Requests, SwitchingWithAnEmptyAccountIdIsRefused)
{
    EXPECT_EQ(sso_switch_account("", &StringCb, &g_ud, "x"), -1);
    EXPECT_TRUE(log().Contains(Red("accountInfo is empty")));
    EXPECT_TRUE(sim_.Journal().empty());
    // Its end line is still written.
    EXPECT_EQ(log().LinesWith({"sso_switch_account(", "\033[0;35m[END] \033[0m"}).size(), 1u);
}

TEST_F(Requests, AnEmptySwitchExtraIsSentAsHasNoValue)
{
    ASSERT_EQ(sso_switch_account("lee@example.com", &StringCb, &g_ud, ""), 0);
    ASSERT_EQ(sso_switch_account_by_guid(leeGuid_.c_str(), &StringCb, &g_ud, ""), 0);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 2u);
    EXPECT_NE(journal[0].args.find("'lee@example.com', 'HAS_NO_VALUE', int64"), std::string::npos);
    EXPECT_NE(journal[1].args.find("'" + leeGuid_ + "', 'HAS_NO_VALUE', int64"), std::string::npos);
}

TEST_F(Requests, ASwitchByGuidKeepsTheGuidOutOfTheAlwaysLine)
{
    ASSERT_EQ(sso_switch_account_by_guid(leeGuid_.c_str(), &StringCb, &g_ud, nullptr), 0);
    EXPECT_TRUE(log().Contains("\033[0;33mmethodName[sso_switch_account_by_guid] "
                               "accountInfo[<hidden>] switch_account_cb[" +
                               Int(&StringCb) + "] dbusProxyTid[" + Tid() + "]\033[0m"));
    EXPECT_FALSE(LibraryLog().find(leeGuid_) != std::string::npos);
    root_.CreateDeviceFile("/etc/debug");
    ASSERT_EQ(sso_switch_account_by_guid(leeGuid_.c_str(), &StringCb, &g_ud, nullptr), 0);
    EXPECT_TRUE(log().Contains("\033[0;32m[DEVEL] accountInfo = " + leeGuid_ + "\033[0m"));
}

TEST_F(Requests, RegisteringWithoutLoginSendsOff)
{
    ASSERT_EQ(sso_register_account("new@example.com", "AC", "DSC", &StringCb, &g_ud, false), 0);
    ASSERT_EQ(sso_register_account("new@example.com", "AC", "", &StringCb, &g_ud, true), 0);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 2u);
    EXPECT_NE(journal[0].args.find("'new@example.com', 'AC', 'DSC', 'off', int64"),
              std::string::npos);
    // The DSC travels as given: an empty one stays empty.
    EXPECT_NE(journal[1].args.find("'new@example.com', 'AC', '', 'on', int64"), std::string::npos);
}

TEST_F(RequestsSignedOut, CurrentAccountNotiWhileSignedOutSendsNotEvenALivenessCheck)
{
    EXPECT_EQ(sso_request_current_account_noti(), -1);
    EXPECT_TRUE(log().Contains(Red("result [0], Login State [0]. Return (Not login state)")));
    EXPECT_TRUE(sim_.Journal().empty());
}

TEST_F(Requests, SwitchingIsNotAvailableWhenTheServiceIsNotRunning)
{
    sim_.Stop();
    EXPECT_FALSE(sso_is_account_switching_available());
    EXPECT_TRUE(log().Contains("\033[0;35m[END] return: false\033[0m"));
}

TEST_F(Requests, ResetAndSwitchingAvailabilityCheckNothingFirst)
{
    sim_.SignOut();
    EXPECT_EQ(sso_reset(), 0);
    EXPECT_TRUE(sso_is_account_switching_available());
    auto journal = sim_.Journal();
    ASSERT_EQ(journal.size(), 2u);
    EXPECT_EQ(journal[0].method, "sso_reset");
    EXPECT_EQ(journal[1].method, "sso_is_account_switching_available");
}

TEST_F(Requests, AccountOperationsWithoutChecksSendWhileTheLivenessCheckFails)
{
    ssotest::Behaviour refuse;
    refuse.accept = 0;
    sim_.Configure("sso_check_alive", refuse);
    EXPECT_EQ(sso_verify_password("pw", &StringCb, &g_ud), 0);
    EXPECT_EQ(sso_set_passfw("id", "pw", &StringCb, &g_ud), 0);
    EXPECT_EQ(sso_switch_account_with_usertoken("id", &StringCb, &g_ud, "UT"), 0);
    // Last: the simulator signs out soon after accepting it, and the password
    // check needs a signed-in user.
    EXPECT_EQ(sso_perform_logout(&StringCb, &g_ud, "confirm-1"), 0);
    EXPECT_EQ(sim_.Journal().size(), 4u);
    EXPECT_NE(sim_.Journal()[3].args.find("'confirm-1', int64"), std::string::npos);
}

// ------------------------------------------- auth codes with a DSC record

TEST_F(Requests, TheDscRequestSendsHasNoValueForEveryMissingStringInFiveStrings)
{
    ASSERT_EQ(
        sso_request_user_authcode_with_dsc("app.id", nullptr, nullptr, nullptr, &StringCb, &g_ud),
        0);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 1u);
    EXPECT_EQ(journal[0].args, "('" + ObjectName() +
                                   "', 'app.id', 'HAS_NO_VALUE', 'HAS_NO_VALUE', 'HAS_NO_VALUE', "
                                   "int64 " +
                                   Int(&StringCb) + ", int64 " + Tid() + ", int64 " + Int(&g_ud) +
                                   ", 0, 'sso_request_user_authcode_with_dsc')");
}

TEST_F(Requests, AnEmptyCodeChallengeIsSentAsAnEmptySixthField)
{
    ASSERT_EQ(
        sso_request_user_authcode_with_challenge("app.id", "s", "d", "r", "", &StringCb, &g_ud), 0);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 1u);
    EXPECT_NE(journal[0].args.find("'app.id', 's', 'd', 'r', '', int64"), std::string::npos)
        << journal[0].args;
}

TEST_F(Requests, TheTupleShapeFollowsTheWholeMethodName)
{
    ASSERT_EQ(
        sso_request_user_authcode_with_verifier("app.id", "s", "d", "r", "VER", &StringCb, &g_ud),
        0);
    ASSERT_EQ(
        sso_request_user_authcode_with_challenge("app.id", "s", "d", "r", "CH", &StringCb, &g_ud),
        0);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 2u);
    EXPECT_EQ(journal[0].args, "('" + ObjectName() + "', 'app.id', 's', 'd', 'r', 'VER', int64 " +
                                   Int(&StringCb) + ", int64 " + Tid() + ", int64 " + Int(&g_ud) +
                                   ", 0, 'sso_request_user_authcode_with_verifier')");
    EXPECT_NE(journal[1].args.find("'r', 'CH', int64"), std::string::npos) << journal[1].args;
    EXPECT_TRUE(log().Contains("\033[0;33mdbusObjName[" + ObjectName() + "] dbusProxyTid[" + Tid() +
                               "]\033[0m"));

    // A record naming no request the library knows is refused, never sent.
    _SSOAPIReqAuthCodeWithDSCData data;
    data.methodName = "sso_request_user_authcode_with_verifier_v2";
    data.clientId = "app.id";
    data.pRequestAuthCodeCB = &StringCb;
    EXPECT_EQ(sso_private_request_user_authcode_with_dsc(data), -1);
    EXPECT_EQ(Sent(sim_).size(), 2u);
}

TEST_F(Requests, TheRecordRendersEveryFieldOnALineOfItsOwn)
{
    _SSOAPIReqAuthCodeWithDSCData data;
    EXPECT_EQ(data.ToString(), "[\n  methodName: \n  clientId: \n  scope: \n  "
                               "deviceSecurityCode: \n  responseType: \n  codeChallenge: \n  "
                               "codeVerifier: \n  pRequestAuthCodeCB: 0\n  pUserData: 0\n]");
}

TEST_F(Requests, WithTheDebugMarkerTheRecordIsLoggedWithEveryField)
{
    root_.CreateDeviceFile("/etc/debug");
    ASSERT_EQ(sso_request_user_authcode_with_verifier("app.id", "s", nullptr, "code", "VER-9",
                                                      &StringCb, &g_ud),
              0);
    std::string expected = "\033[0;32m[DEVEL] reqAuthCodeWithDSCData [\n"
                           "  methodName: sso_request_user_authcode_with_verifier\n"
                           "  clientId: app.id\n"
                           "  scope: s\n"
                           "  deviceSecurityCode: HAS_NO_VALUE\n"
                           "  responseType: code\n"
                           "  codeChallenge: \n"
                           "  codeVerifier: VER-9\n"
                           "  pRequestAuthCodeCB: " +
                           Int(&StringCb) + "\n  pUserData: " + Int(&g_ud) + "\n]\033[0m";
    EXPECT_TRUE(log().Contains(expected)) << log().Text();
}

TEST_F(Requests, WithoutTheDebugMarkerTheRecordIsNotLogged)
{
    ASSERT_EQ(sso_request_user_authcode_with_verifier("app.id", "s", "DSC-7", "code", "VER-9",
                                                      &StringCb, &g_ud),
              0);
    EXPECT_FALSE(log().Contains("reqAuthCodeWithDSCData"));
    EXPECT_FALSE(log().Contains("VER-9"));
    EXPECT_FALSE(log().Contains("DSC-7"));
}

// ------------------------------------------------------ profile queries

TEST_F(RequestsSignedOut, IdentityAndDynamicAccountListAreSentWhileSignedOut)
{
    EXPECT_EQ(sso_identify_current_user_info(&TwoStringsCb, &g_ud), 0);
    EXPECT_EQ(sso_get_dynamic_my_account_list(&StringCb, &g_ud), 0);
    EXPECT_EQ(sso_get_user_info_v4(&StringCb, &g_ud), -1);
    EXPECT_EQ(sso_get_user_info(&UserInfoCb, &g_ud), -1);
    EXPECT_EQ(sso_get_namecheck_auth_info(&NameCheckCb, &g_ud), -1);
    EXPECT_EQ(sso_get_user_family_group("a", "t", &StringCb, &g_ud), -1);
    EXPECT_EQ(sso_get_user_group_users("a", "t", "g", &StringCb, &g_ud), -1);
    EXPECT_EQ(sso_get_user_json_info(&JsonCb, &g_ud), -1);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 2u);
    EXPECT_EQ(journal[0].method, "sso_identify_current_user_info");
    EXPECT_EQ(AeIndexOf(journal[0].args), 0);
    EXPECT_EQ(journal[1].method, "sso_get_dynamic_my_account_list");
    EXPECT_EQ(AeIndexOf(journal[1].args), 1);
    ASSERT_TRUE(WaitForCalls(2));
}

TEST_F(Requests, GroupUsersWithoutAGroupIdIsRefusedBeforeTheLivenessCheck)
{
    EXPECT_EQ(sso_get_user_group_users("a", "t", nullptr, &StringCb, &g_ud), -1);
    EXPECT_TRUE(sim_.Journal().empty());
    EXPECT_FALSE(log().Contains("---> methodName [sso_check_alive]"));
}

TEST_F(Requests, UserJsonInfoWithoutACallbackSendsAndDropsTheResultOnArrival)
{
    ASSERT_EQ(sso_get_user_json_info(nullptr, &g_ud), 0);
    ASSERT_EQ(Sent(sim_).size(), 1u);
    ASSERT_TRUE(sim_.WaitForDeliveries(1));
    EXPECT_TRUE(ssotest::WaitUntil([&] {
        return log().Contains(
            Red("SSO_API_CHECK_NULL_RETURN. Return (sso_get_user_json_info's callback is null)"));
    }));
    // The library still answers later requests.
    ASSERT_EQ(sso_get_user_json_info(&JsonCb, &g_ud), 0);
    ASSERT_TRUE(WaitForCalls(1));
    EXPECT_EQ(Recorder::Get().Calls()[0].userData, &g_ud);
}

TEST_F(Requests, UserJsonInfoWritesOnlyItsStartAndEndLines)
{
    ASSERT_EQ(sso_get_user_json_info(&JsonCb, &g_ud), 0);
    auto lines = log().LinesWith({"sso_get_user_json_info("});
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[0].find("\033[0;35m[START] \033[0m"), std::string::npos);
    EXPECT_NE(lines[1].find("\033[0;35m[END] \033[0m"), std::string::npos);
}

// ------------------------------------------------------ parameter lines

struct LineCase {
    const char *name;
    int (*send)();
    bool devel; // a [DEVEL] line: written only with the debug marker
    // The line's text between its colour codes; {cb} and {tid} are filled.
    const char *line;
    const void *callback;
};

void PrintTo(const LineCase &c, std::ostream *os)
{
    *os << c.name;
}

class RequestsParameterLine : public Requests, public ::testing::WithParamInterface<LineCase> {};

TEST_P(RequestsParameterLine, IsWrittenExactlyAndOnlyWithTheMarkerWhenItIsADevelLine)
{
    const LineCase &c = GetParam();
    std::string line = Expand(c.line, {{"cb", Int(c.callback)}, {"tid", Tid()}});
    std::string colored = (c.devel ? "\033[0;32m[DEVEL] " : "\033[0;33m") + line + "\033[0m";
    // A failed result changes nothing in the simulator: the first request (a
    // sign-out, a switch) cannot refuse the second by its effect.
    ssotest::Behaviour noEffect;
    noEffect.result = ssosim::kResultServiceError;
    sim_.Configure("*", noEffect);
    ASSERT_EQ(c.send(), 0);
    EXPECT_EQ(log().Contains(colored), !c.devel) << colored;
    root_.CreateDeviceFile("/etc/debug");
    log().Clear();
    ASSERT_EQ(c.send(), 0);
    EXPECT_TRUE(log().Contains(colored)) << colored;
}

INSTANTIATE_TEST_SUITE_P(
    EveryMember, RequestsParameterLine,
    ::testing::Values(
        LineCase{"AccessTokenWithScope",
                 [] {
                     return sso_request_access_token_with_scope("app.id", "secret-1", nullptr,
                                                                &StringCb, &g_ud);
                 },
                 true,
                 "app_id = app.id, secret_key = secret-1, paramScope = HAS_NO_VALUE, "
                 "request_access_token_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"AccessTokenUsingAuthcode",
                 [] {
                     return sso_request_access_token_using_authcode("app.id", "secret-1", "AC-9",
                                                                    "s", &StringCb, &g_ud);
                 },
                 true,
                 "app_id = app.id, secret_key = secret-1, auth_code = AC-9, paramScope = s, "
                 "request_access_token_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"AuthCode",
                 [] { return sso_request_auth_code("app.id", nullptr, &StringCb, &g_ud); }, false,
                 "app_id = app.id, paramScope = HAS_NO_VALUE, request_auth_code_cb = {cb}, "
                 "dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"UserAuthcode",
                 [] { return sso_request_user_authcode("app.id", "s1", &StringCb, &g_ud); }, false,
                 "app_id = app.id, paramScope = s1, pAuthCodeFor = user, "
                 "request_user_auth_code_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"DeviceAuthcode",
                 [] { return sso_request_device_authcode("app.id", "s1", &StringCb, &g_ud); },
                 false,
                 "app_id = app.id, paramScope = s1, pAuthCodeFor = device, "
                 "request_device_auth_code_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"EffortlessLogin",
                 [] {
                     return sso_request_auth_code_for_effortless_login("app.id", "s2", &StringCb,
                                                                       &g_ud);
                 },
                 true,
                 "app_id = app.id, paramScope = s2, request_auth_code_cb = {cb}, "
                 "dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"AuthcodeWithIdPwd",
                 [] {
                     return sso_request_authcode_with_ID_PWD("app.id", "kim@example.com", "pw-1",
                                                             nullptr, &g_ud, &StringCb);
                 },
                 false,
                 "app_id = app.id, account_id = kim@example.com, paramScope = HAS_NO_VALUE, "
                 "request_auth_code_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"AuthcodeForOtherDevice",
                 [] { return sso_request_authcode_for_other_device(nullptr, &StringCb, &g_ud); },
                 true,
                 "paramDSC = HAS_NO_VALUE, request_auth_code_for_other_device_cb = {cb}, "
                 "dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"DscNoti",
                 [] {
                     return sso_generate_token_with_authcode_dsc_noti(
                         "AC-1", "new@example.com", "DSC-2", &ResultOnlyCb, &g_ud, false);
                 },
                 true,
                 "authcode = AC-1, userid = new@example.com, paramDSC = DSC-2, "
                 "paramUseNotification = 0, request_oauth_token_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&ResultOnlyCb)},
        LineCase{"DscDeleteFlag",
                 [] {
                     return sso_generate_token_with_authcode_dsc_deleteFlag(
                         "new@example.com", "AC-1", true, nullptr, &StringCb, &g_ud);
                 },
                 true,
                 "userid = new@example.com, authcode = AC-1, paramDeleteFlag = 1, "
                 "paramDSC = HAS_NO_VALUE, request_oauth_token_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"GenerateWithIdPwd",
                 [] {
                     return sso_generate_token_with_ID_PWD("new@example.com", "pw-2", false,
                                                           &StringCb, &g_ud);
                 },
                 false,
                 "userid = new@example.com, paramDeleteFlag = 0, request_oauth_token_cb = {cb}, "
                 "dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"RegisterAccount",
                 [] {
                     return sso_register_account("new@example.com", "AC-3", "DSC-3", &StringCb,
                                                 &g_ud, false);
                 },
                 true,
                 "account_id = new@example.com, authcode = AC-3, paramDSC = DSC-3, "
                 "perform_login_flag = off, register_account_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"PerformLogout", [] { return sso_perform_logout(&StringCb, &g_ud, nullptr); },
                 false,
                 "paramConfirmID = HAS_NO_VALUE, perform_logout_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"VerifyPassword", [] { return sso_verify_password("pw-3", &StringCb, &g_ud); },
                 false, "verify_password_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"RequestAccountList", [] { return sso_request_account_list(&StringCb, &g_ud); },
                 false, "request_account_list_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"SetPassfw",
                 [] { return sso_set_passfw("kim@example.com", "pw-4", &StringCb, &g_ud); }, false,
                 "account_id = kim@example.com, callback = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"RequestResetPasswd",
                 [] { return sso_request_reset_passwd("kim@example.com", &StringCb, &g_ud); },
                 false, "email = kim@example.com, reset_passwd_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"SwitchAccount",
                 [] { return sso_switch_account("lee@example.com", &StringCb, &g_ud, nullptr); },
                 false,
                 "methodName[sso_switch_account] accountInfo[lee@example.com] "
                 "switch_account_cb[{cb}] dbusProxyTid[{tid}]",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"SwitchWithUsertoken",
                 [] {
                     return sso_switch_account_with_usertoken("lee@example.com", &StringCb, &g_ud,
                                                              "UT-1");
                 },
                 true,
                 "account_id = lee@example.com, usertoken = UT-1, switch_account_cb = {cb}, "
                 "dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"UserInfoV4", [] { return sso_get_user_info_v4(&StringCb, &g_ud); }, false,
                 "get_user_info_common_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"UserInfo", [] { return sso_get_user_info(&UserInfoCb, &g_ud); }, false,
                 "get_user_info_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&UserInfoCb)},
        LineCase{"Identify", [] { return sso_identify_current_user_info(&TwoStringsCb, &g_ud); },
                 false, "identify_user_info_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&TwoStringsCb)},
        LineCase{"Namecheck", [] { return sso_get_namecheck_auth_info(&NameCheckCb, &g_ud); },
                 false, "get_namecheck_auth_info_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&NameCheckCb)},
        LineCase{"DynamicAccountList",
                 [] { return sso_get_dynamic_my_account_list(&StringCb, &g_ud); }, false,
                 "callback = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"FamilyGroup",
                 [] { return sso_get_user_family_group("app.id", "AT-fam", &StringCb, &g_ud); },
                 true,
                 "app_id = app.id, access_token = AT-fam, get_user_family_group_cb = {cb}, "
                 "dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"GroupUsers",
                 [] {
                     return sso_get_user_group_users("app.id", "AT-grp", "group-7", &StringCb,
                                                     &g_ud);
                 },
                 true,
                 "app_id = app.id, access_token = AT-grp, group_id = group-7, "
                 "get_user_group_users_cb = {cb}, dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)},
        LineCase{"PartnerAuthInfo",
                 [] {
                     return sso_private_request_partner_auth_info("key-1", "value-1", "GET",
                                                                  &StringCb, &g_ud);
                 },
                 true,
                 "authKey = key-1, pAuthValue = value-1, pMethod = GET, pCallback = {cb}, "
                 "dbusProxyTid = {tid}",
                 reinterpret_cast<const void *>(&StringCb)}),
    [](const ::testing::TestParamInfo<LineCase> &info) { return std::string(info.param.name); });

// ------------------------------------------------------ many threads

TEST_F(Requests, ManyThreadsSendingAtOnceEachGetExactlyTheirOwnCallbacks)
{
    constexpr int kThreads = 8;
    constexpr int kPerThread = 25;
    constexpr int kTotal = kThreads * kPerThread;
    std::vector<int> slots(kTotal, 0);
    std::atomic<int> accepted{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i)
                if (sso_request_access_token("app.id", "secret", &StringCb,
                                             &slots[t * kPerThread + i]) == 0)
                    ++accepted;
        });
    for (auto &thread : threads)
        thread.join();
    ASSERT_EQ(accepted.load(), kTotal);
    ASSERT_TRUE(WaitForCalls(kTotal));

    std::vector<int> seen(kTotal, 0);
    for (const auto &call : Recorder::Get().Calls()) {
        EXPECT_EQ(call.thread, "SSOProxyMonitor");
        auto *slot = static_cast<int *>(call.userData);
        ASSERT_GE(slot, &slots.front());
        ASSERT_LE(slot, &slots.back());
        ++seen[slot - &slots.front()];
    }
    for (int i = 0; i < kTotal; ++i)
        EXPECT_EQ(seen[i], 1) << "request " << i;

    // Every request took an index of its own.
    std::set<int> indexes;
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), static_cast<size_t>(kTotal));
    for (const auto &entry : journal)
        indexes.insert(AeIndexOf(entry.args));
    EXPECT_EQ(indexes.size(), static_cast<size_t>(kTotal));
    EXPECT_EQ(*indexes.begin(), 0);
    EXPECT_EQ(*indexes.rbegin(), kTotal - 1);
}

TEST_F(Requests, ManyThreadsMixingRequestsAndRefusalsGetCallbacksOnlyForAccepted)
{
    constexpr int kThreads = 8;
    constexpr int kPerThread = 10;
    std::vector<int> slots(kThreads * kPerThread, 0);
    std::atomic<int> accepted{0};
    std::atomic<int> refused{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i) {
                void *ud = &slots[t * kPerThread + i];
                int r = -1;
                switch ((t + i) % 4) {
                case 0:
                    r = sso_request_auth_code("app.id", nullptr, &StringCb, ud);
                    break;
                case 1:
                    r = sso_get_user_info(&UserInfoCb, ud);
                    break;
                case 2:
                    r = sso_identify_current_user_info(&TwoStringsCb, ud);
                    break;
                default:
                    // Refused: a null argument.
                    if (sso_request_auth_code(nullptr, nullptr, &StringCb, ud) == -1)
                        ++refused;
                    continue;
                }
                if (r == 0)
                    ++accepted;
            }
        });
    for (auto &thread : threads)
        thread.join();
    int expected = accepted.load();
    ASSERT_GT(refused.load(), 0);
    ASSERT_EQ(expected + refused.load(), kThreads * kPerThread);
    ASSERT_TRUE(WaitForCalls(expected));
    ASSERT_TRUE(sim_.WaitForDeliveries(expected));
    auto calls = Recorder::Get().Calls();
    EXPECT_EQ(calls.size(), static_cast<size_t>(expected));
    std::set<void *> distinct;
    for (const auto &call : calls)
        distinct.insert(call.userData);
    EXPECT_EQ(distinct.size(), calls.size());
}

} // namespace
