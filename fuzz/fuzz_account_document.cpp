// The public account document as the SSO service publishes it: written to
// secure storage ("SSO_PUBLICDATA_ID"), announced by a version bump, then
// loaded by CSSOSSData into the account record and read back through the
// account helpers, the JSON views and the exported getters. The same text is
// also offered as the display-name object ("db/sso/display_name").
#include <json/json.h>
#include <sso_api/sso_api.h>
#include <vconf.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "SSOAPIClientUtil.h"
#include "account_documents.h"
#include "fuzz_support.h"
#include "sso_ss_data_storage.h"

namespace {

// A C text handed out by the library: NUL-terminated, and the record's value
// up to its first NUL byte.
void CheckCopy(const char *what, const char *text, const std::string &expected)
{
    if (strcmp(text, expected.c_str()) != 0)
        ssofuzz::Fail(what, "differs from the record");
}

// A fixed field of sso_login_info_s: terminated inside the field, at most
// size - 2 characters, a prefix of the record's value.
template <size_t N> void CheckField(const char *what, const char (&field)[N], const std::string &v)
{
    size_t length = strnlen(field, N);
    if (length > N - 2)
        ssofuzz::Fail(what, "is longer than its field allows");
    if (strncmp(field, v.c_str(), length) != 0)
        ssofuzz::Fail(what, "is not a prefix of the record's value");
}

void CheckLoginInfoJson(const sso_accounts_info &info)
{
    sso_accounts_info copy = info;
    char *json = nullptr;
    if (!SSOAPIClientUtil::GetJsonStringLoginInfo(copy, &json) || json == nullptr)
        ssofuzz::Fail("GetJsonStringLoginInfo failed on a loaded record");
    std::string text = json;
    free(json);
    Json::Value root;
    if (!SSOAPIClientUtil::m_GetJsonObjectFromString(text, root) || !root.isObject())
        ssofuzz::Fail("the login-info text does not parse", text);
    if (root["loginid"].asString() != info.strLoginID ||
        root["guid"].asString() != info.strLoginGUID || root["password"].asString() != "" ||
        root["userDeviceID"].asString() != info.userDeviceID)
        ssofuzz::Fail("the login-info text does not carry the record", text);
}

void ExerciseExportedGetters(const sso_accounts_info &info, bool loaded)
{
    char *text = nullptr;
    if (sso_get_guid(&text) == 0) {
        CheckCopy("sso_get_guid", text, info.strLoginGUID);
        free(text);
    }
    text = nullptr;
    if (sso_get_login_vd_uid(&text) == 0) {
        CheckCopy("sso_get_login_vd_uid", text, info.strLoginUID);
        free(text);
    }
    text = nullptr;
    if (sso_get_auth_token(&text) == 0) {
        CheckCopy("sso_get_auth_token", text, info.strAccountAuth);
        free(text);
    }
    text = nullptr;
    if (sso_get_device_id(&text) == 0) {
        CheckCopy("sso_get_device_id", text, info.userDeviceID);
        free(text);
    }
    sso_login_info_s login;
    memset(&login, 0, sizeof(login));
    if (sso_get_login_info(&login) == 0 && loaded) {
        CheckField("login_id", login.login_id, info.strLoginID);
        CheckField("password", login.password, std::string());
        CheckField("guid", login.guid, info.strLoginGUID);
        CheckField("uid", login.uid, info.strLoginUID);
        CheckField("user_icon_path", login.user_icon_path, info.strUserIconPath);
    }
    text = nullptr;
    if (sso_get_login_user_id(&text) == 0)
        free(text);
    text = nullptr;
    sso_get_login_json_info(&text);
    free(text);
    text = nullptr;
    sso_get_accounts(&text);
    free(text);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    ssofuzz::SetUpPlatform();
    // Signed in, so that the exported getters go as far as the record.
    ssotest::SetLoginState(1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string document = ssofuzz::AsText(data, size);
    ssotest::PublishDocument(document);
    int version = 0;
    vconf_get_int("memory/sso/public_data_ver", &version);

    CSSOSSData *cache = SSOAPISingleton<CSSOSSData>::GetInstance();
    sso_accounts_info info = cache->GetAccountsInfo();
    bool loaded = cache->cachedVersion() == version;
    if (loaded) {
        if (info.accountsInfoJsonString != document)
            ssofuzz::Fail("the record does not hold the document it was loaded from");
    } else {
        // A document that did not load leaves no account behind and is read
        // again next time.
        if (cache->cachedVersion() != CSSOSSData::kVersionNeverLoaded)
            ssofuzz::Fail("a failed load kept a version");
        if (!info.strLoginID.empty() || !info.strLoginGUID.empty() ||
            !info.strAccountAuth.empty() || info.numOfAccounts != 0)
            ssofuzz::Fail("a failed load left account values behind");
    }

    std::string text;
    bool read = cache->GetAccountData(text);
    if (read != loaded || (read && text != document))
        ssofuzz::Fail("GetAccountData disagrees with GetAccountsInfo");

    if (loaded) {
        if (SSOAPIClientUtil::GetNumberOfAccount() != info.numOfAccounts)
            ssofuzz::Fail("GetNumberOfAccount disagrees with the record");
        int add = SSOAPIClientUtil::IsAddAccountAvailable(info.strLoginID.c_str());
        if (add != 0 && add != -100)
            ssofuzz::Fail("IsAddAccountAvailable answered an unknown value");
        if (info.numOfAccounts < 6 && add != 0)
            ssofuzz::Fail("an account was refused below the limit");
        CheckLoginInfoJson(info);
    }
    SSOAPIClientUtil::m_IsAccountIdRegistered(document, info.numOfAccounts, "user1@example.com");
    SSOAPIClientUtil::IsAddAccountAvailable(nullptr);

    ExerciseExportedGetters(info, loaded);

    // The display-name object is JSON of the service's as well.
    std::string displayName;
    vconf_set_str("db/sso/display_name", document.c_str());
    SSOAPIClientUtil::GetUserDisplayName(info.strLoginGUID, displayName);
    return 0;
}
