#include "SSOAPISystemInfo.h"

#include <system_info.h>

#include "sso_log.h"

#define FEATURE_B2B_OPTION_SUPPORT "com.veltra/featureconf/product.b2b_option_support"

bool SSOAPISystemInfo::m_bB2BOptionChecked = false;
bool SSOAPISystemInfo::m_bB2BOptionSupported = false;

bool SSOAPISystemInfo::m_IsB2BOptionEnabled()
{
    bool supported = false;
    int ret = system_info_get_custom_bool(FEATURE_B2B_OPTION_SUPPORT, &supported);
    if (ret != SYSTEM_INFO_ERROR_NONE) {
        // Not cached as checked: the next call asks again.
        SSO_LOGE("Failed to get product.b2b_option_support. ret(%d)", ret);
        m_bB2BOptionSupported = false;
    } else {
        SSO_LOGY("product.b2b_option_support : %d", supported ? 1 : 0);
        m_bB2BOptionChecked = true;
        m_bB2BOptionSupported = supported;
    }
    SSO_LOGY("m_bB2BOptionSupported : %d", m_bB2BOptionSupported ? 1 : 0);
    return m_bB2BOptionSupported;
}

bool SSOAPISystemInfo::IsHotelModeSupported()
{
    if (m_bB2BOptionChecked) {
        SSO_LOGY("m_bB2BOptionChecked is true. m_bB2BOptionSupported(%d)",
                 m_bB2BOptionSupported ? 1 : 0);
        return m_bB2BOptionSupported;
    }
    return m_IsB2BOptionEnabled();
}

void SSOAPISystemInfo::ResetHotelModeSupported()
{
    m_bB2BOptionChecked = false;
    m_bB2BOptionSupported = false;
}
