// The exported C API. Every entry point is a thin shell: it checks its
// arguments, calls into the C++ core, and lets no exception escape.
#include <sso_api/sso_api.h>

#include "SSOAPIClientLifeCycle.h"
#include "sso_log.h"

// Must stay the first static object of this module: it is constructed before,
// and destroyed after, every other one (the login-state callback map among
// them), so the client is alive for all of them.
static SSOAPIClientLifeCycle s_clientLifeCycle;

static_assert(sizeof(sso_login_info_s) == 1536, "sso_login_info_s is 1536 bytes");
static_assert(sizeof(sso_user_info) == 1536, "sso_user_info is 1536 bytes");

extern "C" {

SSO_API int get_size_of_sso_login_info_s(void)
{
    return static_cast<int>(sizeof(sso_login_info_s));
}

SSO_API int sso_get_term_state(const char *term_id)
{
    SSO_LOG_START_F("term_id [%s]", term_id != nullptr ? term_id : "(null)");
    return -1;
}

} // extern "C"
