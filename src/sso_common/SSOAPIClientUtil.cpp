#include "SSOAPIClientUtil.h"

#include <cstdio>
#include <cstring>

#include <cstdlib>
#include <memory>
#include <vector>

#include "ICVConf.h"
#include "SSOAPIError.h"
#include "SSOAPIClientLifeCycle.h"
#include "SSOAPIUtil.h"
#include "sso_api_proxy.h"
#include "sso_log.h"
#include "sso_ss_data_storage.h"

// Client method name -> argument shape. It differs from the client interface
// on purpose: "sso_CLIENT_partner_auth_info" is listed here but is no method
// of the interface, and five interface methods have no entry, so a call to
// them is handled as an unknown method.
const std::map<std::string, CLIENT_DBUS_METHOD_TYPE> SSOAPIClientUtil::m_clientDBusMethodTypeInfo =
    {
        {"sso_request_access_token", CLIENT_METHOD_STRING_RESULT},
        {"sso_request_auth_code", CLIENT_METHOD_STRING_RESULT},
        {"sso_request_auth_code_for_effortless_login", CLIENT_METHOD_STRING_RESULT},
        {"sso_request_user_authcode_with_dsc", CLIENT_METHOD_STRING_RESULT},
        {"sso_request_service_auth_code", CLIENT_METHOD_STRING_RESULT},
        {"sso_request_authcode_with_ID_PWD", CLIENT_METHOD_STRING_RESULT},
        {"sso_request_authcode_for_other_device", CLIENT_METHOD_STRING_RESULT},
        {"RESULT_sso_service_request_whitelist_accesstoken", CLIENT_METHOD_STRING_RESULT},
        {"sso_register_account", CLIENT_METHOD_STRING_RESULT},
        {"sso_switch_account", CLIENT_METHOD_STRING_RESULT},
        {"sso_switch_account_by_guid", CLIENT_METHOD_STRING_RESULT},
        {"sso_switch_account_with_usertoken", CLIENT_METHOD_STRING_RESULT},
        {"sso_verify_password", CLIENT_METHOD_STRING_RESULT},
        {"sso_request_reset_passwd", CLIENT_METHOD_STRING_RESULT},
        {"sso_perform_logout", CLIENT_METHOD_STRING_RESULT},
        {"sso_request_account_list", CLIENT_METHOD_STRING_RESULT},
        {"sso_set_passfw", CLIENT_METHOD_STRING_RESULT},
        {"sso_get_dynamic_my_account_list", CLIENT_METHOD_STRING_RESULT},
        {"sso_CLIENT_partner_auth_info", CLIENT_METHOD_STRING_RESULT},
        {"sso_request_user_authcode_with_challenge", CLIENT_METHOD_STRING_RESULT},
        {"sso_request_user_authcode_with_verifier", CLIENT_METHOD_STRING_RESULT},
        {"sso_get_user_family_group", CLIENT_METHOD_STRING_RESULT},
        {"sso_get_user_group_users", CLIENT_METHOD_STRING_RESULT},
        {"sso_generate_token_with_authcode_dsc", CLIENT_METHOD_RESULT_ONLY},
        {"sso_generate_token_with_authcode_dsc_deleteFlag", CLIENT_METHOD_RESULT_STRING},
        {"sso_generate_token_with_ID_PWD", CLIENT_METHOD_RESULT_STRING},
        {"sso_get_user_info_v4", CLIENT_METHOD_USERDATA_RESULT_STRING},
        {"sso_identify_current_user_info", CLIENT_METHOD_USERDATA_RESULT_2STRINGS},
        {"sso_get_namecheck_auth_info", CLIENT_METHOD_USERDATA_RESULT_3STRINGS},
        {"sso_get_user_info", CLIENT_METHOD_USERDATA_RESULT_9STRINGS},
};

const std::map<CLIENT_DBUS_METHOD_TYPE, std::string>
    SSOAPIClientUtil::m_clientDBusMethodParamFormatInfo = {
        {CLIENT_METHOD_STRING_RESULT, "(sxxsixis)"},
        {CLIENT_METHOD_RESULT_ONLY, "(sxxixis)"},
        {CLIENT_METHOD_RESULT_STRING, "(sxxisxis)"},
        {CLIENT_METHOD_USERDATA_RESULT_STRING, "(sxxxisis)"},
        {CLIENT_METHOD_USERDATA_RESULT_2STRINGS, "(sxxxissis)"},
        {CLIENT_METHOD_USERDATA_RESULT_3STRINGS, "(sxxxisssis)"},
        {CLIENT_METHOD_USERDATA_RESULT_9STRINGS, "(sxxxisssssssssis)"},
};

CLIENT_DBUS_METHOD_TYPE SSOAPIClientUtil::GetClientDBusMethodType(const char *methodName)
{
    if (methodName == nullptr) {
        SSO_LOG_CHECK_NULL("pMethodName is null");
        return CLIENT_METHOD_NONE;
    }
    auto it = m_clientDBusMethodTypeInfo.find(methodName);
    if (it == m_clientDBusMethodTypeInfo.end()) {
        SSO_LOGE("Invalid method name: (%s)", methodName);
        return CLIENT_METHOD_NONE;
    }
    SSO_LOGY("[%s] = %d", methodName, static_cast<int>(it->second));
    return it->second;
}

std::string SSOAPIClientUtil::GetClientDBusMethodParameterFormat(CLIENT_DBUS_METHOD_TYPE type)
{
    if (type == CLIENT_METHOD_NONE) {
        SSO_LOGE("clientMethodType is CLIENT_METHOD_NONE");
        return std::string();
    }
    auto it = m_clientDBusMethodParamFormatInfo.find(type);
    if (it == m_clientDBusMethodParamFormatInfo.end()) {
        SSO_LOGE("Invalid clientMethodType: (%d)", static_cast<int>(type));
        return std::string();
    }
    SSO_LOGY("[%d] = %s", static_cast<int>(type), it->second.c_str());
    return it->second;
}

std::string SSOAPIClientUtil::GetDBusObjectName()
{
    // The first request of the process sets the link up here.
    SSOAPIBusyScope busy;
    CSSOSvcGdbus *transport =
        SSOAPIUtil::IsClientAlive() ? SSOAPISingleton<CSSOSvcGdbus>::GetInstance() : nullptr;
    if (transport == nullptr) {
        SSO_LOG_CHECK_NULL("pDBusInstance is null");
        return std::string();
    }
    return transport->objectName();
}

long long SSOAPIClientUtil::GetDBusProxyThreadId()
{
    SSOAPIBusyScope busy;
    CSSOSvcGdbus *transport =
        SSOAPIUtil::IsClientAlive() ? SSOAPISingleton<CSSOSvcGdbus>::GetInstance() : nullptr;
    if (transport == nullptr) {
        SSO_LOG_CHECK_NULL("pDBusInstance is null");
        return 0;
    }
    return transport->proxyMonitorThreadId();
}

bool SSOAPIClientUtil::IsThreadIdEqualToDBusProxy(long long tid)
{
    if (tid < 1) {
        SSO_LOGE("tid is invalid : %lld", tid);
        return false;
    }
    // This runs on the monitor thread, for a transport that exists. It only
    // peeks at the instance: while the library is being unloaded the
    // transport's removal holds the singleton lock and joins this very
    // thread, so waiting for that lock here would never end.
    long long tidProxyMonitor = 0;
    if (SSOAPIUtil::IsClientAlive()) {
        CSSOSvcGdbus *transport = SSOAPISingleton<CSSOSvcGdbus>::PeekInstance();
        if (transport != nullptr)
            tidProxyMonitor = transport->proxyMonitorThreadId();
        else
            SSO_LOG_CHECK_NULL("pDBusInstance is null");
    } else {
        SSO_LOG_CHECK_NULL("pDBusInstance is null");
    }
    if (tidProxyMonitor <= 0) {
        SSO_LOGE("tidProxyMonitor <= 0 : %lld", tidProxyMonitor);
        return false;
    }
    if (tid != tidProxyMonitor) {
        SSO_LOGE("tid(%lld) is not equal to tidProxyMonitor(%lld)", tid, tidProxyMonitor);
        return false;
    }
    return true;
}

std::string SSOAPIClientUtil::GetParameterWithCheckNoValue(const char *value)
{
    return value == nullptr ? std::string("HAS_NO_VALUE") : std::string(value);
}

// ------------------------------------------------------------------ accounts

namespace {

constexpr int kMaxAccounts = 6;
constexpr int kAddAccountLimitReached = -100;

CSSOSSData *DataCache()
{
    return SSOAPIUtil::IsClientAlive() ? SSOAPISingleton<CSSOSSData>::GetInstance() : nullptr;
}

// The JSON texts the getters hand out: a stream writer with its default
// settings but UTF-8 written as it is, copied into a calloc'ed buffer.
bool WriteJson(const Json::Value &value, char **out)
{
    Json::StreamWriterBuilder builder;
    builder["emitUTF8"] = true;
    std::string text = Json::writeString(builder, value);
    char *buffer = static_cast<char *>(calloc(text.size() + 1, 1));
    if (buffer == nullptr) {
        // The caller sees whatever *out held; the answer stays true.
        SSO_LOG_CHECK_NULL("Failed to malloc()");
        return true;
    }
    memcpy(buffer, text.data(), text.size());
    *out = buffer;
    return true;
}

} // namespace

bool SSOAPIClientUtil::GetAccountsInfo(sso_accounts_info &out)
{
    CSSOSSData *cache = DataCache();
    if (cache == nullptr) {
        SSO_LOG_CHECK_NULL("pSSDataInstance is null");
        SSOAPIError::Set(SSO_ERROR_UNLOADING);
        return false;
    }
    out = cache->GetAccountsInfo();
    return true;
}

int SSOAPIClientUtil::GetNumberOfAccount()
{
    if (DataCache() == nullptr) {
        SSO_LOG_CHECK_NULL("pSSDataInstance is null");
        return -1;
    }
    sso_accounts_info info;
    if (!GetAccountsInfo(info)) {
        SSO_LOGE("Failed to GetAccountsInfo()");
        return -1;
    }
    SSO_LOG_END_F("numOfAccounts [%d]", info.numOfAccounts);
    return info.numOfAccounts;
}

int SSOAPIClientUtil::IsAddAccountAvailable(const char *loginId)
{
    if (DataCache() == nullptr) {
        SSO_LOG_CHECK_NULL("pSSDataInstance is null");
        return sso_private_fail(SSO_ERROR_UNLOADING, -1);
    }
    sso_accounts_info info;
    if (!GetAccountsInfo(info)) {
        SSO_LOGE("Failed to GetAccountsInfo()");
        return -1;
    }
    SSO_LOGY("numOfAccounts [%d]", info.numOfAccounts);
    const char *shown = loginId != nullptr ? loginId : "(null)";
    if (info.numOfAccounts < kMaxAccounts) {
        SSO_LOGY("[%s] can be added.", shown);
        return 0;
    }
    // At the limit only an account that is already registered may log in
    // again.
    if (m_IsAccountIdRegistered(info.accountsInfoJsonString, info.numOfAccounts, loginId)) {
        SSO_LOGY("[%s] can be added.", shown);
        return 0;
    }
    SSO_LOGE("It exceeded the maximum number of accounts(%d)", kMaxAccounts);
    return sso_private_fail(SSO_ERROR_ACCOUNT_LIMIT, kAddAccountLimitReached);
}

bool SSOAPIClientUtil::m_GetJsonObjectFromString(std::string &text, Json::Value &out)
{
    try {
        Json::CharReaderBuilder builder;
        std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
        std::string errors;
        if (!reader->parse(text.data(), text.data() + text.size(), &out, &errors)) {
            SSO_LOGE("Failed to reader->parse(jsonString). paserError(%s)", errors.c_str());
            return false;
        }
        return true;
    } catch (const std::exception &e) {
        SSO_LOGE("Exception handle by %s", e.what());
        return false;
    }
}

bool SSOAPIClientUtil::m_IsAccountIdRegistered(std::string &accountsInfoJsonString,
                                               int numOfAccounts, const char *accountId)
{
    if (accountId == nullptr) {
        SSO_LOG_CHECK_NULL("pAccountId is null");
        return false;
    }
    if (numOfAccounts <= 0) {
        SSO_LOGE("numOfAccounts(%d) <= 0", numOfAccounts);
        return false;
    }
    if (accountsInfoJsonString.empty()) {
        SSO_LOGE("accountsInfoJsonString is empty");
        return false;
    }
    Json::Value root;
    if (!m_GetJsonObjectFromString(accountsInfoJsonString, root)) {
        SSO_LOGE("Failed to m_GetJsonObjectFromString()");
        return false;
    }
    try {
        const Json::Value &list = root["list"];
        for (int i = 0; i < numOfAccounts; ++i) {
            // Entries past the end of "list" read as empty ids.
            std::string id;
            if (list.isArray() && static_cast<Json::ArrayIndex>(i) < list.size() &&
                list[i].isObject())
                id = list[i].get("account_id", "").asString();
            if (id == accountId) {
                SSO_LOG_END_F("Already, %s is registered", accountId);
                return true;
            }
        }
    } catch (const std::exception &e) {
        SSO_LOGE("Exception handle by %s", e.what());
        return false;
    }
    SSO_LOG_END_F("%s is not registered", accountId);
    return false;
}

bool SSOAPIClientUtil::GetJsonStringLoginInfo(sso_accounts_info &info, char **out)
{
    try {
        Json::Value object(Json::objectValue);
        object["loginid"] = info.strLoginID;
        object["password"] = "";
        object["guid"] = info.strLoginGUID;
        object["uid"] = info.strLoginUID;
        object["userIcon"] = info.strUserIconPath;
        object["userPinSet"] = info.strUserPinSet;
        object["userCountryCode"] = info.userCountryCode;
        object["alpha2CountryCode"] = info.alpha2CountryCode;
        object["displayName"] = info.displayName;
        object["userDeviceID"] = info.userDeviceID;
        return WriteJson(object, out);
    } catch (const std::exception &e) {
        SSO_LOGE("Exception handle by %s", e.what());
        return false;
    }
}

bool SSOAPIClientUtil::GetJsonStringUserInfoAndCountryCode(sso_user_info &info, char **out)
{
    try {
        // auth is never put into this text.
        Json::Value object(Json::objectValue);
        object["user_id"] = info.user_id;
        object["prefix_name"] = info.prefix_name;
        object["first_name"] = info.first_name;
        object["last_name"] = info.last_name;
        object["birth_date"] = info.birth_date;
        object["zip_code"] = info.zip_code;
        object["mobile_num"] = info.mobile_num;
        object["receive_email"] = info.receive_email;
        object["alpha2CountryCode"] = ICVConf::GetUCCodeAlpha2();
        object["userCountryCode"] = ICVConf::GetUCCodeAlpha3();
        char *previous = *out;
        bool ok = WriteJson(object, out);
        if (ok && *out != previous)
            SSO_LOG_DEVEL("*ppUserInfoBuffer: %s", *out);
        return ok;
    } catch (const std::exception &e) {
        SSO_LOGE("Exception handle by %s", e.what());
        return false;
    }
}

bool SSOAPIClientUtil::GetUserDisplayName(const std::string &key, std::string &out)
{
    std::string text;
    if (!ICVConf::GetAccountDisplayName(text))
        return false;
    Json::Value root;
    if (!m_GetJsonObjectFromString(text, root))
        return false;
    try {
        if (!root.isObject())
            return false;
        out = root.get(key, "").asString();
        return true;
    } catch (const std::exception &e) {
        SSO_LOGE("Exception handle by %s", e.what());
        return false;
    }
}

std::string SSOAPIClientUtil::GetAccountEventSubType()
{
    std::string extra;
    ICVConf::GetAccountEventExtra(extra);
    std::vector<std::string> pieces;
    SSOAPIUtil::SplitParam(extra, "|", pieces);
    if (pieces.size() < 3) {
        SSO_LOGE("vecEventExtra.size < 3");
        return "NONE";
    }
    SSO_LOGY("subEvent[%s]", pieces[2].c_str());
    return pieces[2];
}

bool SSOAPIClientUtil::IsTemporaryLogoutCondition()
{
    int status = 0;
    if (!ICVConf::GetTempLogoutStatus(status)) {
        SSO_LOGY("It seems that there is no vconf key. Return true.");
        return true;
    }
    if (status == 1) {
        SSO_LOG_END_F("status is IENUM_SA_TEMP_LOGOUT_STATUS_ON. Return true.");
        return true;
    }
    SSO_LOG_END_F("status is (%d). Return false.", status);
    return false;
}
