// Public account documents for tests: built the way the SSO service writes
// them, stored in secure storage under the deployment credential (the
// storage service starts with the first write), announced by bumping the
// data version.
#pragma once

#include <json/json.h>
#include <ss_manager.h>
#include <sso_deployment.h>
#include <vconf.h>

#include <string>
#include <vector>

#include "sso_test_harness.h"

namespace ssotest {

struct TestAccount {
    std::string id;
    std::string guid;
    std::string uid;
    std::string icon;
    std::string auth;
    std::string pinSet = "N";
    std::string country3 = "KOR";
    std::string country2 = "KR";
    std::string displayName;
    std::string deviceId;
};

// Account n with distinct, recognisable values.
inline TestAccount MakeAccount(int n)
{
    std::string s = std::to_string(n);
    TestAccount a;
    a.id = "user" + s + "@example.com";
    a.guid = "GUID" + std::string(28, static_cast<char>('A' + n % 26)) + s;
    a.uid = "UID-" + s;
    a.icon = "/opt/usr/share/icons/user" + s + ".png";
    a.auth = "UT-secret-token-" + s;
    a.displayName = "User " + s;
    a.deviceId = "DEVICE-" + s;
    return a;
}

inline Json::Value AccountJson(const TestAccount &a)
{
    Json::Value v(Json::objectValue);
    v["account_id"] = a.id;
    v["account_guid"] = a.guid;
    v["account_uid"] = a.uid;
    v["account_icon_path"] = a.icon;
    v["account_auth"] = a.auth;
    v["user_pin_set"] = a.pinSet;
    v["userCountryCode"] = a.country3;
    v["alpha2CountryCode"] = a.country2;
    v["displayName"] = a.displayName;
    v["userDeviceID"] = a.deviceId;
    return v;
}

// The document for these accounts with the given one active (-1: nobody).
inline std::string Document(const std::vector<TestAccount> &accounts, int active)
{
    Json::Value root(Json::objectValue);
    root["account_count"] = static_cast<int>(accounts.size());
    if (active >= 0)
        root["active_account"] = AccountJson(accounts[static_cast<size_t>(active)]);
    Json::Value list(Json::arrayValue);
    for (const auto &a : accounts)
        list.append(AccountJson(a));
    root["list"] = list;
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, root);
}

inline ss_credential_t DeploymentCredential()
{
    ss_credential_t cred;
    ss_uuid_t uuid = {{SSO_DEPLOY_SS_UUID_WORD0, SSO_DEPLOY_SS_UUID_WORD1}};
    ss_init_credential(&cred, SSO_DEPLOY_SS_MODULE_ID, &uuid, SS_FLAG_INIT);
    return cred;
}

inline int WriteItem(const std::string &item, const std::string &text)
{
    EnsureStorageService();
    ss_credential_t cred = DeploymentCredential();
    return ss_write(item.c_str(), reinterpret_cast<const unsigned char *>(text.data()), text.size(),
                    &cred, 0);
}

// Bumps the data version as the service does after a write: the library
// reads the document again at its next call.
inline void AnnouncePublicData(int step = 1)
{
    int version = 0;
    if (vconf_get_int("memory/sso/public_data_ver", &version) != 0)
        version = 0;
    vconf_set_int("memory/sso/public_data_ver", version + step);
}

// Writes the document and bumps the data version, as the service does.
inline void PublishDocument(const std::string &text)
{
    WriteItem("SSO_PUBLICDATA_ID", text);
    AnnouncePublicData();
}

inline void SetLoginState(int state)
{
    vconf_set_int("db/sso/login_status", state);
}

// Signs the given account in: document, version, login state.
inline void SignIn(const std::vector<TestAccount> &accounts, int active)
{
    PublishDocument(Document(accounts, active));
    SetLoginState(active >= 0 ? 1 : 0);
}

} // namespace ssotest
