// An application for the bus-fault tests: it links libsso_api as any
// application does, so that its exit() runs the library's tear-down as a
// real process's would. What it does is chosen by its one argument:
//
//   idle   one request whose result is waited for (the link is up), then
//          "linked <rc> <result>" (-1000: no result came); then waits for
//          SIGUSR1 and calls exit(0).
//   setup  a thread makes one request (which may be stuck in the link's
//          set-up), after "calling"; the main thread waits for SIGUSR1 and
//          calls exit(0) whatever the request is doing.
//   call   as idle, but on SIGUSR2 first a thread makes one more request
//          (which may be stuck waiting for the bus's answer), after
//          "calling"; then exit(0) on SIGUSR1.
//
// Every line it prints ends with a flush, so the test reads it at once.
#include <semaphore.h>
#include <time.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "exit_signal.h"
#include "sso_api/sso_api.h"

namespace {

sem_t g_result;
int g_resultCode = -1000;

int OnResult(void *, int result, char *)
{
    g_resultCode = result;
    sem_post(&g_result);
    return 0;
}

int Request()
{
    return sso_request_authcode_for_other_device("DSC-fault-app", &OnResult, nullptr);
}

void Say(const char *format, ...) __attribute__((format(printf, 1, 2)));
void Say(const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    vprintf(format, ap);
    va_end(ap);
    fputc('\n', stdout);
    fflush(stdout);
}

// A request on a thread of its own, after "calling". Detached: exit() must
// not wait for it, and neither does the library.
void RequestOnAThread()
{
    std::thread([] {
        auto start = std::chrono::steady_clock::now();
        int rc = Request();
        long long ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                           std::chrono::steady_clock::now() - start)
                           .count();
        Say("returned %d %lld", rc, ms);
    }).detach();
    Say("calling");
}

[[noreturn]] void ExitOnSignal()
{
    reliability::WaitForExitSignal();
    exit(0);
}

} // namespace

int main(int argc, char **argv)
{
    reliability::SetExitSignalBlocked(true);
    sem_init(&g_result, 0, 0);
    const char *mode = argc > 1 ? argv[1] : "";

    if (strcmp(mode, "idle") == 0 || strcmp(mode, "call") == 0) {
        int rc = Request();
        if (rc == 0) {
            struct timespec until;
            clock_gettime(CLOCK_REALTIME, &until);
            until.tv_sec += 10;
            sem_timedwait(&g_result, &until);
        }
        Say("linked %d %d", rc, g_resultCode);
        if (strcmp(mode, "call") == 0) {
            reliability::WaitForSignal(SIGUSR2);
            RequestOnAThread();
        }
        ExitOnSignal();
    }

    if (strcmp(mode, "setup") == 0) {
        RequestOnAThread();
        ExitOnSignal();
    }

    fprintf(stderr, "usage: %s idle|setup|call\n", argv[0]);
    return 2;
}
