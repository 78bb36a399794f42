// Whole-buffer socket reads and writes of the platform's IPC: a peer that
// hangs up mid-message, a stalled peer (receive time-out), a peer gone before
// a write (no SIGPIPE).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "sso_platform_common.h"

namespace {

class SocketPair : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds_)); }
    void TearDown() override
    {
        for (int &fd : fds_)
            if (fd >= 0)
                close(fd);
    }
    void CloseSide(int i)
    {
        close(fds_[i]);
        fds_[i] = -1;
    }
    int fds_[2] = {-1, -1};
};

TEST_F(SocketPair, BytesSentInPiecesAreReceivedWhole)
{
    const std::string message(200000, 'x'); // more than one socket buffer
    std::thread writer(
        [&] { EXPECT_EQ(0, sso_platform_send_all(fds_[0], message.data(), message.size())); });
    std::string got(message.size(), '\0');
    EXPECT_EQ(0, sso_platform_recv_all(fds_[1], &got[0], got.size()));
    writer.join();
    EXPECT_EQ(message, got);
}

TEST_F(SocketPair, APeerThatHangsUpMidMessageFailsTheRead)
{
    ASSERT_EQ(0, sso_platform_send_all(fds_[0], "abc", 3));
    CloseSide(0);
    char buf[8];
    EXPECT_EQ(-1, sso_platform_recv_all(fds_[1], buf, sizeof(buf)));
}

TEST_F(SocketPair, AStalledPeerFailsTheReadAtTheReceiveTimeOut)
{
    struct timeval tv = {0, 50 * 1000};
    ASSERT_EQ(0, setsockopt(fds_[1], SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv)));
    ASSERT_EQ(0, sso_platform_send_all(fds_[0], "ab", 2));
    char buf[4];
    EXPECT_EQ(-1, sso_platform_recv_all(fds_[1], buf, sizeof(buf)));
}

TEST_F(SocketPair, WritingToAGonePeerFailsWithoutSigpipe)
{
    // Default SIGPIPE action would kill the test process.
    struct sigaction dfl = {};
    dfl.sa_handler = SIG_DFL;
    struct sigaction old = {};
    ASSERT_EQ(0, sigaction(SIGPIPE, &dfl, &old));
    CloseSide(1);
    EXPECT_EQ(-1, sso_platform_send_all(fds_[0], "abc", 3));
    sigaction(SIGPIPE, &old, nullptr);
}

} // namespace
