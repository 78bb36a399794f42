// Runs one operation a fixed number of times, for profilers: instruction
// counts under callgrind do not depend on how busy the machine is.
//
//   valgrind --tool=callgrind --collect-atstart=no build/bin/bench_probe token 2000
//   valgrind --tool=callgrind build/bin/bench_probe token 600   (and 100: see below)
//
// With --collect-atstart=no only the loop is collected, and only on the
// thread that runs it (callgrind switches collection per thread): the
// application thread's share. Everything the process does per operation
// (the monitor thread, GLib's worker) is the difference between two full
// runs of different counts, divided by the difference of the counts; set
// SSO_PROBE_WHOLE_PROCESS=1 for those, so the loop is not switched off.
// Operations: check_alive, check_alive_bare, token, token_bare,
// guid, login_info, login_state, vconf. An optional third argument runs the
// operation from that many threads at once (each COUNT times; token and
// token_bare only).
#include <sso_api/sso_api.h>
#include <sys/resource.h>
// Without valgrind's headers the probe still runs, it only cannot tell
// callgrind which part to collect.
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_TOGGLE_COLLECT                                                                   \
    do {                                                                                           \
    } while (0)
#endif
#include <vconf.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "account_documents.h"
#include "bench_support.h"
#include "sso_api_proxy.h"

using ssobench::Ticket;
using ssobench::Waiter;

int main(int argc, char **argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: bench_probe OPERATION COUNT [THREADS]\n");
        return 2;
    }
    const std::string op = argv[1];
    const long count = atol(argv[2]);
    const int threads = argc > 3 && atoi(argv[3]) > 1 ? atoi(argv[3]) : 1;
    const bool local = op == "guid" || op == "login_info" || op == "login_state" || op == "vconf";
    ssobench::Environment env(!local, !local);
    ssobench::BareClient bare;
    Waiter waiter;
    long long expected = 0;
    int aeIndex = 0;
    std::function<bool()> once;

    if (local) {
        std::vector<ssotest::TestAccount> accounts;
        for (int i = 1; i <= 6; ++i)
            accounts.push_back(ssotest::MakeAccount(i));
        ssotest::SignIn(accounts, 2);
    } else {
        env.SignIn("bench@example.com");
        if (sso_request_access_token("bench-app", "bench-secret", &Waiter::OnResult,
                                     waiter.NewTicket()) != 0 ||
            !waiter.Wait(++expected))
            return 1;
        if (op.size() > 5 && op.compare(op.size() - 5, 5, "_bare") == 0 &&
            !bare.Start(CSSOSvcGdbus::m_introspectionXml, "probe"))
            return 1;
    }

    if (op == "check_alive") {
        once = [] { return sso_check_alive() == 0; };
    } else if (op == "check_alive_bare") {
        once = [&] { return bare.CheckAlive(); };
    } else if (op == "token") {
        once = [&] {
            return sso_request_access_token("bench-app", "bench-secret", &Waiter::OnResult,
                                            waiter.NewTicket()) == 0 &&
                   waiter.Wait(++expected);
        };
    } else if (op == "token_bare") {
        once = [&] {
            return bare.RequestAccessToken(waiter.NewTicket(), aeIndex++) &&
                   waiter.Wait(++expected);
        };
    } else if (op == "guid") {
        once = [] {
            char *guid = nullptr;
            int rc = sso_get_guid(&guid);
            free(guid);
            return rc == 0;
        };
    } else if (op == "login_info") {
        once = [] {
            sso_login_info_s info;
            return sso_get_login_info(&info) == 0;
        };
    } else if (op == "login_state") {
        once = [] {
            sso_login_state state = SSO_NOT_LOGIN;
            return sso_get_login_state(&state) == 0;
        };
    } else if (op == "vconf") {
        once = [] {
            int value = 0;
            return vconf_get_int("db/sso/login_status", &value) == VCONF_OK;
        };
    } else {
        std::fprintf(stderr, "unknown operation %s\n", op.c_str());
        return 2;
    }

    // Several threads: each its own waiter, the same requests.
    std::atomic<long> failed{0};
    auto many = [&](int) {
        Waiter own;
        long long mine = 0;
        for (long i = 0; i < count; ++i) {
            bool ok = op == "token"
                          ? sso_request_access_token("bench-app", "bench-secret", &Waiter::OnResult,
                                                     own.NewTicket()) == 0
                          : bare.RequestAccessToken(own.NewTicket(), aeIndex);
            if (!ok || !own.Wait(++mine))
                ++failed;
        }
    };
    if (threads > 1 && op != "token" && op != "token_bare") {
        std::fprintf(stderr, "threads only for token and token_bare\n");
        return 2;
    }

    struct rusage before;
    getrusage(RUSAGE_SELF, &before);
    const bool toggle = getenv("SSO_PROBE_WHOLE_PROCESS") == nullptr;
    std::int64_t start = ssobench::NowNs();
    if (toggle)
        CALLGRIND_TOGGLE_COLLECT;
    if (threads > 1) {
        std::vector<std::thread> pool;
        for (int t = 0; t < threads; ++t)
            pool.emplace_back(many, t);
        for (auto &th : pool)
            th.join();
    } else {
        for (long i = 0; i < count; ++i)
            failed += once() ? 0 : 1;
    }
    if (toggle)
        CALLGRIND_TOGGLE_COLLECT;
    std::int64_t end = ssobench::NowNs();
    struct rusage after;
    getrusage(RUSAGE_SELF, &after);
    auto us = [](const struct timeval &tv) { return tv.tv_sec * 1e6 + tv.tv_usec; };
    const long total = count * threads;
    // CPU of this process (every thread, not the bus or the simulator).
    std::printf("%s: cpu per operation %.1f us user, %.1f us system; context switches %.2f "
                "voluntary, %.2f involuntary\n",
                op.c_str(), (us(after.ru_utime) - us(before.ru_utime)) / static_cast<double>(total),
                (us(after.ru_stime) - us(before.ru_stime)) / static_cast<double>(total),
                static_cast<double>(after.ru_nvcsw - before.ru_nvcsw) / static_cast<double>(total),
                static_cast<double>(after.ru_nivcsw - before.ru_nivcsw) /
                    static_cast<double>(total));
    std::printf("%s: %ld operations, %ld failed, %.1f us each, %.0f per second\n", op.c_str(),
                total, failed.load(),
                static_cast<double>(end - start) / 1e3 / static_cast<double>(total),
                static_cast<double>(total) * 1e9 / static_cast<double>(end - start));
    bare.Stop();
    if (!local)
        sso_give_proxy();
    return failed == 0 ? 0 : 1;
}
