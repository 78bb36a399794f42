// The word a fault test gives a client process to exit: SIGUSR1, blocked in
// every thread of the client (threads inherit the mask) so that only the
// thread waiting for it takes it.
#pragma once

#include <pthread.h>
#include <signal.h>

namespace reliability {

inline void SetExitSignalBlocked(bool blocked)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
}

// Waits for SIGUSR1, which must be blocked.
inline void WaitForExitSignal()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    int sig = 0;
    sigwait(&set, &sig);
}

} // namespace reliability
