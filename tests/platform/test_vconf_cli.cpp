// sso-platform vconf against the library across processes: values written by
// one side read back typed on the other, changes reach watchers in other
// processes, and the tool's exit codes and messages.
#include <signal.h>
#include <vconf.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include "sso_test_harness.h"
#include "vconf_test_util.h"

namespace {

using vconftest::CliResult;
using vconftest::LoopThread;
using vconftest::Recorder;
using vconftest::RunCli;

class VconfCli : public ssotest::RootTest {};

// ---- values across processes ----

TEST_F(VconfCli, AnIntSetByTheToolReadsBackTypedInProcess)
{
    CliResult r = RunCli({"vconf", "set", "db/sso/login_status", "-3", "--type", "int"});
    ASSERT_EQ(0, r.status) << r.err;
    int v = 0;
    ASSERT_EQ(VCONF_OK, vconf_get_int("db/sso/login_status", &v));
    EXPECT_EQ(-3, v);
}

TEST_F(VconfCli, ABoolSetByTheToolReadsBackTypedInProcess)
{
    for (const char *text : {"true", "0", "1", "false"}) {
        CliResult r = RunCli({"vconf", "set", "--type=bool", "db/sso/enabled", text});
        ASSERT_EQ(0, r.status) << r.err;
        int v = -1;
        ASSERT_EQ(VCONF_OK, vconf_get_bool("db/sso/enabled", &v));
        EXPECT_EQ(std::string(text) == "true" || std::string(text) == "1", v == 1) << text;
    }
}

TEST_F(VconfCli, AStringSetByTheToolReadsBackTypedInProcess)
{
    CliResult r =
        RunCli({"vconf", "set", "db/sso/user", "Jane Doe\nsecond line", "--type", "string"});
    ASSERT_EQ(0, r.status) << r.err;
    char *s = vconf_get_str("db/sso/user");
    ASSERT_NE(nullptr, s);
    EXPECT_STREQ("Jane Doe\nsecond line", s);
    free(s);
    int v = 0;
    EXPECT_EQ(VCONF_ERROR_WRONG_TYPE, vconf_get_int("db/sso/user", &v));
}

struct GetCase {
    const char *name;
    int (*store)();
    const char *printed;
};

// Named cases print as their name in test listings.
void PrintTo(const GetCase &c, std::ostream *os)
{
    *os << c.name;
}

class VconfCliGet : public VconfCli, public ::testing::WithParamInterface<GetCase> {};

TEST_P(VconfCliGet, PrintsWhatTheLibrarySet)
{
    ASSERT_EQ(VCONF_OK, GetParam().store());
    CliResult r = RunCli({"vconf", "get", "db/test/key"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ(GetParam().printed, r.out);
    EXPECT_EQ("", r.err);
}

INSTANTIATE_TEST_SUITE_P(
    Types, VconfCliGet,
    ::testing::Values(
        GetCase{"Int", [] { return vconf_set_int("db/test/key", 42); }, "42\n"},
        GetCase{"NegativeInt", [] { return vconf_set_int("db/test/key", -7); }, "-7\n"},
        GetCase{"True", [] { return vconf_set_bool("db/test/key", 1); }, "true\n"},
        GetCase{"False", [] { return vconf_set_bool("db/test/key", 0); }, "false\n"},
        GetCase{"String", [] { return vconf_set_str("db/test/key", "hi there"); }, "hi there\n"},
        GetCase{"EmptyString", [] { return vconf_set_str("db/test/key", ""); }, "\n"},
        GetCase{"MultilineString", [] { return vconf_set_str("db/test/key", "a\nb"); }, "a\nb\n"}),
    [](const ::testing::TestParamInfo<GetCase> &info) { return std::string(info.param.name); });

TEST_F(VconfCli, UnsetRemovesAKeyTheLibrarySet)
{
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 1));
    CliResult r = RunCli({"vconf", "unset", "k"});
    EXPECT_EQ(0, r.status) << r.err;
    int v = 0;
    EXPECT_EQ(VCONF_ERROR_FILE_NO_ENT, vconf_get_int("k", &v));
}

TEST_F(VconfCli, TheRootOptionOverridesTheEnvironment)
{
    std::string other = root_.path() + "/other";
    ASSERT_EQ(0, mkdir(other.c_str(), 0755)); // a root must exist
    CliResult r = RunCli({"--root", other, "vconf", "set", "k", "9", "--type", "int"});
    ASSERT_EQ(0, r.status) << r.err;
    int v = 0;
    EXPECT_EQ(VCONF_ERROR_FILE_NO_ENT, vconf_get_int("k", &v));
    r = RunCli({"--root=" + other, "vconf", "get", "k"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("9\n", r.out);
}

// ---- exit codes and messages ----

struct ErrorCase {
    const char *name;
    std::vector<std::string> args;
    int status;
    const char *message; // expected in stderr
};

void PrintTo(const ErrorCase &c, std::ostream *os)
{
    *os << c.name;
}

class VconfCliError : public VconfCli, public ::testing::WithParamInterface<ErrorCase> {
protected:
    void SetUp() override
    {
        VconfCli::SetUp();
        ASSERT_EQ(VCONF_OK, vconf_set_int("int/key", 1));
    }
};

TEST_P(VconfCliError, ExitsWithItsStatusAndSaysWhyOnStderr)
{
    CliResult r = RunCli(GetParam().args);
    EXPECT_EQ(GetParam().status, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_EQ(0u, r.err.rfind("sso-platform: ", 0)) << r.err;
    EXPECT_NE(std::string::npos, r.err.find(GetParam().message)) << r.err;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, VconfCliError,
    ::testing::Values(
        ErrorCase{"GetMissingKey", {"vconf", "get", "missing"}, 1, "not set"},
        ErrorCase{"UnsetMissingKey", {"vconf", "unset", "missing"}, 1, "not set"},
        // The key is named as given, even one that looks like a format.
        ErrorCase{"MissingKeyNamedAsGiven",
                  {"vconf", "get", "db/100%s%d"},
                  1,
                  "sso-platform: key 'db/100%s%d' is not set"},
        ErrorCase{"SetAnotherType",
                  {"vconf", "set", "int/key", "x", "--type", "string"},
                  1,
                  "another type"},
        ErrorCase{"NoArguments", {}, 2, "missing command group"},
        ErrorCase{"UnknownGroup", {"nosuch"}, 2, "unknown command group 'nosuch'"},
        ErrorCase{"UnknownGlobalOption", {"--bogus", "vconf"}, 2, "unknown option"},
        ErrorCase{"MissingCommand", {"vconf"}, 2, "missing command"},
        ErrorCase{"UnknownCommand", {"vconf", "frob", "k"}, 2, "unknown command 'frob'"},
        ErrorCase{"UnknownOption", {"vconf", "get", "k", "--bogus"}, 2, "unknown option"},
        ErrorCase{"GetWithoutKey", {"vconf", "get"}, 2, "missing argument"},
        ErrorCase{"GetTooMany", {"vconf", "get", "a", "b"}, 2, "too many arguments"},
        ErrorCase{"SetWithoutValue", {"vconf", "set", "k", "--type", "int"}, 2, "missing argument"},
        ErrorCase{"SetWithoutType", {"vconf", "set", "k", "1"}, 2, "--type"},
        ErrorCase{"TypeWithoutValue", {"vconf", "set", "k", "1", "--type"}, 2, "needs a value"},
        ErrorCase{"BadType", {"vconf", "set", "k", "1", "--type", "float"}, 2, "invalid --type"},
        ErrorCase{"BadInt", {"vconf", "set", "k", "12x", "--type", "int"}, 2, "invalid int"},
        ErrorCase{"IntOutOfRange",
                  {"vconf", "set", "k", "99999999999", "--type", "int"},
                  2,
                  "invalid int"},
        ErrorCase{"BadBool", {"vconf", "set", "k", "yes", "--type", "bool"}, 2, "invalid bool"},
        ErrorCase{"EmptyKey", {"vconf", "get", ""}, 2, "invalid key"},
        ErrorCase{"WatchWithoutKeys", {"vconf", "watch"}, 2, "missing argument"},
        ErrorCase{"RootWithoutDir", {"--root"}, 2, "--root"}),
    [](const ::testing::TestParamInfo<ErrorCase> &info) { return std::string(info.param.name); });

TEST_F(VconfCli, AnUnwritableRootFailsWithStatusOne)
{
    vconftest::MakeStoreUnwritable(root_.path());
    for (const std::vector<std::string> &args :
         {std::vector<std::string>{"vconf", "set", "k", "1", "--type", "int"},
          std::vector<std::string>{"vconf", "unset", "k"},
          std::vector<std::string>{"vconf", "watch", "k"}}) {
        CliResult r = RunCli(args);
        EXPECT_EQ(1, r.status) << args[1];
        EXPECT_EQ(0u, r.err.rfind("sso-platform: ", 0)) << r.err;
    }
}

class VconfCliHelp : public VconfCli,
                     public ::testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(VconfCliHelp, PrintsUsageAndExitsZero)
{
    CliResult r = RunCli(GetParam());
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ(0u, r.out.rfind("Usage: sso-platform", 0)) << r.out;
    EXPECT_EQ("", r.err);
}

INSTANTIATE_TEST_SUITE_P(
    Levels, VconfCliHelp,
    ::testing::Values(std::vector<std::string>{"--help"}, std::vector<std::string>{"-h"},
                      std::vector<std::string>{"--root", "/nonexistent", "--help"},
                      std::vector<std::string>{"vconf", "--help"},
                      std::vector<std::string>{"vconf", "-h"},
                      std::vector<std::string>{"vconf", "get", "--help"},
                      std::vector<std::string>{"vconf", "set", "--help"},
                      std::vector<std::string>{"vconf", "set", "k", "-h"},
                      std::vector<std::string>{"vconf", "unset", "--help"},
                      std::vector<std::string>{"vconf", "watch", "--help"}));

TEST_F(VconfCli, HelpOfACommandShowsItsOptionsAndExamples)
{
    CliResult r = RunCli({"vconf", "set", "--help"});
    ASSERT_EQ(0, r.status);
    EXPECT_NE(std::string::npos, r.out.find("--type TYPE")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("Example")) << r.out;
    r = RunCli({"vconf", "--help"});
    for (const char *command : {"get", "set", "unset", "watch"})
        EXPECT_NE(std::string::npos, r.out.find(std::string("  ") + command)) << command;
}

TEST_F(VconfCli, PrintsItsVersion)
{
    CliResult r = RunCli({"--version"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ(0u, r.out.rfind("sso-platform ", 0)) << r.out;
}

// ---- notification across processes ----

TEST_F(VconfCli, ASubscriberThreadSeesAChangeMadeByAnotherProcess)
{
    Recorder rec;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe("db/sso/login_status", Recorder::Callback<>, &rec));
    ASSERT_EQ(VCONF_OK, loop.Subscribe("barrier", Recorder::Callback<>, &rec));

    CliResult r = RunCli({"vconf", "set", "db/sso/login_status", "4", "--type", "int"});
    ASSERT_EQ(0, r.status) << r.err;
    ASSERT_TRUE(rec.WaitForCount("db/sso/login_status", 1));
    r = RunCli({"vconf", "unset", "db/sso/login_status"});
    ASSERT_EQ(0, r.status) << r.err;
    ASSERT_TRUE(rec.WaitForCount("db/sso/login_status", 2));
    r = RunCli({"vconf", "set", "barrier", "1", "--type", "int"});
    ASSERT_EQ(0, r.status) << r.err;
    ASSERT_TRUE(rec.WaitForCount("barrier", 1));

    auto events = rec.EventsFor("db/sso/login_status");
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ(VCONF_TYPE_INT, events[0].type);
    EXPECT_EQ(4, events[0].ival);
    EXPECT_EQ(VCONF_TYPE_NONE, events[1].type);
    for (const auto &e : events)
        EXPECT_EQ(loop.id(), e.thread);
}

TEST_F(VconfCli, WatchPrintsChangesMadeByOtherProcesses)
{
    ssotest::ChildProcess watcher = ssotest::ChildProcess::Spawn(
        {ssotest::ToolPath("sso-platform"), "vconf", "watch", "db/a", "db/b"});
    ASSERT_TRUE(watcher.WaitForOutput("watching db/a db/b\n")) << watcher.output();

    ASSERT_EQ(VCONF_OK, vconf_set_int("db/a", 5));
    ASSERT_TRUE(watcher.WaitForOutput("db/a = 5\n")) << watcher.output();
    ASSERT_EQ(0, RunCli({"vconf", "set", "db/b", "hello world", "--type", "string"}).status);
    ASSERT_TRUE(watcher.WaitForOutput("db/b = hello world\n")) << watcher.output();
    ASSERT_EQ(VCONF_OK, vconf_set_bool("db/c", 1)); // not watched
    ASSERT_EQ(VCONF_OK, vconf_unset("db/a"));
    ASSERT_TRUE(watcher.WaitForOutput("db/a unset\n")) << watcher.output();
    ASSERT_EQ(VCONF_OK, vconf_unset("db/b"));
    ASSERT_EQ(VCONF_OK, vconf_set_bool("db/b", 0));
    ASSERT_TRUE(watcher.WaitForOutput("db/b = false\n")) << watcher.output();

    watcher.Kill(SIGINT);
    EXPECT_EQ(0, watcher.Wait());
    EXPECT_EQ(std::string::npos, watcher.output().find("db/c")) << watcher.output();
}

TEST_F(VconfCli, WatchExitsCleanlyOnSigterm)
{
    ssotest::ChildProcess watcher =
        ssotest::ChildProcess::Spawn({ssotest::ToolPath("sso-platform"), "vconf", "watch", "k"});
    ASSERT_TRUE(watcher.WaitForOutput("watching k\n")) << watcher.output();
    watcher.Kill(SIGTERM);
    EXPECT_EQ(0, watcher.Wait());
}

} // namespace
