// The two D-Bus interfaces the simulator honours: the service's request
// methods (server) and the result callbacks each client exports (client).
// Both come from the embedded XML, so the data files stay the one source.
#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bus_names.h"
#include "glib_util.h"

namespace ssosim {

// The embedded XML (generated interfaces.cpp).
const char *ServerInterfaceXml();
const char *ClientInterfaceXml();

enum class RequestKind {
    Async, // answered (i), then the result is delivered to the client
    Sync,  // answered (i), nothing follows
    Data,  // answered (s)
};

struct ServerMethod {
    std::string name;
    std::string in_signature; // "ssssxxxis"
    RequestKind kind = RequestKind::Sync;
    // Async only: where the callback pointer and the trailing four values sit.
    int callback_index = -1;
};

struct ClientArg {
    std::string name;
    std::string type;
};

struct ClientMethod {
    std::string name;
    std::vector<ClientArg> args;
};

// Parsed once at start-up. Keeps the introspection data GDBus validates
// incoming calls against.
class Contract {
public:
    Contract(); // throws std::runtime_error when the embedded XML is unusable
    ~Contract();
    Contract(const Contract &) = delete;
    Contract &operator=(const Contract &) = delete;

    GDBusInterfaceInfo *server_info() const { return server_info_; }
    const ServerMethod *FindServerMethod(const std::string &name) const;
    const ClientMethod *FindClientMethod(const std::string &name) const;
    // The client method a request's result goes to. Requests name it in
    // their method_call field, except the whitelist token request, which
    // names its own server method there and is answered on that name with
    // "RESULT_" in front.
    const ClientMethod *FindResultMethod(const std::string &methodCall) const;
    const std::map<std::string, ServerMethod> &server_methods() const { return server_; }

private:
    GDBusNodeInfo *server_node_ = nullptr;
    GDBusNodeInfo *client_node_ = nullptr;
    GDBusInterfaceInfo *server_info_ = nullptr;
    std::map<std::string, ServerMethod> server_;
    std::map<std::string, ClientMethod> client_;
};

// One request as received. For an asynchronous request the callback and the
// trailing request_id, user_data, ae_index, method_call are taken apart.
struct Request {
    const ServerMethod *method = nullptr;
    std::string sender;
    std::string object_name; // first argument: the client's object name
    VariantPtr params;
    std::int64_t callback = 0;
    std::int64_t request_id = 0;
    std::int64_t user_data = 0;
    std::int32_t ae_index = 0;
    std::string method_call;
};

// params must already match method.in_signature (GDBus checked it).
Request ParseRequest(const ServerMethod &method, const std::string &sender, GVariant *params);

// "org.orvex.tv.ssoservice.ssoclient." + object name.
std::string ClientBusName(const std::string &object_name);

} // namespace ssosim
