// CSSOSSData: the process-wide cache of the public account document that the
// SSO service keeps in secure storage ("SSO_PUBLICDATA_ID") and announces by
// bumping "memory/sso/public_data_ver". The document is read again only when
// that version differs from the one last loaded. Also reads per-application
// data items ("SSO_PUBLICDATA_ID_<package id>").
#pragma once

#include <pthread.h>
#include <ss_manager.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "SSOAPISingleton.h"
#include "sso_accounts_info.h"

#define SSO_PUBLIC_DATA_ITEM_ID "SSO_PUBLICDATA_ID"

// Secure-storage flags of the two reads: the public document, and an
// application's data scoped to an account.
#define SSO_SS_FLAG_PUBLIC_DATA 33         // 0x21
#define SSO_SS_FLAG_APPLICATION_DATA 65569 // 0x10021

// One account's key/value data within an application's item.
using UniAccountDataPair = std::pair<std::string, std::map<std::string, std::string>>;

class CSSOSSData : public SSOAPISingleton<CSSOSSData> {
public:
    // Versions with a meaning of their own.
    static constexpr int kVersionNeverLoaded = -2;
    static constexpr int kVersionUnreadable = -9999;

    // Status values of the private steps.
    enum Status {
        kStatusOk = 0,
        kStatusReadFailed = 1,
        kStatusParseFailed = 3,
        kStatusException = 4,
        kStatusNotAlive = 5,
    };

    CSSOSSData();
    ~CSSOSSData() override;

    CSSOSSData(const CSSOSSData &) = delete;
    CSSOSSData &operator=(const CSSOSSData &) = delete;

    void PostCreateInstance() override;

    // The active account, refreshed first when the version changed. Under the
    // write lock.
    sso_accounts_info GetAccountsInfo();
    // The whole cached document text.
    bool GetAccountData(std::string &out);
    // One value of an application's data for one account. Under the write
    // lock.
    bool ExtractApplicationData(const std::string &packageId, const std::string &guid,
                                const std::string &key, std::string &out);

    // Diagnostics (only with the debug marker); nothing in the library calls it.
    void m_PrintCredentialInfo(std::string first, std::string second);

    // For tests: the version now cached.
    int cachedVersion() const { return m_version; }

private:
    void m_InitVersion();
    int m_GetVersionFromVconf();
    bool m_IsVersionChanged(int &current);
    void m_UpdateVersion(int version);
    int m_GetPublicAccountData(std::string &out);
    int m_UpdateAccountsInfo(std::string text);
    int m_SyncAccountsInfo();
    void m_InitCurrentAccountInfo();
    std::string m_GetApplicationDataId(const std::string &packageId);
    bool m_GetApplicationDataByGuid(const std::string &packageId, const std::string &guid,
                                    std::string &out);
    bool m_ParseAccountApplicationData(std::string &data, std::vector<UniAccountDataPair> &out);
    bool m_ExtractApplicationDataByGuidAndKey(std::vector<UniAccountDataPair> &pairs,
                                              const std::string &guid, const std::string &key,
                                              std::string &out);
    void m_DumpInPieces(const char *label, const std::string &text);

    sso_accounts_info m_accountsInfo;    // guarded by m_lock
    pthread_rwlock_t m_lock;             // taken for writing only, through SSOWriteLock
    int m_version = kVersionNeverLoaded; // guarded by m_lock
    ss_credential_t m_credential;        // set once, in the constructor
};
