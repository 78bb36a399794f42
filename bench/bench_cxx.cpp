// The C++ API against the C API it wraps, side by side in the same run, on
// a private bus against the simulator:
//   - a request's start to its callback: sso::request_access_token with a
//     lambda delivered on the library's thread, against
//     sso_request_access_token with a C callback;
//   - the same through a Future's get();
//   - the result on an application's main loop: the C++ API's default
//     delivery to a main context, against the C API with the hand-over an
//     application writes itself (g_main_context_invoke from the callback).
// Both sides count their results on the same waiters (a ticket per request).
#include <sso_api/sso_api.hpp>

#include <glib.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <thread>

#include "bench_support.h"

namespace {

using namespace std::chrono_literals;
using ssobench::NowNs;
using ssobench::Ticket;
using ssobench::Waiter;

ssobench::Environment *g_env = nullptr;

constexpr const char *kApp = "bench-app";
constexpr const char *kSecret = "bench-secret";

void ClearSimulator(const benchmark::State &)
{
    g_env->sim().ClearJournal();
    g_env->sim().ClearDeliveries();
    g_env->sim().ClearIssued();
}

// A thread that runs a main loop, as an application's main thread does.
class MainLoopThread {
public:
    MainLoopThread()
    {
        context_ = g_main_context_new();
        loop_ = g_main_loop_new(context_, FALSE);
        thread_ = std::thread([this] {
            g_main_context_push_thread_default(context_);
            g_main_loop_run(loop_);
            g_main_context_pop_thread_default(context_);
        });
    }
    ~MainLoopThread()
    {
        ssobench::QuitLoop(context_, loop_);
        thread_.join();
        g_main_loop_unref(loop_);
        g_main_context_unref(context_);
    }
    GMainContext *context() const { return context_; }

private:
    GMainContext *context_;
    GMainLoop *loop_;
    std::thread thread_;
};

// Each side's waiter and count; kept for the process's life, so that a late
// result still finds them.
struct Side {
    Waiter waiter;
    long long expected = 0;
};

// The C API: request, then wait for the callback.
std::int64_t CRequest(Side &side)
{
    Ticket *ticket = side.waiter.NewTicket();
    std::int64_t start = NowNs();
    if (sso_request_access_token(kApp, kSecret, &Waiter::OnResult, ticket) != 0 ||
        !side.waiter.Wait(++side.expected))
        return -1;
    return NowNs() - start;
}

// The C API with the result handed to a main loop by the application.
gboolean OnMainLoop(gpointer ticket)
{
    Waiter::OnResult(ticket, 0, nullptr);
    return G_SOURCE_REMOVE;
}

GMainContext *g_handover_context = nullptr;

int HandOver(void *ticket, int result, char *)
{
    if (result == 0)
        g_main_context_invoke(g_handover_context, OnMainLoop, ticket);
    return 0;
}

std::int64_t CRequestToMainLoop(Side &side)
{
    Ticket *ticket = side.waiter.NewTicket();
    std::int64_t start = NowNs();
    if (sso_request_access_token(kApp, kSecret, &HandOver, ticket) != 0 ||
        !side.waiter.Wait(++side.expected))
        return -1;
    return NowNs() - start;
}

// The C++ API with a callable, delivered as the options say.
std::int64_t CxxRequest(Side &side, const sso::Options &options)
{
    Ticket *ticket = side.waiter.NewTicket();
    std::int64_t start = NowNs();
    sso::request_access_token(
        {kApp, kSecret, std::nullopt},
        [ticket](sso::Result<std::string> r) {
            if (r.ok())
                Waiter::OnResult(ticket, 0, nullptr);
        },
        options);
    if (!side.waiter.Wait(++side.expected))
        return -1;
    return NowNs() - start;
}

// The C++ API through a Future.
std::int64_t CxxFuture()
{
    std::int64_t start = NowNs();
    sso::Result<std::string> r =
        sso::request_access_token({kApp, kSecret, std::nullopt}, 10s).get();
    return r.ok() ? NowNs() - start : -1;
}

void RegisterAll()
{
    static Side *c = new Side, *cxx = new Side, *cLoop = new Side, *cxxLoop = new Side;
    static MainLoopThread *mainLoop = new MainLoopThread;
    g_handover_context = mainLoop->context();
    static const sso::Options immediate = sso::Options(10s).deliver(sso::Delivery::immediate());
    static const sso::Options onMainLoop =
        sso::Options(10s).deliver(sso::Delivery::main_context(mainLoop->context()));

    ssobench::RegisterPair(
        "BM_CxxRequestToCallback", "BM_CRequestToCallback_VsCxx",
        [] { return CxxRequest(*cxx, immediate); }, [] { return CRequest(*c); })
        ->Setup(ClearSimulator);
    ssobench::RegisterPair(
        "BM_CxxFutureGet", "BM_CRequestToCallback_VsFuture", [] { return CxxFuture(); },
        [] { return CRequest(*c); })
        ->Setup(ClearSimulator);
    ssobench::RegisterPair(
        "BM_CxxRequestToMainLoop", "BM_CRequestHandedToMainLoop",
        [] { return CxxRequest(*cxxLoop, onMainLoop); }, [] { return CRequestToMainLoop(*cLoop); })
        ->Setup(ClearSimulator);
}

int Finish(ssobench::BareClient &)
{
    sso::give_proxy();
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    // Only the library's sides run here: no bare client.
    return ssobench::RunWithClients(argc, argv, &g_env, nullptr, RegisterAll, Finish);
}
