// Shared by the bus-fault tests: a system bus that stops answering or goes
// away under a client, and how a test tells that a client is inside the
// link's set-up.
#pragma once

#include <signal.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <ostream>
#include <string>

#include "reliability_support.h"
#include "unix_socket.h"

namespace reliability {

// Hung: the daemon is stopped (SIGSTOP). Its socket still takes connections
// into the kernel's queue, and nothing is ever read from them or answered.
// Gone: the daemon is stopped for good and its socket removed.
// Refused: the daemon is gone and its socket file left behind with nobody
// listening, so connecting is refused.
enum class BusFault { Hung, Gone, Refused };

inline const char *BusFaultText(BusFault fault)
{
    switch (fault) {
    case BusFault::Hung:
        return "Hung";
    case BusFault::Gone:
        return "Gone";
    default:
        return "Refused";
    }
}

inline std::string BusFaultName(const ::testing::TestParamInfo<BusFault> &info)
{
    return BusFaultText(info.param);
}

inline void PrintTo(BusFault fault, std::ostream *os)
{
    *os << BusFaultText(fault);
}

// Every fault, for INSTANTIATE_TEST_SUITE_P.
inline auto AllBusFaults()
{
    return ::testing::Values(BusFault::Hung, BusFault::Gone, BusFault::Refused);
}

// Every thread of pid is stopped (state T in its stat line).
inline bool AllThreadsStopped(pid_t pid)
{
    const std::string dir = "/proc/" + std::to_string(pid) + "/task";
    auto tasks = ProcEntries(dir.c_str());
    if (tasks.empty())
        return false;
    for (const auto &tid : tasks) {
        std::ifstream in(dir + "/" + tid + "/stat");
        std::string stat;
        std::getline(in, stat);
        size_t close = stat.rfind(')');
        if (close == std::string::npos || close + 2 >= stat.size() || stat[close + 2] != 'T')
            return false;
    }
    return true;
}

// The transport of process pid has been made and is setting its link up
// (its constructor logs before the set-up starts).
inline bool TransportCreated(const ssotest::LogCapture &log, pid_t pid)
{
    return !log.LinesWith({"m_processId(" + std::to_string(pid) + ")", "m_objectName("}).empty();
}

// A simulator on a private bus that a test can break and mend (Gone and
// Refused: a new daemon on the same socket, and a new simulator).
class BusFaultTest : public ssotest::SimulatorTest, public ::testing::WithParamInterface<BusFault> {
protected:
    void TearDown() override
    {
        // A stopped daemon would take the harness's SIGTERM only once
        // continued, after the harness's grace time.
        if (stopped_ > 0)
            kill(stopped_, SIGCONT);
        stopped_ = -1;
        SimulatorTest::TearDown();
    }

    void BreakBus()
    {
        if (GetParam() == BusFault::Hung) {
            stopped_ = bus_.pid();
            ASSERT_EQ(kill(stopped_, SIGSTOP), 0);
            ASSERT_TRUE(ssotest::WaitUntil([&] { return AllThreadsStopped(stopped_); }));
        } else {
            bus_.Stop();
            unlink(SocketPath().c_str());
            if (GetParam() == BusFault::Refused)
                LeaveDeadSocket();
        }
    }

    // The bus answers again: continued, or a new daemon on the same socket
    // with a new simulator (the old one went with its bus).
    void MendBus()
    {
        if (GetParam() == BusFault::Hung) {
            kill(stopped_, SIGCONT);
            stopped_ = -1;
        } else {
            unlink(SocketPath().c_str());
            bus_.Start();
            sim_.Restart();
        }
    }

    std::string SocketPath() const { return bus_.dir() + "/system_bus_socket"; }

    // A socket file nobody listens on: bound, then closed.
    void LeaveDeadSocket()
    {
        int fd = ssotest::BindUnixSocket(SOCK_STREAM, SocketPath());
        ASSERT_GE(fd, 0) << SocketPath();
        close(fd);
    }

    pid_t stopped_ = -1;
};

} // namespace reliability
