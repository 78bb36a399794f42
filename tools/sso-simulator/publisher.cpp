#include "publisher.h"

#include <sso_deployment.h>
#include <vconf.h>

#include <climits>

#include "sim_log.h"

namespace ssosim {

namespace {

constexpr std::size_t kMaxItemIdLength = 255; // what secure storage accepts

std::string VconfFailure(const char *key, int rc)
{
    return std::string("cannot write setting ") + key + " (vconf error " + std::to_string(rc) + ")";
}

} // namespace

const char *AccountEventName(AccountEvent event)
{
    switch (event) {
    case AccountEvent::Login:
        return "LOGIN";
    case AccountEvent::Logout:
        return "LOGOUT";
    case AccountEvent::Switch:
        return "SWITCH";
    case AccountEvent::Add:
        return "ADD";
    case AccountEvent::Remove:
        return "REMOVE";
    }
    return "UNKNOWN";
}

std::string ApplicationDataItem(const std::string &package)
{
    if (package.empty())
        throw InvalidAccountArgs("the package id must not be empty");
    for (unsigned char c : package)
        if (c < 0x20 || c == 0x7f)
            throw InvalidAccountArgs("the package id must not contain control characters");
    std::string item = std::string(kPublicDataItem) + "_" + package;
    if (item.size() > kMaxItemIdLength)
        throw InvalidAccountArgs("the package id is too long for a secure-storage item (at most " +
                                 std::to_string(kMaxItemIdLength - item.size() + package.size()) +
                                 " bytes)");
    return item;
}

Publisher::Publisher()
{
    const ss_uuid_t uuid = {{SSO_DEPLOY_SS_UUID_WORD0, SSO_DEPLOY_SS_UUID_WORD1}};
    const int rc = ss_init_credential(&credential_, SSO_DEPLOY_SS_MODULE_ID, &uuid, SS_FLAG_INIT);
    if (rc != SS_ERROR_NONE)
        throw AccountError(kErrorStore, "cannot make the secure-storage credential (error " +
                                            std::to_string(rc) + ")");
}

void Publisher::LoadVersion()
{
    int stored = 0;
    if (vconf_get_int(kKeyPublicDataVersion, &stored) == VCONF_OK && stored > 0)
        version_ = stored;
}

void Publisher::WriteItem(const std::string &item, const std::string &text)
{
    const int rc = ss_write(item.c_str(), reinterpret_cast<const unsigned char *>(text.data()),
                            text.size(), &credential_, 0);
    if (rc != SS_ERROR_NONE)
        throw AccountError(kErrorStore, "cannot write secure-storage item " + item + " (error " +
                                            std::to_string(rc) + ")");
}

void Publisher::SetInt(const char *key, int value)
{
    const int rc = vconf_set_int(key, value);
    if (rc != VCONF_OK)
        throw AccountError(kErrorStore, VconfFailure(key, rc));
}

void Publisher::SetString(const char *key, const std::string &value)
{
    const int rc = vconf_set_str(key, value.c_str());
    if (rc != VCONF_OK)
        throw AccountError(kErrorStore, VconfFailure(key, rc));
}

void Publisher::WriteDocument(const std::string &text)
{
    WriteItem(kPublicDataItem, text);
    document_ = text;
    // Readers compare versions to notice a new document; never go back to 0.
    version_ = version_ == INT_MAX ? 1 : version_ + 1;
    SetInt(kKeyPublicDataVersion, version_);
    SIM_LOGD("public data version %d (%zu bytes)", version_, text.size());
}

void Publisher::WriteEventExtra(const Account &account, AccountEvent event, std::size_t count)
{
    SetString(kKeyEventExtra, account.login_id + "|" + account.guid + "|" +
                                  AccountEventName(event) + "|" + std::to_string(count));
}

void Publisher::WritePrevious(const Account &previous)
{
    SetString(kKeyPrevLoginId, previous.login_id);
    SetString(kKeyPrevLoginGuid, previous.guid);
}

void Publisher::WriteActiveSettings(const AccountRegistry &registry, const Account &active)
{
    SetInt(kKeyAccountCount, static_cast<int>(registry.accounts().size()));
    SetString(kKeyDisplayName, JsonText(DisplayNameObject(active)));
    SetString(kKeyCountry2, active.country2);
    SetString(kKeyCountry3, active.country);
}

void Publisher::SignedIn(const AccountRegistry &registry, const Account *previous)
{
    const Account *active = registry.active();
    if (active == nullptr)
        throw std::logic_error("SignedIn without an active account");
    if (previous != nullptr)
        WritePrevious(*previous);
    WriteEventExtra(*active, previous ? AccountEvent::Switch : AccountEvent::Login,
                    registry.accounts().size());
    WriteDocument(JsonText(PublicDocument(registry)));
    WriteActiveSettings(registry, *active);
    SetInt(kKeyLoginStatus, 1);
    SIM_LOGI("signed in (%s); %zu accounts", previous ? "switch" : "login",
             registry.accounts().size());
}

void Publisher::SignedOut(const AccountRegistry &registry, const Account &previous)
{
    WritePrevious(previous);
    WriteEventExtra(previous, AccountEvent::Logout, registry.accounts().size());
    WriteDocument(JsonText(PublicDocument(registry)));
    SetString(kKeyDisplayName, "{}");
    SetInt(kKeyLoginStatus, 0);
    SIM_LOGI("signed out; %zu accounts", registry.accounts().size());
}

void Publisher::AccountsChanged(const AccountRegistry &registry, const Account &account,
                                AccountEvent event)
{
    WriteEventExtra(account, event, registry.accounts().size());
    WriteDocument(JsonText(PublicDocument(registry)));
    SetInt(kKeyAccountCount, static_cast<int>(registry.accounts().size()));
    SIM_LOGI("account %s; %zu accounts", event == AccountEvent::Add ? "added" : "removed",
             registry.accounts().size());
}

void Publisher::PublishCurrent(const AccountRegistry &registry)
{
    WriteDocument(JsonText(PublicDocument(registry)));
    if (const Account *active = registry.active()) {
        WriteActiveSettings(registry, *active);
        SetInt(kKeyLoginStatus, 1);
    } else {
        SetInt(kKeyAccountCount, static_cast<int>(registry.accounts().size()));
        SetString(kKeyDisplayName, "{}");
        SetInt(kKeyLoginStatus, 0);
    }
    SIM_LOGI("state published (%s, %zu accounts)", registry.active() ? "signed in" : "signed out",
             registry.accounts().size());
}

void Publisher::WriteRawDocument(const std::string &text)
{
    WriteDocument(text);
    SIM_LOGI("raw public data written (%zu bytes)", text.size());
}

void Publisher::SetApplicationData(const std::string &package, const std::string &guid,
                                   const std::string &key, const std::string &value)
{
    const std::string item = ApplicationDataItem(package);
    if (guid.empty())
        throw InvalidAccountArgs("the account GUID must not be empty");
    if (key.empty())
        throw InvalidAccountArgs("the key must not be empty");
    Json::Value updated = app_data_.count(package) ? app_data_[package] : Json::Value();
    updated["data"][guid][key] = value;
    WriteItem(item, JsonText(updated));
    app_data_[package] = std::move(updated);
    SIM_LOGI("application data of %s: %zu bytes", package.c_str(),
             JsonText(app_data_[package]).size());
}

void Publisher::RemoveApplicationData(const std::string &package)
{
    const std::string item = ApplicationDataItem(package);
    const int rc = ss_delete(item.c_str(), &credential_, 0);
    if (rc != SS_ERROR_NONE && rc != SS_ERROR_NO_ITEM)
        throw AccountError(kErrorStore, "cannot delete secure-storage item " + item + " (error " +
                                            std::to_string(rc) + ")");
    app_data_.erase(package);
    SIM_LOGI("application data of %s removed", package.c_str());
}

std::string Publisher::ApplicationValue(const std::string &package, const std::string &guid,
                                        const std::string &key) const
{
    auto it = app_data_.find(package);
    if (it == app_data_.end())
        return "";
    const Json::Value *v = it->second["data"].find(guid.data(), guid.data() + guid.size());
    if (v == nullptr || !v->isObject())
        return "";
    const Json::Value *value = v->find(key.data(), key.data() + key.size());
    return value != nullptr && value->isString() ? value->asString() : "";
}

} // namespace ssosim
