// The C++ API example, run as a user would run it: the account UI stand-in
// signs the user in, the example hears of it and prints a masked token.
#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "sso_simulator_harness.h"

namespace {

constexpr const char *kLoginId = "viewer@example.com";
constexpr const char *kAppId = "org.example.signin";

class SignInTokenExample : public ssotest::SimulatorTest {
protected:
    void SetUp() override
    {
        SimulatorTest::SetUp();
        ssotest::AccountSpec account;
        account.login_id = kLoginId;
        sim_.AddAccount(account);
        for (const char *id : {"com.veltra.tv.CSAccount", "com.veltra.tv.CSAccountPIN",
                               "QHVMP48x7k.WebAccountExtension"}) {
            auto r = ssotest::RunCommand({ssotest::ToolPath("sso-platform"), "app", "add", id,
                                          "--exec", ssotest::ToolPath("sso-account-ui-test")});
            ASSERT_EQ(r.status, 0) << r.out;
        }
        // The sign-in page signs the viewer in before it closes.
        const std::string dir = root_.path() + "/run/sso-account-ui";
        mkdir((root_.path() + "/run").c_str(), 0700);
        mkdir(dir.c_str(), 0700);
        std::ofstream(dir + "/com.veltra.tv.CSAccount.script") << "sign_in=" << kLoginId << "\n";
    }

    static ssotest::CommandResult Run(const std::vector<std::string> &extra = {})
    {
        std::vector<std::string> argv = {ssotest::ToolPath("sign_in_token"),
                                         "--app-id",
                                         kAppId,
                                         "--scope",
                                         "profile",
                                         "--timeout",
                                         "30"};
        argv.insert(argv.end(), extra.begin(), extra.end());
        return ssotest::RunCommand(argv, {{"SSO_PLATFORM_APP_ID", kAppId}},
                                   std::chrono::seconds(40));
    }

    std::vector<std::string> IssuedTokens()
    {
        Json::Value v;
        std::istringstream in(sim_.Issued());
        EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &v, nullptr));
        std::vector<std::string> tokens;
        for (const auto &entry : v["issued"])
            if (entry["kind"].asString() == "access_token" && entry["app_id"].asString() == kAppId)
                tokens.push_back(entry["value"].asString());
        return tokens;
    }
};

TEST_F(SignInTokenExample, SignsInThroughTheAccountUiThenPrintsTheTokenMasked)
{
    auto r = Run();
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("opening the sign-in page\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(std::string("login notification: signed in as ") + kLoginId),
              std::string::npos)
        << r.out;
    auto tokens = IssuedTokens();
    ASSERT_EQ(tokens.size(), 1u) << r.out;
    const std::string &token = tokens[0];
    EXPECT_NE(r.out.find("access token: " + token.substr(0, 6) + "... (" +
                         std::to_string(token.size()) + " characters)"),
              std::string::npos)
        << r.out;
    EXPECT_EQ(r.out.find(token), std::string::npos) << "the whole token was printed";
}

TEST_F(SignInTokenExample, GivesUpOnATokenThatMissesItsDeadline)
{
    sim_.SignIn(kLoginId);
    ssotest::Behaviour slow;
    slow.result_delay_ms = 5000;
    sim_.Configure("sso_request_access_token", slow);
    auto r = Run({"--deadline", "1"});
    EXPECT_EQ(r.status, 1) << r.out;
    EXPECT_NE(r.out.find(std::string("already signed in as ") + kLoginId), std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("no access token: deadline_exceeded"), std::string::npos) << r.out;
}

} // namespace
