// sso-platform feature against the library across processes: flags set by
// the tool read in process and the other way round, and the tool's output,
// exit codes, messages and help.
#include <system_info.h>
#include <sys/stat.h>

#include <string>

#include "app_control_test_util.h"
#include "sso_test_harness.h"

namespace {

using apptest::CliResult;
using apptest::RunCli;

constexpr const char *kKey = "com.veltra/featureconf/account.signin_mandatory";

class FeatureCli : public ssotest::RootTest {};

TEST_F(FeatureCli, SetGetUnsetRoundTrip)
{
    CliResult set = RunCli({"feature", "set", kKey, "true"});
    ASSERT_EQ(0, set.status) << set.err;
    EXPECT_EQ("", set.out);
    CliResult get = RunCli({"feature", "get", kKey});
    ASSERT_EQ(0, get.status) << get.err;
    EXPECT_EQ("true\n", get.out);

    ASSERT_EQ(0, RunCli({"feature", "set", kKey, "false"}).status);
    EXPECT_EQ("false\n", RunCli({"feature", "get", kKey}).out);

    CliResult unset = RunCli({"feature", "unset", kKey});
    ASSERT_EQ(0, unset.status) << unset.err;
    CliResult gone = RunCli({"feature", "get", kKey});
    EXPECT_EQ(1, gone.status);
    EXPECT_EQ("", gone.out);
    EXPECT_NE(std::string::npos, gone.err.find("is not set")) << gone.err;
}

TEST_F(FeatureCli, OneAndZeroAreAcceptedAsValues)
{
    ASSERT_EQ(0, RunCli({"feature", "set", kKey, "1"}).status);
    EXPECT_EQ("true\n", RunCli({"feature", "get", kKey}).out);
    ASSERT_EQ(0, RunCli({"feature", "set", kKey, "0"}).status);
    EXPECT_EQ("false\n", RunCli({"feature", "get", kKey}).out);
}

TEST_F(FeatureCli, FlagsSetByTheToolReadInProcessAndBack)
{
    ASSERT_EQ(0, RunCli({"feature", "set", kKey, "true"}).status);
    bool value = false;
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_get_custom_bool(kKey, &value));
    EXPECT_TRUE(value);

    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_set_custom_bool("other.flag", false));
    EXPECT_EQ("false\n", RunCli({"feature", "get", "other.flag"}).out);
    ASSERT_EQ(0, RunCli({"feature", "unset", "other.flag"}).status);
    EXPECT_EQ(SYSTEM_INFO_ERROR_NOT_SUPPORTED, system_info_get_custom_bool("other.flag", &value));
}

TEST_F(FeatureCli, TheRootOptionSelectsAnotherRoot)
{
    const std::string other = root_.path() + "/other-root";
    ASSERT_EQ(0, mkdir(other.c_str(), 0755)); // a root must exist
    ASSERT_EQ(0, RunCli({"--root", other, "feature", "set", kKey, "true"}).status);
    EXPECT_EQ(1, RunCli({"feature", "get", kKey}).status);
    EXPECT_EQ("true\n", RunCli({"--root", other, "feature", "get", kKey}).out);
}

TEST_F(FeatureCli, UnsettingAFlagThatIsNotSetFails)
{
    CliResult r = RunCli({"feature", "unset", kKey});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("is not set")) << r.err;
}

TEST_F(FeatureCli, AMalformedFlagFailsToGet)
{
    ASSERT_EQ(0, RunCli({"feature", "set", kKey, "true"}).status);
    std::ofstream(root_.path() + "/features/com.veltra%2Ffeatureconf%2Faccount.signin_mandatory")
        << "perhaps";
    CliResult r = RunCli({"feature", "get", kKey});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_NE(std::string::npos, r.err.find("malformed")) << r.err;
}

TEST_F(FeatureCli, BadUsageExitsWithTwo)
{
    const std::vector<std::vector<std::string>> bad = {
        {"feature"},
        {"feature", "toggle", kKey},
        {"feature", "set", kKey},
        {"feature", "set", kKey, "maybe"},
        {"feature", "set", kKey, "true", "extra"},
        {"feature", "get"},
        {"feature", "get", ""},
        {"feature", "unset"},
        {"feature", "get", kKey, "--type", "bool"},
        {"feature", "set", std::string(300, 'k'), "true"},
    };
    for (const auto &args : bad) {
        CliResult r = RunCli(args);
        EXPECT_EQ(2, r.status) << args.back();
        EXPECT_NE("", r.err) << args.back();
        EXPECT_EQ("", r.out) << args.back();
    }
    bool value = true;
    EXPECT_EQ(SYSTEM_INFO_ERROR_NOT_SUPPORTED, system_info_get_custom_bool(kKey, &value));
}

TEST_F(FeatureCli, HelpShowsCommandsAndExamples)
{
    ssotest::ExpectGroupHelp("feature", {"get", "set", "unset"}, "feature set");
}

} // namespace
