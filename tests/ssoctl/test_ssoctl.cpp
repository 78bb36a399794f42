// ssoctl, the command-line client, run as a child process against the
// simulator.
#include <gtest/gtest.h>
#include <json/json.h>

#include <csignal>
#include <sstream>
#include <string>
#include <vector>

#include "sso_simulator_harness.h"

namespace {

class SsoctlTest : public ssotest::SimulatorTest {
protected:
    static std::vector<std::string> Cmd(const std::vector<std::string> &args)
    {
        std::vector<std::string> argv{ssotest::ToolPath("ssoctl")};
        argv.insert(argv.end(), args.begin(), args.end());
        return argv;
    }

    // stdout and stderr together.
    static ssotest::CommandResult RunMerged(const std::vector<std::string> &args)
    {
        std::vector<std::string> argv{"/bin/sh", "-c", "exec \"$@\" 2>&1", "sh",
                                      ssotest::ToolPath("ssoctl")};
        argv.insert(argv.end(), args.begin(), args.end());
        return ssotest::RunCommand(argv);
    }

    static Json::Value ParseJson(const std::string &text)
    {
        Json::Value v;
        Json::CharReaderBuilder builder;
        std::string errors;
        std::istringstream in(text);
        EXPECT_TRUE(Json::parseFromStream(builder, in, &v, &errors)) << errors << "\n" << text;
        return v;
    }

    std::string SignedInGuid()
    {
        ssotest::AccountSpec account;
        account.login_id = "viewer@example.com";
        std::string guid = sim_.AddAccount(account);
        sim_.SignIn(account.login_id);
        return guid;
    }
};

TEST_F(SsoctlTest, StatusSignedOut)
{
    auto r = ssotest::RunCommand(Cmd({"status"}));
    EXPECT_EQ(0, r.status) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("signed out")) << r.out;
    EXPECT_EQ(std::string::npos, r.out.find("login id:")) << r.out;
}

TEST_F(SsoctlTest, StatusSignedInMasksGuid)
{
    std::string guid = SignedInGuid();
    auto r = ssotest::RunCommand(Cmd({"status"}));
    EXPECT_EQ(0, r.status) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("signed in")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("viewer@example.com")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find(guid.substr(0, 6) + "\xE2\x80\xA6")) << r.out;
    EXPECT_EQ(std::string::npos, r.out.find(guid)) << r.out;

    auto shown = ssotest::RunCommand(Cmd({"status", "--show-secrets"}));
    EXPECT_EQ(0, shown.status);
    EXPECT_NE(std::string::npos, shown.out.find(guid)) << shown.out;
}

TEST_F(SsoctlTest, StatusJsonParses)
{
    SignedInGuid();
    auto r = ssotest::RunCommand(Cmd({"--json", "status"}));
    ASSERT_EQ(0, r.status) << r.out;
    Json::Value v = ParseJson(r.out);
    EXPECT_TRUE(v["alive"].asBool());
    EXPECT_TRUE(v["signed_in"].asBool());
    EXPECT_EQ("viewer@example.com", v["login_id"].asString());
    EXPECT_EQ(1, v["account_count"].asInt());
}

TEST_F(SsoctlTest, TokenMaskedAndShown)
{
    SignedInGuid();
    auto r = ssotest::RunCommand(Cmd({"token", "--app-id", "tv.app", "--secret", "k"}));
    EXPECT_EQ(0, r.status) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("\xE2\x80\xA6")) << r.out;

    auto shown = ssotest::RunCommand(
        Cmd({"--json", "token", "--app-id", "tv.app", "--secret", "k", "--show-secrets"}));
    ASSERT_EQ(0, shown.status) << shown.out;
    Json::Value v = ParseJson(shown.out);
    std::string token = v["access_token"].asString();
    ASSERT_FALSE(token.empty());
    EXPECT_NE(std::string::npos, sim_.Issued().find(token)) << token;
    EXPECT_EQ(std::string::npos, r.out.find(token));
}

TEST_F(SsoctlTest, TokenSignedOutFails)
{
    auto r = RunMerged({"token", "--app-id", "tv.app", "--secret", "k"});
    EXPECT_EQ(1, r.status) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("ssoctl: ")) << r.out;
}

TEST_F(SsoctlTest, TokenTimesOut)
{
    SignedInGuid();
    ssotest::Behaviour b;
    b.drop_result = true;
    sim_.Configure("sso_request_access_token", b);
    auto r = RunMerged({"token", "--app-id", "tv.app", "--secret", "k", "--timeout", "500"});
    EXPECT_EQ(3, r.status) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("timed out")) << r.out;
}

TEST_F(SsoctlTest, BadUsage)
{
    EXPECT_EQ(2, RunMerged({"frobnicate"}).status);
    EXPECT_EQ(2, RunMerged({"status", "--bogus"}).status);
    EXPECT_EQ(2, RunMerged({"token", "--app-id"}).status);
    EXPECT_EQ(2, RunMerged({"token", "--secret", "k"}).status);
    EXPECT_EQ(2, RunMerged({"--timeout", "soon", "token"}).status);
    auto none = RunMerged({});
    EXPECT_EQ(2, none.status);
    EXPECT_NE(std::string::npos, none.out.find("ssoctl: ")) << none.out;

    auto help = ssotest::RunCommand(Cmd({"token", "--help"}));
    EXPECT_EQ(0, help.status);
    EXPECT_NE(std::string::npos, help.out.find("Example:")) << help.out;
    EXPECT_EQ(0, ssotest::RunCommand(Cmd({"--version"})).status);
}

TEST_F(SsoctlTest, AccountsMasksAuth)
{
    ssotest::AccountSpec account;
    account.login_id = "viewer@example.com";
    account.auth = "UT-0123456789abcdef";
    sim_.AddAccount(account);
    auto r = ssotest::RunCommand(Cmd({"accounts"}));
    ASSERT_EQ(0, r.status) << r.out;
    ParseJson(r.out);
    EXPECT_NE(std::string::npos, r.out.find("viewer@example.com")) << r.out;
    EXPECT_EQ(std::string::npos, r.out.find("UT-0123456789abcdef")) << r.out;
}

TEST_F(SsoctlTest, WatchPrintsSignIn)
{
    ssotest::AccountSpec account;
    account.login_id = "watcher@example.com";
    sim_.AddAccount(account);
    auto child = ssotest::ChildProcess::Spawn(Cmd({"watch"}));
    ASSERT_TRUE(child.WaitForOutput("watching")) << child.output();
    sim_.SignIn(account.login_id);
    EXPECT_TRUE(child.WaitForOutput("watcher@example.com")) << child.output();
    child.Kill(SIGINT);
    EXPECT_EQ(0, child.Wait());
}

} // namespace
