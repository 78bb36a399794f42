#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "SSOAPIUtil.h"
#include "sso_test_harness.h"
#include "test_files.h"

namespace {

using Util = ssotest::RootTest;

// ------------------------------------------------------------ command lines

struct CommandLineCase {
    std::string argument;
    std::string appId;
};

void PrintTo(const CommandLineCase &c, std::ostream *os)
{
    *os << "'" << c.argument << "'";
}

class AppIdFromCommandLine : public ::testing::TestWithParam<CommandLineCase> {};

TEST_P(AppIdFromCommandLine, DerivesTheId)
{
    EXPECT_EQ(SSOAPIUtil::DeriveAppIdFromCommandLine(GetParam().argument), GetParam().appId);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, AppIdFromCommandLine,
    ::testing::Values(CommandLineCase{"/usr/bin/org.example.app/bin/tool", "org.example.app"},
                      CommandLineCase{"/usr/bin/tool", "tool"}, CommandLineCase{"tool", "tool"},
                      CommandLineCase{"/opt/apps/org.example.last", "org.example.last"},
                      // The first "org" wins, wherever it stands.
                      CommandLineCase{"/home/george/bin/tool", "orge"},
                      CommandLineCase{"/usr/bin/", ""}, CommandLineCase{"", ""}));

TEST_F(Util, ACommandLineEndingInALineFeedLosesThatOneCharacter)
{
    char buffer[1024] = "/usr/bin/tool\n";
    EXPECT_EQ(SSOAPIUtil::AppIdFromCmdline(buffer, strlen(buffer)), "tool");
    char twice[1024] = "/usr/bin/tool\n\n";
    EXPECT_EQ(SSOAPIUtil::AppIdFromCmdline(twice, strlen(twice)), "tool\n");
}

TEST_F(Util, OnlyTheFirstCommandLineArgumentCounts)
{
    char buffer[1024];
    const char raw[] = "/usr/bin/tool\0--path=/org.other/x\0";
    memcpy(buffer, raw, sizeof(raw));
    EXPECT_EQ(SSOAPIUtil::AppIdFromCmdline(buffer, sizeof(raw) - 1), "tool");
}

// Starts /bin/sleep with the given argv[0] and waits until /proc shows it.
pid_t StartWithArgv0(const std::string &argv0)
{
    pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        unsetenv("SSO_PLATFORM_APP_ID");
        execl("/bin/sleep", argv0.c_str(), "60", static_cast<char *>(nullptr));
        _exit(127);
    }
    std::string path = "/proc/" + std::to_string(pid) + "/cmdline";
    ssotest::WaitUntil([&] { return ssotest::ReadWholeFile(path).rfind(argv0, 0) == 0; });
    return pid;
}

void Reap(pid_t pid)
{
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

TEST_F(Util, GetAppIdReadsTheCommandLineOfAnotherProcess)
{
    unsetenv("SSO_PLATFORM_APP_ID");
    pid_t a = StartWithArgv0("/usr/bin/org.example.app/bin/tool");
    pid_t b = StartWithArgv0("/usr/bin/tool");
    pid_t c = StartWithArgv0("tool");
    EXPECT_EQ(SSOAPIUtil::GetAppId(a), "org.example.app");
    EXPECT_EQ(SSOAPIUtil::GetAppId(b), "tool");
    EXPECT_EQ(SSOAPIUtil::GetAppId(c), "tool");
    EXPECT_EQ(SSOAPIUtil::GetObjectName(a), "obj" + std::to_string(a) + "_org.example.app");
    Reap(a);
    Reap(b);
    Reap(c);
    EXPECT_TRUE(log().Contains("Failed to app_get_id(). error("));
    EXPECT_TRUE(log().Contains("Try to read appId from [/proc/" + std::to_string(a) + "/cmdline]"));
    EXPECT_TRUE(log().Contains("[END] appId from cmdline [org.example.app]"));
}

TEST_F(Util, GetAppIdPrefersThePlatformAnswerWhateverProcessIsAsked)
{
    setenv("SSO_PLATFORM_APP_ID", "com.example.viewer", 1);
    pid_t other = StartWithArgv0("/usr/bin/tool");
    EXPECT_EQ(SSOAPIUtil::GetAppId(-1), "com.example.viewer");
    EXPECT_EQ(SSOAPIUtil::GetAppId(other), "com.example.viewer");
    Reap(other);
    EXPECT_TRUE(log().Contains("[END] appId [com.example.viewer]"));
    EXPECT_FALSE(log().Contains("Try to read appId"));
    unsetenv("SSO_PLATFORM_APP_ID");
}

TEST_F(Util, GetAppIdOfThisProcessFallsBackToItsOwnCommandLine)
{
    unsetenv("SSO_PLATFORM_APP_ID");
    std::ifstream in("/proc/self/cmdline", std::ios::binary);
    std::string first;
    std::getline(in, first, '\0');
    EXPECT_EQ(SSOAPIUtil::GetAppId(-1), SSOAPIUtil::DeriveAppIdFromCommandLine(first));
    EXPECT_EQ(SSOAPIUtil::GetAppId(0), SSOAPIUtil::DeriveAppIdFromCommandLine(first));
}

TEST_F(Util, ObjectNameOfAProcessWithoutAnAppIdEndsInUnknown)
{
    unsetenv("SSO_PLATFORM_APP_ID");
    pid_t gone = fork();
    if (gone == 0)
        _exit(0);
    waitpid(gone, nullptr, 0);
    EXPECT_EQ(SSOAPIUtil::GetAppId(gone), "unknown");
    EXPECT_EQ(SSOAPIUtil::GetObjectName(gone), "obj" + std::to_string(gone) + "_unknown");
    EXPECT_TRUE(log().Contains("SSO_API_CHECK_NULL_RETURN. Return (Failed to fopen())"));
}

TEST_F(Util, ObjectNameIsObjPidUnderscoreAppId)
{
    setenv("SSO_PLATFORM_APP_ID", "org.example.app", 1);
    std::string expected = "obj" + std::to_string(getpid()) + "_org.example.app";
    EXPECT_EQ(SSOAPIUtil::GetObjectName(getpid()), expected);
    EXPECT_TRUE(log().Contains("objectName [" + expected + "]"));
    unsetenv("SSO_PLATFORM_APP_ID");
}

// ---------------------------------------------------------- process facts

TEST_F(Util, GetProcessIdIsGetpid)
{
    EXPECT_EQ(SSOAPIUtil::GetProcessId(), static_cast<int>(getpid()));
    EXPECT_TRUE(log().Contains("processId [" + std::to_string(getpid()) + "]"));
}

TEST_F(Util, GetProcessNameIsTheExecutablePath)
{
    char self[1024] = {0};
    ASSERT_GT(readlink("/proc/self/exe", self, sizeof(self) - 1), 0);
    EXPECT_EQ(SSOAPIUtil::GetProcessName(getpid()), self);
}

TEST_F(Util, GetProcessNameOfNoProcessIsUnknown)
{
    EXPECT_EQ(SSOAPIUtil::GetProcessName(0), "unknown");
    EXPECT_TRUE(log().Contains("processId(0) <= 0"));
    EXPECT_EQ(SSOAPIUtil::GetProcessName(-5), "unknown");
    pid_t gone = fork();
    if (gone == 0)
        _exit(0);
    waitpid(gone, nullptr, 0);
    EXPECT_EQ(SSOAPIUtil::GetProcessName(gone), "unknown");
    EXPECT_TRUE(log().Contains("Failed to readlink(/proc/" + std::to_string(gone) + "/exe)"));
}

// ----------------------------------------------------------------- files

TEST_F(Util, DoesFileExistLooksUnderThePlatformRoot)
{
    EXPECT_FALSE(SSOAPIUtil::DoesFileExist("/etc/debug"));
    EXPECT_TRUE(log().Contains("[/etc/debug] don't exist"));
    root_.CreateDeviceFile("/etc/debug");
    EXPECT_TRUE(SSOAPIUtil::DoesFileExist("/etc/debug"));
    EXPECT_TRUE(log().Contains("> [/etc/debug] exist"));
    root_.RemoveDeviceFile("/etc/debug");
    EXPECT_FALSE(SSOAPIUtil::DoesFileExist("/etc/debug"));
}

TEST_F(Util, DoesFileExistNeverRemapsProc)
{
    EXPECT_TRUE(SSOAPIUtil::DoesFileExist("/proc/self/cmdline"));
}

// ------------------------------------------------------------- SplitParam

struct SplitCase {
    std::string text;
    std::string delimiter;
    std::vector<std::string> pieces;
};

void PrintTo(const SplitCase &c, std::ostream *os)
{
    *os << "'" << c.text << "' at '" << c.delimiter << "'";
}

class SplitParam : public ::testing::TestWithParam<SplitCase> {};

TEST_P(SplitParam, SplitsAtEveryDelimiterKeepingEmptyPieces)
{
    std::vector<std::string> out = {"stale"};
    SSOAPIUtil::SplitParam(GetParam().text, GetParam().delimiter, out);
    EXPECT_EQ(out, GetParam().pieces);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SplitParam,
    ::testing::Values(SplitCase{"a,,b", ",", {"a", "", "b"}}, SplitCase{"", ",", {""}},
                      SplitCase{"abc", ",", {"abc"}}, SplitCase{"a,b,", ",", {"a", "b", ""}},
                      SplitCase{",", ",", {"", ""}},
                      SplitCase{"id|guid|LOGIN|extra", "|", {"id", "guid", "LOGIN", "extra"}},
                      SplitCase{"a::b:c", "::", {"a", "b:c"}}, SplitCase{"abc", "", {"abc"}}));

// ------------------------------------------------------------ alive flag

TEST_F(Util, AliveFlagOperationsLogTheValueTheyLeave)
{
    SSOAPIUtil::SetClientToAlive();
    EXPECT_TRUE(SSOAPIUtil::IsClientAlive());
    SSOAPIUtil::SetClientToTerminated();
    EXPECT_FALSE(SSOAPIUtil::IsClientAlive());
    auto lines = log().LinesWith({"SSOAPIUtil.cpp", "m_bClientAlive ["});
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_NE(lines[0].find("SetClientToAlive("), std::string::npos);
    EXPECT_NE(lines[0].find("\033[0;33mm_bClientAlive [1]\033[0m"), std::string::npos);
    EXPECT_NE(lines[1].find("IsClientAlive("), std::string::npos);
    EXPECT_NE(lines[2].find("SetClientToTerminated("), std::string::npos);
    EXPECT_NE(lines[2].find("m_bClientAlive [0]"), std::string::npos);
    EXPECT_NE(lines[3].find("m_bClientAlive [0]"), std::string::npos);
    SSOAPIUtil::SetClientToAlive();
}

TEST_F(Util, AliveFlagIsSafeAcrossThreads)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 100; ++i) {
                if (t == 0)
                    (i % 2) ? SSOAPIUtil::SetClientToAlive() : SSOAPIUtil::SetClientToTerminated();
                else
                    SSOAPIUtil::IsClientAlive();
            }
        });
    for (auto &th : threads)
        th.join();
    SSOAPIUtil::SetClientToAlive();
    EXPECT_TRUE(SSOAPIUtil::IsClientAlive());
}

} // namespace
