// The service's bus name, its object and the interfaces on both sides, as
// the daemon and the tests that talk to it name them.
#pragma once

namespace ssosim {

inline constexpr const char *kServiceBusName = "org.orvex.tv.ssoservice.server";
inline constexpr const char *kServicePath = "/org/orvex/tv/ssoservice/server";
inline constexpr const char *kServiceInterface = "org.orvex.tv.ssoservice.server.interface";
inline constexpr const char *kClientBusPrefix = "org.orvex.tv.ssoservice.ssoclient.";
inline constexpr const char *kClientPath = "/org/orvex/tv/ssoservice/ssoclient";
inline constexpr const char *kClientInterface = "org.orvex.tv.ssoservice.ssoclient.interface";
inline constexpr const char *kSignalPath = "/org/orvex/tv/ssoservice/signal";
inline constexpr const char *kSignalInterface = "org.orvex.tv.ssoservice.signal";

} // namespace ssosim
