// The client interface's method tables: the shape of every client method and
// the GVariant format of every shape, checked against the introspection the
// library exports.
#include <gio/gio.h>

#include <cstring>
#include <string>
#include <vector>

#include "SSOAPIClientUtil.h"
#include "SSOAPISingleton.h"
#include "SSOAPIUtil.h"
#include "sso_api_records.h"
#include "sso_api_proxy.h"
#include "sso_test_harness.h"

namespace {

using MethodTables = ssotest::RootTest;

TEST_F(MethodTables, PartnerAuthInfoOfTheInterfaceIsUnknownToTheTable)
{
    EXPECT_EQ(SSOAPIClientUtil::GetClientDBusMethodType("sso_return_partner_auth_info"),
              CLIENT_METHOD_NONE);
    EXPECT_TRUE(log().Contains("\033[0;31mInvalid method name: (sso_return_partner_auth_info)"));
}

TEST_F(MethodTables, TheTablesOwnPartnerNameIsShapeZero)
{
    EXPECT_EQ(SSOAPIClientUtil::GetClientDBusMethodType("sso_CLIENT_partner_auth_info"),
              CLIENT_METHOD_STRING_RESULT);
    EXPECT_TRUE(log().Contains("[sso_CLIENT_partner_auth_info] = 0"));
}

TEST_F(MethodTables, NamesAreMatchedExactly)
{
    EXPECT_EQ(SSOAPIClientUtil::GetClientDBusMethodType("SSO_REQUEST_ACCESS_TOKEN"),
              CLIENT_METHOD_NONE);
    EXPECT_EQ(SSOAPIClientUtil::GetClientDBusMethodType("sso_request_access_token "),
              CLIENT_METHOD_NONE);
    EXPECT_EQ(SSOAPIClientUtil::GetClientDBusMethodType(nullptr), CLIENT_METHOD_NONE);
    EXPECT_TRUE(log().Contains("SSO_API_CHECK_NULL_RETURN. Return (pMethodName is null)"));
}

TEST_F(MethodTables, FormatOfAnUnknownShapeIsEmpty)
{
    EXPECT_EQ(SSOAPIClientUtil::GetClientDBusMethodParameterFormat(
                  static_cast<CLIENT_DBUS_METHOD_TYPE>(7)),
              "");
    EXPECT_TRUE(log().Contains("\033[0;31mInvalid clientMethodType: (7)\033[0m"));
    EXPECT_EQ(SSOAPIClientUtil::GetClientDBusMethodParameterFormat(CLIENT_METHOD_NONE), "");
    EXPECT_TRUE(log().Contains("clientMethodType is CLIENT_METHOD_NONE"));
}

struct ShapeCase {
    CLIENT_DBUS_METHOD_TYPE type;
    const char *format;
};

class ShapeFormat : public ::testing::TestWithParam<ShapeCase> {};

TEST_P(ShapeFormat, IsTheShapesTuple)
{
    EXPECT_EQ(SSOAPIClientUtil::GetClientDBusMethodParameterFormat(GetParam().type),
              GetParam().format);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, ShapeFormat,
    ::testing::Values(ShapeCase{CLIENT_METHOD_STRING_RESULT, "(sxxsixis)"},
                      ShapeCase{CLIENT_METHOD_RESULT_ONLY, "(sxxixis)"},
                      ShapeCase{CLIENT_METHOD_RESULT_STRING, "(sxxisxis)"},
                      ShapeCase{CLIENT_METHOD_USERDATA_RESULT_STRING, "(sxxxisis)"},
                      ShapeCase{CLIENT_METHOD_USERDATA_RESULT_2STRINGS, "(sxxxissis)"},
                      ShapeCase{CLIENT_METHOD_USERDATA_RESULT_3STRINGS, "(sxxxisssis)"},
                      ShapeCase{CLIENT_METHOD_USERDATA_RESULT_9STRINGS, "(sxxxisssssssssis)"}));

// The interface the library exports, as it parses it.
struct Interface {
    GDBusNodeInfo *node = nullptr;
    Interface()
    {
        GError *error = nullptr;
        node = g_dbus_node_info_new_for_xml(CSSOSvcGdbus::m_introspectionXml.c_str(), &error);
        if (error)
            g_error_free(error);
    }
    ~Interface()
    {
        if (node)
            g_dbus_node_info_unref(node);
    }
};

std::string Signature(GDBusMethodInfo *method)
{
    std::string sig = "(";
    for (GDBusArgInfo **arg = method->in_args; arg && *arg; ++arg)
        sig += (*arg)->signature;
    return sig + ")";
}

TEST_F(MethodTables, TheInterfaceHas34InputOnlyMethodsInOrder)
{
    Interface iface;
    ASSERT_NE(iface.node, nullptr);
    ASSERT_NE(iface.node->interfaces, nullptr);
    GDBusInterfaceInfo *info = iface.node->interfaces[0];
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(iface.node->interfaces[1], nullptr);
    EXPECT_STREQ(info->name, "org.orvex.tv.ssoservice.ssoclient.interface");
    const char *order[] = {"sso_request_access_token",
                           "sso_request_access_token_using_authcode",
                           "sso_request_auth_code",
                           "sso_request_authcode_with_ID_PWD",
                           "sso_request_auth_code_for_effortless_login",
                           "sso_request_user_authcode_with_dsc",
                           "sso_request_authcode_for_other_device",
                           "sso_request_service_auth_code",
                           "RESULT_sso_service_request_whitelist_accesstoken",
                           "sso_register_account",
                           "sso_switch_account",
                           "sso_switch_account_by_guid",
                           "sso_switch_account_with_usertoken",
                           "sso_verify_password",
                           "sso_request_reset_passwd",
                           "sso_perform_logout",
                           "sso_request_account_list",
                           "sso_generate_token_with_authcode_dsc_deleteFlag",
                           "sso_generate_token_with_authcode_dsc",
                           "sso_generate_token_with_ID_PWD",
                           "sso_identify_current_user_info",
                           "sso_get_user_info",
                           "sso_get_user_info_v4",
                           "sso_get_namecheck_auth_info",
                           "sso_set_passfw",
                           "sso_get_dynamic_my_account_list",
                           "sso_get_cp_account_mapping_list",
                           "sso_add_cp_account_mapping_info",
                           "sso_remove_cp_account_mapping_info",
                           "sso_return_partner_auth_info",
                           "sso_request_user_authcode_with_challenge",
                           "sso_request_user_authcode_with_verifier",
                           "sso_get_user_family_group",
                           "sso_get_user_group_users"};
    size_t n = 0;
    for (GDBusMethodInfo **m = info->methods; m && *m; ++m, ++n) {
        ASSERT_LT(n, 34u);
        EXPECT_STREQ((*m)->name, order[n]);
        EXPECT_TRUE((*m)->out_args == nullptr || (*m)->out_args[0] == nullptr) << (*m)->name;
        ASSERT_NE((*m)->in_args, nullptr);
        EXPECT_STREQ((*m)->in_args[0]->name, "obj_name");
        EXPECT_STREQ((*m)->in_args[2]->name, "request_id");
    }
    EXPECT_EQ(n, 34u);
    GDBusMethodInfo *passfw = g_dbus_interface_info_lookup_method(info, "sso_set_passfw");
    ASSERT_NE(passfw, nullptr);
    EXPECT_STREQ(passfw->in_args[1]->name, "sso_get_namecheck_auth_info_cb");
}

TEST_F(MethodTables, EveryTabledMethodsArgumentsEqualItsShapesFormat)
{
    Interface iface;
    ASSERT_NE(iface.node, nullptr);
    GDBusInterfaceInfo *info = iface.node->interfaces[0];
    int tabled = 0;
    for (GDBusMethodInfo **m = info->methods; *m; ++m) {
        CLIENT_DBUS_METHOD_TYPE type = SSOAPIClientUtil::GetClientDBusMethodType((*m)->name);
        if (type == CLIENT_METHOD_NONE)
            continue;
        ++tabled;
        EXPECT_EQ(Signature(*m), SSOAPIClientUtil::GetClientDBusMethodParameterFormat(type))
            << (*m)->name;
    }
    EXPECT_EQ(tabled, 29);
}

TEST_F(MethodTables, FiveInterfaceMethodsHaveNoTableEntry)
{
    Interface iface;
    GDBusInterfaceInfo *info = iface.node->interfaces[0];
    std::vector<std::string> untabled;
    for (GDBusMethodInfo **m = info->methods; *m; ++m)
        if (SSOAPIClientUtil::GetClientDBusMethodType((*m)->name) == CLIENT_METHOD_NONE)
            untabled.push_back((*m)->name);
    EXPECT_EQ(untabled, (std::vector<std::string>{
                            "sso_request_access_token_using_authcode",
                            "sso_get_cp_account_mapping_list", "sso_add_cp_account_mapping_info",
                            "sso_remove_cp_account_mapping_info", "sso_return_partner_auth_info"}));
    EXPECT_EQ(g_dbus_interface_info_lookup_method(info, "sso_CLIENT_partner_auth_info"), nullptr);
}

TEST_F(MethodTables, WithTheClientTerminatedNoTransportIsCreated)
{
    SSOAPIUtil::SetClientToTerminated();
    EXPECT_EQ(SSOAPIClientUtil::GetDBusProxyThreadId(), 0);
    EXPECT_EQ(SSOAPIClientUtil::GetDBusObjectName(), "");
    EXPECT_EQ(SSOAPISingleton<CSSOSvcGdbus>::PeekInstance(), nullptr);
    EXPECT_EQ(log().Count("SSO_API_CHECK_NULL_RETURN. Return (pDBusInstance is null)"), 2);
    EXPECT_FALSE(log().Contains("m_processId("));
    SSOAPIUtil::SetClientToAlive();
}

TEST_F(MethodTables, ANonPositiveRequestIdIsRefused)
{
    EXPECT_FALSE(SSOAPIClientUtil::IsThreadIdEqualToDBusProxy(0));
    EXPECT_TRUE(log().Contains("tid is invalid : 0"));
    EXPECT_FALSE(SSOAPIClientUtil::IsThreadIdEqualToDBusProxy(12345));
    EXPECT_TRUE(log().Contains("tidProxyMonitor <= 0 : 0"));
}

TEST_F(MethodTables, MissingOptionalStringsAreSentAsHasNoValue)
{
    EXPECT_EQ(SSOAPIClientUtil::GetParameterWithCheckNoValue(nullptr), "HAS_NO_VALUE");
    EXPECT_EQ(SSOAPIClientUtil::GetParameterWithCheckNoValue(""), "");
    EXPECT_EQ(SSOAPIClientUtil::GetParameterWithCheckNoValue("scope"), "scope");
}

TEST_F(MethodTables, RecordsAreCutOneByteShortOfTheirFields)
{
    std::string longText(600, 'u');
    sso_user_info info;
    memset(&info, 'x', sizeof(info));
    SSOAPIRecords::SetUserInfo(info, longText.c_str(), "p", nullptr, "l", "b", "z", "m", "r",
                               longText.c_str());
    EXPECT_EQ(strlen(info.user_id), 126u);
    EXPECT_STREQ(info.prefix_name, "p");
    EXPECT_STREQ(info.first_name, "");
    EXPECT_EQ(strlen(info.auth), 510u);

    sso_name_check_auth_info_s check;
    SSOAPIRecords::SetNameCheckAuthInfo(check, longText.c_str(), nullptr, longText.c_str());
    EXPECT_EQ(strlen(check.birth_date), 126u);
    EXPECT_STREQ(check.age, "");
    EXPECT_EQ(strlen(check.check_url), 254u);
}

} // namespace
