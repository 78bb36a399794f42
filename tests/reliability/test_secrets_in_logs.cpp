// No secret reaches the log without the debug marker. The test runs the
// flows that move secrets (tokens, auth codes, GUIDs, user tokens, passwords,
// device codes) through the library and the simulator, then asks the
// simulator for every secret it issued or holds, adds the ones the test sent
// (each checked against the simulator's journal), and scans the whole
// captured log, the simulator's lines included. Without the /etc/debug
// marker no line may carry a secret; with it, only "[DEVEL] " lines may.
#include <json/json.h>
#include <package_manager_admin.h>
#include <vconf.h>

#include <cstdlib>
#include <cstring>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "loop_thread.h"
#include "reliability_support.h"
#include "sso_api/sso_api.h"
#include "signed_package.h"
#include "test_certs.h"

namespace {

using reliability::ReceivedLog;
using reliability::RecordingCb;

constexpr char kAppId[] = "org.example.secrets";
constexpr const char *kPackage = "org.example.secrets.pkg";
constexpr const char *kClient = "org.example.player";
constexpr const char *kScope = "profile";
constexpr const char *kDevelMarker = "[DEVEL] ";

// Secrets the test itself hands to the library.
constexpr const char *kSecretKey = "SK-9c1e77a4f2b0";
constexpr const char *kKimPassword = "Pw-kim-5d83e1";
constexpr const char *kNewPassword = "Pw-new-a4c97b";
constexpr const char *kLeePassword = "Pw-lee-0b6f2d";
constexpr const char *kDsc = "DSC-7e4a19c2";
constexpr const char *kVerifier = "CV-3f08d6b1e5a2";
constexpr const char *kChallenge = "CC-91b2c7d40e6f";

Json::Value Parse(const std::string &text)
{
    Json::Value v;
    Json::CharReaderBuilder builder;
    std::string errors;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    reader->parse(text.data(), text.data() + text.size(), &v, &errors);
    return v;
}

int ResultOnlyCb(void *ud, int result)
{
    ReceivedLog::Get().Add(ud, result, "");
    return 0;
}
int UserInfoCb(void *ud, int result, sso_user_info info)
{
    ReceivedLog::Get().Add(ud, result, info.auth);
    return 0;
}
int NameCheckCb(void *ud, bool ok, char *, char *, char *)
{
    ReceivedLog::Get().Add(ud, ok ? 0 : 1, "");
    return 0;
}
int LoginCb(void *ud, int result, sso_login_state, char *text, char *)
{
    ReceivedLog::Get().Add(ud, result, text);
    return 0;
}
int g_multiCalls = 0;
int MultiLoginCb(sso_login_state, char *guid, void *)
{
    ReceivedLog::Get().Add(&g_multiCalls, 0, guid);
    return 0;
}

// The log's entries: a message that spans several lines (a record printed
// field by field) is one entry, and the marker on its first line covers all.
std::vector<std::string> Entries(const std::vector<std::string> &lines)
{
    static const std::regex start(R"(^\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2})");
    std::vector<std::string> entries;
    for (const auto &line : lines) {
        if (entries.empty() || std::regex_search(line, start))
            entries.push_back(line);
        else
            entries.back() += "\n" + line;
    }
    return entries;
}

class SecretsInLogs : public reliability::AppTest<ssotest::SimulatorTest, kAppId>,
                      public ::testing::WithParamInterface<bool> {
protected:
    void SetUp() override
    {
        AppTest::SetUp();
        if (GetParam())
            root_.CreateDeviceFile("/etc/debug");
        ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE,
                  certtest::AddSignedPackage(certtest::MakeCert(root_.path()), kPackage, kAppId));

        ssotest::AccountSpec kim = ssotest::KimAccount();
        kim.password = kKimPassword;
        sim_.AddAccount(kim);
        ssotest::AccountSpec lee = ssotest::LeeAccount();
        lee.password = kLeePassword;
        sim_.AddAccount(lee);
        sim_.SignIn("kim@example.com");
        sim_.RegisterClient(kClient, kSecretKey);
    }

    // Waits for the result of the last accepted request and gives its text.
    std::string Result(int accepted)
    {
        EXPECT_EQ(accepted, 0);
        size_t want = ++expected_;
        EXPECT_TRUE(ReceivedLog::Get().WaitFor(want)) << "no result " << want;
        auto all = ReceivedLog::Get().All();
        return all.size() >= want ? all[want - 1].text : "";
    }

    // A getter that hands out a text the caller frees.
    void Read(int (*getter)(char **))
    {
        char *text = nullptr;
        EXPECT_EQ(getter(&text), 0);
        free(text);
    }

    void RunFlows()
    {
        void *ud = &expected_;
        // Local reads of the signed-in account.
        for (auto getter :
             {sso_get_guid, sso_get_login_vd_uid, sso_get_auth_token, sso_get_device_id,
              sso_get_login_user_id, sso_get_login_json_info, sso_get_accounts})
            Read(getter);
        sso_login_info_s info;
        EXPECT_EQ(sso_get_login_info(&info), 0);

        // Tokens and codes, and what they buy.
        std::string token = Result(
            sso_request_access_token_with_scope(kClient, kSecretKey, kScope, &RecordingCb, ud));
        std::string code = Result(sso_request_auth_code(kClient, kScope, &RecordingCb, ud));
        Result(sso_request_access_token_using_authcode(kClient, kSecretKey, code.c_str(), kScope,
                                                       &RecordingCb, ud));
        Result(sso_request_user_authcode(kClient, kScope, &RecordingCb, ud));
        Result(sso_request_auth_code_for_effortless_login(kClient, kScope, &RecordingCb, ud));
        Result(sso_request_user_authcode_with_dsc(kClient, kScope, kDsc, "code", &RecordingCb, ud));
        Result(sso_request_user_authcode_with_challenge(kClient, kScope, kDsc, "code", kChallenge,
                                                        &RecordingCb, ud));
        Result(sso_request_user_authcode_with_verifier(kClient, kScope, kDsc, "code", kVerifier,
                                                       &RecordingCb, ud));
        Result(sso_request_authcode_for_other_device(kDsc, &RecordingCb, ud));
        Result(sso_request_authcode_with_ID_PWD(kClient, "kim@example.com", kKimPassword, kScope,
                                                ud, &RecordingCb));
        Result(sso_get_user_family_group(kClient, token.c_str(), &RecordingCb, ud));
        Result(sso_get_user_info(&UserInfoCb, ud));
        Result(sso_get_user_info_v4(&RecordingCb, ud));
        Result(sso_get_user_json_info(&RecordingCb, ud));
        Result(sso_get_namecheck_auth_info(&NameCheckCb, ud));
        Result(sso_request_account_list(&RecordingCb, ud));

        // Whitelist token: asked for, then read back from storage.
        Result(sso_request_whitelist_accesstoken(kAppId, kScope, &RecordingCb, ud));
        char *stored = nullptr;
        EXPECT_EQ(sso_get_whitelist_accesstoken(kAppId, &stored), 0);
        free(stored);

        // Passwords and account operations.
        Result(sso_verify_password(kKimPassword, &RecordingCb, ud));
        Result(sso_set_passfw("kim@example.com", kNewPassword, &RecordingCb, ud));
        Result(sso_generate_token_with_ID_PWD("kim@example.com", kNewPassword, false, &RecordingCb,
                                              ud));
        std::string code2 = Result(sso_request_auth_code(kClient, kScope, &RecordingCb, ud));
        Result(sso_generate_token_with_authcode_dsc(code2.c_str(), "kim@example.com", kDsc,
                                                    &ResultOnlyCb, ud));
        std::string code3 = Result(sso_request_auth_code(kClient, kScope, &RecordingCb, ud));
        Result(
            sso_register_account("new@example.com", code3.c_str(), kDsc, &RecordingCb, ud, false));

        // Login changes heard on a main loop, in the extended form that
        // carries the GUID, then a switch with a user token and by GUID.
        ssotest::LoopThread loop;
        loop.Run([] {
            EXPECT_EQ(sso_subscribe_login_state_change_extra(&LoginCb, &g_multiCalls), 0);
            EXPECT_EQ(sso_register_login_state_changed_cb(&MultiLoginCb, nullptr), 0);
        });
        Json::Value accounts = Parse(sim_.Accounts());
        std::string leeAuth;
        std::string leeGuid;
        for (const auto &a : accounts["accounts"])
            if (a["login_id"].asString() == "lee@example.com") {
                leeAuth = a["auth"].asString();
                leeGuid = a["guid"].asString();
            }
        size_t before = ReceivedLog::Get().Count();
        Result(sso_switch_account_with_usertoken("lee@example.com", &RecordingCb, ud,
                                                 leeAuth.c_str()));
        Result(sso_switch_account_by_guid(leeGuid.c_str(), &RecordingCb, ud, nullptr));
        Result(sso_perform_logout(&RecordingCb, ud, nullptr));
        // Two subscribers heard the switch and the logout.
        EXPECT_TRUE(ReceivedLog::Get().WaitFor(before + 3 + 2 * 2));
        expected_ = ReceivedLog::Get().Count();
        loop.Run([] {
            sso_unsubscribe_login_state_change();
            sso_unregister_login_state_changed_cb(&MultiLoginCb);
        });
    }

    // Everything the simulator issued or holds, and what the test sent.
    std::set<std::string> Secrets()
    {
        std::set<std::string> secrets;
        Json::Value issued = Parse(sim_.Issued());
        for (const auto &e : issued["issued"])
            secrets.insert(e["value"].asString());
        EXPECT_GE(issued["issued"].size(), 12u) << "the flows issued too little to tell";
        Json::Value accounts = Parse(sim_.Accounts());
        for (const auto &a : accounts["accounts"])
            for (const char *field : {"guid", "uid", "auth", "password", "device_id"})
                secrets.insert(a[field].asString());
        // What the simulator received: each of these is in its journal.
        std::string journal;
        for (const auto &e : sim_.Journal())
            journal += e.args + "\n";
        for (const char *sent :
             {kSecretKey, kKimPassword, kNewPassword, kDsc, kVerifier, kChallenge}) {
            EXPECT_NE(journal.find(sent), std::string::npos)
                << sent << " never reached the service";
            secrets.insert(sent);
        }
        // Too short to be told apart from other text.
        for (auto it = secrets.begin(); it != secrets.end();)
            it = it->size() < 6 ? secrets.erase(it) : std::next(it);
        return secrets;
    }

    size_t expected_ = 0;
};

TEST_P(SecretsInLogs, OnlyMarkedDebugLinesCarryASecret)
{
    const bool debug = GetParam();
    RunFlows();
    const std::set<std::string> secrets = Secrets();
    ASSERT_GT(secrets.size(), 20u);

    int marked = 0;
    int leaks = 0;
    for (const auto &line : Entries(log().Lines())) {
        const bool devel = line.find(kDevelMarker) != std::string::npos;
        if (devel) {
            EXPECT_TRUE(debug) << "a debug line without the marker file: " << line;
            ++marked;
        }
        for (const auto &secret : secrets) {
            if (line.find(secret) == std::string::npos)
                continue;
            if (debug && devel)
                continue;
            if (++leaks <= 20)
                ADD_FAILURE() << "secret " << secret << " in: " << line;
        }
    }
    EXPECT_EQ(leaks, 0);
    // With the marker the same flows do log their values, marked: the scan
    // above looked at lines that could have carried them.
    if (debug) {
        EXPECT_GT(marked, 10);
    }
}

INSTANTIATE_TEST_SUITE_P(Marker, SecretsInLogs, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool> &info) {
                             return std::string(info.param ? "WithDebugMarker"
                                                           : "WithoutDebugMarker");
                         });

} // namespace
