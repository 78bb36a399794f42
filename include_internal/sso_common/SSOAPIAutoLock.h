// Scoped mutex guard: locks in the constructor, unlocks in the destructor.
#pragma once

#include <pthread.h>

class SSOAPIAutoLock {
public:
    explicit SSOAPIAutoLock(pthread_mutex_t *mutex);
    virtual ~SSOAPIAutoLock();

    SSOAPIAutoLock(const SSOAPIAutoLock &) = delete;
    SSOAPIAutoLock &operator=(const SSOAPIAutoLock &) = delete;

private:
    pthread_mutex_t *pMutex;
};
