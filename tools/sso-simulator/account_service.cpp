#include "account_service.h"

#include <cstdlib>

namespace ssosim {

AccountService::AccountService(std::optional<std::uint32_t> seed) : ids_(seed), registry_(ids_) {}

void AccountService::Start()
{
    publisher_.LoadVersion();
    try {
        publisher_.PublishCurrent(registry_);
    } catch (const AccountError &e) {
        const char *root = std::getenv("SSO_PLATFORM_ROOT");
        throw AccountError(e.error_name,
                           std::string("cannot publish the account state under ") +
                               (root && *root ? root : "the default platform root") +
                               " (set SSO_PLATFORM_ROOT to a writable directory): " + e.what());
    }
}

void AccountService::AddDemoAccounts()
{
    struct Demo {
        const char *login_id, *first, *last, *country, *pin, *icon, *password, *birth_date, *mobile,
            *family_group;
    };
    // Plausible people on reserved example domains: nothing here can be
    // mistaken for a real account. The first two share a family group; the
    // phone numbers are from ranges reserved for fiction.
    static const Demo kDemo[] = {
        {"jamie.rivera@example.com", "Jamie", "Rivera", "USA", "N", "/opt/sso-demo/icons/jamie.png",
         "demo-password-1", "19880412", "+1-202-555-0143", "FG-DEMO-HOUSEHOLD"},
        {"seoyeon.park@example.com", "Seoyeon", "Park", "KOR", "Y",
         "/opt/sso-demo/icons/seoyeon.png", "demo-password-2", "19930927", "+82-10-5550-0192",
         "FG-DEMO-HOUSEHOLD"},
        {"lukas.weber@example.org", "Lukas", "Weber", "DEU", "N", "/opt/sso-demo/icons/lukas.png",
         "demo-password-3", "19751103", "", nullptr},
    };
    for (const auto &d : kDemo) {
        AccountFields f;
        f.login_id = d.login_id;
        f.first_name = d.first;
        f.last_name = d.last;
        f.country = d.country;
        f.user_pin_set = d.pin;
        f.icon_path = d.icon;
        f.password = d.password;
        f.birth_date = d.birth_date;
        f.mobile_num = d.mobile;
        if (d.family_group != nullptr)
            f.family_group = d.family_group;
        Add(f);
    }
}

std::string AccountService::Add(const AccountFields &fields)
{
    const Account &added = registry_.Add(fields);
    publisher_.AccountsChanged(registry_, added, AccountEvent::Add);
    return added.guid;
}

void AccountService::Remove(const std::string &login_id_or_guid)
{
    const Account &found = registry_.Find(login_id_or_guid);
    if (registry_.active() == &found) {
        const Account previous = found;
        registry_.SignOut();
        publisher_.SignedOut(registry_, previous);
    }
    const Account removed = registry_.Remove(login_id_or_guid);
    publisher_.AccountsChanged(registry_, removed, AccountEvent::Remove);
}

void AccountService::SignIn(const std::string &login_id_or_guid)
{
    std::optional<Account> previous;
    if (const Account *active = registry_.active())
        previous = *active;
    registry_.SignIn(login_id_or_guid);
    publisher_.SignedIn(registry_, previous ? &*previous : nullptr);
}

void AccountService::SignOut()
{
    const Account *active = registry_.active();
    if (active == nullptr)
        throw AccountError(kErrorNotSignedIn, "nobody is signed in");
    const Account previous = *active;
    registry_.SignOut();
    publisher_.SignedOut(registry_, previous);
}

std::string AccountService::AccountsJson() const
{
    Json::Value v = InternalAccounts(registry_);
    v["version"] = publisher_.version();
    return JsonText(v);
}

std::string AccountService::StateJson() const
{
    const Account *active = registry_.active();
    Json::Value v(Json::objectValue);
    v["signed_in"] = active ? active->guid : "";
    v["version"] = publisher_.version();
    return JsonText(v);
}

std::string AccountService::ExtractedValue(const std::string &package, const std::string &key) const
{
    const Account *active = registry_.active();
    if (active == nullptr)
        return "";
    return publisher_.ApplicationValue(package, active->guid, key);
}

} // namespace ssosim
