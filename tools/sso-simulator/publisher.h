// The "publisher" layer: writes the account state where readers on the
// device look for it, in the order they rely on. The public document and the
// per-application data go to secure storage (under the deployment
// credential), the rest to the settings store. Subscribers react to
// db/sso/login_status, so it is always written last: when it changes,
// everything it announces is already in place.
#pragma once

#include <json/value.h>
#include <ss_manager.h>

#include <map>
#include <string>

#include "accounts.h"

namespace ssosim {

// Secure-storage items.
inline constexpr const char *kPublicDataItem = "SSO_PUBLICDATA_ID";
// Settings keys.
inline constexpr const char *kKeyPublicDataVersion = "memory/sso/public_data_ver";
inline constexpr const char *kKeyLoginStatus = "db/sso/login_status";
inline constexpr const char *kKeyAccountCount = "db/sso/account_count";
inline constexpr const char *kKeyDisplayName = "db/sso/display_name";
inline constexpr const char *kKeyCountry2 = "db/sso/sa_user_country_code";
inline constexpr const char *kKeyCountry3 = "db/sso/sa_user_country_code_3alpha";
inline constexpr const char *kKeyPrevLoginId = "memory/sso/prev_login_id";
inline constexpr const char *kKeyPrevLoginGuid = "memory/sso/prev_login_guid";
inline constexpr const char *kKeyEventExtra = "memory/sso/event_extra";

// The third piece of event_extra.
enum class AccountEvent { Login, Logout, Switch, Add, Remove };
const char *AccountEventName(AccountEvent event);

// "SSO_PUBLICDATA_ID_<package id>". Throws AccountError (InvalidArgs) for a
// package id that cannot name an item.
std::string ApplicationDataItem(const std::string &package);

// Every write throws AccountError (kErrorStore) when the store refuses it.
class Publisher {
public:
    Publisher();
    Publisher(const Publisher &) = delete;
    Publisher &operator=(const Publisher &) = delete;

    // Continues the version where a previous run left it, so a reader that
    // remembers the last version it saw never misses the first write.
    void LoadVersion();

    // registry already has the new active account; previous is the one that
    // was signed in before (a switch), or nullptr (a login).
    void SignedIn(const AccountRegistry &registry, const Account *previous);
    // registry already has nobody signed in; previous was.
    void SignedOut(const AccountRegistry &registry, const Account &previous);
    // account was just added to or removed from registry.
    void AccountsChanged(const AccountRegistry &registry, const Account &account,
                         AccountEvent event);
    // Everything that describes the current state, without an event.
    void PublishCurrent(const AccountRegistry &registry);
    // text as the document, verbatim.
    void WriteRawDocument(const std::string &text);

    // The per-application data, kept here and written through on change.
    void SetApplicationData(const std::string &package, const std::string &guid,
                            const std::string &key, const std::string &value);
    // Forgets (and deletes the item of) a package; nothing to forget is fine.
    void RemoveApplicationData(const std::string &package);
    // The value, or "" when there is none.
    std::string ApplicationValue(const std::string &package, const std::string &guid,
                                 const std::string &key) const;

    int version() const { return version_; }
    // The document text last written.
    const std::string &document() const { return document_; }

private:
    void WriteDocument(const std::string &text); // the item, then the version
    void WriteItem(const std::string &item, const std::string &text);
    void SetInt(const char *key, int value);
    void SetString(const char *key, const std::string &value);
    void WriteEventExtra(const Account &account, AccountEvent event, std::size_t count);
    void WritePrevious(const Account &previous);
    void WriteActiveSettings(const AccountRegistry &registry, const Account &active);

    ss_credential_t credential_;
    int version_ = 0;
    std::string document_;
    std::map<std::string, Json::Value> app_data_; // package -> {"data": {...}}
};

} // namespace ssosim
