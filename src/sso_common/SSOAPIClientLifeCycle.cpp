#include "SSOAPIClientLifeCycle.h"

#include <pthread.h>
#include <time.h>

#include <thread>

#include "CallerInformation.h"
#include "SSOAPIUtil.h"
#include "sso_api_private.h"
#include "sso_api_proxy.h"
#include "sso_ss_data_storage.h"
#include "sso_log.h"

namespace {

// Blocked callers are cancelled, not waited out: they leave within moments.
// The unload waits this long for them, then goes on anyway.
constexpr std::chrono::milliseconds kBusyWait(500);
constexpr std::chrono::milliseconds kBusyPoll(20);
constexpr std::chrono::milliseconds kLeaveGrace(20);

pthread_mutex_t s_mutexBusy = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t s_condBusy = PTHREAD_COND_INITIALIZER;
int s_busyScopes = 0; // guarded by s_mutexBusy

// Callers waiting on the service, or on the link's set-up (which may still
// be running inside the transport's creation), give up at once.
void ReleaseBlockedCallers()
{
    if (CSSOSvcGdbus *transport = SSOAPISingleton<CSSOSvcGdbus>::PeekConstructedInstance())
        transport->CancelCalls();
}

// In a child that goes on after fork() without exec: the threads that held
// the library's locks, and the parent's link, are not there. The child
// starts with no caller inside and builds a link of its own when it needs one.
void ForgetParentAfterFork()
{
    pthread_mutex_init(&s_mutexBusy, nullptr);
    pthread_cond_init(&s_condBusy, nullptr);
    s_busyScopes = 0;
    SSOAPIUtil::ResetClientAliveLockAfterFork();
    CSSOSvcGdbus::ForgetAfterFork();
}

} // namespace

SSOAPIBusyScope::SSOAPIBusyScope()
{
    pthread_mutex_lock(&s_mutexBusy);
    ++s_busyScopes;
    pthread_mutex_unlock(&s_mutexBusy);
}

SSOAPIBusyScope::~SSOAPIBusyScope()
{
    pthread_mutex_lock(&s_mutexBusy);
    if (--s_busyScopes == 0)
        pthread_cond_broadcast(&s_condBusy);
    pthread_mutex_unlock(&s_mutexBusy);
}

bool SSOAPIBusyScope::WaitUntilNoneOpen(void (*release)(), std::chrono::milliseconds timeout)
{
    auto deadline = std::chrono::steady_clock::now() + timeout;
    pthread_mutex_lock(&s_mutexBusy);
    const bool someoneInside = s_busyScopes > 0;
    while (s_busyScopes > 0 && std::chrono::steady_clock::now() < deadline) {
        // Released again on every round: a caller still setting up the link
        // reaches its call only later.
        pthread_mutex_unlock(&s_mutexBusy);
        release();
        pthread_mutex_lock(&s_mutexBusy);
        struct timespec until;
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_nsec += static_cast<long>(kBusyPoll.count()) * 1000000L;
        until.tv_sec += until.tv_nsec / 1000000000L;
        until.tv_nsec %= 1000000000L;
        if (s_busyScopes > 0)
            pthread_cond_timedwait(&s_condBusy, &s_mutexBusy, &until);
    }
    bool idle = s_busyScopes == 0;
    pthread_mutex_unlock(&s_mutexBusy);
    // A caller closes its scope a few instructions before it has returned
    // out of the library: give those a moment before the code may go.
    if (someoneInside && idle)
        std::this_thread::sleep_for(kLeaveGrace);
    return idle;
}

SSOAPIClientLifeCycle::SSOAPIClientLifeCycle()
{
    SSO_LOGD_AT(sso_log_lines::kLifeCycleStart, "[START] ");
    SSOAPIUtil::SetClientToAlive();
    // Removed again by the C library when this library is unloaded.
    pthread_atfork(nullptr, nullptr, ForgetParentAfterFork);
    m_appId = SSOAPIUtil::GetAppId(-1);
    // The data cache is made at load; its first validation of the account
    // document runs here too.
    if (SSOAPIUtil::IsClientAlive())
        (void)SSOAPISingleton<CSSOSSData>::GetInstance();
    SSO_LOGW_G_AT(sso_log_lines::kLifeCycleAlive, "m_appId[%s] Alive[%d]", m_appId.c_str(),
                  SSOAPIUtil::IsClientAlive() ? 1 : 0);
}

SSOAPIClientLifeCycle::~SSOAPIClientLifeCycle()
{
    // Runs at unload or exit: nothing here may throw.
    try {
        SSOAPIUtil::SetClientToTerminated();
        SSO_LOGW_G_AT(sso_log_lines::kLifeCycleTerminated, "m_appId[%s] Alive[%d]", m_appId.c_str(),
                      SSOAPIUtil::IsClientAlive() ? 1 : 0);
        // Threads blocked in the library leave it before its objects, and
        // at unload its code, go away.
        if (!SSOAPIBusyScope::WaitUntilNoneOpen(ReleaseBlockedCallers, kBusyWait))
            SSO_LOGE("callers are still inside the library");
        // The settings watches go before anything they could call into.
        sso_private_clear_vconf_view_state_callback();
        sso_private_unsubscribe_vconf_login_state_change();
        // One singleton lock at a time, in this order: transport, caller
        // identity, data cache.
        SSOAPISingleton<CSSOSvcGdbus>::RemoveInstance();
        SSOAPISingleton<CCallerInformation>::RemoveInstance();
        SSOAPISingleton<CSSOSSData>::RemoveInstance();
        SSO_LOGD_AT(sso_log_lines::kLifeCycleEnd, "[END] ");
    } catch (...) {
        // A failed lock of the alive flag; the process is going away anyway.
    }
}
