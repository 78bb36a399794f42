// The words a fault test gives a client process: SIGUSR1 to exit, SIGUSR2
// to go on to its next step. Both are blocked in every thread of the client
// (threads inherit the mask) so that only the thread waiting takes them.
#pragma once

#include <pthread.h>
#include <signal.h>

namespace reliability {

inline void SetExitSignalBlocked(bool blocked)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    sigaddset(&set, SIGUSR2);
    pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
}

// Waits for sig, which must be blocked.
inline void WaitForSignal(int sig)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, sig);
    int taken = 0;
    sigwait(&set, &taken);
}

inline void WaitForExitSignal()
{
    WaitForSignal(SIGUSR1);
}

} // namespace reliability
