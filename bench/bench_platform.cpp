// Costs of the device platform on the paths the library takes often: reading
// a setting, a log line below the threshold (and one written to a file or to
// a log daemon), and how long a settings change takes to reach a subscriber
// in another process.
#include <benchmark/benchmark.h>
#include <dlog.h>
#include <glib.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vconf.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench_temp_root.h"

namespace {

using Clock = std::chrono::steady_clock;

// A private platform root for one benchmark run, removed afterwards.
class TempRoot : public ssobench::TempRoot {
public:
    TempRoot() : ssobench::TempRoot("sso-bench-") {}
};

// Points dlog at a file with the given threshold for one run.
class LogToFile {
public:
    LogToFile(const std::string &path, const char *level)
    {
        setenv("SSO_PLATFORM_LOG", ("file:" + path).c_str(), 1);
        setenv("SSO_PLATFORM_LOG_LEVEL", level, 1);
        dlog_reload_config();
    }
    ~LogToFile()
    {
        // Closes the file before its directory goes away.
        setenv("SSO_PLATFORM_LOG", "none", 1);
        dlog_reload_config();
    }
};

void BM_VconfGetInt(benchmark::State &state)
{
    TempRoot root;
    if (!root.ok() || vconf_set_int("db/bench/int", 42) != VCONF_OK) {
        state.SkipWithError("cannot prepare the store");
        return;
    }
    int v = 0;
    for (auto _ : state) {
        if (vconf_get_int("db/bench/int", &v) != VCONF_OK) {
            state.SkipWithError("vconf_get_int failed");
            break;
        }
        benchmark::DoNotOptimize(v);
    }
}
BENCHMARK(BM_VconfGetInt)->MinTime(0.3);

void BM_DlogFilteredOut(benchmark::State &state)
{
    TempRoot root;
    LogToFile log(root.path() + "/log.txt", "warn");
    int i = 0;
    for (auto _ : state) {
        int r = dlog_print(DLOG_INFO, "BENCH", "value %d of %s at %p", i++, "key",
                           static_cast<void *>(&i));
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_DlogFilteredOut)->MinTime(0.2);

void BM_DlogWrittenToFile(benchmark::State &state)
{
    TempRoot root;
    LogToFile log(root.path() + "/log.txt", "info");
    int i = 0;
    for (auto _ : state) {
        int r = dlog_print(DLOG_INFO, "BENCH", "value %d of %s at %p", i++, "key",
                           static_cast<void *>(&i));
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_DlogWrittenToFile)->MinTime(0.2);

// A line sent to a log daemon's socket: one datagram on the kept
// connection (a thread stands in for the daemon and drains the socket).
void BM_DlogWrittenToSyslog(benchmark::State &state)
{
    TempRoot root;
    std::string path = root.path() + "/log.sock";
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un addr;
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
    if (fd < 0 || bind(fd, reinterpret_cast<struct sockaddr *>(&addr), sizeof(addr)) != 0) {
        state.SkipWithError("cannot bind a daemon socket");
        return;
    }
    std::atomic<bool> stop{false};
    std::thread daemon([&] {
        char buf[8192];
        while (!stop) {
            struct pollfd p = {fd, POLLIN, 0};
            if (poll(&p, 1, 50) == 1)
                while (recv(fd, buf, sizeof(buf), MSG_DONTWAIT) > 0) {
                }
        }
    });
    setenv("SSO_PLATFORM_LOG", ("syslog:" + path).c_str(), 1);
    setenv("SSO_PLATFORM_LOG_LEVEL", "info", 1);
    dlog_reload_config();
    int i = 0;
    for (auto _ : state) {
        int r = dlog_print(DLOG_INFO, "BENCH", "value %d of %s at %p", i++, "key",
                           static_cast<void *>(&i));
        benchmark::DoNotOptimize(r);
    }
    setenv("SSO_PLATFORM_LOG", "none", 1);
    dlog_reload_config();
    stop = true;
    daemon.join();
    close(fd);
}
BENCHMARK(BM_DlogWrittenToSyslog)->MinTime(0.2);

// What the subscriber saw last, and when.
struct Arrival {
    std::mutex mutex;
    std::condition_variable cv;
    int value = -1;
    Clock::time_point at;
};

void OnLatencyChange(keynode_t *node, void *user_data)
{
    Clock::time_point now = Clock::now();
    auto *arrival = static_cast<Arrival *>(user_data);
    {
        std::lock_guard<std::mutex> lock(arrival->mutex);
        arrival->value = vconf_keynode_get_int(node);
        arrival->at = now;
    }
    arrival->cv.notify_one();
}

gboolean QuitLoop(gpointer loop)
{
    g_main_loop_quit(static_cast<GMainLoop *>(loop));
    return G_SOURCE_REMOVE;
}

// Time from telling a writer process to set a key to the callback running
// in this process, on a thread of its own main context.
void BM_VconfNotifyLatencyCrossProcess(benchmark::State &state)
{
    constexpr const char *kKey = "db/bench/latency";
    TempRoot root;
    if (!root.ok() || vconf_set_int(kKey, 0) != VCONF_OK) {
        state.SkipWithError("cannot prepare the store");
        return;
    }

    // Fork first, while this process has no other thread.
    int cmd[2];
    if (pipe(cmd) != 0) {
        state.SkipWithError("pipe failed");
        return;
    }
    pid_t pid = fork();
    if (pid < 0) {
        state.SkipWithError("fork failed");
        return;
    }
    if (pid == 0) {
        close(cmd[1]);
        int v;
        while (read(cmd[0], &v, sizeof(v)) == static_cast<ssize_t>(sizeof(v)))
            if (vconf_set_int(kKey, v) != VCONF_OK)
                _exit(1);
        _exit(0);
    }
    close(cmd[0]);

    Arrival arrival;
    std::promise<int> subscribed;
    std::future<int> subscribed_rc = subscribed.get_future();
    GMainContext *ctx = g_main_context_new();
    GMainLoop *loop = g_main_loop_new(ctx, FALSE);
    std::thread subscriber([&] {
        g_main_context_push_thread_default(ctx);
        subscribed.set_value(vconf_notify_key_changed(kKey, OnLatencyChange, &arrival));
        g_main_loop_run(loop);
        g_main_context_pop_thread_default(ctx);
    });

    if (subscribed_rc.get() != VCONF_OK) {
        state.SkipWithError("subscribing failed");
    } else {
        int next = 1;
        for (auto _ : state) {
            int v = next++;
            Clock::time_point start = Clock::now();
            if (write(cmd[1], &v, sizeof(v)) != static_cast<ssize_t>(sizeof(v))) {
                state.SkipWithError("the writer is gone");
                break;
            }
            std::unique_lock<std::mutex> lock(arrival.mutex);
            if (!arrival.cv.wait_for(lock, std::chrono::seconds(5),
                                     [&] { return arrival.value == v; })) {
                state.SkipWithError("the change did not arrive in time");
                break;
            }
            state.SetIterationTime(std::chrono::duration<double>(arrival.at - start).count());
        }
        vconf_ignore_key_changed(kKey, OnLatencyChange);
    }

    // Quit from inside the loop, so a quit before the loop runs is not lost.
    GSource *quit = g_idle_source_new();
    g_source_set_callback(quit, QuitLoop, loop, nullptr);
    g_source_attach(quit, ctx);
    g_source_unref(quit);
    subscriber.join();
    g_main_loop_unref(loop);
    g_main_context_unref(ctx);
    close(cmd[1]);
    int status = 0;
    waitpid(pid, &status, 0);
}
BENCHMARK(BM_VconfNotifyLatencyCrossProcess)
    ->UseManualTime()
    ->MinTime(0.2)
    ->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
