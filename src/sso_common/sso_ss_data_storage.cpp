#include "sso_ss_data_storage.h"

#include "SSOAPIError.h"

#include <json/json.h>
#include <sso_deployment.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>

#include "ICVConf.h"
#include "SSOAPIUtil.h"
#include "sso_lock.h"
#include "sso_log.h"

namespace {

// Reads a member as text; a missing member reads as "".
std::string Member(const Json::Value &object, const char *name)
{
    return object.get(name, "").asString();
}

} // namespace

CSSOSSData::CSSOSSData()
{
    SSO_LOG_START();
    ss_uuid_t uuid = {{SSO_DEPLOY_SS_UUID_WORD0, SSO_DEPLOY_SS_UUID_WORD1}};
    memset(&m_credential, 0, sizeof(m_credential));
    int retInitCred = ss_init_credential(&m_credential, SSO_DEPLOY_SS_MODULE_ID, &uuid, 1);
    int retInitRWLock = pthread_rwlock_init(&m_lock, nullptr);
    SSO_LOGG("retInitCred(%d) retInitRWLock(%d)", retInitCred, retInitRWLock);
}

CSSOSSData::~CSSOSSData()
{
    SSO_LOG_START();
    pthread_rwlock_destroy(&m_lock);
    SSO_LOG_END();
}

void CSSOSSData::PostCreateInstance()
{
    SSO_LOG_START();
    int ret = ss_validate(SSO_PUBLIC_DATA_ITEM_ID, &m_credential, SSO_SS_FLAG_PUBLIC_DATA);
    SSO_LOGY("ss_validate() return [%d]", ret);
    SSO_LOG_END();
}

void CSSOSSData::m_InitVersion()
{
    m_version = kVersionNeverLoaded;
}

int CSSOSSData::m_GetVersionFromVconf()
{
    int version = 0;
    if (!ICVConf::GetPublicDataVer(version)) {
        SSO_LOGE("Failed to get VCONF_PUBLIC_DATA_VER. Assume that version is changed.");
        version = kVersionUnreadable;
    }
    return version;
}

bool CSSOSSData::m_IsVersionChanged(int &current)
{
    current = m_GetVersionFromVconf();
    SSO_LOGY("m_version[%d] vs. currentVersion(vconf)[%d]", m_version, current);
    if (current == m_version) {
        SSO_LOGY("version is not changed.");
        return false;
    }
    SSO_LOGY("version is changed.");
    return true;
}

void CSSOSSData::m_UpdateVersion(int version)
{
    SSO_LOG_START_F("Update m_version to [%d]", version);
    // While the key stays unreadable the document is loaded once and then
    // served from the cache (-9999 against -9999) until the key reappears.
    if (version == kVersionUnreadable)
        version = m_GetVersionFromVconf();
    m_version = version;
}

void CSSOSSData::m_DumpInPieces(const char *label, const std::string &text)
{
    if (!sso_log_detail::IsDevelMode())
        return;
    char buffer[4096];
    snprintf(buffer, sizeof(buffer), "%s [%s]", label, text.c_str());
    SSO_LOGE("%s: %s[%d]", SSO_FILE_NAME, __func__, __LINE__);
    const size_t kPiece = 850;
    size_t length = strlen(buffer);
    // Every piece is marked: each is a line of its own in the log.
    for (size_t offset = 0; offset < length; offset += kPiece)
        SSO_LOGE("[DEVEL] %.*s", static_cast<int>(kPiece), buffer + offset);
    SSO_LOGE("\n");
}

int CSSOSSData::m_GetPublicAccountData(std::string &out)
{
    SSO_LOG_START();
    out.clear();
    unsigned char *data = nullptr;
    size_t length = 0;
    int ret = ss_read(&data, &length, nullptr, nullptr, SSO_PUBLIC_DATA_ITEM_ID, &m_credential,
                      SSO_SS_FLAG_PUBLIC_DATA);
    if (ret != 0) {
        SSO_LOGE("Failed to read data. error(%d)", ret);
        return kStatusReadFailed;
    }
    if (data == nullptr) {
        SSO_LOGE("pData is null");
        return kStatusReadFailed;
    }
    out.assign(reinterpret_cast<const char *>(data), length);
    ss_free_buffer(data);

    m_DumpInPieces("accountData", out);
    SSO_LOGY("accountData length [%zu]", out.size());
    if (!SSOAPIUtil::IsClientAlive()) {
        SSO_LOGE("Client is not Alive !");
        return kStatusNotAlive;
    }
    SSO_LOG_END();
    return kStatusOk;
}

int CSSOSSData::m_UpdateAccountsInfo(std::string text)
{
    SSO_LOG_START();
    if (!SSOAPIUtil::IsClientAlive()) {
        SSO_LOGE("Client is not Alive !");
        return kStatusNotAlive;
    }
    try {
        Json::CharReaderBuilder builder;
        std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
        Json::Value root;
        std::string errors;
        if (!reader->parse(text.data(), text.data() + text.size(), &root, &errors)) {
            SSO_LOGE("Failed to parse secure data JSON. err(%s)", errors.c_str());
            return kStatusParseFailed;
        }
        // Everything is read before the record changes: a failed read leaves
        // the record as it was.
        int count = root.get("account_count", 0).asInt();
        sso_accounts_info next;
        next.accountsInfoJsonString = text;
        next.numOfAccounts = count;
        if (root.isMember("active_account")) {
            const Json::Value &active = root["active_account"];
            next.strLoginID = Member(active, "account_id");
            next.strLoginGUID = Member(active, "account_guid");
            next.strLoginUID = Member(active, "account_uid");
            next.strUserIconPath = Member(active, "account_icon_path");
            next.strAccountAuth = Member(active, "account_auth");
            next.strUserPinSet = Member(active, "user_pin_set");
            next.userCountryCode = Member(active, "userCountryCode");
            next.alpha2CountryCode = Member(active, "alpha2CountryCode");
            next.displayName = Member(active, "displayName");
            next.userDeviceID = Member(active, "userDeviceID");
            m_accountsInfo = next;
            SSO_LOG_DEVEL("guid[%s] displayName[%s] userDeviceID[%s]",
                          m_accountsInfo.strLoginGUID.c_str(), m_accountsInfo.displayName.c_str(),
                          m_accountsInfo.userDeviceID.c_str());
            return kStatusOk;
        }
        // Nobody is signed in: the account fields go, the document and the
        // number of registered accounts stay.
        SSO_LOG_END_F("No active_account(SSO_NOT_LOGIN). Clear previous active account info.");
        m_accountsInfo = next;
        return kStatusOk;
    } catch (const std::exception &e) {
        SSO_LOGE("Exception handle by %s", e.what());
        return kStatusException;
    }
}

int CSSOSSData::m_SyncAccountsInfo()
{
    SSO_LOG_START();
    int current = 0;
    if (!m_IsVersionChanged(current)) {
        SSO_LOG_END();
        return kStatusOk;
    }
    std::string text;
    int ret = m_GetPublicAccountData(text);
    if (ret != kStatusOk) {
        SSO_LOGE("Failed to m_GetPublicAccountData(). ret(%d)", ret);
        return ret;
    }
    ret = m_UpdateAccountsInfo(text);
    if (ret != kStatusOk) {
        SSO_LOGE("Failed to m_UpdateAccountsInfo(). ret(%d)", ret);
        return ret;
    }
    // Committed only after a good parse: a failed load is retried next time.
    m_UpdateVersion(current);
    SSO_LOG_END();
    return kStatusOk;
}

void CSSOSSData::m_InitCurrentAccountInfo()
{
    sso_accounts_info cleared;
    cleared.accountsInfoJsonString = m_accountsInfo.accountsInfoJsonString;
    m_accountsInfo = cleared;
}

sso_accounts_info CSSOSSData::GetAccountsInfo()
{
    SSO_LOG_START();
    SSOWriteLock lock(&m_lock);
    int ret = m_SyncAccountsInfo();
    if (ret == kStatusNotAlive) {
        SSO_LOGE("Client is not Alive !");
        SSOAPIError::Set(SSO_ERROR_UNLOADING);
        return sso_accounts_info();
    }
    if (ret != kStatusOk) {
        SSO_LOGE("Failed to m_SyncAccountsInfo. Clear m_accountsInfo. ret(%d)", ret);
        SSOAPIError::Set(SSO_ERROR_STORAGE_UNREADABLE);
        m_InitCurrentAccountInfo();
        m_InitVersion();
    }
    SSO_LOG_END();
    return m_accountsInfo;
}

bool CSSOSSData::GetAccountData(std::string &out)
{
    SSO_LOG_START();
    // Taken like GetAccountsInfo does: the sync writes the cache.
    SSOWriteLock lock(&m_lock);
    int ret = m_SyncAccountsInfo();
    bool ok = ret == kStatusOk;
    if (ok)
        out = m_accountsInfo.accountsInfoJsonString;
    else
        out.clear();
    SSO_LOG_END_F("ret[%d] bRet[%d]", ret, ok ? 1 : 0);
    return ok;
}

std::string CSSOSSData::m_GetApplicationDataId(const std::string &packageId)
{
    std::string id = std::string(SSO_PUBLIC_DATA_ITEM_ID) + "_" + packageId;
    SSO_LOGY("applicationDataId is [%s]", id.c_str());
    return id;
}

bool CSSOSSData::m_GetApplicationDataByGuid(const std::string &packageId, const std::string &guid,
                                            std::string &out)
{
    if (packageId.empty() || guid.empty()) {
        SSO_LOGE("packageId or guid is empty");
        return false;
    }
    std::string itemId = m_GetApplicationDataId(packageId);
    unsigned char *data = nullptr;
    size_t length = 0;
    int ret = ss_read(&data, &length, nullptr, guid.c_str(), itemId.c_str(), &m_credential,
                      SSO_SS_FLAG_APPLICATION_DATA);
    if (ret != 0) {
        SSO_LOGE("Failed to read data. error(%d)", ret);
        return false;
    }
    if (data == nullptr) {
        SSO_LOGE("pData is null");
        return false;
    }
    out.assign(reinterpret_cast<const char *>(data), length);
    ss_free_buffer(data);
    SSO_LOGY("applicationData length[%zu] dataSize[%zu]", out.size(), length);
    return true;
}

bool CSSOSSData::m_ParseAccountApplicationData(std::string &data,
                                               std::vector<UniAccountDataPair> &out)
{
    try {
        Json::CharReaderBuilder builder;
        std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
        Json::Value root;
        std::string errors;
        if (!reader->parse(data.data(), data.data() + data.size(), &root, &errors)) {
            SSO_LOGE("Exception : %s", errors.c_str());
            return false;
        }
        // No "data" (or none for any account) parses into no pairs: the look-up
        // of the account's GUID is what then fails.
        if (!root.isObject() || !root.isMember("data")) {
            SSO_LOGE("No Data");
            return true;
        }
        const Json::Value &byGuid = root["data"];
        for (const std::string &guid : byGuid.getMemberNames()) {
            UniAccountDataPair pair;
            pair.first = guid;
            const Json::Value &values = byGuid[guid];
            for (const std::string &key : values.getMemberNames())
                pair.second[key] = values.get(key, "").asString();
            SSO_LOG_DEVEL("guid(%s) has data key/value", guid.c_str());
            out.push_back(std::move(pair));
        }
        return true;
    } catch (const std::exception &e) {
        SSO_LOGE("Exception : %s", e.what());
        return false;
    }
}

bool CSSOSSData::m_ExtractApplicationDataByGuidAndKey(std::vector<UniAccountDataPair> &pairs,
                                                      const std::string &guid,
                                                      const std::string &key, std::string &out)
{
    for (const auto &pair : pairs) {
        if (pair.first != guid)
            continue;
        auto it = pair.second.find(key);
        if (it == pair.second.end()) {
            SSO_LOGE("Failed to find data by key [%s] : empty string", key.c_str());
            return false;
        }
        out = it->second;
        bool devel = sso_log_detail::IsDevelMode();
        SSO_LOGY("%sguid[%s] key[%s] extractedAppData size[%d]", devel ? "[DEVEL] " : "",
                 devel ? guid.c_str() : "<hidden>", key.c_str(), static_cast<int>(out.size()));
        return true;
    }
    bool devel = sso_log_detail::IsDevelMode();
    SSO_LOGE("%sFailed to find data by guid [%s] : empty string", devel ? "[DEVEL] " : "",
             devel ? guid.c_str() : "<hidden>");
    return false;
}

bool CSSOSSData::ExtractApplicationData(const std::string &packageId, const std::string &guid,
                                        const std::string &key, std::string &out)
{
    SSO_LOG_START();
    SSOWriteLock lock(&m_lock);
    std::string data;
    if (!m_GetApplicationDataByGuid(packageId, guid, data)) {
        SSO_LOGE("Failed to m_GetApplicationDataByGuid()");
        return sso_private_fail(SSO_ERROR_STORAGE_UNREADABLE, false);
    }
    std::vector<UniAccountDataPair> pairs;
    if (!m_ParseAccountApplicationData(data, pairs)) {
        SSO_LOGE("Failed to m_ParseAccountApplicationData()");
        return sso_private_fail(SSO_ERROR_STORAGE_UNREADABLE, false);
    }
    std::string value;
    if (!m_ExtractApplicationDataByGuidAndKey(pairs, guid, key, value)) {
        bool devel = sso_log_detail::IsDevelMode();
        SSO_LOGE("%sFailed to m_ExtractApplicationDataByGuidAndKey(). guid[%s] key[%s]",
                 devel ? "[DEVEL] " : "", devel ? guid.c_str() : "<hidden>", key.c_str());
        return sso_private_fail(SSO_ERROR_NOT_FOUND, false);
    }
    m_DumpInPieces("extractedAppData", value);
    out = value;
    SSO_LOG_END();
    return true;
}

void CSSOSSData::m_PrintCredentialInfo(std::string first, std::string second)
{
    if (!sso_log_detail::IsDevelMode())
        return;
    SSO_LOGY("=== %s : %s ===", first.c_str(), second.c_str());
    SSO_LOGY("module_id: 0x%x", m_credential.module_id);
    SSO_LOGY("version.major: %u", m_credential.version.major);
    SSO_LOGY("version.minor: %u", m_credential.version.minor);
    SSO_LOGG("[DEVEL] UUID[0]: 0x%llx", static_cast<unsigned long long>(m_credential.uuid.word[0]));
    SSO_LOGY("==============================================");
}
