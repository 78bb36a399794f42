// The library's threads never take the application's signals. A thread
// started while an SSOQuietThreadStart is alive inherits a mask with every
// asynchronous signal blocked, so an application's handler, sigwait() or
// signalfd sees its signals on its own threads only, and a signal never
// interrupts the library's waits. Faults (SIGSEGV, SIGBUS, ...) stay
// deliverable: blocking them would turn a crash into a silent kill.
#pragma once

#include <pthread.h>
#include <signal.h>

class SSOQuietThreadStart {
public:
    SSOQuietThreadStart()
    {
        sigset_t quiet;
        sigfillset(&quiet);
        for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
            sigdelset(&quiet, fault);
        m_restore = pthread_sigmask(SIG_BLOCK, &quiet, &m_saved) == 0;
    }
    ~SSOQuietThreadStart()
    {
        if (m_restore)
            pthread_sigmask(SIG_SETMASK, &m_saved, nullptr);
    }
    SSOQuietThreadStart(const SSOQuietThreadStart &) = delete;
    SSOQuietThreadStart &operator=(const SSOQuietThreadStart &) = delete;

private:
    sigset_t m_saved;
    bool m_restore = false;
};
