// Throughput of sso_request_access_token against the simulator on a private
// bus with 1, 4 and 16 application threads, each waiting for its own
// callbacks, side by side with a bare-GDBus client doing the same: the same
// call, the same call-back on an object it exports, dispatched on one thread
// of its own.
//
// The two take turns in short phases (every thread sends a few requests, the
// phase ends when all their callbacks are in), so both see the same moments
// of a shared machine; a figure is the time per request of its phases.
// Every callback is counted per request: a result that never comes or comes
// twice shows in callbacks_missing / callbacks_duplicated.
#include <sso_api/sso_api.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "bench_support.h"

namespace {

using ssobench::Ticket;
using ssobench::Waiter;

ssobench::Environment *g_env = nullptr;
ssobench::BareClient *g_bare = nullptr;

// Requests each thread sends in one phase.
constexpr int kPerThreadAndPhase = 8;

void ClearSimulator(const benchmark::State &)
{
    g_env->sim().ClearJournal();
    g_env->sim().ClearDeliveries();
    g_env->sim().ClearIssued();
}

// N application threads that live as long as the process (a late or
// repeated result still finds its waiter) and run phases on command.
class Load {
public:
    explicit Load(int threads) : waiters_(static_cast<size_t>(threads) * 2)
    {
        for (int t = 0; t < threads; ++t)
            threads_.emplace_back([this, t] { Work(t); });
    }

    // One phase through the library (or bare GDBus): the wall time per
    // request, or -1 when a request was refused or a callback did not come.
    std::int64_t Phase(bool library)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        library_ = library;
        running_ = static_cast<int>(threads_.size());
        failed_ = false;
        std::int64_t start = ssobench::NowNs();
        ++phase_;
        cv_.notify_all();
        done_.wait(lock, [&] { return running_ == 0; });
        std::int64_t end = ssobench::NowNs();
        long long requests = static_cast<long long>(threads_.size()) * kPerThreadAndPhase;
        return failed_ ? -1 : (end - start) / requests;
    }

    // Ends the threads (between phases).
    void Stop()
    {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
            ++phase_;
        }
        cv_.notify_all();
        for (auto &t : threads_)
            t.join();
        threads_.clear();
    }

    // Over the threads' library (or bare) waiters.
    long long Missing(bool library) const
    {
        long long n = 0;
        for (size_t t = 0; t < threads_.size(); ++t)
            n += waiters_[t * 2 + (library ? 0 : 1)].Missing();
        return n;
    }
    long long Duplicated(bool library) const
    {
        long long n = 0;
        for (size_t t = 0; t < threads_.size(); ++t)
            n += waiters_[t * 2 + (library ? 0 : 1)].Duplicated();
        return n;
    }

private:
    void Work(int t)
    {
        Waiter &libWaiter = waiters_[static_cast<size_t>(t) * 2];
        Waiter &bareWaiter = waiters_[static_cast<size_t>(t) * 2 + 1];
        long long libExpected = 0, bareExpected = 0;
        long long seen = 0;
        for (;;) {
            bool library;
            {
                std::unique_lock<std::mutex> lock(mutex_);
                cv_.wait(lock, [&] { return phase_ != seen; });
                if (stop_)
                    return;
                seen = phase_;
                library = library_;
            }
            bool ok = true;
            for (int i = 0; i < kPerThreadAndPhase && ok; ++i) {
                if (library) {
                    ok = sso_request_access_token("bench-app", "bench-secret", &Waiter::OnResult,
                                                  libWaiter.NewTicket()) == 0 &&
                         libWaiter.Wait(++libExpected);
                } else {
                    ok = g_bare->RequestAccessToken(bareWaiter.NewTicket(), aeIndex_++) &&
                         bareWaiter.Wait(++bareExpected);
                }
            }
            std::lock_guard<std::mutex> lock(mutex_);
            failed_ = failed_ || !ok;
            if (--running_ == 0)
                done_.notify_one();
        }
    }

    std::vector<Waiter> waiters_; // per thread: library, bare
    std::vector<std::thread> threads_;
    std::atomic<int> aeIndex_{0};
    std::mutex mutex_;
    std::condition_variable cv_;
    std::condition_variable done_;
    long long phase_ = 0;
    bool library_ = true;
    int running_ = 0;
    bool failed_ = false;
    bool stop_ = false;
};

// Kept to the end of the process: a late or repeated result still finds its
// waiter.
std::map<int, std::unique_ptr<Load>> g_loads;

Load &LoadOf(int threads)
{
    auto it = g_loads.find(threads);
    if (it == g_loads.end())
        it = g_loads.emplace(threads, std::make_unique<Load>(threads)).first;
    return *it->second;
}

void RegisterAll()
{
    // Phases per repetition: about half a second of each pair on an idle
    // machine (a phase is 8 requests per thread).
    const std::map<int, int> phases = {{1, 60}, {4, 30}, {16, 12}};
    for (int threads : {1, 4, 16}) {
        std::string n = std::to_string(threads);
        ssobench::RegisterPair(
            "BM_Throughput" + n + "T_Library", "BM_Throughput" + n + "T_Bare",
            [threads] { return LoadOf(threads).Phase(true); },
            [threads] { return LoadOf(threads).Phase(false); },
            [threads](benchmark::State &state) {
                Load &load = LoadOf(threads);
                state.counters["a_callbacks_missing"] = static_cast<double>(load.Missing(true));
                state.counters["a_callbacks_duplicated"] =
                    static_cast<double>(load.Duplicated(true));
                state.counters["b_callbacks_missing"] = static_cast<double>(load.Missing(false));
                state.counters["b_callbacks_duplicated"] =
                    static_cast<double>(load.Duplicated(false));
            })
            ->Iterations(phases.at(threads))
            ->Setup(ClearSimulator);
    }
}

int Finish(ssobench::BareClient &bare)
{
    // Results that came late or twice would show now.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    long long late = 0;
    for (auto &load : g_loads) {
        load.second->Stop();
        late += load.second->Duplicated(true);
    }
    bare.Stop();
    sso_give_proxy();
    if (late != 0) {
        std::fprintf(stderr, "%lld results were delivered more than once\n", late);
        return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    return ssobench::RunWithClients(argc, argv, &g_env, &g_bare, RegisterAll, Finish);
}
