// Every request function against the simulator: the exact tuple the service
// receives (method, every typed field, the callback and user data pointers,
// the request id, consecutive ae_index values from 0, the delivery method),
// and the result reaching the application's callback in the form of its
// shape, with its own user data, on the monitor thread.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "SSORequestTable.h"
#include "test_requests_support.h"

namespace {

using namespace reqtest;

struct RequestCase {
    const char *name;
    int (*send)(void *userData);
    const char *serverMethod;
    // The tuple text; {obj}, {cb}, {tid}, {ud} and {ae} are filled in.
    const char *args;
    const void *callback;
    // What the simulator delivers and what the callback must see.
    int result;
    std::vector<std::string> payloads;
    const char *callbackKind;
    int expectedResult;
    std::vector<std::string> expectedTexts;
    // Values that must never reach the log without the debug marker.
    std::vector<std::string> secrets;
};

void PrintTo(const RequestCase &c, std::ostream *os)
{
    *os << c.name;
}

template <typename F> const void *Fn(F f)
{
    return reinterpret_cast<const void *>(f);
}

const std::vector<std::string> kUserInfoPayloads = {"user-7", "Dr",    "Ann", "Lee",   "19700101",
                                                    "04524",  "+8210", "N",   "AUTH-Y"};

const std::vector<RequestCase> &Cases()
{
    static const std::vector<RequestCase> cases = {
        {"AccessTokenWithScope",
         [](void *ud) {
             return sso_request_access_token_with_scope("app.id", "secret-1", "read write",
                                                        &StringCb, ud);
         },
         "sso_request_access_token",
         "('{obj}', 'app.id', 'secret-1', 'read write', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
         "'sso_request_access_token')",
         Fn(&StringCb),
         0,
         {"AT-scope"},
         "string",
         0,
         {"AT-scope"},
         {"secret-1", "AT-scope"}},
        {"AccessToken",
         [](void *ud) { return sso_request_access_token("app.id", "secret-1", &StringCb, ud); },
         "sso_request_access_token",
         "('{obj}', 'app.id', 'secret-1', 'HAS_NO_VALUE', int64 {cb}, int64 {tid}, int64 {ud}, "
         "{ae}, 'sso_request_access_token')",
         Fn(&StringCb),
         3,
         {"AT-plain"},
         "string",
         3,
         {"AT-plain"},
         {"secret-1", "AT-plain"}},
        {"AccessTokenUsingAuthcode",
         [](void *ud) {
             return sso_request_access_token_using_authcode("app.id", "secret-1", "AC-9", "scope-a",
                                                            &StringCb, ud);
         },
         "sso_request_access_token_using_authcode",
         "('{obj}', 'app.id', 'secret-1', 'AC-9', 'scope-a', int64 {cb}, int64 {tid}, int64 {ud}, "
         "{ae}, 'sso_request_access_token')",
         Fn(&StringCb),
         0,
         {"AT-code"},
         "string",
         0,
         {"AT-code"},
         {"secret-1", "AC-9", "AT-code"}},
        {"AuthCode",
         [](void *ud) { return sso_request_auth_code("app.id", nullptr, &StringCb, ud); },
         "sso_request_auth_code",
         "('{obj}', 'app.id', 'HAS_NO_VALUE', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
         "'sso_request_auth_code')",
         Fn(&StringCb),
         0,
         {"AC-auth"},
         "string",
         0,
         {"AC-auth"},
         {"AC-auth"}},
        {"UserAuthcode",
         [](void *ud) { return sso_request_user_authcode("app.id", "s1", &StringCb, ud); },
         "sso_request_user_authcode",
         "('{obj}', 'app.id', 's1', 'user', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
         "'sso_request_service_auth_code')",
         Fn(&StringCb),
         0,
         {"AC-user"},
         "string",
         0,
         {"AC-user"},
         {"AC-user"}},
        {"DeviceAuthcode",
         [](void *ud) { return sso_request_device_authcode("app.id", nullptr, &StringCb, ud); },
         "sso_request_device_authcode",
         "('{obj}', 'app.id', 'HAS_NO_VALUE', 'device', int64 {cb}, int64 {tid}, int64 {ud}, "
         "{ae}, 'sso_request_service_auth_code')",
         Fn(&StringCb),
         0,
         {"AC-device"},
         "string",
         0,
         {"AC-device"},
         {"AC-device"}},
        {"AuthCodeForEffortlessLogin",
         [](void *ud) {
             return sso_request_auth_code_for_effortless_login("app.id", "s2", &StringCb, ud);
         },
         "sso_request_auth_code_for_effortless_login",
         "('{obj}', 'app.id', 's2', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
         "'sso_request_auth_code_for_effortless_login')",
         Fn(&StringCb),
         0,
         {"AC-easy"},
         "string",
         0,
         {"AC-easy"},
         {"AC-easy"}},
        {"AuthcodeWithIdPwd",
         [](void *ud) {
             return sso_request_authcode_with_ID_PWD("app.id", "kim@example.com", "pw-1", nullptr,
                                                     ud, &StringCb);
         },
         "sso_request_authcode_with_ID_PWD",
         "('{obj}', 'app.id', 'kim@example.com', 'pw-1', 'HAS_NO_VALUE', int64 {cb}, int64 {tid}, "
         "int64 {ud}, {ae}, 'sso_request_authcode_with_ID_PWD')",
         Fn(&StringCb),
         0,
         {"AC-idpwd"},
         "string",
         0,
         {"AC-idpwd"},
         {"pw-1", "AC-idpwd"}},
        {"AuthcodeForOtherDevice",
         [](void *ud) { return sso_request_authcode_for_other_device("DSC-1", &StringCb, ud); },
         "sso_request_authcode_for_other_device",
         "('{obj}', 'DSC-1', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
         "'sso_request_authcode_for_other_device')",
         Fn(&StringCb),
         0,
         {"AC-other"},
         "string",
         0,
         {"AC-other"},
         {"DSC-1", "AC-other"}},
        {"GenerateTokenWithAuthcodeDscNoti",
         [](void *ud) {
             return sso_generate_token_with_authcode_dsc_noti("AC-1", "new@example.com", "DSC-2",
                                                              &ResultOnlyCb, ud, false);
         },
         "sso_generate_token_with_authcode_dsc",
         "('{obj}', 'AC-1', 'new@example.com', 'DSC-2', int64 {cb}, 0, int64 {tid}, int64 {ud}, "
         "{ae}, 'sso_generate_token_with_authcode_dsc')",
         Fn(&ResultOnlyCb),
         4,
         {},
         "result-only",
         4,
         {},
         {"AC-1", "DSC-2"}},
        {"GenerateTokenWithAuthcodeDsc",
         [](void *ud) {
             return sso_generate_token_with_authcode_dsc("AC-1", "new@example.com", nullptr,
                                                         &ResultOnlyCb, ud);
         },
         "sso_generate_token_with_authcode_dsc",
         "('{obj}', 'AC-1', 'new@example.com', 'HAS_NO_VALUE', int64 {cb}, 1, int64 {tid}, "
         "int64 {ud}, {ae}, 'sso_generate_token_with_authcode_dsc')",
         Fn(&ResultOnlyCb),
         0,
         {},
         "result-only",
         0,
         {},
         {"AC-1"}},
        {"GenerateTokenWithAuthcodeDscDeleteFlag",
         [](void *ud) {
             return sso_generate_token_with_authcode_dsc_deleteFlag("new@example.com", "AC-1", true,
                                                                    nullptr, &StringCb, ud);
         },
         "sso_generate_token_with_authcode_dsc_deleteFlag",
         "('{obj}', 'new@example.com', 'AC-1', 'HAS_NO_VALUE', 1, int64 {cb}, int64 {tid}, "
         "int64 {ud}, {ae}, 'sso_generate_token_with_authcode_dsc_deleteFlag')",
         Fn(&StringCb),
         5,
         {"{\"del\":1}"},
         "string",
         5,
         {"{\"del\":1}"},
         {"AC-1"}},
        {"GenerateTokenWithIdPwd",
         [](void *ud) {
             return sso_generate_token_with_ID_PWD("new@example.com", "pw-2", false, &StringCb, ud);
         },
         "sso_generate_token_with_ID_PWD",
         "('{obj}', 'new@example.com', 'pw-2', 0, int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
         "'sso_generate_token_with_ID_PWD')",
         Fn(&StringCb),
         0,
         {"{\"idpwd\":1}"},
         "string",
         0,
         {"{\"idpwd\":1}"},
         {"pw-2"}},
        {"RegisterAccount",
         [](void *ud) {
             return sso_register_account("new@example.com", "AC-3", "DSC-3", &StringCb, ud, true);
         },
         "sso_register_account",
         "('{obj}', 'new@example.com', 'AC-3', 'DSC-3', 'on', int64 {cb}, int64 {tid}, int64 {ud}, "
         "{ae}, 'sso_register_account')",
         Fn(&StringCb),
         0,
         {"{\"registered\":1}"},
         "string",
         0,
         {"{\"registered\":1}"},
         {"AC-3", "DSC-3"}},
        {"PerformLogout",
         [](void *ud) { return sso_perform_logout(&StringCb, ud, nullptr); },
         "sso_perform_logout",
         "('{obj}', 'HAS_NO_VALUE', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
         "'sso_perform_logout')",
         Fn(&StringCb),
         0,
         {"{\"logout\":1}"},
         "string",
         0,
         {"{\"logout\":1}"},
         {}},
        {"VerifyPassword",
         [](void *ud) { return sso_verify_password("pw-3", &StringCb, ud); },
         "sso_verify_password",
         "('{obj}', 'pw-3', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, 'sso_verify_password')",
         Fn(&StringCb),
         2,
         {"{\"verified\":0}"},
         "string",
         2,
         {"{\"verified\":0}"},
         {"pw-3"}},
        {"RequestAccountList",
         [](void *ud) { return sso_request_account_list(&StringCb, ud); },
         "sso_request_account_list",
         "('{obj}', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, 'sso_request_account_list')",
         Fn(&StringCb),
         0,
         {"{\"list\":[]}"},
         "string",
         0,
         {"{\"list\":[]}"},
         {}},
        {"SetPassfw",
         [](void *ud) { return sso_set_passfw("kim@example.com", "pw-4", &StringCb, ud); },
         "sso_set_passfw",
         "('{obj}', 'kim@example.com', 'pw-4', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
         "'sso_set_passfw')",
         Fn(&StringCb),
         0,
         {"{\"passfw\":1}"},
         "string",
         0,
         {"{\"passfw\":1}"},
         {"pw-4"}},
        {"RequestResetPasswd",
         [](void *ud) { return sso_request_reset_passwd("kim@example.com", &StringCb, ud); },
         "sso_request_reset_passwd",
         "('{obj}', 'kim@example.com', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
         "'sso_request_reset_passwd')",
         Fn(&StringCb),
         0,
         {"{\"mail\":1}"},
         "string",
         0,
         {"{\"mail\":1}"},
         {}},
        {"SwitchAccount",
         [](void *ud) { return sso_switch_account("lee@example.com", &StringCb, ud, "x1"); },
         "sso_switch_account",
         "('{obj}', 'lee@example.com', 'x1', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
         "'sso_switch_account')",
         Fn(&StringCb),
         0,
         {"{\"switched\":1}"},
         "string",
         0,
         {"{\"switched\":1}"},
         {}},
        {"SwitchAccountByGuid",
         [](void *ud) { return sso_switch_account_by_guid("GUID-LEE-1", &StringCb, ud, nullptr); },
         "sso_switch_account_by_guid",
         "('{obj}', 'GUID-LEE-1', 'HAS_NO_VALUE', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
         "'sso_switch_account_by_guid')",
         Fn(&StringCb),
         0,
         {"{\"switched\":2}"},
         "string",
         0,
         {"{\"switched\":2}"},
         {"GUID-LEE-1"}},
        {"SwitchAccountWithUsertoken",
         [](void *ud) {
             return sso_switch_account_with_usertoken("lee@example.com", &StringCb, ud, "UT-1");
         },
         "sso_switch_account_with_usertoken",
         "('{obj}', 'lee@example.com', 'UT-1', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
         "'sso_switch_account_with_usertoken')",
         Fn(&StringCb),
         0,
         {"{\"switched\":3}"},
         "string",
         0,
         {"{\"switched\":3}"},
         {"UT-1"}},
        {"UserAuthcodeWithDsc",
         [](void *ud) {
             return sso_request_user_authcode_with_dsc("app.id", "s3", "DSC-4", "code", &StringCb,
                                                       ud);
         },
         "sso_request_user_authcode_with_dsc",
         "('{obj}', 'app.id', 's3', 'DSC-4', 'code', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
         "'sso_request_user_authcode_with_dsc')",
         Fn(&StringCb),
         0,
         {"AC-dsc"},
         "string",
         0,
         {"AC-dsc"},
         {"DSC-4", "AC-dsc"}},
        {"UserAuthcodeWithChallenge",
         [](void *ud) {
             return sso_request_user_authcode_with_challenge("app.id", nullptr, "DSC-5", "code",
                                                             "CH-1", &StringCb, ud);
         },
         "sso_request_user_authcode_with_challenge",
         "('{obj}', 'app.id', 'HAS_NO_VALUE', 'DSC-5', 'code', 'CH-1', int64 {cb}, int64 {tid}, "
         "int64 {ud}, {ae}, 'sso_request_user_authcode_with_challenge')",
         Fn(&StringCb),
         0,
         {"AC-ch"},
         "string",
         0,
         {"AC-ch"},
         {"DSC-5", "AC-ch"}},
        {"UserAuthcodeWithVerifier",
         [](void *ud) {
             return sso_request_user_authcode_with_verifier("app.id", "s4", nullptr, nullptr,
                                                            "VER-1", &StringCb, ud);
         },
         "sso_request_user_authcode_with_verifier",
         "('{obj}', 'app.id', 's4', 'HAS_NO_VALUE', 'HAS_NO_VALUE', 'VER-1', int64 {cb}, "
         "int64 {tid}, int64 {ud}, {ae}, 'sso_request_user_authcode_with_verifier')",
         Fn(&StringCb),
         0,
         {"AC-ver"},
         "string",
         0,
         {"AC-ver"},
         {"VER-1", "AC-ver"}},
        {"GetUserInfoV4",
         [](void *ud) { return sso_get_user_info_v4(&StringCb, ud); },
         "sso_get_user_info_v4",
         "('{obj}', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, 'sso_get_user_info_v4')",
         Fn(&StringCb),
         0,
         {"{\"v4\":true}"},
         "string",
         0,
         {"{\"v4\":true}"},
         {}},
        {"GetUserInfo",
         [](void *ud) { return sso_get_user_info(&UserInfoCb, ud); },
         "sso_get_user_info",
         "('{obj}', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, 'sso_get_user_info')",
         Fn(&UserInfoCb),
         0,
         kUserInfoPayloads,
         "user-info",
         0,
         kUserInfoPayloads,
         {"AUTH-Y"}},
        {"IdentifyCurrentUserInfo",
         [](void *ud) { return sso_identify_current_user_info(&TwoStringsCb, ud); },
         "sso_identify_current_user_info",
         "('{obj}', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, 'sso_identify_current_user_info')",
         Fn(&TwoStringsCb),
         6,
         {"19850505", "https://id.example/v"},
         "two-strings",
         6,
         {"19850505", "https://id.example/v"},
         {}},
        // The name check hands over a success flag: result 0 reads as 1 here.
        {"GetNamecheckAuthInfo",
         [](void *ud) { return sso_get_namecheck_auth_info(&NameCheckCb, ud); },
         "sso_get_namecheck_auth_info",
         "('{obj}', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, 'sso_get_namecheck_auth_info')",
         Fn(&NameCheckCb),
         0,
         {"19800202", "46", "https://check.example"},
         "name-check",
         1,
         {"19800202", "46", "https://check.example"},
         {}},
        {"GetDynamicMyAccountList",
         [](void *ud) { return sso_get_dynamic_my_account_list(&StringCb, ud); },
         "sso_get_dynamic_my_account_list",
         "('{obj}', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, 'sso_get_dynamic_my_account_list')",
         Fn(&StringCb),
         0,
         {"{\"dyn\":1}"},
         "string",
         0,
         {"{\"dyn\":1}"},
         {}},
        {"GetUserFamilyGroup",
         [](void *ud) { return sso_get_user_family_group("app.id", "AT-fam", &StringCb, ud); },
         "sso_get_user_family_group",
         "('{obj}', 'app.id', 'AT-fam', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
         "'sso_get_user_family_group')",
         Fn(&StringCb),
         0,
         {"{\"family\":1}"},
         "string",
         0,
         {"{\"family\":1}"},
         {"AT-fam"}},
        {"GetUserGroupUsers",
         [](void *ud) {
             return sso_get_user_group_users("app.id", "AT-grp", "group-7", &StringCb, ud);
         },
         "sso_get_user_group_users",
         "('{obj}', 'app.id', 'AT-grp', 'group-7', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
         "'sso_get_user_group_users')",
         Fn(&StringCb),
         0,
         {"{\"users\":1}"},
         "string",
         0,
         {"{\"users\":1}"},
         {"AT-grp"}},
    };
    return cases;
}

class RequestsPerMember : public Requests, public ::testing::WithParamInterface<RequestCase> {
protected:
    // Sends the member's request with its payloads scripted and waits for
    // its result.
    void SendAndWait()
    {
        const RequestCase &c = GetParam();
        ssotest::Behaviour behaviour;
        behaviour.payloads = c.payloads;
        sim_.Configure(c.serverMethod, behaviour);
        int userData = 0;
        ASSERT_EQ(c.send(&userData), 0);
        ASSERT_TRUE(WaitForCalls(1)) << "no callback for " << c.name;
    }
};

TEST_P(RequestsPerMember, SendsItsExactTupleWithConsecutiveEventIndexesFromZero)
{
    const RequestCase &c = GetParam();
    // A failed result changes nothing in the simulator: the first request
    // (a sign-out, a switch) cannot refuse the second by its effect.
    ssotest::Behaviour noEffect;
    noEffect.result = ssosim::kResultServiceError;
    sim_.Configure(c.serverMethod, noEffect);
    int first = 0;
    int second = 0;
    ASSERT_EQ(c.send(&first), 0);
    ASSERT_EQ(c.send(&second), 0);

    long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    ASSERT_GT(tid, 0);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 2u);
    const void *uds[] = {&first, &second};
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(journal[i].method, c.serverMethod);
        EXPECT_EQ(journal[i].args, Expand(c.args, {{"obj", ObjectName()},
                                                   {"cb", Int(c.callback)},
                                                   {"tid", std::to_string(tid)},
                                                   {"ud", Int(uds[i])},
                                                   {"ae", std::to_string(i)}}));
    }
    // Only the liveness check may precede, and only once.
    int aliveChecks = 0;
    for (const auto &entry : sim_.Journal())
        aliveChecks += entry.method == "sso_check_alive" ? 1 : 0;
    EXPECT_LE(aliveChecks, 1);
}

TEST_P(RequestsPerMember, DeliversTheResultToTheCallbackInTheFormOfItsShape)
{
    const RequestCase &c = GetParam();
    ssotest::Behaviour behaviour;
    behaviour.result = c.result;
    behaviour.payloads = c.payloads;
    sim_.Configure(c.serverMethod, behaviour);
    int userData = 0;
    ASSERT_EQ(c.send(&userData), 0);
    ASSERT_TRUE(WaitForCalls(1)) << "no callback for " << c.name;
    auto calls = Recorder::Get().Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].kind, c.callbackKind);
    EXPECT_EQ(calls[0].userData, &userData);
    EXPECT_EQ(calls[0].result, c.expectedResult);
    EXPECT_EQ(calls[0].texts, c.expectedTexts);
    EXPECT_EQ(calls[0].thread, "SSOProxyMonitor");
}

TEST_P(RequestsPerMember, LogsNoSecretWithoutTheDebugMarker)
{
    const RequestCase &c = GetParam();
    SendAndWait();
    std::string text = LibraryLog();
    EXPECT_NE(text.find("[START] "), std::string::npos);
    EXPECT_EQ(text.find("[DEVEL]"), std::string::npos);
    for (const auto &secret : c.secrets)
        EXPECT_EQ(text.find(secret), std::string::npos) << secret << " logged";
    EXPECT_EQ(text.find(kimGuid_), std::string::npos);
}

TEST_P(RequestsPerMember, LogsItsSecretsOnlyInDevelLinesWithTheDebugMarker)
{
    const RequestCase &c = GetParam();
    root_.CreateDeviceFile("/etc/debug");
    SendAndWait();
    // A multi-line [DEVEL] record continues on lines of its own.
    bool inDevel = false;
    for (const auto &line : log().Lines()) {
        bool libraryLine = line.find(" SSOAPIClient: ") != std::string::npos;
        if (libraryLine)
            inDevel = line.find("[DEVEL] ") != std::string::npos;
        else if (line.find(" SSOSimulator: ") != std::string::npos)
            inDevel = false;
        if (inDevel)
            continue;
        for (const auto &secret : c.secrets) {
            EXPECT_EQ(line.find(secret), std::string::npos) << "outside [DEVEL]: " << line;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryMember, RequestsPerMember, ::testing::ValuesIn(Cases()),
                         [](const ::testing::TestParamInfo<RequestCase> &info) {
                             return std::string(info.param.name);
                         });

// The cases above against the request table: a new asynchronous row fails
// here until its exact tuple has a case.
TEST(RequestsCases, CoverEveryAsynchronousRowOfTheTable)
{
    std::set<std::string> cased;
    for (const RequestCase &c : Cases())
        cased.insert(c.serverMethod);
    for (const SSORequestType &row : sso_requests::kTable) {
        // The retired partner request has a test of its own below, the
        // whitelist request in test_requests_whitelist.cpp.
        if (row.form != SSORequestForm::Async || row.delivery == nullptr ||
            std::string(row.function) == "sso_api_request_whitelist_accesstoken")
            continue;
        EXPECT_EQ(cased.count(row.serverMethod), 1u) << row.function << " has no case";
    }
}

// --------------------------------------------------- synchronous requests

struct SyncCase {
    const char *name;
    int (*send)();
    const char *method;
};

class RequestsSync : public Requests, public ::testing::WithParamInterface<SyncCase> {};

TEST_P(RequestsSync, SendsObjectNameRequestIdAndMethodNameAndTakesNoEventIndex)
{
    const SyncCase &c = GetParam();
    EXPECT_EQ(c.send(), 0);
    long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 1u);
    EXPECT_EQ(journal[0].method, c.method);
    EXPECT_EQ(journal[0].args,
              "('" + ObjectName() + "', int64 " + std::to_string(tid) + ", '" + c.method + "')");
    EXPECT_EQ(NextAeIndex(), 0);
}

TEST_P(RequestsSync, ReportsTheServicesRefusal)
{
    const SyncCase &c = GetParam();
    ssotest::Behaviour refuse;
    refuse.accept = 0;
    sim_.Configure(c.method, refuse);
    EXPECT_EQ(c.send(), -1);
    EXPECT_TRUE(log().Contains(Red("result(0) is not 1")));
}

INSTANTIATE_TEST_SUITE_P(
    EveryMember, RequestsSync,
    ::testing::Values(SyncCase{"IsAccountSwitchingAvailable",
                               [] { return sso_is_account_switching_available() ? 0 : -1; },
                               "sso_is_account_switching_available"},
                      SyncCase{"RequestCurrentAccountNoti",
                               [] { return sso_request_current_account_noti(); },
                               "sso_request_current_account_noti"},
                      SyncCase{"Reset", [] { return sso_reset(); }, "sso_reset"}),
    [](const ::testing::TestParamInfo<SyncCase> &info) { return std::string(info.param.name); });

TEST_F(Requests, IsAccountSwitchingAvailableLogsItsAnswer)
{
    EXPECT_TRUE(sso_is_account_switching_available());
    EXPECT_TRUE(log().Contains("\033[0;35m[END] return: true\033[0m"));
    ssotest::Behaviour refuse;
    refuse.accept = 2;
    sim_.Configure("sso_is_account_switching_available", refuse);
    EXPECT_FALSE(sso_is_account_switching_available());
    EXPECT_TRUE(log().Contains("\033[0;35m[END] return: false\033[0m"));
}

// -------------------------------------------------------- the JSON adapter

TEST_F(Requests, UserJsonInfoSendsAGetUserInfoCarryingTheAdaptersOwnCallback)
{
    int userData = 0;
    ASSERT_EQ(sso_get_user_json_info(&JsonCb, &userData), 0);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 1u);
    EXPECT_EQ(journal[0].method, "sso_get_user_info");
    long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    const std::string &args = journal[0].args;
    std::string head = "('" + ObjectName() + "', int64 ";
    ASSERT_EQ(args.rfind(head, 0), 0u) << args;
    EXPECT_NE(args.find(", int64 " + std::to_string(tid) + ", int64 "), std::string::npos);
    const std::string tail = ", 0, 'sso_get_user_info')";
    ASSERT_GT(args.size(), tail.size());
    EXPECT_EQ(args.substr(args.size() - tail.size()), tail);
    // Neither the application's callback nor its user data travel.
    EXPECT_EQ(args.find(Int(&JsonCb)), std::string::npos);
    EXPECT_EQ(args.find(Int(&userData)), std::string::npos);
}

TEST_F(Requests, UserJsonInfoHandsTheProfileAndCountryCodesAsJson)
{
    ssotest::Behaviour behaviour;
    behaviour.result = 0;
    behaviour.payloads = kUserInfoPayloads;
    sim_.Configure("sso_get_user_info", behaviour);
    int userData = 0;
    ASSERT_EQ(sso_get_user_json_info(&JsonCb, &userData), 0);
    ASSERT_TRUE(WaitForCalls(1));
    auto calls = Recorder::Get().Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].kind, "json");
    EXPECT_EQ(calls[0].userData, &userData);
    EXPECT_EQ(calls[0].result, 0);
    EXPECT_EQ(calls[0].thread, "SSOProxyMonitor");
    Json::Value json;
    ASSERT_TRUE(SSOAPIClientUtil::m_GetJsonObjectFromString(calls[0].texts[0], json))
        << calls[0].texts[0];
    EXPECT_EQ(json["user_id"].asString(), "user-7");
    EXPECT_EQ(json["prefix_name"].asString(), "Dr");
    EXPECT_EQ(json["first_name"].asString(), "Ann");
    EXPECT_EQ(json["last_name"].asString(), "Lee");
    EXPECT_EQ(json["birth_date"].asString(), "19700101");
    EXPECT_EQ(json["zip_code"].asString(), "04524");
    EXPECT_EQ(json["mobile_num"].asString(), "+8210");
    EXPECT_EQ(json["receive_email"].asString(), "N");
    EXPECT_EQ(json["alpha2CountryCode"].asString(), "KR");
    EXPECT_EQ(json["userCountryCode"].asString(), "KOR");
    EXPECT_FALSE(json.isMember("auth"));
}

TEST_F(Requests, UserJsonInfoPassesTheServicesResultThrough)
{
    ssotest::Behaviour behaviour;
    behaviour.result = 9;
    sim_.Configure("sso_get_user_info", behaviour);
    ASSERT_EQ(sso_get_user_json_info(&JsonCb, nullptr), 0);
    ASSERT_TRUE(WaitForCalls(1));
    EXPECT_EQ(Recorder::Get().Calls()[0].result, 9);
}

// ------------------------------------------- the internal partner request

TEST_F(Requests, PartnerAuthInfoSendsItsTupleAndItsResultIsNotDelivered)
{
    int userData = 0;
    ASSERT_EQ(
        sso_private_request_partner_auth_info("key-1", "value-1", "GET", &StringCb, &userData), 0);
    long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 1u);
    EXPECT_EQ(journal[0].method, "sso_request_partner_auth_info");
    EXPECT_EQ(journal[0].args, "('" + ObjectName() + "', 'key-1', 'value-1', 'GET', int64 " +
                                   Int(&StringCb) + ", int64 " + std::to_string(tid) + ", int64 " +
                                   Int(&userData) + ", 0, 'sso_return_partner_auth_info')");
    // No liveness or login check: nothing else was sent.
    EXPECT_EQ(sim_.Journal().size(), 1u);
    // The service delivers on a client method the dispatcher does not know.
    ASSERT_TRUE(sim_.WaitForDeliveries(1));
    EXPECT_EQ(sim_.Deliveries()[0].method, "sso_return_partner_auth_info");
    EXPECT_TRUE(ssotest::WaitUntil(
        [&] { return log().Contains(Red("clientMethodType is CLIENT_METHOD_NONE")); }));
    EXPECT_EQ(Recorder::Get().Count(), 0u);
}

} // namespace
