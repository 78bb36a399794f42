// The response dispatcher (sso_handle_api_response) on arbitrary arguments.
// The first input byte picks a method of the client interface (or a name the
// interface lacks), the second byte's low bit asks for delivery, and the rest
// is the serialised GVariant of the method's arguments, in the argument shape
// of the method tables (the introspection's signature for methods the tables
// do not know).
//
// Delivery needs the request id of the live monitor thread, so the target
// starts a private bus and the transport once. When delivery is asked for (or
// when the input happens to carry the right request id), the callback, request
// id and user data of the tuple are replaced by a fake callback of the shape's
// form, the monitor thread id and a cookie, and the request is recorded as
// outstanding; the fake checks what it is given. Any other input must not be
// delivered: nothing recorded matches it.
#include <gio/gio.h>
#include <sso_api/sso_api.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "SSOAPIClientUtil.h"
#include "fuzz_support.h"
#include "sso_api_private.h"
#include "sso_api_proxy.h"

namespace {

struct Method {
    std::string name;
    std::string signature;
    CLIENT_DBUS_METHOD_TYPE type;
};

std::vector<Method> g_methods;
long long g_monitorThreadId = 0;

// What the fake callbacks compare against.
int g_cookie;
int g_delivered = 0;
GVariant *g_current = nullptr;
CLIENT_DBUS_METHOD_TYPE g_currentType = CLIENT_METHOD_NONE;

void CheckCookie(void *userData)
{
    if (userData != &g_cookie)
        ssofuzz::Fail("the callback got another user data pointer");
    ++g_delivered;
}

// The string child at index of the tuple being dispatched.
std::string ChildString(size_t index)
{
    GVariant *child = g_variant_get_child_value(g_current, index);
    std::string text = g_variant_get_string(child, nullptr);
    g_variant_unref(child);
    return text;
}

int ChildInt(size_t index)
{
    GVariant *child = g_variant_get_child_value(g_current, index);
    int value = g_variant_get_int32(child);
    g_variant_unref(child);
    return value;
}

// Where the result and the first payload string sit, by shape.
size_t ResultIndex(CLIENT_DBUS_METHOD_TYPE type)
{
    switch (type) {
    case CLIENT_METHOD_STRING_RESULT:
        return 4;
    case CLIENT_METHOD_RESULT_ONLY:
    case CLIENT_METHOD_RESULT_STRING:
        return 3;
    default:
        return 4;
    }
}

size_t FirstStringIndex(CLIENT_DBUS_METHOD_TYPE type)
{
    return type == CLIENT_METHOD_STRING_RESULT ? 3 : type == CLIENT_METHOD_RESULT_STRING ? 4 : 5;
}

size_t UserDataIndex(CLIENT_DBUS_METHOD_TYPE type)
{
    switch (type) {
    case CLIENT_METHOD_STRING_RESULT:
    case CLIENT_METHOD_RESULT_STRING:
        return 5;
    case CLIENT_METHOD_RESULT_ONLY:
        return 4;
    default:
        return 3;
    }
}

void CheckResult(int result)
{
    if (result != ChildInt(ResultIndex(g_currentType)))
        ssofuzz::Fail("the callback got another result");
}

// A text of a record field of fieldSize bytes: at most fieldSize - 2
// characters, a prefix of the string sent at index.
void CheckField(const char *what, const char *text, size_t fieldSize, size_t index)
{
    if (text == nullptr)
        ssofuzz::Fail(what, "is null");
    size_t length = strnlen(text, fieldSize);
    if (length > fieldSize - 2)
        ssofuzz::Fail(what, "is longer than its field allows");
    if (ChildString(index).compare(0, length, text, length) != 0)
        ssofuzz::Fail(what, "is not a prefix of what was sent");
}

template <size_t N> void CheckField(const char *what, const char (&field)[N], size_t index)
{
    CheckField(what, field, N, index);
}

int OnString(void *userData, int result, char *text)
{
    CheckCookie(userData);
    CheckResult(result);
    if (text == nullptr || ChildString(FirstStringIndex(g_currentType)) != text)
        ssofuzz::Fail("the callback got another text");
    return 0;
}

int OnResult(void *userData, int result)
{
    CheckCookie(userData);
    CheckResult(result);
    return 0;
}

int OnTwoStrings(void *userData, int result, char *birthday, char *url)
{
    CheckCookie(userData);
    CheckResult(result);
    if (birthday == nullptr || url == nullptr || ChildString(5) != birthday ||
        ChildString(6) != url)
        ssofuzz::Fail("the callback got other texts");
    return 0;
}

int OnNameCheck(void *userData, bool success, char *birthDate, char *age, char *checkUrl)
{
    CheckCookie(userData);
    if (success != (ChildInt(4) == 0))
        ssofuzz::Fail("the success flag does not follow the result");
    CheckField("birth_date", birthDate, sizeof(sso_name_check_auth_info_s::birth_date), 5);
    CheckField("age", age, sizeof(sso_name_check_auth_info_s::age), 6);
    CheckField("check_url", checkUrl, sizeof(sso_name_check_auth_info_s::check_url), 7);
    return 0;
}

int OnUserInfo(void *userData, int result, sso_user_info info)
{
    CheckCookie(userData);
    CheckResult(result);
    CheckField("user_id", info.user_id, 5);
    CheckField("prefix_name", info.prefix_name, 6);
    CheckField("first_name", info.first_name, 7);
    CheckField("last_name", info.last_name, 8);
    CheckField("birth_date", info.birth_date, 9);
    CheckField("zip_code", info.zip_code, 10);
    CheckField("mobile_num", info.mobile_num, 11);
    CheckField("receive_email", info.receive_email, 12);
    CheckField("auth", info.auth, 13);
    return 0;
}

gint64 FakeCallback(CLIENT_DBUS_METHOD_TYPE type)
{
    void *fn = nullptr;
    switch (type) {
    case CLIENT_METHOD_RESULT_ONLY:
        fn = reinterpret_cast<void *>(&OnResult);
        break;
    case CLIENT_METHOD_USERDATA_RESULT_2STRINGS:
        fn = reinterpret_cast<void *>(&OnTwoStrings);
        break;
    case CLIENT_METHOD_USERDATA_RESULT_3STRINGS:
        fn = reinterpret_cast<void *>(&OnNameCheck);
        break;
    case CLIENT_METHOD_USERDATA_RESULT_9STRINGS:
        fn = reinterpret_cast<void *>(&OnUserInfo);
        break;
    default:
        fn = reinterpret_cast<void *>(&OnString);
        break;
    }
    return static_cast<gint64>(reinterpret_cast<intptr_t>(fn));
}

// The tuple with callback, request id and user data replaced. Takes the
// reference of tuple; returns a new one.
GVariant *Addressed(GVariant *tuple, CLIENT_DBUS_METHOD_TYPE type)
{
    size_t n = g_variant_n_children(tuple);
    std::vector<GVariant *> children(n);
    for (size_t i = 0; i < n; ++i)
        children[i] = g_variant_get_child_value(tuple, i);
    auto replace = [&](size_t index, GVariant *value) {
        g_variant_unref(children[index]);
        children[index] = g_variant_ref_sink(value);
    };
    replace(1, g_variant_new_int64(FakeCallback(type)));
    replace(2, g_variant_new_int64(g_monitorThreadId));
    replace(UserDataIndex(type),
            g_variant_new_int64(static_cast<gint64>(reinterpret_cast<intptr_t>(&g_cookie))));
    GVariant *addressed = g_variant_ref_sink(g_variant_new_tuple(children.data(), n));
    for (GVariant *child : children)
        g_variant_unref(child);
    g_variant_unref(tuple);
    return addressed;
}

long long RequestIdOf(GVariant *tuple)
{
    GVariant *child = g_variant_get_child_value(tuple, 2);
    long long id = g_variant_get_int64(child);
    g_variant_unref(child);
    return id;
}

void LoadMethods()
{
    GError *error = nullptr;
    GDBusNodeInfo *node =
        g_dbus_node_info_new_for_xml(CSSOSvcGdbus::m_introspectionXml.c_str(), &error);
    if (node == nullptr)
        ssofuzz::Fail("the client introspection does not parse", error->message);
    GDBusInterfaceInfo *interface = g_dbus_node_info_lookup_interface(node, SSO_CLIENT_INTERFACE);
    if (interface == nullptr)
        ssofuzz::Fail("the client interface is missing");
    std::vector<std::string> names;
    for (GDBusMethodInfo **m = interface->methods; m != nullptr && *m != nullptr; ++m) {
        std::string signature = "(";
        for (GDBusArgInfo **a = (*m)->in_args; a != nullptr && *a != nullptr; ++a)
            signature += (*a)->signature;
        signature += ")";
        g_methods.push_back({(*m)->name, signature, CLIENT_METHOD_NONE});
    }
    g_dbus_node_info_unref(node);
    // Listed in the tables but not on the interface, and a name nobody knows.
    g_methods.push_back({"sso_CLIENT_partner_auth_info", "(sxxsixis)", CLIENT_METHOD_NONE});
    g_methods.push_back({"no_such_method", "(sxxsixis)", CLIENT_METHOD_NONE});
    for (Method &method : g_methods) {
        method.type = SSOAPIClientUtil::GetClientDBusMethodType(method.name.c_str());
        std::string format = SSOAPIClientUtil::GetClientDBusMethodParameterFormat(method.type);
        if (!format.empty())
            method.signature = format;
    }
}

void StopTransport()
{
    sso_give_proxy();
    ssofuzz::StopPrivateBus();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    ssofuzz::SetUpPlatform();
    LoadMethods();
    if (ssofuzz::StartPrivateBus()) {
        CSSOSvcGdbus *transport = SSOAPISingleton<CSSOSvcGdbus>::GetInstance();
        if (transport != nullptr)
            g_monitorThreadId = transport->proxyMonitorThreadId();
        atexit(StopTransport);
    }
    if (g_monitorThreadId <= 0)
        fprintf(stderr, "fuzz: no transport; results are decoded but never delivered\n");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    const Method &method = g_methods[data[0] % g_methods.size()];
    bool deliver = (data[1] & 1) != 0;
    GBytes *bytes = g_bytes_new(data + 2, size - 2);
    GVariant *tuple = g_variant_ref_sink(
        g_variant_new_from_bytes(G_VARIANT_TYPE(method.signature.c_str()), bytes, FALSE));
    g_bytes_unref(bytes);

    bool addressable = method.type != CLIENT_METHOD_NONE && g_monitorThreadId > 0;
    // A request id equal to the live one would make the dispatcher call
    // whatever callback value the input holds: address it properly instead.
    deliver = addressable && (deliver || RequestIdOf(tuple) == g_monitorThreadId);
    if (deliver) {
        tuple = Addressed(tuple, method.type);
        // Only a result this process asked for is delivered: record the
        // request it answers, as the request frame does when it sends one.
        CSSOSvcGdbus *transport = SSOAPISingleton<CSSOSvcGdbus>::PeekInstance();
        if (transport == nullptr)
            ssofuzz::Fail("the transport is gone");
        transport->Requests().Add(method.name, FakeCallback(method.type),
                                  static_cast<gint64>(reinterpret_cast<intptr_t>(&g_cookie)));
    }

    g_current = tuple;
    g_currentType = method.type;
    g_delivered = 0;
    sso_handle_api_response(nullptr, ":1.1", SSO_CLIENT_OBJECT_PATH, SSO_CLIENT_INTERFACE,
                            method.name.c_str(), tuple, nullptr, nullptr);
    if (g_delivered != (deliver ? 1 : 0))
        ssofuzz::Fail("delivered", std::to_string(g_delivered) + " times to " + method.name);
    g_current = nullptr;
    g_variant_unref(tuple);
    return 0;
}
