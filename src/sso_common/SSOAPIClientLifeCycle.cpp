#include "SSOAPIClientLifeCycle.h"

#include "CallerInformation.h"
#include "SSOAPIUtil.h"
#include "sso_api_private.h"
#include "sso_api_proxy.h"
#include "sso_ss_data_storage.h"
#include "sso_log.h"

SSOAPIClientLifeCycle::SSOAPIClientLifeCycle()
{
    SSO_LOG_START();
    SSOAPIUtil::SetClientToAlive();
    m_appId = SSOAPIUtil::GetAppId(-1);
    // The data cache is made at load; its first validation of the account
    // document runs here too.
    if (SSOAPIUtil::IsClientAlive())
        (void)SSOAPISingleton<CSSOSSData>::GetInstance();
    SSO_LOGW_G("m_appId[%s] Alive[%d]", m_appId.c_str(), SSOAPIUtil::IsClientAlive() ? 1 : 0);
}

SSOAPIClientLifeCycle::~SSOAPIClientLifeCycle()
{
    // Runs at unload or exit: nothing here may throw.
    try {
        SSOAPIUtil::SetClientToTerminated();
        SSO_LOGW_G("m_appId[%s] Alive[%d]", m_appId.c_str(), SSOAPIUtil::IsClientAlive() ? 1 : 0);
        // The settings watches go before anything they could call into.
        sso_private_clear_vconf_view_state_callback();
        sso_private_unsubscribe_vconf_login_state_change();
        // One singleton lock at a time, in this order: transport, caller
        // identity, data cache.
        SSOAPISingleton<CSSOSvcGdbus>::RemoveInstance();
        SSOAPISingleton<CCallerInformation>::RemoveInstance();
        SSOAPISingleton<CSSOSSData>::RemoveInstance();
        SSO_LOG_END();
    } catch (...) {
        // A failed lock of the alive flag; the process is going away anyway.
    }
}
