// Login, logout and account-view subscriptions of the C++ API, with the
// simulator signing users in and out: many subscriptions over one
// registration, each with its own delivery, and subscriptions that go away
// while a change is being delivered to them.
#include <gtest/gtest.h>
#include <vconf.h>

#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "cxx_sim_support.h"
#include "loop_thread.h"
#include "records.h"

namespace {

using namespace cxxtest;

// What one handler saw.
struct Seen {
    sso::LoginState state;
    std::string login_id;
    std::string guid;
    std::string icon_path;
    std::thread::id thread;
};

class Events : public ssotest::Records<Seen> {
public:
    sso::LoginHandler Handler()
    {
        return [this](const sso::LoginEvent &e) {
            Add({e.state, e.login_id, e.guid, e.icon_path, std::this_thread::get_id()});
        };
    }
};

class CxxSubscriptions : public CxxSimTest {
protected:
    bool SignInFirst() const override { return false; }
    void TearDown() override
    {
        loop_.Stop();
        CxxSimTest::TearDown();
    }
    // Made on the loop thread, as an application makes them on its main
    // loop's.
    template <class Make> sso::Subscription OnLoop(Make make)
    {
        sso::Subscription out;
        loop_.Run([&] {
            auto made = make();
            ASSERT_TRUE(made) << made.error().message();
            out = std::move(made.value());
        });
        return out;
    }
    // The library's lines that say a callback was registered.
    int Registrations() const { return log().Count("Add login state changed callback"); }

    ssotest::LoopThread loop_;
};

TEST_F(CxxSubscriptions, EverySubscriptionHearsItsChangesOverOneRegistrationOnTheMainLoop)
{
    Events all, ins, outs;
    sso::Subscription a = OnLoop([&] { return sso::subscribe_login_state(all.Handler()); });
    sso::Subscription b = OnLoop([&] { return sso::on_sign_in(ins.Handler()); });
    sso::Subscription c = OnLoop([&] { return sso::on_sign_out(outs.Handler()); });
    EXPECT_TRUE(a.active() && b.active() && c.active());
    EXPECT_EQ(Registrations(), 1);

    sim_.SignIn(kKim);
    ASSERT_TRUE(ins.WaitFor(1));
    ASSERT_TRUE(all.WaitFor(1));
    sim_.SignOut();
    ASSERT_TRUE(outs.WaitFor(1));
    ASSERT_TRUE(all.WaitFor(2));

    auto in = ins.All()[0];
    EXPECT_EQ(in.state, sso::LoginState::signed_in);
    EXPECT_EQ(in.login_id, kKim);
    EXPECT_EQ(in.guid, kimGuid_);
    EXPECT_EQ(in.thread, loop_.id());
    auto out = outs.All()[0];
    EXPECT_EQ(out.state, sso::LoginState::signed_out);
    EXPECT_EQ(out.guid, kimGuid_); // the account that was signed in
    EXPECT_TRUE(out.login_id.empty());
    EXPECT_EQ(all.All()[0].state, sso::LoginState::signed_in);
    EXPECT_EQ(all.All()[1].state, sso::LoginState::signed_out);
    EXPECT_EQ(ins.Count(), 1u);
    EXPECT_EQ(outs.Count(), 1u);
}

TEST_F(CxxSubscriptions, EachSubscriptionGetsItsOwnDelivery)
{
    Events onLoop, immediate, executed;
    std::mutex mutex;
    std::vector<std::function<void()>> queue;
    sso::Delivery executor = sso::Delivery::executor([&](std::function<void()> task) {
        std::lock_guard<std::mutex> lock(mutex);
        queue.push_back(std::move(task));
    });
    sso::Subscription a = OnLoop([&] { return sso::on_sign_in(onLoop.Handler()); });
    sso::Subscription b =
        OnLoop([&] { return sso::on_sign_in(immediate.Handler(), sso::Delivery::immediate()); });
    sso::Subscription c = OnLoop([&] { return sso::on_sign_in(executed.Handler(), executor); });
    sim_.SignIn(kKim);
    ASSERT_TRUE(onLoop.WaitFor(1));
    ASSERT_TRUE(immediate.WaitFor(1));
    EXPECT_EQ(executed.Count(), 0u);
    std::vector<std::function<void()>> tasks;
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return !queue.empty();
    }));
    {
        std::lock_guard<std::mutex> lock(mutex);
        tasks.swap(queue);
    }
    for (auto &t : tasks)
        t();
    ASSERT_EQ(executed.Count(), 1u);
    EXPECT_EQ(executed.All()[0].thread, std::this_thread::get_id());
    EXPECT_EQ(immediate.All()[0].thread, loop_.id());
    EXPECT_EQ(onLoop.All()[0].thread, loop_.id());
}

TEST_F(CxxSubscriptions, ASubscriptionDestroyedWhileItsHandlerRunsWaitsForItAndHearsNothingMore)
{
    std::mutex mutex;
    std::condition_variable cv;
    bool inside = false, release = false;
    int calls = 0;
    std::vector<std::string> events;
    // The handler runs on a worker the executor starts, so that the loop
    // thread stays free.
    std::mutex workerMutex;
    std::vector<std::thread> workers; // guarded by workerMutex
    sso::Delivery onWorker = sso::Delivery::executor([&](std::function<void()> task) {
        std::lock_guard<std::mutex> lock(workerMutex);
        workers.emplace_back(std::move(task));
    });
    auto sub = std::make_unique<sso::Subscription>(OnLoop([&] {
        return sso::subscribe_login_state(
            [&](const sso::LoginEvent &) {
                std::unique_lock<std::mutex> lock(mutex);
                ++calls;
                inside = true;
                cv.notify_all();
                cv.wait(lock, [&] { return release; });
                events.push_back("handler returns");
            },
            onWorker);
    }));
    sim_.SignIn(kKim);
    {
        std::unique_lock<std::mutex> lock(mutex);
        ASSERT_TRUE(cv.wait_for(lock, 10s, [&] { return inside; }));
    }
    auto destroyed = std::async(std::launch::async, [&] {
        sub.reset();
        std::lock_guard<std::mutex> lock(mutex);
        events.push_back("destroyed");
    });
    EXPECT_EQ(destroyed.wait_for(50ms), std::future_status::timeout);
    {
        std::lock_guard<std::mutex> lock(mutex);
        release = true;
        cv.notify_all();
    }
    ASSERT_EQ(destroyed.wait_for(10s), std::future_status::ready);
    // A change after the destruction reaches nobody: once the simulator
    // has published it, the loop dispatches it before the task it is given
    // next.
    sim_.SignOut();
    loop_.Run([] {});
    std::vector<std::thread> started;
    {
        std::lock_guard<std::mutex> lock(workerMutex);
        started.swap(workers);
    }
    for (auto &w : started)
        w.join();
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(events, (std::vector<std::string>{"handler returns", "destroyed"}));
}

TEST_F(CxxSubscriptions, ASubscriptionResetFromInsideItsOwnHandlerDoesNotDeadlock)
{
    // Both the subscription and the count live on the loop thread, where the
    // handler runs.
    sso::Subscription sub;
    int calls = 0;
    loop_.Run([&] {
        sub = sso::subscribe_login_state([&](const sso::LoginEvent &) {
                  ++calls;
                  sub.reset();
              }).value();
    });
    sim_.SignIn(kKim);
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        int n = 0;
        loop_.Run([&] { n = calls; });
        return n == 1;
    }));
    bool active = true;
    loop_.Run([&] { active = sub.active(); });
    EXPECT_FALSE(active);
    sim_.SignOut();
    loop_.Run([] {});
    int n = 0;
    loop_.Run([&] { n = calls; });
    EXPECT_EQ(n, 1);
}

TEST_F(CxxSubscriptions, ANewSubscriptionRearmsTheWatchThatTheCApiRemoved)
{
    Events first, second;
    sso::Subscription a = OnLoop([&] { return sso::subscribe_login_state(first.Handler()); });
    sim_.SignIn(kKim);
    ASSERT_TRUE(first.WaitFor(1));
    // Another part of the application uses the C API's single subscriber
    // and drops it: the library's watch goes with it.
    loop_.Run([] { sso_unsubscribe_login_state_change(); });
    sim_.SignOut();
    sim_.SignIn(kLee);
    loop_.Run([] {});
    sso::Subscription b = OnLoop([&] { return sso::subscribe_login_state(second.Handler()); });
    sim_.SignOut();
    ASSERT_TRUE(second.WaitFor(1));
    ASSERT_TRUE(first.WaitFor(2));
    EXPECT_EQ(first.All()[1].state, sso::LoginState::signed_out);
    EXPECT_EQ(first.All()[1].guid, leeGuid_);
    EXPECT_EQ(first.Count(), 2u);
}

TEST_F(CxxSubscriptions, AnEmptyHandlerIsRefused)
{
    auto made = sso::subscribe_login_state(nullptr);
    EXPECT_EQ(made.error(), sso::errc::invalid_argument);
    EXPECT_EQ(sso::subscribe_view_state(nullptr).error(), sso::errc::invalid_argument);
}

TEST_F(CxxSubscriptions, TheAccountViewStateReachesEverySubscription)
{
    std::mutex mutex;
    std::vector<sso::ViewState> a, b;
    sso::Subscription first = OnLoop([&] {
        return sso::subscribe_view_state([&](sso::ViewState s) {
            std::lock_guard<std::mutex> lock(mutex);
            a.push_back(s);
        });
    });
    sso::Subscription second = OnLoop([&] {
        return sso::subscribe_view_state([&](sso::ViewState s) {
            std::lock_guard<std::mutex> lock(mutex);
            b.push_back(s);
        });
    });
    ASSERT_EQ(vconf_set_int("memory/sso/view_status", 1), 0);
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return a.size() == 1 && b.size() == 1;
    }));
    second.reset();
    ASSERT_EQ(vconf_set_int("memory/sso/view_status", 0), 0);
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return a.size() == 2;
    }));
    loop_.Run([] {});
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(a, (std::vector<sso::ViewState>{sso::ViewState::shown, sso::ViewState::closed}));
    EXPECT_EQ(b, (std::vector<sso::ViewState>{sso::ViewState::shown}));
}

} // namespace
