#include "contract.h"

#include <stdexcept>

namespace ssosim {

namespace {

GDBusNodeInfo *ParseXml(const char *xml, const char *what)
{
    GError *error = nullptr;
    GDBusNodeInfo *node = g_dbus_node_info_new_for_xml(xml, &error);
    if (node == nullptr) {
        ErrorPtr owned(error);
        throw std::runtime_error(std::string("cannot parse the embedded ") + what +
                                 " interface: " + owned->message);
    }
    return node;
}

std::string InSignature(const GDBusMethodInfo *method)
{
    std::string sig;
    for (GDBusArgInfo **arg = method->in_args; arg && *arg; ++arg)
        sig += (*arg)->signature;
    return sig;
}

std::string OutSignature(const GDBusMethodInfo *method)
{
    std::string sig;
    for (GDBusArgInfo **arg = method->out_args; arg && *arg; ++arg)
        sig += (*arg)->signature;
    return sig;
}

bool EndsWith(const std::string &s, const std::string &tail)
{
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

ServerMethod Classify(const GDBusMethodInfo *info)
{
    ServerMethod m;
    m.name = info->name;
    m.in_signature = InSignature(info);
    const std::string out = OutSignature(info);
    if (out == "s") {
        m.kind = RequestKind::Data;
    } else if (out != "i") {
        throw std::runtime_error("server method " + m.name + " answers (" + out +
                                 "), expected (i) or (s)");
    } else if (m.in_signature.size() >= 5 && m.in_signature[0] == 's' &&
               EndsWith(m.in_signature, "xxis")) {
        // The callback is the first 'x'; it may be followed by an 'i' flag,
        // or a flag may precede it, but it is never one of the last four.
        const auto first_x = m.in_signature.find('x');
        if (first_x == std::string::npos || first_x >= m.in_signature.size() - 4)
            throw std::runtime_error("server method " + m.name + " has no callback argument");
        m.kind = RequestKind::Async;
        m.callback_index = static_cast<int>(first_x);
    } else {
        m.kind = RequestKind::Sync;
    }
    return m;
}

} // namespace

Contract::Contract()
{
    server_node_ = ParseXml(ServerInterfaceXml(), "server");
    client_node_ = ParseXml(ClientInterfaceXml(), "client");
    server_info_ = g_dbus_node_info_lookup_interface(server_node_, kServiceInterface);
    GDBusInterfaceInfo *client_info =
        g_dbus_node_info_lookup_interface(client_node_, kClientInterface);
    if (server_info_ == nullptr || client_info == nullptr) {
        g_dbus_node_info_unref(server_node_);
        g_dbus_node_info_unref(client_node_);
        throw std::runtime_error("the embedded XML lacks the server or client interface");
    }
    // Built once; lookups during calls then never walk the XML tree.
    g_dbus_interface_info_cache_build(server_info_);
    try {
        for (GDBusMethodInfo **m = server_info_->methods; m && *m; ++m)
            server_.emplace((*m)->name, Classify(*m));
        for (GDBusMethodInfo **m = client_info->methods; m && *m; ++m) {
            ClientMethod cm;
            cm.name = (*m)->name;
            for (GDBusArgInfo **arg = (*m)->in_args; arg && *arg; ++arg)
                cm.args.push_back({(*arg)->name ? (*arg)->name : "", (*arg)->signature});
            client_.emplace(cm.name, std::move(cm));
        }
    } catch (...) {
        g_dbus_interface_info_cache_release(server_info_);
        g_dbus_node_info_unref(server_node_);
        g_dbus_node_info_unref(client_node_);
        throw;
    }
}

Contract::~Contract()
{
    g_dbus_interface_info_cache_release(server_info_);
    g_dbus_node_info_unref(server_node_);
    g_dbus_node_info_unref(client_node_);
}

const ServerMethod *Contract::FindServerMethod(const std::string &name) const
{
    auto it = server_.find(name);
    return it == server_.end() ? nullptr : &it->second;
}

const ClientMethod *Contract::FindClientMethod(const std::string &name) const
{
    auto it = client_.find(name);
    return it == client_.end() ? nullptr : &it->second;
}

Request ParseRequest(const ServerMethod &method, const std::string &sender, GVariant *params)
{
    Request r;
    r.method = &method;
    r.sender = sender;
    r.params = VariantPtr(g_variant_ref(params));
    const gsize n = g_variant_n_children(params);
    if (n > 0 && g_variant_is_of_type(params, G_VARIANT_TYPE_TUPLE)) {
        VariantPtr first(g_variant_get_child_value(params, 0));
        if (g_variant_is_of_type(first.get(), G_VARIANT_TYPE_STRING))
            r.object_name = g_variant_get_string(first.get(), nullptr);
    }
    if (method.kind != RequestKind::Async || n < 5)
        return r;
    auto child = [&](gsize i) { return VariantPtr(g_variant_get_child_value(params, i)); };
    r.callback = g_variant_get_int64(child(static_cast<gsize>(method.callback_index)).get());
    r.request_id = g_variant_get_int64(child(n - 4).get());
    r.user_data = g_variant_get_int64(child(n - 3).get());
    r.ae_index = g_variant_get_int32(child(n - 2).get());
    r.method_call = g_variant_get_string(child(n - 1).get(), nullptr);
    return r;
}

std::string ClientBusName(const std::string &object_name)
{
    return std::string(kClientBusPrefix) + object_name;
}

const ClientMethod *Contract::FindResultMethod(const std::string &methodCall) const
{
    if (methodCall == "sso_service_request_whitelist_accesstoken")
        return FindClientMethod("RESULT_" + methodCall);
    return FindClientMethod(methodCall);
}

} // namespace ssosim
