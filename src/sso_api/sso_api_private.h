// Internal entry points of the exported-API module: the request frame every
// request goes through, and the dispatcher of results.
#pragma once

#include <gio/gio.h>

#include <string>

// Sends one request: 0 when the service accepted it (answered "(i)" with 1),
// -1 otherwise. parameters is a floating tuple, consumed. *reply is always
// null on return. methodName must not be null.
int sso_private_request_method(const char *methodName, GVariant *parameters, GVariant **reply);

// Makes sure the transport exists and the dispatcher is registered, then calls
// the service with the 5000 ms time-out. On true, *reply holds the reply.
bool sso_private_call_dbus_method_to_server(std::string methodName, GVariant *parameters,
                                            GVariant **reply);

// The one handler of calls the service makes on the account client object.
// Runs on the "SSOProxyMonitor" thread.
void sso_handle_api_response(GDBusConnection *connection, const char *sender,
                             const char *objectPath, const char *interfaceName,
                             const char *methodName, GVariant *parameters,
                             GDBusMethodInvocation *invocation, void *userData);

// The time-out of every request, in milliseconds.
constexpr int SSO_REQUEST_TIMEOUT_MS = 5000;
