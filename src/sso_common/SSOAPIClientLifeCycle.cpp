#include "SSOAPIClientLifeCycle.h"

#include "SSOAPIUtil.h"
#include "sso_api_proxy.h"
#include "sso_log.h"

SSOAPIClientLifeCycle::SSOAPIClientLifeCycle()
{
    SSO_LOG_START();
    SSOAPIUtil::SetClientToAlive();
    m_appId = SSOAPIUtil::GetAppId(-1);
    SSO_LOGW_G("m_appId[%s] Alive[%d]", m_appId.c_str(), SSOAPIUtil::IsClientAlive() ? 1 : 0);
}

SSOAPIClientLifeCycle::~SSOAPIClientLifeCycle()
{
    // Runs at unload or exit: nothing here may throw.
    try {
        SSOAPIUtil::SetClientToTerminated();
        SSO_LOGW_G("m_appId[%s] Alive[%d]", m_appId.c_str(), SSOAPIUtil::IsClientAlive() ? 1 : 0);
        // One singleton lock at a time, in this order: transport, caller
        // identity, data cache.
        SSOAPISingleton<CSSOSvcGdbus>::RemoveInstance();
        SSO_LOG_END();
    } catch (...) {
        // A failed lock of the alive flag; the process is going away anyway.
    }
}
