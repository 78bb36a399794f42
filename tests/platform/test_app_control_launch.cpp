// Launching real processes: the request reaches the launched program field by
// field, its reply reaches the caller's callback exactly once on the thread
// running the caller's main context, every way a callee can end without a
// reply gives APP_CONTROL_RESULT_FAILED, every child is reaped, and parallel
// launches keep their replies apart. The launched program is
// app_control_test_app, scripted through its request's extras.
#include <app_control.h>
#include <app_control_registry.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <future>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "app_control_test_util.h"
#include "sso_test_harness.h"
#include "../reliability/reliability_support.h"

namespace {

using apptest::Extras;
using apptest::kTestAppId;
using apptest::LoopThread;
using apptest::Record;
using apptest::Replies;
using apptest::Reply;

class AppLaunch : public ssotest::RootTest {
protected:
    void SetUp() override
    {
        // Environment changes only before any thread starts.
        SetCallerEnvironment();
        ASSERT_EQ(APP_CONTROL_ERROR_NONE,
                  app_control_register_app(kTestAppId, apptest::TestAppPath().c_str()));
        loop_ = std::make_unique<LoopThread>();
    }

    void TearDown() override { loop_.reset(); }

    virtual void SetCallerEnvironment() { unsetenv("SSO_PLATFORM_APP_ID"); }

    std::string RecordPath(const std::string &name) const
    {
        return root_.path() + "/" + name + ".record";
    }

    // A request for the test app with the given extras.
    static app_control_h Request(const Extras &extras)
    {
        app_control_h h = nullptr;
        EXPECT_EQ(APP_CONTROL_ERROR_NONE, app_control_create(&h));
        EXPECT_EQ(APP_CONTROL_ERROR_NONE, app_control_set_app_id(h, kTestAppId));
        for (const auto &kv : extras)
            EXPECT_EQ(APP_CONTROL_ERROR_NONE,
                      app_control_add_extra_data(h, kv.first.c_str(), kv.second.c_str()));
        return h;
    }

    // Sends from the loop thread (so the reply comes back there) and
    // destroys the handle right after.
    int Send(app_control_h h, Replies *replies, LoopThread *loop = nullptr)
    {
        int rc = -1;
        (loop ? loop : loop_.get())->Run([&] {
            rc = app_control_send_launch_request(h, replies ? Replies::Callback : nullptr, replies);
            app_control_destroy(h);
        });
        return rc;
    }

    // Launches the test app scripted with action and extras, recording into
    // RecordPath(name).
    int Launch(const std::string &name, const std::string &action, Replies *replies,
               Extras extras = {})
    {
        extras.emplace_back("test_app.action", action);
        extras.emplace_back("test_app.record", RecordPath(name));
        return Send(Request(extras), replies);
    }

    // Waits until the process is reaped, keeping the loop running.
    static bool WaitReaped(pid_t pid)
    {
        return ssotest::WaitUntil([pid] { return apptest::Reaped(pid); }, std::chrono::seconds(20));
    }

    std::unique_ptr<LoopThread> loop_;
};

// ---- the request ----

TEST_F(AppLaunch, TheRequestArrivesFieldByField)
{
    const std::string odd = "line1\nline2=x%y \xc3\xa9\t";
    app_control_h h = Request({{"plain", "value"},
                               {"empty", ""},
                               {"odd key=%", odd},
                               {"test_app.record", RecordPath("req")}});
    ASSERT_EQ(APP_CONTROL_ERROR_NONE,
              app_control_set_operation(h, "org.orvex.test.operation.SIGNIN"));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE,
              app_control_set_launch_mode(h, APP_CONTROL_LAUNCH_MODE_GROUP));
    Replies replies;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, Send(h, &replies));

    Record r = apptest::WaitForRecord(RecordPath("req"));
    EXPECT_EQ("0", r.Get("get_launch_request"));
    EXPECT_EQ(kTestAppId, r.Get("env.SSO_PLATFORM_APP_ID"));
    EXPECT_EQ(root_.path(), r.Get("env.SSO_PLATFORM_ROOT"));
    EXPECT_EQ(kTestAppId, r.Get("app_id"));
    EXPECT_EQ("", r.Get("caller"));
    EXPECT_EQ("org.orvex.test.operation.SIGNIN", r.Get("operation"));
    EXPECT_EQ("group", r.Get("launch_mode"));
    EXPECT_EQ((Extras{{"plain", "value"},
                      {"empty", ""},
                      {"odd key=%", odd},
                      {"test_app.record", RecordPath("req")}}),
              r.RequestExtras());
    EXPECT_NE(getpid(), r.Pid());
    ASSERT_TRUE(replies.WaitForCount(1));
}

TEST_F(AppLaunch, AnUnsetOperationArrivesAsTheDefaultWithSingleMode)
{
    Replies replies;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, Launch("default", "succeed", &replies));
    Record r = apptest::WaitForRecord(RecordPath("default"));
    EXPECT_EQ(APP_CONTROL_OPERATION_DEFAULT, r.Get("operation"));
    EXPECT_EQ("single", r.Get("launch_mode"));
    ASSERT_TRUE(replies.WaitForCount(1));
}

class AppLaunchFromAnApp : public AppLaunch {
protected:
    void SetCallerEnvironment() override
    {
        setenv("SSO_PLATFORM_APP_ID", "org.orvex.test.caller", 1);
    }
};

TEST_F(AppLaunchFromAnApp, TheCallerIsTheSendersAppId)
{
    Replies replies;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, Launch("caller", "succeed", &replies));
    Record r = apptest::WaitForRecord(RecordPath("caller"));
    EXPECT_EQ("org.orvex.test.caller", r.Get("caller"));
    // The callee runs under its own id, not the caller's.
    EXPECT_EQ(kTestAppId, r.Get("env.SSO_PLATFORM_APP_ID"));
    EXPECT_EQ(kTestAppId, r.Get("app_id"));
    ASSERT_TRUE(replies.WaitForCount(1));
}

// ---- the reply ----

TEST_F(AppLaunch, TheReplyReachesTheCallbackOnceOnTheLoopThread)
{
    Replies replies;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE,
              Launch("once", "succeed", &replies,
                     {{"test_app.reply.token", "abc"}, {"test_app.reply.empty", ""}, {"k", "v"}}));
    ASSERT_TRUE(replies.WaitForCount(1));
    Reply reply = replies.All()[0];
    EXPECT_EQ(loop_->id(), reply.thread);
    EXPECT_NE(std::this_thread::get_id(), reply.thread);
    EXPECT_EQ(APP_CONTROL_RESULT_SUCCEEDED, reply.result);
    ASSERT_TRUE(reply.has_reply);
    EXPECT_EQ((Extras{{"token", "abc"}, {"empty", ""}}), reply.reply_extras);
    EXPECT_EQ(kTestAppId, reply.reply_app_id);
    // The request handed back is the request as sent.
    EXPECT_EQ(kTestAppId, reply.request_app_id);
    EXPECT_EQ((Extras{{"test_app.reply.token", "abc"},
                      {"test_app.reply.empty", ""},
                      {"k", "v"},
                      {"test_app.action", "succeed"},
                      {"test_app.record", RecordPath("once")}}),
              reply.request_extras);

    // Once the child is gone and the loop has run everything ready, there is
    // still one callback.
    Record r = apptest::WaitForRecord(RecordPath("once"));
    ASSERT_TRUE(WaitReaped(r.Pid()));
    loop_->Run([] {});
    EXPECT_EQ(1u, replies.Count());
}

TEST_F(AppLaunch, FailedAndCanceledResultsArriveWithTheirExtras)
{
    Replies failed, canceled;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE,
              Launch("failed", "fail", &failed, {{"test_app.reply.reason", "bad password"}}));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE,
              Launch("canceled", "cancel", &canceled, {{"test_app.reply.by", "user"}}));
    ASSERT_TRUE(failed.WaitForCount(1));
    ASSERT_TRUE(canceled.WaitForCount(1));
    Reply f = failed.All()[0], c = canceled.All()[0];
    EXPECT_EQ(APP_CONTROL_RESULT_FAILED, f.result);
    ASSERT_TRUE(f.has_reply);
    EXPECT_EQ((Extras{{"reason", "bad password"}}), f.reply_extras);
    EXPECT_EQ(APP_CONTROL_RESULT_CANCELED, c.result);
    ASSERT_TRUE(c.has_reply);
    EXPECT_EQ((Extras{{"by", "user"}}), c.reply_extras);
}

TEST_F(AppLaunch, AReplyCountsEvenWhenTheAppThenExitsWithAnError)
{
    Replies replies;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE,
              Launch("exit7", "succeed", &replies,
                     {{"test_app.exit_code", "7"}, {"test_app.reply.x", "y"}}));
    ASSERT_TRUE(replies.WaitForCount(1));
    EXPECT_EQ(APP_CONTROL_RESULT_SUCCEEDED, replies.All()[0].result);
    EXPECT_EQ((Extras{{"x", "y"}}), replies.All()[0].reply_extras);
}

TEST_F(AppLaunch, ASecondReplyIsRefused)
{
    Replies replies;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, Launch("twice", "reply_twice", &replies));
    Record replied = apptest::WaitForRecord(RecordPath("twice") + ".reply");
    EXPECT_EQ("0", replied.Get("reply"));
    EXPECT_EQ(std::to_string(APP_CONTROL_ERROR_ALREADY_REPLIED), replied.Get("second_reply"));
    ASSERT_TRUE(replies.WaitForCount(1));
    ASSERT_TRUE(WaitReaped(apptest::WaitForRecord(RecordPath("twice")).Pid()));
    loop_->Run([] {});
    EXPECT_EQ(1u, replies.Count());
}

// ---- callees that end without replying ----

TEST_F(AppLaunch, ExitingWithoutAReplyIsFailed)
{
    Replies replies;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, Launch("exit", "exit", &replies));
    ASSERT_TRUE(replies.WaitForCount(1));
    Reply r = replies.All()[0];
    EXPECT_EQ(APP_CONTROL_RESULT_FAILED, r.result);
    EXPECT_FALSE(r.has_reply);
    EXPECT_EQ(loop_->id(), r.thread);
    EXPECT_EQ(kTestAppId, r.request_app_id);
}

TEST_F(AppLaunch, ACrashIsFailed)
{
    Replies replies;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, Launch("crash", "crash", &replies));
    ASSERT_TRUE(replies.WaitForCount(1));
    EXPECT_EQ(APP_CONTROL_RESULT_FAILED, replies.All()[0].result);
    EXPECT_FALSE(replies.All()[0].has_reply);
    ASSERT_TRUE(WaitReaped(apptest::WaitForRecord(RecordPath("crash")).Pid()));
}

TEST_F(AppLaunch, AHangingAppThatIsKilledIsFailed)
{
    Replies replies;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, Launch("hang", "hang", &replies));
    Record r = apptest::WaitForRecord(RecordPath("hang"));
    loop_->Run([] {});
    EXPECT_EQ(0u, replies.Count());
    ASSERT_EQ(0, kill(r.Pid(), SIGKILL));
    ASSERT_TRUE(replies.WaitForCount(1));
    EXPECT_EQ(APP_CONTROL_RESULT_FAILED, replies.All()[0].result);
    EXPECT_FALSE(replies.All()[0].has_reply);
    ASSERT_TRUE(WaitReaped(r.Pid()));
}

// ---- processes ----

TEST_F(AppLaunch, NoZombieIsLeft)
{
    Replies replies;
    const std::vector<std::string> actions = {"succeed", "fail", "exit", "crash", "reply_twice"};
    for (size_t i = 0; i < actions.size(); ++i)
        ASSERT_EQ(APP_CONTROL_ERROR_NONE, Launch("z" + std::to_string(i), actions[i], &replies));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, Launch("unwatched", "succeed", nullptr));
    ASSERT_TRUE(replies.WaitForCount(actions.size()));
    std::vector<pid_t> pids;
    for (size_t i = 0; i < actions.size(); ++i)
        pids.push_back(apptest::WaitForRecord(RecordPath("z" + std::to_string(i))).Pid());
    pids.push_back(apptest::WaitForRecord(RecordPath("unwatched")).Pid());
    for (pid_t pid : pids)
        EXPECT_TRUE(WaitReaped(pid)) << pid;
    // This process soon has no child left at all, dead or alive (looked at
    // without reaping anything, which would hide a zombie).
    EXPECT_TRUE(ssotest::WaitUntil([] { return !apptest::HasChildren(); }));
}

TEST_F(AppLaunch, AChildOutlivingTheCallersLoopIsStillReaped)
{
    Replies replies;
    pid_t pid = -1;
    {
        LoopThread other;
        app_control_h h =
            Request({{"test_app.action", "hang"}, {"test_app.record", RecordPath("orphan")}});
        ASSERT_EQ(APP_CONTROL_ERROR_NONE, Send(h, &replies, &other));
        pid = apptest::WaitForRecord(RecordPath("orphan")).Pid();
        // The loop and its context go away while the child runs.
    }
    kill(pid, SIGKILL);
    EXPECT_TRUE(WaitReaped(pid));
    // A destroyed context delivers nothing.
    EXPECT_EQ(0u, replies.Count());
}

// When the launching context goes while the child runs, a thread of the
// platform's waits for the child. It never takes the application's signals.
// The launching thread stays until the end: the child gets SIGKILL when it
// ends.
TEST_F(AppLaunch, TheThreadThatReapsAnOrphanedChildTakesNoSignalOfTheApplication)
{
    std::promise<int> launched;
    std::promise<void> release;
    std::thread owner([&launched, done = release.get_future(), this]() mutable {
        GMainContext *ctx = g_main_context_new();
        g_main_context_push_thread_default(ctx);
        app_control_h h =
            Request({{"test_app.action", "hang"}, {"test_app.record", RecordPath("quiet")}});
        const int rc = app_control_send_launch_request(h, nullptr, nullptr);
        app_control_destroy(h);
        g_main_context_pop_thread_default(ctx);
        g_main_context_unref(ctx);
        launched.set_value(rc);
        done.wait();
    });
    struct Join {
        std::promise<void> &release;
        std::thread &owner;
        ~Join()
        {
            release.set_value();
            owner.join();
        }
    } join{release, owner};
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, launched.get_future().get());
    const pid_t pid = apptest::WaitForRecord(RecordPath("quiet")).Pid();
    std::optional<unsigned long long> mask;
    ASSERT_TRUE(ssotest::WaitUntil(
        [&] { return (mask = reliability::BlockedSignalsOf("app-reaper")).has_value(); }));
    for (int sig : {SIGINT, SIGTERM, SIGUSR1, SIGCHLD})
        EXPECT_TRUE(reliability::MaskHolds(*mask, sig)) << strsignal(sig);
    EXPECT_FALSE(reliability::MaskHolds(*mask, SIGSEGV));
    kill(pid, SIGKILL);
    EXPECT_TRUE(WaitReaped(pid));
}

TEST_F(AppLaunch, WithoutACallbackTheAppRunsAndItsReplyIsDropped)
{
    ASSERT_EQ(APP_CONTROL_ERROR_NONE,
              Launch("fire", "succeed", nullptr, {{"test_app.reply.ignored", "yes"}}));
    Record r = apptest::WaitForRecord(RecordPath("fire"));
    EXPECT_EQ("0", r.Get("get_launch_request"));
    // Replying succeeds for the callee; nobody receives it.
    EXPECT_EQ("0", apptest::WaitForRecord(RecordPath("fire") + ".reply").Get("reply"));
    EXPECT_TRUE(WaitReaped(r.Pid()));
}

TEST_F(AppLaunch, ManyLaunchesInParallelEachGetTheirOwnReply)
{
    constexpr int kLaunches = 16;
    Replies replies;
    loop_->Run([&] {
        for (int i = 0; i < kLaunches; ++i) {
            app_control_h h = Request({{"n", std::to_string(i)},
                                       {"test_app.echo", "1"},
                                       {"test_app.reply.id", std::to_string(i)}});
            EXPECT_EQ(APP_CONTROL_ERROR_NONE,
                      app_control_send_launch_request(h, Replies::Callback, &replies));
            app_control_destroy(h);
        }
    });
    ASSERT_TRUE(replies.WaitForCount(kLaunches, std::chrono::seconds(60)));
    std::set<std::string> ids;
    for (const Reply &r : replies.All()) {
        EXPECT_EQ(APP_CONTROL_RESULT_SUCCEEDED, r.result);
        EXPECT_EQ(loop_->id(), r.thread);
        ASSERT_EQ(2u, r.reply_extras.size());
        // The reply to request n carries n, and nothing of another request.
        const std::string n = r.request_extras.at(0).second;
        EXPECT_EQ((Extras{{"n", n}, {"id", n}}), r.reply_extras);
        ids.insert(n);
    }
    EXPECT_EQ(static_cast<size_t>(kLaunches), ids.size());
    loop_->Run([] {});
    EXPECT_EQ(static_cast<size_t>(kLaunches), replies.Count());
}

TEST_F(AppLaunch, EachSenderGetsItsReplyOnItsOwnLoop)
{
    LoopThread other;
    Replies here, there;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, Send(Request({{"test_app.reply.who", "here"}}), &here));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE,
              Send(Request({{"test_app.reply.who", "there"}}), &there, &other));
    ASSERT_TRUE(here.WaitForCount(1));
    ASSERT_TRUE(there.WaitForCount(1));
    EXPECT_EQ(loop_->id(), here.All()[0].thread);
    EXPECT_EQ(other.id(), there.All()[0].thread);
    EXPECT_EQ((Extras{{"who", "here"}}), here.All()[0].reply_extras);
    EXPECT_EQ((Extras{{"who", "there"}}), there.All()[0].reply_extras);
}

TEST_F(AppLaunch, ACallbackMayLaunchAgain)
{
    Replies replies;
    bool relaunched = false;
    replies.Then([&] {
        if (relaunched)
            return;
        relaunched = true;
        app_control_h h = Request({{"test_app.reply.round", "2"}});
        EXPECT_EQ(APP_CONTROL_ERROR_NONE,
                  app_control_send_launch_request(h, Replies::Callback, &replies));
        app_control_destroy(h);
    });
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, Send(Request({{"test_app.reply.round", "1"}}), &replies));
    ASSERT_TRUE(replies.WaitForCount(2));
    EXPECT_EQ((Extras{{"round", "1"}}), replies.All()[0].reply_extras);
    EXPECT_EQ((Extras{{"round", "2"}}), replies.All()[1].reply_extras);
    EXPECT_EQ(loop_->id(), replies.All()[1].thread);
}

TEST_F(AppLaunch, LargeRequestsAndRepliesPassWhole)
{
    // Far above a socket buffer, both ways.
    std::string big(2 * 1024 * 1024, 'x');
    for (size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<char>(1 + (i * 7919) % 255);
    Replies replies;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE,
              Send(Request({{"big", big}, {"test_app.echo", "1"}}), &replies));
    ASSERT_TRUE(replies.WaitForCount(1, std::chrono::seconds(60)));
    Reply r = replies.All()[0];
    EXPECT_EQ(APP_CONTROL_RESULT_SUCCEEDED, r.result);
    ASSERT_EQ(1u, r.reply_extras.size());
    EXPECT_EQ("big", r.reply_extras[0].first);
    EXPECT_TRUE(r.reply_extras[0].second == big);
}

TEST_F(AppLaunch, AnUnknownAppFailsAtOnceWithoutACallback)
{
    Replies replies;
    app_control_h h = Request({});
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_set_app_id(h, "org.orvex.test.nobody"));
    EXPECT_EQ(APP_CONTROL_ERROR_APP_NOT_FOUND, Send(h, &replies));
    // A launch after it is the only one that answers.
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, Send(Request({{"test_app.reply.real", "1"}}), &replies));
    ASSERT_TRUE(replies.WaitForCount(1));
    loop_->Run([] {});
    ASSERT_EQ(1u, replies.Count());
    EXPECT_EQ((Extras{{"real", "1"}}), replies.All()[0].reply_extras);
}

TEST_F(AppLaunch, AnAppRegisteredByTheToolLaunches)
{
    apptest::CliResult add =
        apptest::RunCli({"app", "add", "org.orvex.test.cli", "--exec", apptest::TestAppPath()});
    ASSERT_EQ(0, add.status) << add.err;
    Replies replies;
    app_control_h h = Request({{"test_app.record", RecordPath("cli")}});
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_set_app_id(h, "org.orvex.test.cli"));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, Send(h, &replies));
    EXPECT_EQ("org.orvex.test.cli",
              apptest::WaitForRecord(RecordPath("cli")).Get("env.SSO_PLATFORM_APP_ID"));
    ASSERT_TRUE(replies.WaitForCount(1));
    EXPECT_EQ(APP_CONTROL_RESULT_SUCCEEDED, replies.All()[0].result);
}

TEST_F(AppLaunch, AProgramRunDirectlyHasNoLaunchRequest)
{
    ssotest::CommandResult r =
        ssotest::RunCommand({apptest::TestAppPath()},
                            {{"SSO_TEST_APP_RECORD", RecordPath("direct")},
                             {"SSO_PLATFORM_APP_LAUNCH", "3:4:00112233445566778899aabbccddeeff"}});
    EXPECT_EQ(3, r.status);
    EXPECT_EQ(std::to_string(APP_CONTROL_ERROR_NO_LAUNCH_REQUEST),
              apptest::WaitForRecord(RecordPath("direct")).Get("get_launch_request"));
}

} // namespace
