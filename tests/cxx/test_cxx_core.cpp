// The C++ API's request machinery without the service: the test plays the C
// library (fake_request.h) and delivers results, late results, results of
// the wrong shape, from any thread, against deadlines, cancels and handles
// that go away.
#include <gtest/gtest.h>

#include <glib.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "fake_request.h"
#include "loop_thread.h"
#include "records.h"
#include "runtime.h"
#include "sso_test_harness.h"

namespace {

using namespace std::chrono_literals;
using cxxtest::Deliver;
using cxxtest::TextLibrary;

// What one callback received.
struct Call {
    bool answered = false;
    int code = 0;
    std::error_code error;
    std::string text;
    std::thread::id thread;
};

class Calls : public ssotest::Records<Call> {
public:
    template <class T = std::string> auto Recorder()
    {
        return [this](sso::Result<T> r) {
            Call c;
            c.answered = r.answered();
            c.code = r.code();
            c.error = r.error();
            if constexpr (std::is_same_v<T, std::string>) {
                if (r.answered())
                    c.text = r.payload();
            }
            c.thread = std::this_thread::get_id();
            Add(std::move(c));
        };
    }
};

const sso::Delivery kHere = sso::Delivery::immediate();

class CxxCore : public ::testing::Test {
protected:
    void SetUp() override { TextLibrary().Clear(); }
    void TearDown() override
    {
        // Every test leaves the table as it found it.
        EXPECT_TRUE(ssotest::WaitUntil([] { return sso::detail::Runtime::Get().pending() == 0; }));
    }
    Calls calls_;
};

TEST_F(CxxCore, ACallbackGetsTheAnswerOnceEvenWhenTheLibraryDeliversTwice)
{
    sso::Request r = cxxtest::fake_request({}, calls_.Recorder(), kHere);
    EXPECT_TRUE(r.pending());
    auto sent = TextLibrary().Last();
    // The user data is the request's id, not a pointer.
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(sent.user_data), r.id());

    Deliver(sent, 0, "AT.first");
    Deliver(sent, 0, "AT.second");
    auto all = calls_.All();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_TRUE(all[0].answered);
    EXPECT_EQ(all[0].code, 0);
    EXPECT_FALSE(all[0].error);
    EXPECT_EQ(all[0].text, "AT.first");
    EXPECT_FALSE(r.pending());
    EXPECT_FALSE(r.cancel());
}

TEST_F(CxxCore, AFutureGetsTheAnswerDeliveredOnAnotherThread)
{
    sso::Future<std::string> f = cxxtest::fake_request({});
    EXPECT_FALSE(f.ready());
    EXPECT_EQ(f.wait_for(1ms), std::future_status::timeout);
    std::thread library([sent = TextLibrary().Last()] { Deliver(sent, 0, "AT.token"); });
    sso::Result<std::string> r = f.get();
    library.join();
    EXPECT_TRUE(r.ok());
    EXPECT_EQ(r.value(), "AT.token");
    EXPECT_FALSE(f.valid());
    EXPECT_THROW(f.get(), std::future_error);
}

TEST_F(CxxCore, AServiceCodeOtherThanZeroIsAnAnswerWithItsPayloadAndAnError)
{
    sso::Future<std::string> f = cxxtest::fake_request({});
    Deliver(TextLibrary().Last(), 6, "{\"reason\":\"unknown account\"}");
    sso::Result<std::string> r = f.get();
    EXPECT_TRUE(r.answered());
    EXPECT_FALSE(r.ok());
    EXPECT_FALSE(static_cast<bool>(r));
    EXPECT_EQ(r.code(), 6);
    EXPECT_EQ(r.error(), std::error_code(6, sso::service_category()));
    EXPECT_EQ(r.payload(), "{\"reason\":\"unknown account\"}");
    try {
        (void)r.value();
        ADD_FAILURE() << "value() of a failed answer must throw";
    } catch (const sso::Error &e) {
        EXPECT_EQ(e.code(), r.error());
        EXPECT_NE(std::string(e.what()).find("answered 6"), std::string::npos) << e.what();
    }
}

TEST_F(CxxCore, ARefusedRequestCompletesAtOnceWithTheReturnCodesCause)
{
    const std::pair<int, sso::errc> cases[] = {
        {-1, sso::errc::failed}, {-100, sso::errc::account_limit}, {1, sso::errc::launch_failed}};
    for (const auto &[rc, cause] : cases) {
        sso::Future<std::string> f = cxxtest::fake_request({rc});
        ASSERT_TRUE(f.ready()) << rc;
        sso::Result<std::string> r = f.get();
        EXPECT_FALSE(r.answered());
        EXPECT_EQ(r.error(), sso::make_error_code(cause)) << rc;
    }
    sso::Request r = cxxtest::fake_request({-1}, calls_.Recorder(), kHere);
    EXPECT_FALSE(r.pending());
    ASSERT_EQ(calls_.Count(), 1u);
    EXPECT_EQ(calls_.All()[0].error, sso::errc::failed);
    EXPECT_TRUE(TextLibrary().All().empty());
}

TEST_F(CxxCore, AnAnswerGivenBeforeTheCFunctionReturnsWinsOverItsReturnCode)
{
    sso::Request r = cxxtest::fake_calls_back_then_fails({}, calls_.Recorder(), kHere);
    auto all = calls_.All();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_TRUE(all[0].answered);
    EXPECT_EQ(all[0].code, -1);
}

TEST_F(CxxCore, TheDeadlineCompletesTheRequestAndTheLateResultIsDropped)
{
    sso::Request r =
        cxxtest::fake_request({}, calls_.Recorder(), sso::Options(30ms).deliver(kHere));
    auto sent = TextLibrary().Last();
    ASSERT_TRUE(calls_.WaitFor(1));
    auto all = calls_.All();
    EXPECT_FALSE(all[0].answered);
    EXPECT_EQ(all[0].error, sso::errc::deadline_exceeded);
    EXPECT_TRUE(all[0].error == std::errc::timed_out);
    // On the deadline thread, not on this one.
    EXPECT_NE(all[0].thread, std::this_thread::get_id());

    Deliver(sent, 0, "AT.late");
    EXPECT_EQ(calls_.Count(), 1u);
}

// The deadline thread never takes the application's signals; faults stay
// deliverable on it.
TEST_F(CxxCore, TheDeadlineThreadBlocksTheApplicationsSignalsButNotFaults)
{
    std::promise<sigset_t> mask;
    auto seen = mask.get_future();
    sso::Request r = cxxtest::fake_request(
        {},
        [&](sso::Result<std::string>) {
            sigset_t current;
            pthread_sigmask(SIG_BLOCK, nullptr, &current);
            mask.set_value(current);
        },
        sso::Options(1ms).deliver(kHere));
    ASSERT_EQ(seen.wait_for(10s), std::future_status::ready);
    const sigset_t blocked = seen.get();
    for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGCHLD, SIGPIPE, SIGALRM})
        EXPECT_TRUE(sigismember(&blocked, sig)) << strsignal(sig);
    for (int sig : {SIGSEGV, SIGBUS, SIGABRT})
        EXPECT_FALSE(sigismember(&blocked, sig)) << strsignal(sig);
}

TEST_F(CxxCore, DeadlinesFireInTheirOwnOrder)
{
    std::vector<int> order;
    std::mutex mutex;
    auto record = [&](int n) {
        return [&, n](sso::Result<std::string>) {
            std::lock_guard<std::mutex> lock(mutex);
            order.push_back(n);
        };
    };
    sso::Request late = cxxtest::fake_request({}, record(2), sso::Options(200ms).deliver(kHere));
    sso::Request early = cxxtest::fake_request({}, record(1), sso::Options(20ms).deliver(kHere));
    sso::Request never =
        cxxtest::fake_request({}, record(3), sso::Options().no_deadline().deliver(kHere));
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return order.size() >= 2;
    }));
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
    EXPECT_TRUE(never.pending());
    EXPECT_TRUE(never.cancel());
}

TEST_F(CxxCore, CancelCompletesWithCancelledOnTheCallingThreadAndDropsTheResult)
{
    sso::Request r = cxxtest::fake_request({}, calls_.Recorder(), kHere);
    auto sent = TextLibrary().Last();
    EXPECT_TRUE(r.cancel());
    EXPECT_FALSE(r.cancel());
    auto all = calls_.All();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].error, sso::errc::cancelled);
    EXPECT_TRUE(all[0].error == std::errc::operation_canceled);
    EXPECT_EQ(all[0].thread, std::this_thread::get_id());
    Deliver(sent, 0, "AT.late");
    EXPECT_EQ(calls_.Count(), 1u);

    sso::Future<std::string> f = cxxtest::fake_request({});
    EXPECT_TRUE(f.cancel());
    EXPECT_EQ(f.get().error(), sso::errc::cancelled);
}

TEST_F(CxxCore, AGivenUpRequestLeavesTheTableAndItsResultIsDropped)
{
    {
        sso::Future<std::string> f = cxxtest::fake_request({});
        EXPECT_EQ(sso::detail::Runtime::Get().pending(), 1u);
    }
    EXPECT_EQ(sso::detail::Runtime::Get().pending(), 0u);
    Deliver(TextLibrary().Last(), 0, "AT.nobody");

    {
        sso::ScopedRequest scoped = cxxtest::fake_request({}, calls_.Recorder(), kHere);
        EXPECT_TRUE(scoped.pending());
    }
    EXPECT_EQ(sso::detail::Runtime::Get().pending(), 0u);
    Deliver(TextLibrary().Last(), 0, "AT.nobody");
    EXPECT_EQ(calls_.Count(), 0u);
}

TEST_F(CxxCore, AbandonWaitsForTheCallbackRunningOnAnotherThreadAndNothingRunsAfterIt)
{
    std::mutex mutex;
    std::condition_variable cv;
    bool inside = false, release = false;
    std::vector<std::string> events;
    auto event = [&](const std::string &e) {
        std::lock_guard<std::mutex> lock(mutex);
        events.push_back(e);
        cv.notify_all();
    };
    sso::Request r = cxxtest::fake_request(
        {},
        [&](sso::Result<std::string>) {
            std::unique_lock<std::mutex> lock(mutex);
            inside = true;
            cv.notify_all();
            cv.wait(lock, [&] { return release; });
            events.push_back("callback returns");
        },
        kHere);
    std::thread library([sent = TextLibrary().Last()] { Deliver(sent, 0, "AT.x"); });
    {
        std::unique_lock<std::mutex> lock(mutex);
        ASSERT_TRUE(cv.wait_for(lock, 10s, [&] { return inside; }));
    }
    auto abandoned = std::async(std::launch::async, [&] {
        event("abandon starts");
        r.abandon();
        event("abandon returns");
    });
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return events.size() == 1;
    }));
    // abandon() must not return while the callback runs.
    EXPECT_EQ(abandoned.wait_for(50ms), std::future_status::timeout);
    {
        std::lock_guard<std::mutex> lock(mutex);
        release = true;
        cv.notify_all();
    }
    ASSERT_EQ(abandoned.wait_for(10s), std::future_status::ready);
    library.join();
    EXPECT_EQ(events,
              (std::vector<std::string>{"abandon starts", "callback returns", "abandon returns"}));
}

TEST_F(CxxCore, AbandonFromInsideTheCallbackReturnsAtOnce)
{
    sso::Request r;
    bool returned = false;
    r = cxxtest::fake_request(
        {},
        [&](sso::Result<std::string>) {
            r.abandon(); // would deadlock if it waited for itself
            returned = true;
        },
        kHere);
    Deliver(TextLibrary().Last(), 0, "AT.x");
    EXPECT_TRUE(returned);
}

TEST_F(CxxCore, AResultForAMainContextRunsWhenThatContextsLoopRunsIt)
{
    ssotest::LoopThread loop;
    GMainContext *context = nullptr;
    loop.Run([&] { context = g_main_context_ref_thread_default(); });
    sso::Request r =
        cxxtest::fake_request({}, calls_.Recorder(), sso::Delivery::main_context(context));
    g_main_context_unref(context);
    Deliver(TextLibrary().Last(), 0, "AT.main");
    ASSERT_TRUE(calls_.WaitFor(1));
    EXPECT_EQ(calls_.All()[0].thread, loop.id());
    EXPECT_EQ(calls_.All()[0].text, "AT.main");
}

TEST_F(CxxCore, TheDefaultDeliveryIsTheCallersThreadDefaultContextAndNeverInline)
{
    GMainContext *context = g_main_context_new();
    g_main_context_push_thread_default(context);
    sso::Request r = cxxtest::fake_request({}, calls_.Recorder());
    // Cancelled on this very thread: still posted, not called inside cancel().
    EXPECT_TRUE(r.cancel());
    EXPECT_EQ(calls_.Count(), 0u);
    sso::Request other = cxxtest::fake_request({}, calls_.Recorder());
    std::thread library([sent = TextLibrary().Last()] { Deliver(sent, 0, "AT.default"); });
    library.join();
    EXPECT_EQ(calls_.Count(), 0u);
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        g_main_context_iteration(context, FALSE);
        return calls_.Count() == 2;
    }));
    g_main_context_pop_thread_default(context);
    g_main_context_unref(context);
    for (const Call &c : calls_.All())
        EXPECT_EQ(c.thread, std::this_thread::get_id());
    EXPECT_EQ(calls_.All()[0].error, sso::errc::cancelled);
    EXPECT_EQ(calls_.All()[1].text, "AT.default");
}

TEST_F(CxxCore, AnAbandonedRequestWhoseResultWasPostedIsNotCalled)
{
    GMainContext *context = g_main_context_new();
    sso::Request r =
        cxxtest::fake_request({}, calls_.Recorder(), sso::Delivery::main_context(context));
    Deliver(TextLibrary().Last(), 0, "AT.posted");
    r.abandon();
    while (g_main_context_iteration(context, FALSE)) {
    }
    g_main_context_unref(context);
    EXPECT_EQ(calls_.Count(), 0u);
}

TEST_F(CxxCore, AnExecutorGetsTheTaskAndRunsItWhereItWants)
{
    std::mutex mutex;
    std::vector<std::function<void()>> queue;
    sso::Delivery executor = sso::Delivery::executor([&](std::function<void()> task) {
        std::lock_guard<std::mutex> lock(mutex);
        queue.push_back(std::move(task));
    });
    sso::Request r = cxxtest::fake_request({}, calls_.Recorder(), executor);
    Deliver(TextLibrary().Last(), 0, "AT.queued");
    EXPECT_EQ(calls_.Count(), 0u);
    std::vector<std::function<void()>> tasks;
    {
        std::lock_guard<std::mutex> lock(mutex);
        tasks.swap(queue);
    }
    ASSERT_EQ(tasks.size(), 1u);
    std::thread worker([&] { tasks[0](); });
    worker.join();
    ASSERT_EQ(calls_.Count(), 1u);
    EXPECT_EQ(calls_.All()[0].text, "AT.queued");
    EXPECT_NE(calls_.All()[0].thread, std::this_thread::get_id());
}

TEST_F(CxxCore, EachRequestCompletesExactlyOnceWhenResultDeadlineAndCancelRace)
{
    constexpr int kRequests = 300;
    std::atomic<int> completions{0};
    std::vector<sso::Request> requests;
    for (int i = 0; i < kRequests; ++i)
        requests.push_back(cxxtest::fake_request(
            {}, [&](sso::Result<std::string>) { completions++; },
            sso::Options(std::chrono::milliseconds(i % 3)).deliver(kHere)));
    auto sent = TextLibrary().All();
    ASSERT_EQ(sent.size(), static_cast<size_t>(kRequests));
    std::thread deliverer([&] {
        for (auto &s : sent)
            Deliver(s, 0, "AT");
    });
    std::thread canceller([&] {
        for (auto &r : requests)
            r.cancel();
    });
    std::thread again([&] {
        for (auto it = sent.rbegin(); it != sent.rend(); ++it)
            Deliver(*it, 0, "AT.again");
    });
    deliverer.join();
    canceller.join();
    again.join();
    EXPECT_EQ(completions.load(), kRequests);
}

TEST_F(CxxCore, TheTableIsBoundedAndRefusesWhenFull)
{
    std::vector<sso::Future<std::string>> futures;
    for (size_t i = 0; i < sso::kMaxPendingRequests; ++i)
        futures.push_back(cxxtest::fake_request({}, sso::Options().no_deadline()));
    sso::Future<std::string> refused = cxxtest::fake_request({});
    ASSERT_TRUE(refused.ready());
    sso::Result<std::string> r = refused.get();
    EXPECT_EQ(r.error(), sso::errc::too_many_requests);
    EXPECT_TRUE(r.error() == std::errc::resource_unavailable_try_again);
    futures.clear();
    EXPECT_EQ(sso::detail::Runtime::Get().pending(), 0u);
    sso::Future<std::string> accepted = cxxtest::fake_request({});
    EXPECT_FALSE(accepted.ready());
}

TEST_F(CxxCore, AResultOfAnotherShapeDoesNotCompleteTheRequest)
{
    sso::Request r = cxxtest::fake_request({}, calls_.Recorder(), kHere);
    auto sent = TextLibrary().Last();
    // A result-only callback aimed at the same id (a confused or hostile
    // sender) is not this request's result.
    sso::detail::on_bare(sent.user_data, 0);
    sso::detail::on_identity(sent.user_data, 0, nullptr, nullptr);
    EXPECT_EQ(calls_.Count(), 0u);
    EXPECT_TRUE(r.pending());
    Deliver(sent, 0, "AT.right");
    ASSERT_EQ(calls_.Count(), 1u);
    EXPECT_EQ(calls_.All()[0].text, "AT.right");
}

TEST_F(CxxCore, ANullTextArrivesAsAnEmptyText)
{
    sso::Future<std::string> f = cxxtest::fake_request({});
    auto sent = TextLibrary().Last();
    sent.callback(sent.user_data, 0, nullptr);
    EXPECT_EQ(f.get().value(), "");
}

TEST_F(CxxCore, AnExceptionFromACallbackGoesToTheHandlerNotIntoTheLibrary)
{
    std::string seen;
    sso::set_callback_exception_handler([&](std::exception_ptr e) {
        try {
            std::rethrow_exception(e);
        } catch (const std::exception &ex) {
            seen = ex.what();
        }
    });
    sso::Request r = cxxtest::fake_request(
        {}, [](sso::Result<std::string>) { throw std::runtime_error("boom"); }, kHere);
    EXPECT_NO_THROW(Deliver(TextLibrary().Last(), 0, "AT"));
    EXPECT_EQ(seen, "boom");
    sso::set_callback_exception_handler(nullptr);
    // Without a handler it is logged and dropped.
    sso::Request again = cxxtest::fake_request(
        {}, [](sso::Result<std::string>) { throw std::runtime_error("boom"); }, kHere);
    EXPECT_NO_THROW(Deliver(TextLibrary().Last(), 0, "AT"));
}

TEST_F(CxxCore, ANewerAccountPageSupersedesTheOlderAndTheViewClosingCompletesIt)
{
    Calls first, second;
    sso::Request a = cxxtest::fake_page({}, first.Recorder<sso::Nothing>(), kHere);
    sso::Request b = cxxtest::fake_page({}, second.Recorder<sso::Nothing>(), kHere);
    ASSERT_EQ(first.Count(), 1u);
    EXPECT_EQ(first.All()[0].error, sso::errc::superseded);
    EXPECT_TRUE(b.pending());
    // The view-closed notice carries whatever user data installed the
    // library's watch: the first page's.
    auto firstSent = TextLibrary().All().front();
    Deliver(firstSent, 0, "");
    ASSERT_EQ(second.Count(), 1u);
    EXPECT_TRUE(second.All()[0].answered);
    EXPECT_EQ(second.All()[0].code, 0);
    // A second notice finds no page waiting.
    Deliver(firstSent, 0, "");
    EXPECT_EQ(second.Count(), 1u);
    EXPECT_EQ(first.Count(), 1u);
}

TEST_F(CxxCore, AccountFlowsHaveNoDefaultDeadlineButServiceRequestsDo)
{
    EXPECT_LT(sso::Options().effective_timeout(true).count(), 0);
    EXPECT_EQ(sso::Options().effective_timeout(false), sso::kDefaultTimeout);
    EXPECT_EQ(sso::Options(1500us).effective_timeout(true), 2ms);
    EXPECT_EQ(sso::Options(-5s).effective_timeout(false), 0ms);
    EXPECT_LT(sso::Options(5s).no_deadline().effective_timeout(false).count(), 0);
}

TEST(CxxRuntime, ShutdownGivesFuturesUnloadingCallsNoCallbackAndAcceptsNothingMore)
{
    sso::detail::Runtime runtime; // a table of its own, not the process's
    auto future =
        std::make_shared<sso::detail::FuturePending<std::string>>(sso::detail::Shape::text);
    bool called = false;
    auto callback = std::make_shared<
        sso::detail::CallbackPending<std::string, std::function<void(sso::Result<std::string>)>>>(
        sso::detail::Shape::text, [&](sso::Result<std::string>) { called = true; },
        sso::Delivery::immediate());
    ASSERT_FALSE(runtime.Enlist(future, 10s));
    ASSERT_FALSE(runtime.Enlist(callback, std::chrono::milliseconds(-1)));
    EXPECT_EQ(runtime.pending(), 2u);

    runtime.Shutdown(); // joins the deadline thread the first request started
    EXPECT_TRUE(runtime.closing());
    EXPECT_EQ(runtime.pending(), 0u);
    EXPECT_EQ(future->take().error(), sso::errc::unloading);
    EXPECT_TRUE(callback->done());
    EXPECT_FALSE(called);

    auto later =
        std::make_shared<sso::detail::FuturePending<std::string>>(sso::detail::Shape::text);
    EXPECT_EQ(runtime.Enlist(later, 1s), sso::errc::unloading);
    runtime.Shutdown(); // a second time does nothing
}

TEST(CxxUnload, OnceTheUnloadBeganNoCallbackRunsAndNewRequestsFailWithUnloading)
{
    GMainContext *context = g_main_context_new();
    int calls = 0;
    sso::Request posted = cxxtest::fake_request(
        {}, [&](sso::Result<std::string>) { ++calls; }, sso::Delivery::main_context(context));
    Deliver(TextLibrary().Last(), 0, "AT.posted"); // on its way to the context
    sso::Future<std::string> pending = cxxtest::fake_request({});

    sso::detail::Runtime::Get().Shutdown(); // what the end of the process does

    while (g_main_context_iteration(context, FALSE)) {
    }
    g_main_context_unref(context);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(pending.get().error(), sso::errc::unloading);
    EXPECT_EQ(cxxtest::fake_request({}).get().error(), sso::errc::unloading);
    EXPECT_EQ(sso::subscribe_view_state([](sso::ViewState) {}).error(), sso::errc::unloading);
}

TEST(CxxExit, TheProcessExitsPromptlyWithRequestsPendingAndAWaiterBlocked)
{
    auto child = ssotest::ChildProcess::Fork([] {
        // Kept to the end (a handle that went first would give its request
        // up): what is pending then meets the unload.
        auto *waited = new sso::Future<std::string>(cxxtest::fake_request({}, 60s));
        auto *callback = new sso::Request(cxxtest::fake_request(
            {}, [](sso::Result<std::string>) { std::abort(); }, sso::Options(60s).deliver(kHere)));
        (void)callback;
        std::thread([waited] { (void)waited->wait_for(60s); }).detach();
        std::exit(0); // the unload: joins the deadline thread, calls nobody
        return 0;
    });
    EXPECT_EQ(child.Wait(std::chrono::seconds(20)), 0);
}

// ---- values

TEST(CxxErrors, EveryCauseHasAStableNameAndASentence)
{
    EXPECT_STREQ(sso::category().name(), "sso");
    EXPECT_STREQ(sso::service_category().name(), "sso.service");
    EXPECT_STREQ(sso::name(sso::errc::deadline_exceeded), "deadline_exceeded");
    EXPECT_STREQ(sso::name(sso::errc::not_signed_in), "not_signed_in");
    EXPECT_STREQ(sso::name(static_cast<sso::errc>(9999)), "unknown");
    for (int v :
         {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 50, 100, 101, 102, 103}) {
        auto e = static_cast<sso::errc>(v);
        EXPECT_STRNE(sso::name(e), "unknown") << v;
        EXPECT_EQ(sso::make_error_code(e).message().find("unknown"), std::string::npos) << v;
    }
    std::error_code ec = sso::errc::cancelled;
    EXPECT_EQ(ec.category(), sso::category());
    EXPECT_TRUE(ec == std::errc::operation_canceled);
    EXPECT_FALSE(sso::make_error_code(sso::errc::failed) == std::errc::timed_out);
    EXPECT_EQ(std::error_code(7, sso::service_category()).message(),
              "the SSO service answered 7 (account_limit)");
    EXPECT_EQ(std::error_code(77, sso::service_category()).message(),
              "the SSO service answered 77");
    // The C library's causes and errc share their numbers.
    for (int v = SSO_ERROR_INVALID_ARGUMENT; v <= SSO_ERROR_INTERNAL; ++v)
        EXPECT_STREQ(sso::name(static_cast<sso::errc>(v)),
                     sso_error_name(static_cast<sso_error_e>(v)))
            << v;
}

TEST(CxxErrors, ThrowingAccessorsCarryTheCode)
{
    sso::Expected<int> none(sso::errc::not_signed_in);
    EXPECT_FALSE(none);
    EXPECT_EQ(none.value_or(7), 7);
    try {
        (void)none.value();
        ADD_FAILURE();
    } catch (const sso::Error &e) {
        EXPECT_EQ(e.code(), sso::errc::not_signed_in);
    }
    sso::Expected<int> some(3);
    EXPECT_EQ(some.value(), 3);
    EXPECT_EQ(*some, 3);
    EXPECT_NO_THROW(sso::throw_if({}));
    EXPECT_THROW(sso::throw_if(sso::errc::failed), sso::Error);

    sso::Result<std::string> notAnswered(sso::make_error_code(sso::errc::deadline_exceeded));
    EXPECT_EQ(notAnswered.code(), -1);
    EXPECT_EQ(notAnswered.code_name(), nullptr);
    EXPECT_THROW((void)notAnswered.payload(), sso::Error);
}

TEST(CxxText, OwnsTheCTextAndGivesItUpOnRequest)
{
    sso::Text empty;
    EXPECT_TRUE(empty.empty());
    EXPECT_STREQ(empty.c_str(), "");
    sso::Text t(strdup("AT.secret"));
    EXPECT_EQ(t.view(), "AT.secret");
    EXPECT_EQ(t.size(), 9u);
    sso::Text moved(std::move(t));
    EXPECT_TRUE(t.empty()); // NOLINT: checking the moved-from state
    EXPECT_EQ(moved.str(), "AT.secret");
    moved = sso::Text(strdup("other"));
    EXPECT_EQ(std::string_view(moved), "other");
    char *raw = moved.release();
    EXPECT_TRUE(moved.empty());
    EXPECT_STREQ(raw, "other");
    free(raw);
}

} // namespace
