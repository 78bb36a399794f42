// The platform log: destinations, threshold, and the fields of every line.
#include <dlog.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "sso_test_harness.h"

namespace {

using Dlog = ssotest::RootTest;

TEST_F(Dlog, EveryLineCarriesTimePidTidPriorityBufferAndTag)
{
    dlog_print_id(LOG_ID_SYSTEM, DLOG_WARN, "MyTag", "value %d of %s", 42, "x");
    auto lines = log().Lines();
    ASSERT_EQ(lines.size(), 1u);
    std::regex form(
        R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6} (\d+) (\d+) W/system MyTag: value 42 of x$)");
    std::smatch m;
    ASSERT_TRUE(std::regex_match(lines[0], m, form)) << lines[0];
    EXPECT_EQ(std::stol(m[1]), static_cast<long>(getpid()));
    EXPECT_EQ(std::stol(m[2]), static_cast<long>(syscall(SYS_gettid)));
}

TEST_F(Dlog, ALogFileItCreatesIsNotWorldReadable)
{
    const std::string path = root_.path() + "/new-log.txt";
    setenv("SSO_PLATFORM_LOG", ("file:" + path).c_str(), 1);
    dlog_reload_config();
    dlog_print(DLOG_ERROR, "MyTag", "a line");
    struct stat st;
    ASSERT_EQ(0, stat(path.c_str(), &st));
    EXPECT_EQ(0u, st.st_mode & 0007u);
    EXPECT_EQ(0600u, st.st_mode & 0600u);
}

TEST_F(Dlog, PrioritiesAndBuffersAreNamed)
{
    dlog_print(DLOG_VERBOSE, "T", "v");
    dlog_print(DLOG_DEBUG, "T", "d");
    dlog_print(DLOG_INFO, "T", "i");
    dlog_print_id(LOG_ID_MAIN, DLOG_ERROR, "T", "e");
    dlog_print_id(LOG_ID_SYSTEM, DLOG_FATAL, "T", "f");
    auto text = log().Text();
    for (const char *needle :
         {"V/main T: v", "D/main T: d", "I/main T: i", "E/main T: e", "F/system T: f"})
        EXPECT_NE(text.find(needle), std::string::npos) << needle;
}

TEST_F(Dlog, LinesBelowTheThresholdAreNotWritten)
{
    setenv("SSO_PLATFORM_LOG_LEVEL", "error", 1);
    dlog_reload_config();
    EXPECT_EQ(dlog_print(DLOG_WARN, "T", "dropped %d", 1), 0);
    EXPECT_GT(dlog_print(DLOG_ERROR, "T", "kept %d", 2), 0);
    EXPECT_FALSE(log().Contains("dropped"));
    EXPECT_TRUE(log().Contains("kept 2"));
    EXPECT_FALSE(dlog_is_loggable(DLOG_WARN));
    EXPECT_TRUE(dlog_is_loggable(DLOG_ERROR));
}

TEST_F(Dlog, TheDefaultThresholdIsWarn)
{
    unsetenv("SSO_PLATFORM_LOG_LEVEL");
    dlog_reload_config();
    dlog_print(DLOG_INFO, "T", "info line");
    dlog_print(DLOG_WARN, "T", "warn line");
    EXPECT_FALSE(log().Contains("info line"));
    EXPECT_TRUE(log().Contains("warn line"));
}

TEST_F(Dlog, NoneWritesNothing)
{
    setenv("SSO_PLATFORM_LOG", "none", 1);
    dlog_reload_config();
    EXPECT_EQ(dlog_print(DLOG_FATAL, "T", "nothing"), 0);
    EXPECT_EQ(log().Text(), "");
}

TEST_F(Dlog, StderrIsADestination)
{
    // A child whose stderr is the captured pipe.
    ssotest::ChildProcess child = ssotest::ChildProcess::Fork([] {
        dup2(1, 2);
        setenv("SSO_PLATFORM_LOG", "stderr", 1);
        dlog_reload_config();
        dlog_print(DLOG_WARN, "Helper", "to stderr");
        return 0;
    });
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_NE(child.ReadStdout().find("W/main Helper: to stderr"), std::string::npos)
        << child.output();
    EXPECT_FALSE(log().Contains("to stderr"));
}

TEST_F(Dlog, LinesFromManyThreadsNeverInterleave)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            std::string payload(300, static_cast<char>('a' + t));
            for (int i = 0; i < 200; ++i)
                dlog_print(DLOG_INFO, "T", "%d:%s", t, payload.c_str());
        });
    for (auto &th : threads)
        th.join();
    auto lines = log().Lines();
    ASSERT_EQ(lines.size(), 800u);
    std::regex whole(R"(.* I/main T: (\d):([a-d]{300})$)");
    for (const auto &line : lines) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(line, m, whole)) << line.substr(0, 120);
        EXPECT_EQ(m[2].str(), std::string(300, static_cast<char>('a' + std::stoi(m[1]))));
    }
}

TEST_F(Dlog, LongMessagesAreCutNotOverrun)
{
    std::string big(10000, 'z');
    EXPECT_GT(dlog_print(DLOG_WARN, "T", "%s", big.c_str()), 0);
    auto lines = log().Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_LT(lines[0].size(), 4096u + 200u);
}

TEST_F(Dlog, BadArgumentsAreRefused)
{
    EXPECT_LT(dlog_print_id(LOG_ID_MAX, DLOG_WARN, "T", "x"), 0);
    EXPECT_LT(dlog_print(DLOG_WARN, "T", nullptr), 0);
    EXPECT_EQ(dlog_print(DLOG_WARN, nullptr, "no tag"), 6);
}

} // namespace
