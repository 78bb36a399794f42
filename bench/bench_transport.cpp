// The D-Bus link against the simulator on a private bus, side by side with
// bare GDBus doing the same work in the same run:
//   - sso_check_alive, and the synchronous part of an accepted
//     sso_request_access_token (until the function returns), against one
//     g_dbus_connection_call_sync with the same arguments;
//   - a request's start to its application callback, against a bare client
//     that makes the same call and receives the same call-back on an object
//     it exports, dispatched on a thread of its own;
//   - the same request with the platform log off, at its default, and at
//     full info logging.
#include <sso_api/sso_api.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include "bench_support.h"

namespace {

using ssobench::NowNs;
using ssobench::Ticket;
using ssobench::Waiter;

ssobench::Environment *g_env = nullptr;
ssobench::BareClient *g_bare = nullptr;

// Before each repetition: the simulator's journals start empty, so its own
// cost does not grow over the run.
void ClearSimulator(const benchmark::State &)
{
    g_env->sim().ClearJournal();
    g_env->sim().ClearDeliveries();
    g_env->sim().ClearIssued();
}

// One library request to its callback; the nanoseconds from the start of
// the request to the return of the request function (accepted) or to the
// callback (roundTrip). -1 when refused or no callback came.
std::int64_t LibraryRequest(Waiter &waiter, long long &expected, bool roundTrip)
{
    Ticket *ticket = waiter.NewTicket();
    std::int64_t start = NowNs();
    int rc = sso_request_access_token("bench-app", "bench-secret", &Waiter::OnResult, ticket);
    std::int64_t accepted = NowNs();
    if (rc != 0 || !waiter.Wait(++expected))
        return -1;
    return (roundTrip ? NowNs() : accepted) - start;
}

// The same request in bare GDBus.
std::int64_t BareRequest(Waiter &waiter, long long &expected, bool roundTrip)
{
    static int aeIndex = 0;
    Ticket *ticket = waiter.NewTicket();
    std::int64_t start = NowNs();
    bool ok = g_bare->RequestAccessToken(ticket, aeIndex++);
    std::int64_t accepted = NowNs();
    if (!ok || !waiter.Wait(++expected))
        return -1;
    return (roundTrip ? NowNs() : accepted) - start;
}

// The platform log for one side of a pair: set before its request, back to
// the default after it (outside the timing).
std::int64_t WithLog(const char *destination, const char *level, bool sink,
                     const std::function<std::int64_t()> &request)
{
    static ssobench::SyslogSink s_sink; // one daemon for the whole run
    std::string dest = sink ? "syslog:" + s_sink.path() : destination ? destination : "";
    ssobench::UseLogging(sink || destination ? dest.c_str() : nullptr, level);
    std::int64_t ns = request();
    ssobench::UseDefaultLogging();
    return ns;
}

std::string TempLogFile()
{
    const char *tmp = getenv("TMPDIR");
    return std::string(tmp != nullptr && *tmp ? tmp : "/tmp") + "/sso-bench-log-" +
           std::to_string(getpid()) + ".txt";
}

void RegisterAll()
{
    // For the life of the process: a late result still finds its waiter.
    static Waiter *libWaiter = new Waiter;
    static Waiter *bareWaiter = new Waiter;
    static long long libExpected = 0, bareExpected = 0;
    auto lib = [](bool roundTrip) { return LibraryRequest(*libWaiter, libExpected, roundTrip); };
    auto bare = [](bool roundTrip) { return BareRequest(*bareWaiter, bareExpected, roundTrip); };

    // sso_check_alive against one call_sync with the same arguments.
    ssobench::RegisterPair(
        "BM_CheckAlive_Library", "BM_CheckAlive_Bare",
        [] {
            std::int64_t start = NowNs();
            return sso_check_alive() == 0 ? NowNs() - start : -1;
        },
        [] {
            std::int64_t start = NowNs();
            return g_bare->CheckAlive() ? NowNs() - start : -1;
        })
        ->Setup(ClearSimulator);

    // The synchronous part of an accepted request: until the function
    // returns. Its result is waited for outside the timing, so deliveries
    // never pile up behind the measurement.
    ssobench::RegisterPair(
        "BM_AccessTokenAccept_Library", "BM_AccessTokenAccept_Bare", [=] { return lib(false); },
        [=] { return bare(false); })
        ->Setup(ClearSimulator);

    // Request start to the application's callback.
    ssobench::RegisterPair(
        "BM_RequestToCallback_Library", "BM_RequestToCallback_Bare", [=] { return lib(true); },
        [=] { return bare(true); })
        ->Setup(ClearSimulator);

    // The same request with the log at its default (the system log, at
    // warn: whether a log daemon listens depends on the machine), with a log
    // daemon reading every line, and at full info logging, each against the
    // log switched off.
    auto off = [=] { return WithLog("none", nullptr, false, [=] { return lib(true); }); };
    ssobench::RegisterPair(
        "BM_RequestLog_Default", "BM_RequestLog_OffVsDefault",
        [=] { return WithLog(nullptr, nullptr, false, [=] { return lib(true); }); }, off)
        ->Setup(ClearSimulator);
    ssobench::RegisterPair(
        "BM_RequestLog_DefaultToSyslogReader", "BM_RequestLog_OffVsSyslogReader",
        [=] { return WithLog(nullptr, nullptr, true, [=] { return lib(true); }); }, off)
        ->Setup(ClearSimulator);
    ssobench::RegisterPair(
        "BM_RequestLog_InfoToSyslogReader", "BM_RequestLog_OffVsInfoToSyslogReader",
        [=] { return WithLog(nullptr, "info", true, [=] { return lib(true); }); }, off)
        ->Setup(ClearSimulator);
    static const std::string file = "file:" + TempLogFile();
    ssobench::RegisterPair(
        "BM_RequestLog_InfoToFile", "BM_RequestLog_OffVsInfoToFile",
        [=] { return WithLog(file.c_str(), "info", false, [=] { return lib(true); }); }, off)
        ->Setup(ClearSimulator);
}

int Finish(ssobench::BareClient &bare)
{
    unlink(TempLogFile().c_str());
    bare.Stop();
    sso_give_proxy();
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    return ssobench::RunWithClients(argc, argv, &g_env, &g_bare, RegisterAll, Finish);
}
