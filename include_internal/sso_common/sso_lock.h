// Scoped write lock on the data cache's read-write lock. g_WRITELOCK_INDEX
// counts the write locks held in the process; it changes only while the lock
// is held and serves only the log.
#pragma once

#include <pthread.h>

extern int g_WRITELOCK_INDEX;

class SSOWriteLock {
public:
    explicit SSOWriteLock(pthread_rwlock_t *lock);
    virtual ~SSOWriteLock();

    SSOWriteLock(const SSOWriteLock &) = delete;
    SSOWriteLock &operator=(const SSOWriteLock &) = delete;

private:
    pthread_rwlock_t *m_pLock;
};
