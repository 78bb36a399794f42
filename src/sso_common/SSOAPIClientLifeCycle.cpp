#include "SSOAPIClientLifeCycle.h"

#include <pthread.h>

#include <atomic>
#include <thread>

#include "CallerInformation.h"
#include "SSOAPIUtil.h"
#include "sso_api_proxy.h"
#include "sso_ss_data_storage.h"
#include "sso_log.h"

namespace {

// Blocked callers are cancelled, not waited out: they leave within moments.
// The unload waits this long for them, then goes on anyway.
constexpr std::chrono::milliseconds kBusyWait(500);
constexpr std::chrono::milliseconds kBusyPoll(20);
// A caller whose scope has closed still runs the few instructions that
// return it out of the library. Once callers left during the unload, it
// waits this much longer before the library's code may go away.
constexpr std::chrono::milliseconds kLeaveGrace(20);

// Open scopes. A closing scope only decrements it: a wake-up from there
// would let the unload run (and the library be unmapped) before the caller
// has returned out of the library's code, so the unload polls instead.
std::atomic<int> s_busyScopes{0};

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
    CSSOBusConnection::ChildAfterFork();
    s_busyScopes = 0;
    SSOAPIUtil::ResetClientAliveLockAfterFork();
    CSSOSvcGdbus::ForgetAfterFork();
}

} // namespace

SSOAPIBusyScope::SSOAPIBusyScope()
{
    s_busyScopes.fetch_add(1);
}

SSOAPIBusyScope::~SSOAPIBusyScope()
{
    s_busyScopes.fetch_sub(1);
}

bool SSOAPIBusyScope::WaitUntilNoneOpen(void (*release)(), std::chrono::milliseconds timeout)
{
    auto deadline = std::chrono::steady_clock::now() + timeout;
    bool waited = false;
    while (s_busyScopes.load() > 0 && std::chrono::steady_clock::now() < deadline) {
        waited = true;
        // Released again on every round: a caller still setting up the link
        // reaches its call only later.
        release();
        std::this_thread::sleep_for(kBusyPoll);
    }
    bool idle = s_busyScopes.load() == 0;
    if (idle && waited)
        std::this_thread::sleep_for(kLeaveGrace);
    return idle;
}

SSOAPIClientLifeCycle::SSOAPIClientLifeCycle(UnloadHook onUnload) : m_onUnload(onUnload)
{
    SSO_LOGD_AT(sso_log_lines::kLifeCycleStart, "[START] ");
    SSOAPIUtil::SetClientToAlive();
    // Removed again by the C library when this library is unloaded.
    pthread_atfork(CSSOBusConnection::PrepareFork, CSSOBusConnection::ParentAfterFork,
                   ForgetParentAfterFork);
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
        if (m_onUnload != nullptr)
            m_onUnload();
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
