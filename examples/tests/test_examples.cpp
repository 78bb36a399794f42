// The example applications run as a user would run them, against the
// simulator on a private bus, and their output is checked.
#include <gtest/gtest.h>
#include <json/json.h>

#include <csignal>
#include <sstream>
#include <string>

#include "sso_simulator_harness.h"

namespace {

constexpr const char *kLoginId = "viewer@example.com";
constexpr const char *kTokenAppId = "org.example.tokenwatch";

class ExamplesTest : public ssotest::SimulatorTest {
protected:
    std::string AddViewer()
    {
        ssotest::AccountSpec account;
        account.login_id = kLoginId;
        return sim_.AddAccount(account);
    }

    static ssotest::ChildProcess StartTokenWatch(const std::string &timeout_s)
    {
        return ssotest::ChildProcess::Spawn({ssotest::ToolPath("token_watch"), "--app-id",
                                             kTokenAppId, "--secret", "s3cret", "--scope",
                                             "profile", "--timeout", timeout_s},
                                            {{"SSO_PLATFORM_APP_ID", kTokenAppId}});
    }

    // The access tokens the simulator issued to the example, oldest first.
    std::vector<std::string> IssuedTokens()
    {
        Json::Value v;
        Json::CharReaderBuilder builder;
        std::string errors;
        std::istringstream in(sim_.Issued());
        EXPECT_TRUE(Json::parseFromStream(builder, in, &v, &errors)) << errors;
        std::vector<std::string> tokens;
        for (const auto &entry : v["issued"]) {
            if (entry["kind"].asString() == "access_token" &&
                entry["app_id"].asString() == kTokenAppId) {
                EXPECT_EQ("profile", entry["scope"].asString());
                tokens.push_back(entry["value"].asString());
            }
        }
        return tokens;
    }

    // The example shows the start of the token and never all of it.
    static void ExpectMaskedToken(const std::string &out, const std::string &token)
    {
        ASSERT_GT(token.size(), 6u);
        EXPECT_NE(std::string::npos, out.find("access token: " + token.substr(0, 6) + "... (" +
                                              std::to_string(token.size()) + " characters)"))
            << out;
        EXPECT_EQ(std::string::npos, out.find(token)) << out;
    }
};

TEST_F(ExamplesTest, HelloSsoReportsTheSignedInAccount)
{
    std::string guid = AddViewer();
    sim_.SignIn(kLoginId);

    auto r = ssotest::RunCommand({ssotest::ToolPath("hello_sso")},
                                 {{"SSO_PLATFORM_APP_ID", "org.example.hello"}});
    EXPECT_EQ(0, r.status) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("service answers: yes\n")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("login state: signed in\n")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("registered accounts: 1\n")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find(std::string("signed in as: ") + kLoginId + "\n"))
        << r.out;
    EXPECT_NE(std::string::npos, r.out.find("account GUID: " + guid.substr(0, 6) + "...\n"))
        << r.out;
    EXPECT_EQ(std::string::npos, r.out.find(guid)) << r.out;
    // The liveness question really reached the service.
    auto journal = sim_.Journal();
    ASSERT_FALSE(journal.empty());
    EXPECT_EQ("sso_check_alive", journal.front().method);
}

TEST_F(ExamplesTest, TokenWatchGetsATokenForTheSignedInUserAndStopsOnSigint)
{
    AddViewer();
    sim_.SignIn(kLoginId);

    auto child = StartTokenWatch("60");
    ASSERT_TRUE(child.WaitForOutput("delivered on", std::chrono::seconds(20))) << child.output();
    child.Kill(SIGINT);
    EXPECT_EQ(0, child.Wait(std::chrono::seconds(10)));
    std::string out = child.ReadStdout();

    EXPECT_NE(std::string::npos, out.find(std::string("login state: signed in as ") + kLoginId))
        << out;
    auto tokens = IssuedTokens();
    ASSERT_EQ(1u, tokens.size()) << out;
    ExpectMaskedToken(out, tokens[0]);
    // Handed over from the library's thread to the main loop.
    EXPECT_NE(std::string::npos, out.find("delivered on the library's thread")) << out;
    EXPECT_NE(std::string::npos, out.find("stopped: interrupted, tokens received: 1")) << out;
}

TEST_F(ExamplesTest, TokenWatchRequestsATokenWhenAUserSignsIn)
{
    AddViewer();
    auto child = StartTokenWatch("60");
    ASSERT_TRUE(child.WaitForOutput("waiting for login changes")) << child.output();
    EXPECT_NE(std::string::npos, child.output().find("login state: signed out")) << child.output();
    EXPECT_TRUE(IssuedTokens().empty());

    sim_.SignIn(kLoginId);
    ASSERT_TRUE(child.WaitForOutput(std::string("login state changed: signed in as ") + kLoginId))
        << child.output();
    ASSERT_TRUE(child.WaitForOutput("delivered on", std::chrono::seconds(20))) << child.output();
    sim_.SignOut();
    EXPECT_TRUE(child.WaitForOutput("login state changed: signed out")) << child.output();
    child.Kill(SIGTERM);
    EXPECT_EQ(0, child.Wait(std::chrono::seconds(10)));
    std::string out = child.ReadStdout();

    auto tokens = IssuedTokens();
    ASSERT_EQ(1u, tokens.size()) << out;
    ExpectMaskedToken(out, tokens[0]);
    EXPECT_NE(std::string::npos, out.find("stopped: interrupted, tokens received: 1")) << out;
}

TEST_F(ExamplesTest, TokenWatchStopsAtItsTimeOut)
{
    auto child = StartTokenWatch("1");
    EXPECT_EQ(0, child.Wait(std::chrono::seconds(15)));
    std::string out = child.ReadStdout();
    EXPECT_NE(std::string::npos, out.find("login state: signed out")) << out;
    EXPECT_EQ(std::string::npos, out.find("requesting an access token")) << out;
    EXPECT_NE(std::string::npos, out.find("stopped: time-out, tokens received: 0")) << out;
}

} // namespace
