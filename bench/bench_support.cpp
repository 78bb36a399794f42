#include "bench_support.h"

#include <sso_api/sso_api.h>

#include <dlog.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "sso_api_proxy.h"

namespace ssobench {

namespace {

bool HasFlag(int argc, char **argv, const char *name)
{
    size_t n = strlen(name);
    for (int i = 1; i < argc; ++i)
        if (strncmp(argv[i], name, n) == 0)
            return true;
    return false;
}

} // namespace

void Initialize(int *argc, char ***argv)
{
    // Kept for the life of the process: benchmark::Initialize keeps pointers.
    static std::vector<std::string> storage;
    static std::vector<char *> args;
    storage.assign(*argv, *argv + *argc);
    const std::pair<const char *, const char *> defaults[] = {
        {"--benchmark_repetitions", "--benchmark_repetitions=3"},
        {"--benchmark_enable_random_interleaving", "--benchmark_enable_random_interleaving=true"},
        {"--benchmark_display_aggregates_only", "--benchmark_display_aggregates_only=true"},
    };
    for (const auto &d : defaults)
        if (!HasFlag(*argc, *argv, d.first))
            storage.push_back(d.second);
    args.clear();
    for (std::string &s : storage)
        args.push_back(&s[0]);
    args.push_back(nullptr);
    *argc = static_cast<int>(storage.size());
    *argv = args.data();
    benchmark::Initialize(argc, *argv);
}

void UseLogging(const char *destination, const char *level)
{
    if (destination != nullptr)
        setenv("SSO_PLATFORM_LOG", destination, 1);
    else
        unsetenv("SSO_PLATFORM_LOG");
    if (level != nullptr)
        setenv("SSO_PLATFORM_LOG_LEVEL", level, 1);
    else
        unsetenv("SSO_PLATFORM_LOG_LEVEL");
    dlog_reload_config();
}

void UseDefaultLogging()
{
    UseLogging(getenv("SSO_BENCH_LOG"), nullptr);
}

Environment::Environment(bool bus, bool simulator)
{
    const char *attach = getenv("SSO_BENCH_ATTACH");
    attached_ = attach != nullptr && strcmp(attach, "1") == 0;
    if (attached_) {
        if (getenv("SSO_PLATFORM_ROOT") == nullptr ||
            ((bus || simulator) && getenv("DBUS_SYSTEM_BUS_ADDRESS") == nullptr))
            throw std::runtime_error("SSO_BENCH_ATTACH=1 needs SSO_PLATFORM_ROOT and "
                                     "DBUS_SYSTEM_BUS_ADDRESS");
        UseDefaultLogging();
        return;
    }
    root_ = std::make_unique<ssotest::PlatformRoot>();
    // The simulator inherits this: it logs as an application would, and so
    // does everything started later.
    UseDefaultLogging();
    if (bus || simulator) {
        bus_ = std::make_unique<ssotest::PrivateBus>();
        bus_->Start();
    }
    if (simulator)
        sim_.Start({{"SSO_PLATFORM_LOG", "none"}});
}

Environment::~Environment()
{
    if (!attached_) {
        sim_.Stop();
        if (bus_)
            bus_->Stop();
    }
}

void Environment::SignIn(const std::string &login_id)
{
    ssotest::AccountSpec account;
    account.login_id = login_id;
    try {
        sim_.AddAccount(account);
    } catch (const std::runtime_error &e) {
        // A simulator shared by several benchmark binaries may know it.
        if (std::string(e.what()).find(ssosim::kErrorAccountExists) == std::string::npos)
            throw;
    }
    try {
        sim_.SignIn(login_id);
    } catch (const std::runtime_error &e) {
        if (std::string(e.what()).find(ssosim::kErrorAlreadySignedIn) == std::string::npos)
            throw;
    }
    sim_.Publish();
}

bool StartLibrary(Environment &env)
{
    env.SignIn("bench@example.com");
    Waiter warmUp;
    if (sso_request_access_token("bench-app", "bench-secret", &Waiter::OnResult,
                                 warmUp.NewTicket()) != 0 ||
        !warmUp.Wait(1)) {
        std::fprintf(stderr, "the simulator does not answer access-token requests\n");
        return false;
    }
    return true;
}

bool StartClients(Environment &env, BareClient &bare)
{
    if (!StartLibrary(env))
        return false;
    if (!bare.Start(CSSOSvcGdbus::m_introspectionXml)) {
        std::fprintf(stderr, "the bare client could not own its name\n");
        return false;
    }
    return true;
}

int RunWithClients(int argc, char **argv, Environment **env, BareClient **bare,
                   void (*registerAll)(), int (*finish)(BareClient &))
{
    Initialize(&argc, &argv);
    Environment environment(true, true);
    *env = &environment;
    BareClient bareClient;
    if (!StartClients(environment, bareClient))
        return 1;
    if (bare != nullptr)
        *bare = &bareClient;
    else
        bareClient.Stop();
    registerAll();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintPairs();
    int rc = finish(bareClient);
    benchmark::Shutdown();
    return rc;
}

// --------------------------------------------------------------- Latencies

void Latencies::Clear()
{
    std::lock_guard<std::mutex> lock(mutex_);
    samples_.clear();
    samples_.reserve(1 << 16);
}

void Latencies::Add(std::int64_t ns)
{
    std::lock_guard<std::mutex> lock(mutex_);
    samples_.push_back(ns);
}

void Latencies::Report(benchmark::State &state, const std::string &prefix)
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (samples_.empty())
        return;
    std::sort(samples_.begin(), samples_.end());
    auto at = [&](double q) {
        size_t i = static_cast<size_t>(q * static_cast<double>(samples_.size() - 1) + 0.5);
        return static_cast<double>(samples_[std::min(i, samples_.size() - 1)]);
    };
    double sum = 0;
    for (std::int64_t ns : samples_)
        sum += static_cast<double>(ns);
    state.counters[prefix + "p50_ns"] = at(0.50);
    state.counters[prefix + "p99_ns"] = at(0.99);
    state.counters[prefix + "max_ns"] = static_cast<double>(samples_.back());
    state.counters[prefix + "mean_ns"] = sum / static_cast<double>(samples_.size());
}

// --------------------------------------------------------------- SyslogSink

SyslogSink::SyslogSink()
{
    const char *tmp = getenv("TMPDIR");
    std::string templ = std::string(tmp != nullptr && *tmp ? tmp : "/tmp") + "/sso-syslog-XXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back('\0');
    if (mkdtemp(buf.data()) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    dir_ = buf.data();
    path_ = dir_ + "/log";
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un addr;
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path_.c_str());
    if (fd_ < 0 || bind(fd_, reinterpret_cast<struct sockaddr *>(&addr), sizeof(addr)) != 0 ||
        pipe(wake_) != 0)
        throw std::runtime_error("cannot bind the syslog sink");
    thread_ = std::thread([this] {
        char buffer[8192];
        for (;;) {
            struct pollfd fds[2] = {{fd_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
            if (poll(fds, 2, -1) < 0)
                continue;
            if (fds[1].revents != 0)
                return;
            while (recv(fd_, buffer, sizeof(buffer), MSG_DONTWAIT) > 0)
                ++lines_;
        }
    });
}

SyslogSink::~SyslogSink()
{
    if (write(wake_[1], "x", 1) != 1) {
        // The thread then runs until the process ends.
    }
    if (thread_.joinable())
        thread_.join();
    close(fd_);
    close(wake_[0]);
    close(wake_[1]);
    unlink(path_.c_str());
    rmdir(dir_.c_str());
}

// ------------------------------------------------------------ RatioReporter

void RatioReporter::ReportRuns(const std::vector<Run> &runs)
{
    for (const Run &run : runs) {
        if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median")
            continue;
        const std::string &base = run.run_name.function_name;
        times_[base] = run.GetAdjustedRealTime();
        unit_[base] = benchmark::GetTimeUnitString(run.time_unit);
        auto a = run.counters.find("a_p50_ns");
        auto b = run.counters.find("b_p50_ns");
        if (a != run.counters.end() && b != run.counters.end())
            pairs_[base] = {a->second.value, b->second.value};
    }
    ConsoleReporter::ReportRuns(runs);
}

void RatioReporter::PrintRatios(const std::vector<std::pair<std::string, std::string>> &pairs) const
{
    std::printf("\nRatios (library / bare baseline, same run, medians):\n");
    for (const auto &p : pairs) {
        auto a = times_.find(p.first);
        auto b = times_.find(p.second);
        if (a == times_.end() || b == times_.end() || b->second <= 0)
            continue;
        std::printf("  %-44s %10.2f %s / %-36s %10.2f %s = %.3fx\n", p.first.c_str(), a->second,
                    unit_.at(p.first).c_str(), p.second.c_str(), b->second,
                    unit_.at(p.second).c_str(), a->second / b->second);
    }
    std::fflush(stdout);
}

void RatioReporter::PrintPairs() const
{
    std::printf("\nSide by side (median of single operations, same run):\n");
    for (const auto &p : pairs_) {
        size_t bar = p.first.find('|');
        if (p.second.second <= 0)
            continue;
        std::printf("  %-40s %10.2f us / %-36s %10.2f us = %.3fx\n", p.first.substr(0, bar).c_str(),
                    p.second.first / 1e3, p.first.substr(bar + 1).c_str(), p.second.second / 1e3,
                    p.second.first / p.second.second);
    }
    std::fflush(stdout);
}

} // namespace ssobench
