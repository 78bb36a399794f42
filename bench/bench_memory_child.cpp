// Memory probe, run by bench_processes: what a process's resident memory,
// threads and open descriptors are before the library is loaded, after its
// first request, and after every tenth of a long run of access-token
// requests sent from several threads.
//
//   bench_memory_child lib  <path of libsso_api.so>  <requests> <threads>
//   bench_memory_child bare <client introspection XML> <requests> <threads>
//
// "bare" does the same requests through bare GDBus, for comparison. Links
// only GIO, so that what the library brings in is measured with it.
#include <dirent.h>
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench_client.h"

namespace {

using ssobench::Ticket;
using ssobench::Waiter;

struct Snapshot {
    long rssKib = 0;
    long privateKib = 0; // not shared with any other process (smaps_rollup)
    int fds = 0;
    std::multiset<std::string> threads; // names
};

int CountEntries(const char *dir)
{
    int n = 0;
    if (DIR *d = opendir(dir)) {
        while (struct dirent *e = readdir(d))
            if (e->d_name[0] != '.')
                ++n;
        closedir(d);
    }
    return n;
}

Snapshot Take()
{
    Snapshot s;
    long pages = 0, resident = 0;
    if (FILE *f = fopen("/proc/self/statm", "re")) {
        if (fscanf(f, "%ld %ld", &pages, &resident) != 2)
            resident = 0;
        fclose(f);
    }
    s.rssKib = resident * (sysconf(_SC_PAGESIZE) / 1024);
    std::ifstream rollup("/proc/self/smaps_rollup");
    std::string key;
    long kib = 0;
    std::string unit;
    while (rollup >> key) {
        if (key == "Private_Clean:" || key == "Private_Dirty:") {
            rollup >> kib >> unit;
            s.privateKib += kib;
        } else {
            rollup.ignore(1024, '\n');
        }
    }
    s.fds = CountEntries("/proc/self/fd") - 1; // the directory listing itself
    if (DIR *d = opendir("/proc/self/task")) {
        while (struct dirent *e = readdir(d)) {
            if (e->d_name[0] == '.')
                continue;
            std::ifstream comm(std::string("/proc/self/task/") + e->d_name + "/comm");
            std::string name;
            std::getline(comm, name);
            s.threads.insert(name);
        }
        closedir(d);
    }
    return s;
}

// GLib's own threads: any GDBus client has them.
bool IsGlibThread(const std::string &name)
{
    return name == "gdbus" || name == "gmain" || name.rfind("pool", 0) == 0;
}

using RequestFn = int (*)(const char *, const char *, int (*)(void *, int, char *), void *);
using VoidFn = void (*)();

} // namespace

int main(int argc, char **argv)
{
    if (argc < 5)
        return 2;
    const bool library = strcmp(argv[1], "lib") == 0;
    const long requests = atol(argv[3]);
    const int threads = atoi(argv[4]) > 0 ? atoi(argv[4]) : 1;

    // Every request's ticket, allocated and touched before the first
    // measurement: the probe's own bookkeeping must not look like growth.
    std::vector<Ticket> tickets(static_cast<size_t>(requests) + 1);
    std::atomic<size_t> nextTicket{0};
    auto ticketFor = [&](Waiter &w) {
        size_t i = nextTicket++;
        return i < tickets.size() ? w.Use(&tickets[i]) : w.NewTicket();
    };

    Snapshot before = Take();
    Snapshot loaded = before;
    RequestFn request = nullptr;
    VoidFn giveProxy = nullptr;
    ssobench::BareClient bare;
    if (library) {
        void *handle = dlopen(argv[2], RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr) {
            std::fprintf(stderr, "dlopen: %s\n", dlerror());
            return 1;
        }
        request = reinterpret_cast<RequestFn>(dlsym(handle, "sso_request_access_token"));
        giveProxy = reinterpret_cast<VoidFn>(dlsym(handle, "sso_give_proxy"));
        if (request == nullptr || giveProxy == nullptr)
            return 1;
        loaded = Take();
    } else {
        std::ifstream in(argv[2]);
        std::stringstream xml;
        xml << in.rdbuf();
        if (!bare.Start(xml.str(), "memory"))
            return 1;
    }
    std::atomic<int> aeIndex{0};
    auto send = [&](Ticket *ticket) {
        if (library)
            return request("bench-app", "bench-secret", &Waiter::OnResult, ticket) == 0;
        return bare.RequestAccessToken(ticket, aeIndex++);
    };

    // Waiters outlive the run: a late result still finds its ticket.
    std::vector<Waiter> waiters(static_cast<size_t>(threads) + 1);
    if (!send(ticketFor(waiters.back())) || !waiters.back().Wait(1)) {
        std::fprintf(stderr, "the first request failed\n");
        return 1;
    }
    Snapshot warm = Take();

    std::vector<long long> expected(static_cast<size_t>(threads), 0);
    long refused = 0;
    std::int64_t start = ssobench::NowNs();
    Snapshot firstTenth;
    for (int round = 1; round <= 10; ++round) {
        long perThread = requests / 10 / threads;
        std::vector<std::thread> load;
        std::atomic<long> roundRefused{0};
        for (int t = 0; t < threads; ++t)
            load.emplace_back([&, t] {
                Waiter &w = waiters[static_cast<size_t>(t)];
                for (long i = 0; i < perThread; ++i) {
                    if (!send(ticketFor(w))) {
                        ++roundRefused;
                        continue;
                    }
                    if (!w.Wait(++expected[static_cast<size_t>(t)]))
                        return;
                }
            });
        for (auto &th : load)
            th.join();
        refused += roundRefused;
        Snapshot s = Take();
        if (round == 1)
            firstTenth = s;
        std::printf("round %d rss_kib=%ld fds=%d threads=%zu\n", round, s.rssKib, s.fds,
                    s.threads.size());
        std::fflush(stdout);
    }
    std::int64_t end = ssobench::NowNs();
    // Stragglers and repeats would arrive now.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    Snapshot after = Take();

    long long missing = 0, duplicated = 0;
    for (const Waiter &w : waiters) {
        missing += w.Missing();
        duplicated += w.Duplicated();
    }
    const size_t used = std::min(nextTicket.load(), tickets.size());
    for (size_t i = 0; i < used; ++i) {
        int hits = tickets[i].hits.load();
        missing += hits == 0 ? 1 : 0;
        duplicated += hits > 1 ? hits - 1 : 0;
    }
    missing -= refused; // a refused request has no callback to wait for
    // Threads present now that were not before the library (or the bare
    // client) came: the load threads are joined by now.
    std::multiset<std::string> added = after.threads;
    for (const std::string &name : before.threads) {
        auto it = added.find(name);
        if (it != added.end())
            added.erase(it);
    }
    int own = 0;
    std::string names;
    for (const std::string &name : added) {
        own += IsGlibThread(name) ? 0 : 1;
        names += (names.empty() ? "" : ",") + name;
    }
    std::printf("summary elapsed_ns=%lld requests=%ld refused=%ld callbacks_missing=%lld "
                "callbacks_duplicated=%lld rss_before_kib=%ld rss_loaded_kib=%ld "
                "rss_warm_kib=%ld rss_tenth_kib=%ld rss_end_kib=%ld rss_added_kib=%ld "
                "rss_growth_kib=%ld private_added_kib=%ld private_growth_kib=%ld "
                "fds_warm=%d fds_end=%d fd_growth=%d threads_added=%zu own_threads=%d "
                "thread_names=%s\n",
                static_cast<long long>(end - start), requests, refused, missing, duplicated,
                before.rssKib, loaded.rssKib, warm.rssKib, firstTenth.rssKib, after.rssKib,
                after.rssKib - before.rssKib, after.rssKib - firstTenth.rssKib,
                after.privateKib - before.privateKib, after.privateKib - firstTenth.privateKib,
                warm.fds, after.fds, after.fds - warm.fds, added.size(), own,
                names.empty() ? "-" : names.c_str());
    std::fflush(stdout);
    // Where the resident memory is, mapping by mapping, for docs/performance.md.
    if (const char *dump = getenv("SSO_BENCH_SMAPS")) {
        std::ifstream smaps("/proc/self/smaps");
        std::ofstream(dump) << smaps.rdbuf();
    }
    if (library)
        giveProxy();
    else
        bare.Stop();
    return 0;
}
