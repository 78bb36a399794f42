#include "SSOAPIAutoLock.h"

#include "sso_log.h"

SSOAPIAutoLock::SSOAPIAutoLock(pthread_mutex_t *mutex) : pMutex(mutex)
{
    if (pMutex != nullptr)
        pthread_mutex_lock(pMutex);
}

SSOAPIAutoLock::~SSOAPIAutoLock()
{
    if (pMutex != nullptr)
        pthread_mutex_unlock(pMutex);
    else
        SSO_LOGE_AT(sso_log_lines::kAutoLockNoMutex, "pMutex is nullptr");
}
