// The library's log line form: tag, prefix, colours, priorities and buffers,
// the null-check form, and [DEVEL] lines only on a device with /etc/debug.
#include "sso_log.h"
#include "sso_test_harness.h"

namespace {

using LogLines = ssotest::RootTest;

int LineOfTrace()
{
    SSO_LOGY("value [%d]", 7);
    return __LINE__ - 1;
}

TEST_F(LogLines, TracesCarryTheTagFileFunctionAndLine)
{
    int line = LineOfTrace();
    auto lines = log().LinesWith({"I/main SSOAPIClient: test_log.cpp: LineOfTrace(" +
                                  std::to_string(line) + ") > \033[0;33mvalue [7]\033[0m"});
    EXPECT_EQ(lines.size(), 1u) << log().Text();
}

TEST_F(LogLines, StartAndEndLinesAreMagentaInfoOnTheMainBuffer)
{
    SSO_LOG_START();
    SSO_LOG_END_F("done [%s]", "x");
    EXPECT_EQ(log().LinesWith({"I/main", "> \033[0;35m[START] \033[0m"}).size(), 1u);
    EXPECT_EQ(log().LinesWith({"I/main", "> \033[0;35m[END] done [x]\033[0m"}).size(), 1u);
}

TEST_F(LogLines, ErrorsAreRedWarningsOnTheSystemBuffer)
{
    SSO_LOGE("broken (%d)", 3);
    EXPECT_EQ(log().LinesWith({"W/system SSOAPIClient:", "> \033[0;31mbroken (3)\033[0m"}).size(),
              1u);
}

TEST_F(LogLines, AFailedNullCheckNamesItsReason)
{
    SSO_LOG_CHECK_NULL("guid is null");
    EXPECT_TRUE(log().Contains("W/system SSOAPIClient: test_log.cpp: TestBody("));
    EXPECT_TRUE(
        log().Contains("> \033[0;31mSSO_API_CHECK_NULL_RETURN. Return (guid is null)\033[0m"));
}

TEST_F(LogLines, DevelLinesAppearOnlyWithTheDebugMarker)
{
    SSO_LOG_DEVEL("guid : %s", "secret-guid-1");
    EXPECT_FALSE(log().Contains("secret-guid-1"));
    root_.CreateDeviceFile("/etc/debug");
    SSO_LOG_DEVEL("guid : %s", "secret-guid-2");
    EXPECT_TRUE(log().Contains("> \033[0;32m[DEVEL] guid : secret-guid-2\033[0m"));
    root_.RemoveDeviceFile("/etc/debug");
    SSO_LOG_DEVEL("guid : %s", "secret-guid-3");
    EXPECT_FALSE(log().Contains("secret-guid-3"));
}

TEST_F(LogLines, LinesBelowTheThresholdAreDropped)
{
    setenv("SSO_PLATFORM_LOG_LEVEL", "warn", 1);
    dlog_reload_config();
    SSO_LOGY("trace that is filtered");
    SSO_LOGE("error that is kept");
    EXPECT_FALSE(log().Contains("trace that is filtered"));
    EXPECT_TRUE(log().Contains("error that is kept"));
}

} // namespace
