#include "sso_lock.h"

#include "sso_log.h"

int g_WRITELOCK_INDEX = 0;

SSOWriteLock::SSOWriteLock(pthread_rwlock_t *lock) : m_pLock(lock)
{
    SSO_LOGD_AT(sso_log_lines::kWriteLockStart, "[START] ");
    pthread_rwlock_wrlock(m_pLock);
    int depth = ++g_WRITELOCK_INDEX;
    SSO_LOGW_G_AT(sso_log_lines::kWriteLockTaken, "WriteLock(%d)", depth);
}

SSOWriteLock::~SSOWriteLock()
{
    // The counter changes only while the lock is held.
    int depth = --g_WRITELOCK_INDEX;
    pthread_rwlock_unlock(m_pLock);
    SSO_LOGW_G_AT(sso_log_lines::kWriteLockReleased, "WriteLock(%d)", depth);
    SSO_LOGD_AT(sso_log_lines::kWriteLockEnd, "[END] ");
}
