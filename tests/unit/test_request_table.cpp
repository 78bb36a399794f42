// The request table against what it describes: the service's interface file,
// the client interface the library exports, and the delivery shapes the
// dispatcher decodes by. Adding a request is a row; these say when the row
// and the interface files disagree.
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "SSOAPIClientUtil.h"
#include "SSORequestTable.h"
#include "sso_api_proxy.h"

namespace {

struct Node {
    GDBusNodeInfo *node = nullptr;
    explicit Node(const std::string &xml)
    {
        node = g_dbus_node_info_new_for_xml(xml.c_str(), nullptr);
    }
    ~Node()
    {
        if (node != nullptr)
            g_dbus_node_info_unref(node);
    }
    GDBusMethodInfo *Method(const char *name) const
    {
        return g_dbus_interface_info_lookup_method(node->interfaces[0], name);
    }
};

std::string ReadServerXml()
{
    gchar *text = nullptr;
    if (!g_file_get_contents(SSO_SERVER_XML, &text, nullptr, nullptr))
        return "";
    std::string xml = text;
    g_free(text);
    return xml;
}

std::string Signature(GDBusArgInfo **args)
{
    std::string signature = "(";
    for (GDBusArgInfo **arg = args; arg != nullptr && *arg != nullptr; ++arg)
        signature += (*arg)->signature;
    return signature + ")";
}

// The tuple a row's function sends.
std::string RequestShape(const SSORequestType &row)
{
    if (row.form == SSORequestForm::Async)
        return std::string("(s") + row.fields + "x" + row.afterCallback + "xxis)";
    return std::string("(sxs") + row.fields + ")";
}

char RoleType(char role)
{
    switch (role) {
    case 'o':
    case 's':
    case 'm':
        return 's';
    case 'c':
    case 't':
    case 'u':
        return 'x';
    case 'r':
    case 'a':
        return 'i';
    default:
        return '?';
    }
}

TEST(RequestTable, EveryFunctionHasOneRow)
{
    std::set<std::string> functions;
    for (const SSORequestType &row : sso_requests::kTable)
        EXPECT_TRUE(functions.insert(row.function).second) << row.function;
    EXPECT_EQ(functions.size(), sso_requests::kCount);
    EXPECT_EQ(sso_requests::ByFunction("sso_no_such_request"), nullptr);
}

TEST(RequestTable, EveryRowsTupleIsTheServerMethodsArguments)
{
    Node server(ReadServerXml());
    ASSERT_NE(server.node, nullptr);
    for (const SSORequestType &row : sso_requests::kTable) {
        GDBusMethodInfo *method = server.Method(row.serverMethod);
        ASSERT_NE(method, nullptr) << row.serverMethod;
        EXPECT_EQ(Signature(method->in_args), RequestShape(row)) << row.function;
        EXPECT_EQ(Signature(method->out_args), row.form == SSORequestForm::Data ? "(s)" : "(i)")
            << row.function;
    }
}

TEST(RequestTable, EveryServerMethodIsSentByARow)
{
    Node server(ReadServerXml());
    ASSERT_NE(server.node, nullptr);
    std::set<std::string> sent;
    for (const SSORequestType &row : sso_requests::kTable)
        sent.insert(row.serverMethod);
    size_t methods = 0;
    for (GDBusMethodInfo **m = server.node->interfaces[0]->methods; *m != nullptr; ++m, ++methods)
        EXPECT_EQ(sent.count((*m)->name), 1u) << (*m)->name;
    EXPECT_EQ(methods, sent.size());
}

TEST(RequestTable, EveryDeliveryIsAClientMethodTheDispatcherCanDecode)
{
    Node client(CSSOSvcGdbus::m_introspectionXml);
    ASSERT_NE(client.node, nullptr);
    for (const SSORequestType &row : sso_requests::kTable) {
        if (row.form != SSORequestForm::Async)
            continue;
        // The retired partner request names its result method only as the
        // tuple's method_call; nothing is delivered.
        const char *delivery = row.delivery != nullptr ? row.delivery : row.methodCall;
        GDBusMethodInfo *method = client.Method(delivery);
        ASSERT_NE(method, nullptr) << delivery;
        if (row.delivery == nullptr)
            continue;
        const std::string signature = Signature(method->in_args);
        EXPECT_NE(sso_requests::DeliveryRoles(signature.c_str()), nullptr) << delivery;
        CLIENT_DBUS_METHOD_TYPE type = SSOAPIClientUtil::GetClientDBusMethodType(delivery);
        ASSERT_NE(type, CLIENT_METHOD_NONE) << delivery;
        EXPECT_EQ(SSOAPIClientUtil::GetClientDBusMethodParameterFormat(type), signature)
            << delivery;
    }
}

TEST(RequestTable, EachDeliveryShapesRolesSpellItsSignature)
{
    for (const sso_requests::SSODeliveryShape &shape : sso_requests::kDeliveryShapes) {
        std::string spelled = "(";
        size_t texts = 0;
        for (const char *role = shape.roles; *role != '\0'; ++role) {
            spelled += RoleType(*role);
            texts += *role == 's' ? 1 : 0;
        }
        EXPECT_EQ(spelled + ")", shape.signature);
        EXPECT_LE(texts, sso_requests::kMaxDeliveryTexts) << shape.signature;
        // Every shape carries each bookkeeping field exactly once.
        for (char role : std::string("octura"))
            EXPECT_EQ(std::string(shape.roles).find(role), std::string(shape.roles).rfind(role))
                << shape.signature << " " << role;
        EXPECT_EQ(shape.roles[std::strlen(shape.roles) - 1], 'm') << shape.signature;
    }
    EXPECT_EQ(sso_requests::DeliveryRoles("(s)"), nullptr);
}

TEST(RequestTable, OnlyAsynchronousRowsCarryACallAndADelivery)
{
    for (const SSORequestType &row : sso_requests::kTable) {
        if (row.form == SSORequestForm::Async) {
            EXPECT_NE(row.methodCall, nullptr) << row.function;
        } else {
            EXPECT_EQ(row.methodCall, nullptr) << row.function;
            EXPECT_EQ(row.delivery, nullptr) << row.function;
            EXPECT_STREQ(row.afterCallback, "") << row.function;
        }
    }
}

} // namespace
