// Why the calling thread's last call failed, beside the result codes the
// functions return (sso_last_error()). Thread-local: set where the failure is
// found, read by the application right after the failing call.
#pragma once

#include <gio/gio.h>
#include <sso_api/sso_api.h>

class SSOAPIError {
public:
    static void Set(sso_error_e error);
    // The service answered a request with something other than 1.
    static void SetRefused(int answer);
    static sso_error_e Last();
    static int LastServiceAnswer();

    // The cause of a failed call on the bus: no bus, nobody serving the
    // name, no answer in time, the library's own cancellation, or another
    // error of the bus.
    static sso_error_e FromBusError(const GError *error);
};

// Records the cause and gives back the failure value:
//   return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
template <typename T> inline T sso_private_fail(sso_error_e error, T failure)
{
    SSOAPIError::Set(error);
    return failure;
}
