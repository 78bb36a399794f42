// For tests that play the service by hand: records a request as if this
// process had sent it, so that the library delivers the result the test then
// sends on the client method. Without it, a result is dropped: the library
// hands an application only results of requests it sent.
#pragma once

#include <cstdint>
#include <string>

#include "sso_api_proxy.h"

namespace ssotest {

inline void ExpectResult(const std::string &clientMethod, const void *callback,
                         const void *userData)
{
    SSOAPISingleton<CSSOSvcGdbus>::GetInstance()->Requests().Add(
        clientMethod, static_cast<gint64>(reinterpret_cast<intptr_t>(callback)),
        static_cast<gint64>(reinterpret_cast<intptr_t>(userData)));
}

} // namespace ssotest
