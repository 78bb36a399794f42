// Change notification within one process: who is called, on which thread,
// how often, and what a callback may do while it runs.
#include <vconf.h>

#include <atomic>
#include <filesystem>
#include <string>

#include "sso_test_harness.h"
#include "vconf_test_util.h"

namespace {

using vconftest::Event;
using vconftest::LoopThread;
using vconftest::Recorder;

// Every test ends its checks with a write to this key: events of one watcher
// arrive in order, so once the barrier's event is in, nothing written before
// it is still on its way.
constexpr const char *kBarrier = "test/barrier";

class VconfNotify : public ssotest::RootTest {
protected:
    // Writes the barrier and waits for the recorder (subscribed to it) to see it.
    void Barrier(Recorder &rec)
    {
        size_t seen = rec.Count(kBarrier);
        ASSERT_EQ(VCONF_OK, vconf_set_int(kBarrier, static_cast<int>(seen) + 1));
        ASSERT_TRUE(rec.WaitForCount(kBarrier, seen + 1)) << "barrier event never arrived";
    }
};

TEST_F(VconfNotify, CallsTheSubscriberOncePerChangeOnItsOwnThread)
{
    Recorder rec;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe("db/test/k", Recorder::Callback<>, &rec));
    ASSERT_EQ(VCONF_OK, loop.Subscribe(kBarrier, Recorder::Callback<>, &rec));

    for (int i = 1; i <= 5; ++i) {
        ASSERT_EQ(VCONF_OK, vconf_set_int("db/test/k", i));
        ASSERT_TRUE(rec.WaitForCount("db/test/k", static_cast<size_t>(i)));
    }
    Barrier(rec);

    auto events = rec.EventsFor("db/test/k");
    ASSERT_EQ(5u, events.size());
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(VCONF_TYPE_INT, events[i].type);
        EXPECT_EQ(i + 1, events[i].ival);
        EXPECT_EQ(loop.id(), events[i].thread);
        EXPECT_NE(std::this_thread::get_id(), events[i].thread);
    }
}

TEST_F(VconfNotify, DeliversTheTypedValueAndAnUnsetAsTypeNone)
{
    Recorder rec;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe("b", Recorder::Callback<>, &rec));
    ASSERT_EQ(VCONF_OK, loop.Subscribe("s", Recorder::Callback<>, &rec));

    ASSERT_EQ(VCONF_OK, vconf_set_bool("b", 1));
    ASSERT_TRUE(rec.WaitForCount("b", 1));
    ASSERT_EQ(VCONF_OK, vconf_set_str("s", "two\nlines"));
    ASSERT_TRUE(rec.WaitForCount("s", 1));
    ASSERT_EQ(VCONF_OK, vconf_unset("s"));
    ASSERT_TRUE(rec.WaitForCount("s", 2));

    Event b = rec.EventsFor("b")[0];
    EXPECT_EQ(VCONF_TYPE_BOOL, b.type);
    EXPECT_EQ(1, b.ival);
    EXPECT_FALSE(b.has_str);
    auto s = rec.EventsFor("s");
    EXPECT_EQ(VCONF_TYPE_STRING, s[0].type);
    EXPECT_TRUE(s[0].has_str);
    EXPECT_EQ("two\nlines", s[0].sval);
    EXPECT_EQ(VCONF_TYPE_NONE, s[1].type);
    EXPECT_FALSE(s[1].has_str);
}

TEST_F(VconfNotify, DoesNotDeliverChangesOfOtherKeys)
{
    Recorder rec;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe("watched", Recorder::Callback<>, &rec));
    ASSERT_EQ(VCONF_OK, loop.Subscribe(kBarrier, Recorder::Callback<>, &rec));

    ASSERT_EQ(VCONF_OK, vconf_set_int("other", 1));
    ASSERT_EQ(VCONF_OK, vconf_set_int("watched/child", 1));
    ASSERT_EQ(VCONF_OK, vconf_set_int("watche", 1));
    Barrier(rec);

    EXPECT_EQ(0u, rec.Count("watched"));
    EXPECT_EQ(1u, rec.Events().size());
}

TEST_F(VconfNotify, UnsubscribingStopsDelivery)
{
    Recorder rec;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", Recorder::Callback<>, &rec));
    ASSERT_EQ(VCONF_OK, loop.Subscribe(kBarrier, Recorder::Callback<>, &rec));
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 1));
    ASSERT_TRUE(rec.WaitForCount("k", 1));

    // Unsubscribing works from any thread, not just the delivering one.
    ASSERT_EQ(VCONF_OK, vconf_ignore_key_changed("k", Recorder::Callback<>));
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 2));
    Barrier(rec);
    EXPECT_EQ(1u, rec.Count("k"));
}

TEST_F(VconfNotify, TheLastUnsubscribeDetachesAndALaterSubscribeWorksAgain)
{
    Recorder rec;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", Recorder::Callback<>, &rec));
    ASSERT_EQ(VCONF_OK, vconf_ignore_key_changed("k", Recorder::Callback<>));
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 1));
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", Recorder::Callback<>, &rec));
    ASSERT_EQ(VCONF_OK, loop.Subscribe(kBarrier, Recorder::Callback<>, &rec));
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 2));
    ASSERT_TRUE(rec.WaitForCount("k", 1));
    Barrier(rec);
    auto events = rec.EventsFor("k");
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(2, events[0].ival);
}

TEST_F(VconfNotify, RefusesADuplicateSubscriptionAndAnUnknownUnsubscribe)
{
    Recorder rec;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", Recorder::Callback<>, &rec));
    EXPECT_EQ(VCONF_ERROR, loop.Subscribe("k", Recorder::Callback<>, &rec));
    // The same key with another callback, and the same callback from another
    // context, are distinct or duplicate as the pair says.
    EXPECT_EQ(VCONF_OK, loop.Subscribe("k", Recorder::Callback<1>, &rec));
    EXPECT_EQ(VCONF_ERROR, vconf_notify_key_changed("k", Recorder::Callback<>, &rec));
    EXPECT_EQ(VCONF_ERROR, vconf_ignore_key_changed("never", Recorder::Callback<>));
    EXPECT_EQ(VCONF_ERROR, vconf_ignore_key_changed("k", Recorder::Callback<2>));
    EXPECT_NE(VCONF_OK, vconf_notify_key_changed("k", nullptr, nullptr));
    EXPECT_NE(VCONF_OK, vconf_notify_key_changed("", Recorder::Callback<3>, &rec));
    EXPECT_NE(VCONF_OK, vconf_notify_key_changed(nullptr, Recorder::Callback<3>, &rec));
}

TEST_F(VconfNotify, EachContextIsCalledOnItsOwnThread)
{
    Recorder first, second;
    LoopThread loop1, loop2;
    ASSERT_EQ(VCONF_OK, loop1.Subscribe("k", Recorder::Callback<1>, &first));
    ASSERT_EQ(VCONF_OK, loop2.Subscribe("k", Recorder::Callback<2>, &second));
    ASSERT_EQ(VCONF_OK, vconf_set_str("k", "v"));
    ASSERT_TRUE(first.WaitForCount("k", 1));
    ASSERT_TRUE(second.WaitForCount("k", 1));
    EXPECT_EQ(loop1.id(), first.Events()[0].thread);
    EXPECT_EQ(loop2.id(), second.Events()[0].thread);
}

// A callback that removes itself on its first call.
struct SelfRemover {
    std::atomic<int> calls{0};
    std::atomic<int> ignore_rc{1};
    static void Callback(keynode_t *node, void *self_ptr)
    {
        auto *self = static_cast<SelfRemover *>(self_ptr);
        self->calls++;
        self->ignore_rc = vconf_ignore_key_changed(vconf_keynode_get_name(node), Callback);
    }
};

TEST_F(VconfNotify, ACallbackMayUnsubscribeItselfDuringDelivery)
{
    SelfRemover remover;
    Recorder rec;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", SelfRemover::Callback, &remover));
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", Recorder::Callback<>, &rec));
    ASSERT_EQ(VCONF_OK, loop.Subscribe(kBarrier, Recorder::Callback<>, &rec));

    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 1));
    ASSERT_TRUE(rec.WaitForCount("k", 1));
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 2));
    ASSERT_TRUE(rec.WaitForCount("k", 2));
    Barrier(rec);
    EXPECT_EQ(1, remover.calls.load());
    EXPECT_EQ(VCONF_OK, remover.ignore_rc.load());
}

TEST_F(VconfNotify, TheOnlySubscriberMayUnsubscribeItself)
{
    SelfRemover remover;
    Recorder rec;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", SelfRemover::Callback, &remover));
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 1));
    ASSERT_TRUE(ssotest::WaitUntil([&] { return remover.calls.load() == 1; }));
    EXPECT_EQ(VCONF_OK, remover.ignore_rc.load());
    // Its context lost its watcher; the loop keeps running and a new
    // subscription there works.
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 2));
    loop.Run([] {});
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", Recorder::Callback<>, &rec));
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 3));
    ASSERT_TRUE(rec.WaitForCount("k", 1));
    EXPECT_EQ(1, remover.calls.load());
}

// Holds its call open until released.
struct SlowCallback {
    std::atomic<bool> entered{false};
    std::atomic<bool> release{false};
    std::atomic<bool> finished{false};
    static void Callback(keynode_t *, void *self_ptr)
    {
        auto *self = static_cast<SlowCallback *>(self_ptr);
        self->entered = true;
        ssotest::WaitUntil([self] { return self->release.load(); });
        self->finished = true;
    }
};

TEST_F(VconfNotify, UnsubscribingFromAnotherThreadWaitsForACallInProgress)
{
    SlowCallback slow;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", SlowCallback::Callback, &slow));
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 1));
    ASSERT_TRUE(ssotest::WaitUntil([&] { return slow.entered.load(); }));

    std::atomic<bool> returned{false};
    std::atomic<bool> finished_at_return{false};
    std::thread remover([&] {
        EXPECT_EQ(VCONF_OK, vconf_ignore_key_changed("k", SlowCallback::Callback));
        finished_at_return = slow.finished.load();
        returned = true;
    });
    EXPECT_FALSE(
        ssotest::WaitUntil([&] { return returned.load(); }, std::chrono::milliseconds(100)));
    slow.release = true;
    remover.join();
    EXPECT_TRUE(finished_at_return.load());
}

// Removes another subscriber of the same key, which would be called next.
struct PeerRemover {
    std::atomic<int> calls{0};
    static void Callback(keynode_t *node, void *self_ptr)
    {
        static_cast<PeerRemover *>(self_ptr)->calls++;
        vconf_ignore_key_changed(vconf_keynode_get_name(node), Recorder::Callback<1>);
    }
};

TEST_F(VconfNotify, ASubscriberRemovedDuringDeliveryIsNotCalledAfterwards)
{
    PeerRemover remover;
    Recorder victim, rec;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", PeerRemover::Callback, &remover));
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", Recorder::Callback<1>, &victim));
    ASSERT_EQ(VCONF_OK, loop.Subscribe(kBarrier, Recorder::Callback<>, &rec));
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 1));
    ASSERT_TRUE(ssotest::WaitUntil([&] { return remover.calls.load() == 1; }));
    Barrier(rec);
    EXPECT_EQ(0u, victim.Count("k"));
}

// Subscribes a recorder to another key from inside a callback.
struct Chainer {
    Recorder *rec = nullptr;
    std::atomic<int> subscribe_rc{1};
    static void Callback(keynode_t *, void *self_ptr)
    {
        auto *self = static_cast<Chainer *>(self_ptr);
        self->subscribe_rc = vconf_notify_key_changed("chained", Recorder::Callback<>, self->rec);
    }
};

TEST_F(VconfNotify, ACallbackMaySubscribeDuringDelivery)
{
    Recorder rec;
    Chainer chainer;
    chainer.rec = &rec;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", Chainer::Callback, &chainer));
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 1));
    ASSERT_TRUE(ssotest::WaitUntil([&] { return chainer.subscribe_rc.load() == VCONF_OK; }));
    ASSERT_EQ(VCONF_OK, vconf_set_int("chained", 5));
    ASSERT_TRUE(rec.WaitForCount("chained", 1));
    EXPECT_EQ(loop.id(), rec.Events()[0].thread);
    EXPECT_EQ(VCONF_OK, vconf_ignore_key_changed("chained", Recorder::Callback<>));
}

TEST_F(VconfNotify, SubscribingCreatesTheStoreDirectory)
{
    Recorder rec;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", Recorder::Callback<>, &rec));
    EXPECT_TRUE(std::filesystem::is_directory(root_.path() + "/vconf"));
}

TEST_F(VconfNotify, SubscribingToAnUnwritableStoreFails)
{
    vconftest::MakeStoreUnwritable(root_.path());
    Recorder rec;
    LoopThread loop;
    EXPECT_NE(VCONF_OK, loop.Subscribe("k", Recorder::Callback<>, &rec));
}

TEST_F(VconfNotify, SurvivesTheStoreDirectoryBeingRemovedWhileWatched)
{
    Recorder rec, later;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", Recorder::Callback<>, &rec));
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 1));
    ASSERT_TRUE(rec.WaitForCount("k", 1));

    std::filesystem::remove_all(root_.path() + "/vconf");
    // The store comes back with the next write; the old watch is gone, but a
    // new subscription on the same context watches the new directory.
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 2));
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", Recorder::Callback<1>, &later));
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 3));
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        for (const Event &e : later.EventsFor("k"))
            if (e.ival == 3)
                return true;
        return false;
    }));
    for (const Event &e : rec.EventsFor("k"))
        EXPECT_TRUE(e.type == VCONF_TYPE_INT || e.type == VCONF_TYPE_NONE);
}

TEST_F(VconfNotify, SurvivesTheWholeRootBeingRemovedWhileWatched)
{
    Recorder rec;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe("k", Recorder::Callback<>, &rec));
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 1));
    ASSERT_TRUE(rec.WaitForCount("k", 1));
    std::filesystem::remove_all(root_.path());
    // The removal of the key is still reported; then the watch ends quietly.
    ASSERT_TRUE(rec.WaitForCount("k", 2));
    EXPECT_EQ(VCONF_TYPE_NONE, rec.EventsFor("k")[1].type);
    loop.Run([] {});
}

TEST_F(VconfNotify, ManyThreadsSubscribingAndUnsubscribingAtOnceStayConsistent)
{
    Recorder rec;
    LoopThread loop;
    ASSERT_EQ(VCONF_OK, loop.Subscribe(kBarrier, Recorder::Callback<>, &rec));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            std::string key = "churn/" + std::to_string(t);
            for (int i = 0; i < 200; ++i) {
                EXPECT_EQ(VCONF_OK,
                          vconf_notify_key_changed(key.c_str(), Recorder::Callback<5>, nullptr));
                EXPECT_EQ(VCONF_OK, vconf_ignore_key_changed(key.c_str(), Recorder::Callback<5>));
            }
        });
    }
    std::thread writer([] {
        for (int i = 0; i < 200; ++i)
            EXPECT_EQ(VCONF_OK, vconf_set_int("churn/0", i));
    });
    for (auto &t : threads)
        t.join();
    writer.join();
    Barrier(rec);
}

} // namespace
