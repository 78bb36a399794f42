/*
 * The storage service's side of one connection: read a request, decide by
 * the peer's credentials, act on the store, answer. Used by sso-storaged's
 * workers; in-process tests drive it over a socketpair.
 */
#ifndef SSO_PLATFORM_SS_SERVICE_H
#define SSO_PLATFORM_SS_SERVICE_H

#include "ss_policy.h"

#ifdef __cplusplus
extern "C" {
#endif

/* How long one read or write of a connection may stall before the service
 * drops it: a client that stops half-way ties up one worker for this long,
 * never the service. */
#define SS_SERVICE_IO_TIMEOUT_MS 2000

/* Serves the one request on fd (a connected Unix stream socket) and returns;
 * fd stays open. Returns the status answered, or SS_ERROR_SERVICE_UNAVAILABLE
 * when the connection broke before an answer could go out. Logs refusals and
 * malformed requests (with the tag "SS_SERVICE"), never item contents. */
int ss_service_handle(int fd, const struct ss_policy *policy);

#ifdef __cplusplus
}
#endif

#endif
