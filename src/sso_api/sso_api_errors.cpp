// The causes of failure the application can ask for, and the names of the
// service's result codes.
#include <sso_api/sso_api.h>

#include <cstddef>

#include "SSOAPIError.h"

namespace {

struct Cause {
    sso_error_e error;
    const char *name;
    const char *text;
};

constexpr Cause kCauses[] = {
    {SSO_ERROR_NONE, "none", "no failure"},
    {SSO_ERROR_INVALID_ARGUMENT, "invalid_argument",
     "an argument is missing, empty or not UTF-8 text"},
    {SSO_ERROR_UNLOADING, "unloading", "the library is being unloaded"},
    {SSO_ERROR_NO_BUS, "no_bus", "the system bus cannot be reached"},
    {SSO_ERROR_SERVICE_NOT_RUNNING, "service_not_running", "the SSO service is not running"},
    {SSO_ERROR_SERVICE_REFUSED, "service_refused", "the SSO service refused the request"},
    {SSO_ERROR_TIMED_OUT, "timed_out", "the bus or the SSO service did not answer in time"},
    {SSO_ERROR_LINK_GIVEN_UP, "link_given_up",
     "the link to the SSO service was given up (sso_give_proxy)"},
    {SSO_ERROR_NOT_SIGNED_IN, "not_signed_in", "nobody is signed in"},
    {SSO_ERROR_NOT_ALLOWED, "not_allowed", "the calling application may not do this"},
    {SSO_ERROR_STORAGE_UNREADABLE, "storage_unreadable",
     "the settings or the secure storage cannot be read"},
    {SSO_ERROR_ACCOUNT_LIMIT, "account_limit", "six accounts are registered already"},
    {SSO_ERROR_CLIENT_NAME_TAKEN, "client_name_taken",
     "another process holds this process's client bus name"},
    {SSO_ERROR_BUS_ERROR, "bus_error", "the call on the bus failed"},
    {SSO_ERROR_NOT_SUPPORTED, "not_supported", "not supported (retired, or not on this product)"},
    {SSO_ERROR_OUT_OF_MEMORY, "out_of_memory", "memory could not be allocated"},
    {SSO_ERROR_LAUNCH_FAILED, "launch_failed", "the account application could not be launched"},
    {SSO_ERROR_NOT_FOUND, "not_found", "the value asked for is not stored"},
    {SSO_ERROR_INTERNAL, "internal", "an unexpected failure inside the library"},
};

const Cause *Find(sso_error_e error)
{
    for (const Cause &cause : kCauses)
        if (cause.error == error)
            return &cause;
    return nullptr;
}

constexpr const char *kServiceResults[] = {
    "ok",
    "service_error",
    "invalid_request",
    "not_signed_in",
    "wrong_password",
    "invalid_client",
    "no_such_account",
    "account_limit",
    "account_exists",
    "invalid_token",
    "not_whitelisted",
    "no_such_group",
    "not_your_object",
};

} // namespace

extern "C" {

SSO_API sso_error_e sso_last_error(void)
{
    return SSOAPIError::Last();
}

SSO_API int sso_last_service_answer(void)
{
    return SSOAPIError::Last() == SSO_ERROR_SERVICE_REFUSED ? SSOAPIError::LastServiceAnswer() : 0;
}

SSO_API const char *sso_error_name(sso_error_e error)
{
    const Cause *cause = Find(error);
    return cause != nullptr ? cause->name : "unknown";
}

SSO_API const char *sso_strerror(sso_error_e error)
{
    const Cause *cause = Find(error);
    return cause != nullptr ? cause->text : "unknown cause of failure";
}

SSO_API const char *sso_service_result_name(int result)
{
    if (result < 0 ||
        static_cast<size_t>(result) >= sizeof(kServiceResults) / sizeof(kServiceResults[0]))
        return nullptr;
    return kServiceResults[result];
}

} // extern "C"
