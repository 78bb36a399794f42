// The system-log destination: lines as datagrams on the log daemon's socket,
// one connection kept for all of them, nothing formatted while no daemon
// listens, and a daemon that comes (back) is found again.
#include <dlog.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <string>

#include "sso_test_harness.h"
#include "unix_socket.h"

namespace {

// A log daemon's socket: a bound datagram socket that the test reads.
class DaemonSocket {
public:
    explicit DaemonSocket(std::string path) : path_(std::move(path)) { Bind(); }
    ~DaemonSocket() { Close(); }

    void Bind()
    {
        fd_ = ssotest::BindUnixSocket(SOCK_DGRAM, path_);
        ASSERT_GE(fd_, 0) << strerror(errno);
    }
    void Close()
    {
        if (fd_ >= 0)
            close(fd_);
        fd_ = -1;
        unlink(path_.c_str());
    }
    // The next datagram, or "" when none comes within the time-out.
    std::string Receive(int timeout_ms = 2000)
    {
        struct pollfd p = {fd_, POLLIN, 0};
        if (poll(&p, 1, timeout_ms) != 1)
            return "";
        char buf[8192];
        ssize_t n = recv(fd_, buf, sizeof(buf), 0);
        return n > 0 ? std::string(buf, static_cast<size_t>(n)) : "";
    }

private:
    std::string path_;
    int fd_ = -1;
};

class DlogSyslog : public ssotest::RootTest {
protected:
    void SetUp() override
    {
        RootTest::SetUp();
        path_ = root_.path() + "/log.sock";
        setenv("SSO_PLATFORM_LOG", ("syslog:" + path_).c_str(), 1);
        setenv("SSO_PLATFORM_LOG_LEVEL", "info", 1);
        dlog_reload_config();
    }
    void TearDown() override
    {
        setenv("SSO_PLATFORM_LOG", "none", 1);
        dlog_reload_config();
    }
    std::string path_;
};

int OpenDescriptors()
{
    int n = 0;
    for (int fd = 0; fd < 1024; ++fd)
        n += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
    return n;
}

TEST_F(DlogSyslog, ALineIsOneDatagramWithPriorityTimeProgramBufferAndTag)
{
    DaemonSocket daemon(path_);
    EXPECT_EQ(dlog_print_id(LOG_ID_SYSTEM, DLOG_WARN, "MyTag", "value %d of %s", 42, "x"), 13);
    std::string line = daemon.Receive();
    // LOG_USER | LOG_WARNING = 12.
    std::regex form(
        R"(^<12>[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d (\S+): W/system MyTag: value 42 of x$)");
    std::smatch m;
    ASSERT_TRUE(std::regex_match(line, m, form)) << line;
    EXPECT_EQ(m[1].str(), program_invocation_short_name);
    dlog_print(DLOG_INFO, "T", "second");
    EXPECT_NE(daemon.Receive().find("<14>"), std::string::npos); // LOG_USER | LOG_INFO
}

TEST_F(DlogSyslog, OneConnectionServesEveryLine)
{
    DaemonSocket daemon(path_);
    dlog_print(DLOG_WARN, "T", "first");
    ASSERT_NE(daemon.Receive(), "");
    int open = OpenDescriptors();
    for (int i = 0; i < 50; ++i) {
        dlog_print(DLOG_WARN, "T", "line %d", i);
        ASSERT_NE(daemon.Receive().find("line " + std::to_string(i)), std::string::npos);
    }
    EXPECT_EQ(OpenDescriptors(), open);
}

TEST_F(DlogSyslog, WithoutADaemonLinesAreDroppedAndNoConnectionIsTriedPerLine)
{
    auto start = std::chrono::steady_clock::now();
    int open = OpenDescriptors();
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(dlog_print(DLOG_WARN, "T", "nobody listens %d", i), 0);
    EXPECT_LE(OpenDescriptors(), open + 1); // at most the one socket, kept
    // A daemon that starts now is not asked for at every line: lines of the
    // next moments are still dropped...
    DaemonSocket daemon(path_);
    int early = dlog_print(DLOG_WARN, "T", "too early");
    // (Unless this machine stalled the test for most of the waiting second.)
    if (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(800)) {
        EXPECT_EQ(early, 0);
        EXPECT_EQ(daemon.Receive(50), "");
    }
    // ...and within a few seconds it is found.
    std::string got;
    ASSERT_TRUE(ssotest::WaitUntil(
        [&] {
            dlog_print(DLOG_WARN, "T", "found");
            got = daemon.Receive(10);
            return !got.empty();
        },
        std::chrono::seconds(5)));
    EXPECT_NE(got.find("W/main T: found"), std::string::npos) << got;
}

TEST_F(DlogSyslog, ADaemonThatRestartsIsReconnectedWithoutLosingTheLine)
{
    DaemonSocket daemon(path_);
    dlog_print(DLOG_WARN, "T", "before");
    ASSERT_NE(daemon.Receive().find("before"), std::string::npos);
    daemon.Close();
    daemon.Bind();
    EXPECT_GT(dlog_print(DLOG_WARN, "T", "after the restart"), 0);
    EXPECT_NE(daemon.Receive().find("W/main T: after the restart"), std::string::npos);
}

TEST_F(DlogSyslog, ReloadingTheSameSetUpKeepsTheConnection)
{
    DaemonSocket first(path_);
    dlog_print(DLOG_WARN, "T", "one");
    ASSERT_NE(first.Receive().find("one"), std::string::npos);
    dlog_reload_config();
    // Another socket at the same path: a new connection would reach it.
    std::string moved = path_ + ".first";
    ASSERT_EQ(rename(path_.c_str(), moved.c_str()), 0);
    DaemonSocket second(path_);
    dlog_print(DLOG_WARN, "T", "two");
    EXPECT_NE(first.Receive().find("two"), std::string::npos);
    EXPECT_EQ(second.Receive(50), "");
    unlink(moved.c_str());
}

TEST_F(DlogSyslog, AnotherDaemonSocketIsConnectedAfresh)
{
    DaemonSocket first(path_);
    dlog_print(DLOG_WARN, "T", "one");
    ASSERT_NE(first.Receive().find("one"), std::string::npos);
    std::string other = root_.path() + "/other.sock";
    DaemonSocket second(other);
    setenv("SSO_PLATFORM_LOG", ("syslog:" + other).c_str(), 1);
    dlog_reload_config();
    dlog_print(DLOG_WARN, "T", "two");
    EXPECT_NE(second.Receive().find("two"), std::string::npos);
    EXPECT_EQ(first.Receive(50), "");
}

TEST_F(DlogSyslog, LongMessagesAreCutNotOverrun)
{
    DaemonSocket daemon(path_);
    std::string big(10000, 'z');
    EXPECT_EQ(dlog_print(DLOG_WARN, "T", "%s", big.c_str()), 4095);
    std::string line = daemon.Receive();
    EXPECT_EQ(line.size() - line.find("zzz"), 4095u);
}

TEST_F(DlogSyslog, LinesBelowTheThresholdNeverReachTheDaemon)
{
    setenv("SSO_PLATFORM_LOG_LEVEL", "warn", 1);
    dlog_reload_config();
    DaemonSocket daemon(path_);
    EXPECT_EQ(dlog_print(DLOG_INFO, "T", "filtered"), 0);
    dlog_print(DLOG_WARN, "T", "kept");
    EXPECT_NE(daemon.Receive().find("kept"), std::string::npos);
    EXPECT_EQ(daemon.Receive(50), "");
}

} // namespace
