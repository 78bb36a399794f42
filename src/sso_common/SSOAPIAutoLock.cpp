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
        SSO_LOGE("pMutex is nullptr");
}
