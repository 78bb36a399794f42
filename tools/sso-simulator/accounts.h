// The "accounts" layer: the accounts registered on the simulated device and
// who is signed in. Pure state: nothing here touches the settings store or
// secure storage (the publisher does), so every rule (limits, uniqueness,
// what sign-in and sign-out mean) is decided before anything is written.
#pragma once

#include <gio/gio.h>
#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "result_codes.h"

namespace ssosim {

// The error names of refused account operations live in result_codes.h; a
// write the store refused answers this one.
inline constexpr const char *kErrorStore = "org.orvex.tv.ssoservice.simulator.Error.Store";

// A refused account operation; error_name is one of the kError* names, or
// org.freedesktop.DBus.Error.InvalidArgs for malformed input.
struct AccountError : std::runtime_error {
    AccountError(std::string name, const std::string &message)
        : std::runtime_error(message), error_name(std::move(name))
    {
    }
    std::string error_name;
};

// Malformed account input (unknown key, wrong type, bad country code...).
AccountError InvalidAccountArgs(const std::string &message);

// Login ids, GUIDs and group ids: not empty, at most 255 bytes, no '|' (they
// travel in "id|guid|..." strings) and no control characters. Throws
// AccountError (InvalidArgs) naming what.
void CheckIdentifier(const char *what, const std::string &value);

struct Account {
    std::string login_id;     // account_id
    std::string guid;         // account_guid
    std::string uid;          // account_uid
    std::string icon_path;    // account_icon_path
    std::string auth;         // account_auth
    std::string user_pin_set; // "Y" or "N"
    std::string country;      // userCountryCode, three letters
    std::string country2;     // alpha2CountryCode, two letters
    std::string display_name;
    std::string first_name;
    std::string last_name;
    std::string device_id; // userDeviceID
    std::string password;  // for ID/password requests; never published
    // Profile, answered by the profile requests; never published.
    std::string prefix_name;
    std::string birth_date; // YYYYMMDD, or "" when unknown
    std::string zip_code;
    std::string mobile_num;
    std::string receive_email; // "Y" or "N"
    // Accounts with the same id share a family group; the first registered
    // member owns it.
    std::string family_group;
};

// What a caller asked for; unset fields are generated or defaulted.
struct AccountFields {
    std::optional<std::string> login_id, guid, uid, icon_path, auth, user_pin_set, country,
        country2, display_name, first_name, last_name, device_id, password, prefix_name, birth_date,
        zip_code, mobile_num, receive_email, family_group;
};

// Reads the a{sv} of AddAccount (every value a string). Throws AccountError.
AccountFields AccountFieldsFromVariant(GVariant *dict);
// The keys AccountFieldsFromVariant knows, for messages and help.
const char *AccountFieldKeys();

// Generated identifiers. Seeded, the sequence is the same on every run, so a
// test that passes no GUID still knows the one it gets.
class IdGenerator {
public:
    // Without a seed the values differ on every run.
    explicit IdGenerator(std::optional<std::uint32_t> seed = std::nullopt);
    ~IdGenerator();
    IdGenerator(const IdGenerator &) = delete;
    IdGenerator &operator=(const IdGenerator &) = delete;

    std::string Hex(std::size_t digits, bool upper);
    std::string Digits(std::size_t digits);
    // bytes random bytes in unpadded base64url ('-' and '_', no '='), as
    // opaque tokens are written.
    std::string Base64Url(std::size_t bytes);

private:
    GRand *rand_;
};

class AccountRegistry {
public:
    static constexpr std::size_t kMaxAccounts = 6;

    explicit AccountRegistry(IdGenerator &ids) : ids_(ids) {}

    // Validates, fills what is missing and registers. Throws AccountError.
    const Account &Add(const AccountFields &fields);
    // By login id or GUID. Throws AccountError (NoSuchAccount).
    const Account &Find(const std::string &login_id_or_guid) const;
    // Unregisters; the caller signs the account out first if it is active.
    Account Remove(const std::string &login_id_or_guid);
    // Exact lookups; nullptr when there is none.
    const Account *FindByLoginId(const std::string &login_id) const;
    const Account *FindByGuid(const std::string &guid) const;
    // Throws AccountError (NoSuchAccount, or InvalidArgs for an empty one).
    void SetPassword(const std::string &login_id_or_guid, const std::string &password);
    // Makes the account the active one. Throws AccountError (NoSuchAccount,
    // AlreadySignedIn).
    void SignIn(const std::string &guid);
    // Throws AccountError (NotSignedIn).
    void SignOut();

    // nullptr when nobody is signed in.
    const Account *active() const;
    const std::vector<Account> &accounts() const { return accounts_; }

private:
    Account *Lookup(const std::string &login_id_or_guid);

    IdGenerator &ids_;
    std::vector<Account> accounts_; // registration order
    std::string active_guid_;
};

// ---- what is published (member names are what readers look for) ----

// One account as the public document lists it (the ten published members).
Json::Value PublicAccount(const Account &account);
// {"account_count", "active_account" (only when signed in), "list"}.
Json::Value PublicDocument(const AccountRegistry &registry);
// {"displayName", "firstName", "lastName"} of an account.
Json::Value DisplayNameObject(const Account &account);
// The full internal list for the control interface, passwords included.
Json::Value InternalAccounts(const AccountRegistry &registry);
// Compact JSON text (UTF-8 kept as is).
std::string JsonText(const Json::Value &value);

} // namespace ssosim
