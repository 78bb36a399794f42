// A process that forks and goes on using the library in the child without
// exec: the child's first request builds a link of its own (its own
// connection, monitor thread and bus name), its result is delivered in the
// child, the child's exit() is prompt, and the parent's link is untouched:
// the parent's results stay the parent's and its requests keep working.
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "SSOAPIClientUtil.h"
#include "exit_signal.h"
#include "reliability_support.h"
#include "sso_api/sso_api.h"

#if defined(__SANITIZE_ADDRESS__)
// In a forked child the parent's other threads are gone, and what only their
// stacks held (a link's read buffer, GLib's per-thread data) looks leaked to
// the exit check of the child. It is the fork's, not the library's.
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:CSSOBusConnection::ReaderLoop\n"
           "leak:libglib-2.0.so\n";
}
#endif

namespace {

using reliability::Ms;
using reliability::ReceivedLog;
using reliability::RecordingCb;
using reliability::SetExitSignalBlocked;
using reliability::Timed;

constexpr char kAppId[] = "org.example.fork";

int Send(void *userData)
{
    return sso_request_authcode_for_other_device("DSC-fork", &RecordingCb, userData);
}

std::string ClientBusName(pid_t pid)
{
    return std::string(ssotest::kSsoClientNamePrefix) + "obj" + std::to_string(pid) + "_" + kAppId;
}

// What the child saw, as it reports it on one line.
struct ChildReport {
    int accepted = -2;       // the request's return value
    int delivered = 0;       // results received in the child
    int ownResult = 0;       // of them, for the child's own request
    std::string thread;      // where the first one ran
    std::string objectName;  // the child's object name
    long long requestId = 0; // the child's monitor thread id
};

ChildReport ParseReport(const std::string &output)
{
    ChildReport r;
    size_t at = output.find("report ");
    if (at == std::string::npos)
        return r;
    std::istringstream in(output.substr(at + 7));
    in >> r.accepted >> r.delivered >> r.ownResult >> r.thread >> r.objectName >> r.requestId;
    return r;
}

// Runs in the forked child: one request, its result, a report; then exit()
// (with the library's tear-down) when the parent sends SIGUSR1.
int ChildMain()
{
    static int childRequest;
    int accepted = Send(&childRequest);
    // The parent's results, late or not, are not the child's to receive.
    bool got = accepted == 0 && ReceivedLog::Get().WaitFor(1, Ms(10000));
    // Long enough for a stray one of the parent's to have shown.
    ReceivedLog::Get().WaitFor(2, Ms(500));
    auto all = ReceivedLog::Get().All();
    printf("report %d %d %d %s %s %lld\n", accepted, static_cast<int>(all.size()),
           ReceivedLog::Get().CountFor(&childRequest), got ? all[0].thread.c_str() : "-",
           SSOAPIClientUtil::GetDBusObjectName().c_str(), SSOAPIClientUtil::GetDBusProxyThreadId());
    fflush(stdout);
    reliability::WaitForExitSignal();
    exit(0);
}

class AfterFork : public reliability::AppTest<ssotest::SimulatorTest, kAppId> {
protected:
    void SetUp() override
    {
#if defined(__SANITIZE_THREAD__)
        // The thread sanitizer cannot follow a child of a process with
        // threads that starts threads of its own (the child's link): it
        // stops the child. The address sanitizer build runs these.
        GTEST_SKIP() << "a child that starts threads after fork() is beyond the thread sanitizer";
#endif
        AppTest::SetUp();
    }
};

TEST_F(AfterFork, TheChildGetsALinkOfItsOwnItsResultAndExitsWithinASecond)
{
    // Results come late: the parent's second one is still on its way at the
    // fork.
    ssotest::Behaviour late;
    late.result_delay_ms = 300;
    sim_.Configure("sso_request_authcode_for_other_device", late);
    static int parentFirst;
    ASSERT_EQ(Send(&parentFirst), 0);
    ASSERT_TRUE(ReceivedLog::Get().WaitFor(1));
    const long long parentRequestId = SSOAPIClientUtil::GetDBusProxyThreadId();
    ASSERT_TRUE(sim_.NameHasOwner(ClientBusName(getpid())));
    static int parentLate;
    ASSERT_EQ(Send(&parentLate), 0);

    SetExitSignalBlocked(true);
    ssotest::ChildProcess child = ssotest::ChildProcess::Fork([] {
        ReceivedLog::Get().Clear();
        return ChildMain();
    });
    SetExitSignalBlocked(false);
    const pid_t childPid = child.pid();

    ASSERT_TRUE(child.WaitForOutput("\n", std::chrono::seconds(20))) << child.output();
    ChildReport report = ParseReport(child.output());
    EXPECT_EQ(report.accepted, 0) << child.output();
    EXPECT_EQ(report.delivered, 1) << child.output();
    EXPECT_EQ(report.ownResult, 1) << child.output();
    EXPECT_EQ(report.thread, "SSOProxyMonitor");
    EXPECT_EQ(report.objectName, "obj" + std::to_string(childPid) + "_" + kAppId);
    EXPECT_NE(report.requestId, 0);
    EXPECT_TRUE(sim_.NameHasOwner(ClientBusName(childPid)));

    // The child asked on a connection of its own, not on the parent's.
    std::string parentSender, childSender;
    for (const auto &entry : sim_.Journal()) {
        if (entry.args.find("'obj" + std::to_string(getpid()) + "_") != std::string::npos)
            parentSender = entry.sender;
        if (entry.args.find("'obj" + std::to_string(childPid) + "_") != std::string::npos)
            childSender = entry.sender;
    }
    ASSERT_FALSE(parentSender.empty());
    ASSERT_FALSE(childSender.empty());
    EXPECT_NE(parentSender, childSender);

    long long exitTook = Timed([&] {
                             child.Kill(SIGUSR1);
                             EXPECT_EQ(child.Wait(std::chrono::seconds(30)), 0);
                         }).count();
    EXPECT_LT(exitTook, 1000);
    EXPECT_TRUE(ssotest::WaitUntil([&] { return !sim_.NameHasOwner(ClientBusName(childPid)); }));

    // The parent's link is as it was: its late result came to it, and it
    // goes on working.
    EXPECT_TRUE(ssotest::WaitUntil([] { return ReceivedLog::Get().CountFor(&parentLate) == 1; }));
    EXPECT_TRUE(sim_.NameHasOwner(ClientBusName(getpid())));
    EXPECT_EQ(SSOAPIClientUtil::GetDBusProxyThreadId(), parentRequestId);
    sim_.ResetMethod("sso_request_authcode_for_other_device");
    static int parentAfter;
    ASSERT_EQ(Send(&parentAfter), 0);
    EXPECT_TRUE(ssotest::WaitUntil([] { return ReceivedLog::Get().CountFor(&parentAfter) == 1; }));
}

TEST_F(AfterFork, AChildOfAParentWithoutALinkMakesItsOwn)
{
    SetExitSignalBlocked(true);
    ssotest::ChildProcess child = ssotest::ChildProcess::Fork([] { return ChildMain(); });
    SetExitSignalBlocked(false);
    ASSERT_TRUE(child.WaitForOutput("\n", std::chrono::seconds(20))) << child.output();
    ChildReport report = ParseReport(child.output());
    EXPECT_EQ(report.accepted, 0) << child.output();
    EXPECT_EQ(report.ownResult, 1) << child.output();
    long long exitTook = Timed([&] {
                             child.Kill(SIGUSR1);
                             EXPECT_EQ(child.Wait(std::chrono::seconds(30)), 0);
                         }).count();
    EXPECT_LT(exitTook, 1000);
    // The parent's first request comes after its child's, on a link of its own.
    static int parentFirst;
    ASSERT_EQ(Send(&parentFirst), 0);
    EXPECT_TRUE(ssotest::WaitUntil([] { return ReceivedLog::Get().CountFor(&parentFirst) == 1; }));
}

TEST_F(AfterFork, AChildOfAParentThatGaveItsLinkUpHasNone)
{
    static int parentFirst;
    ASSERT_EQ(Send(&parentFirst), 0);
    sso_give_proxy();
    SetExitSignalBlocked(true);
    ssotest::ChildProcess child = ssotest::ChildProcess::Fork([] { return ChildMain(); });
    SetExitSignalBlocked(false);
    ASSERT_TRUE(child.WaitForOutput("\n", std::chrono::seconds(20))) << child.output();
    EXPECT_EQ(ParseReport(child.output()).accepted, -1) << child.output();
    EXPECT_FALSE(sim_.NameHasOwner(ClientBusName(child.pid())));
    child.Kill(SIGUSR1);
    EXPECT_EQ(child.Wait(std::chrono::seconds(30)), 0);
}

} // namespace
