// sso-platform app: registering, removing and listing applications across
// processes, with the library seeing what the tool wrote and the other way
// round; exit codes, messages and help.
#include <app_control_registry.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "app_control_test_util.h"
#include "sso_test_harness.h"

namespace {

using apptest::CliResult;
using apptest::RunCli;

class AppCli : public ssotest::RootTest {
protected:
    // An executable script under the root.
    std::string MakeProgram(const std::string &name) const
    {
        std::string path = root_.path() + "/" + name;
        std::ofstream(path) << "#!/bin/sh\nexit 0\n";
        chmod(path.c_str(), 0755);
        return path;
    }
};

std::string Exec(const std::string &app_id)
{
    char *exec = nullptr;
    if (app_control_get_app_exec(app_id.c_str(), &exec) != APP_CONTROL_ERROR_NONE)
        return "<none>";
    std::string s = exec;
    std::free(exec);
    return s;
}

TEST_F(AppCli, AddListRemove)
{
    const std::string a = MakeProgram("a"), b = MakeProgram("b");
    CliResult add = RunCli({"app", "add", "org.orvex.b", "--exec", b});
    ASSERT_EQ(0, add.status) << add.err;
    EXPECT_EQ("", add.out);
    ASSERT_EQ(0, RunCli({"app", "add", "org.orvex.a", "--exec=" + a}).status);
    CliResult list = RunCli({"app", "list"});
    ASSERT_EQ(0, list.status) << list.err;
    EXPECT_EQ("org.orvex.a\t" + a + "\norg.orvex.b\t" + b + "\n", list.out);

    CliResult rm = RunCli({"app", "rm", "org.orvex.a"});
    ASSERT_EQ(0, rm.status) << rm.err;
    EXPECT_EQ("org.orvex.b\t" + b + "\n", RunCli({"app", "list"}).out);
}

TEST_F(AppCli, AnEmptyRegistryListsNothing)
{
    CliResult list = RunCli({"app", "list"});
    EXPECT_EQ(0, list.status) << list.err;
    EXPECT_EQ("", list.out);
    EXPECT_EQ("", list.err);
}

TEST_F(AppCli, TheToolAndTheLibrarySeeEachOthersRegistrations)
{
    const std::string prog = MakeProgram("p");
    ASSERT_EQ(0, RunCli({"app", "add", "tool.app", "--exec", prog}).status);
    EXPECT_EQ(prog, Exec("tool.app"));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_register_app("lib.app", "/usr/bin/x"));
    EXPECT_EQ("lib.app\t/usr/bin/x\ntool.app\t" + prog + "\n", RunCli({"app", "list"}).out);
    ASSERT_EQ(0, RunCli({"app", "rm", "lib.app"}).status);
    EXPECT_EQ("<none>", Exec("lib.app"));
}

TEST_F(AppCli, AddReplacesAnEarlierRegistration)
{
    const std::string one = MakeProgram("one"), two = MakeProgram("two");
    ASSERT_EQ(0, RunCli({"app", "add", "x", "--exec", one}).status);
    ASSERT_EQ(0, RunCli({"app", "add", "x", "--exec", two}).status);
    EXPECT_EQ(two, Exec("x"));
}

TEST_F(AppCli, ARelativeProgramPathIsStoredAbsolute)
{
    MakeProgram("rel");
    ssotest::CommandResult r = ssotest::RunCommand(
        {"/bin/sh", "-c", "cd \"$SSO_PLATFORM_ROOT\" && exec \"$0\" app add rel.app --exec ./rel",
         ssotest::ToolPath("sso-platform")});
    ASSERT_EQ(0, r.status);
    EXPECT_EQ(root_.path() + "/./rel", Exec("rel.app"));
}

TEST_F(AppCli, ProgramsThatCannotRunAreRefused)
{
    std::string plain = root_.path() + "/plain";
    std::ofstream(plain) << "data";
    chmod(plain.c_str(), 0644);
    const std::vector<std::string> bad = {root_.path() + "/missing", plain, root_.path()};
    for (const std::string &path : bad) {
        CliResult r = RunCli({"app", "add", "x", "--exec", path});
        EXPECT_EQ(1, r.status) << path;
        EXPECT_NE("", r.err) << path;
    }
    EXPECT_EQ("", RunCli({"app", "list"}).out);
}

TEST_F(AppCli, RemovingAnUnknownAppFails)
{
    CliResult r = RunCli({"app", "rm", "org.orvex.nobody"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("is not registered")) << r.err;
}

TEST_F(AppCli, BadUsageExitsWithTwo)
{
    const std::string prog = MakeProgram("p");
    const std::vector<std::vector<std::string>> bad = {
        {"app"},
        {"app", "launch", "x"},
        {"app", "add", "x"},
        {"app", "add", "--exec", prog},
        {"app", "add", "x", "--exec"},
        {"app", "add", "x", "--exec", ""},
        {"app", "add", "", "--exec", prog},
        {"app", "add", "bad\nid", "--exec", prog},
        {"app", "add", "x", "y", "--exec", prog},
        {"app", "rm"},
        {"app", "rm", ""},
        {"app", "list", "extra"},
        {"app", "list", "--all"},
    };
    for (const auto &args : bad) {
        CliResult r = RunCli(args);
        EXPECT_EQ(2, r.status) << args.size() << " " << args.back();
        EXPECT_NE("", r.err) << args.back();
        EXPECT_EQ("", r.out) << args.back();
    }
    EXPECT_EQ("", RunCli({"app", "list"}).out);
}

TEST_F(AppCli, AnUnusableRegistryFails)
{
    std::ofstream(root_.path() + "/apps") << "not a directory";
    EXPECT_EQ(1, RunCli({"app", "list"}).status);
    EXPECT_EQ(1, RunCli({"app", "add", "x", "--exec", MakeProgram("p")}).status);
}

TEST_F(AppCli, HelpShowsCommandsAndExamples)
{
    ssotest::ExpectGroupHelp("app", {"add", "rm", "list"}, "app add");
    EXPECT_NE(std::string::npos, RunCli({"app", "add", "--help"}).out.find("--exec PATH"));
}

} // namespace
