// Exported functions are written as function-try-blocks ending in one of
// these: an exception (a failed lock, an allocation failure) is logged and
// becomes the function's failure value instead of unwinding into C callers.
//   SSO_API int sso_x(void) try { ... } SSO_API_CATCH(-1)
#pragma once

#include <exception>

#include "sso_log.h"

#define SSO_API_CATCH(failure)                                                                     \
    catch (const std::exception &sso_api_exception)                                                \
    {                                                                                              \
        SSO_LOGE("exception: %s", sso_api_exception.what());                                       \
        return (failure);                                                                          \
    }                                                                                              \
    catch (...)                                                                                    \
    {                                                                                              \
        SSO_LOGE("unknown exception");                                                             \
        return (failure);                                                                          \
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
