// Exported functions are written as function-try-blocks ending in one of
// these: an exception (a failed lock, an allocation failure) is logged and
// becomes the function's failure value instead of unwinding into C callers.
//   SSO_API int sso_x(void) try { ... } SSO_API_CATCH(-1)
#pragma once

#include <exception>
#include <new>

#include "SSOAPIError.h"

#include "sso_log.h"

#define SSO_API_CATCH(failure)                                                                     \
    catch (const std::bad_alloc &)                                                                 \
    {                                                                                              \
        SSO_LOGE("exception: out of memory");                                                      \
        return sso_private_fail(SSO_ERROR_OUT_OF_MEMORY, (failure));                               \
    }                                                                                              \
    catch (const std::exception &sso_api_exception)                                                \
    {                                                                                              \
        SSO_LOGE("exception: %s", sso_api_exception.what());                                       \
        return sso_private_fail(SSO_ERROR_INTERNAL, (failure));                                    \
    }                                                                                              \
    catch (...)                                                                                    \
    {                                                                                              \
        SSO_LOGE("unknown exception");                                                             \
        return sso_private_fail(SSO_ERROR_INTERNAL, (failure));                                    \
    }

#define SSO_API_CATCH_VOID                                                                         \
    catch (const std::exception &sso_api_exception)                                                \
    {                                                                                              \
        SSO_LOGE("exception: %s", sso_api_exception.what());                                       \
    }                                                                                              \
    catch (...)                                                                                    \
    {                                                                                              \
        SSO_LOGE("unknown exception");                                                             \
    }
