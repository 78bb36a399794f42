#include "accounts.h"

#include <json/writer.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>

#include "glib_util.h"

namespace ssosim {

namespace {

constexpr const char *kInvalidArgsName = "org.freedesktop.DBus.Error.InvalidArgs";

// The countries a code may be given for alone; others need both codes.
const std::map<std::string, std::string> &Alpha3To2()
{
    static const std::map<std::string, std::string> kTable = {
        {"AUS", "AU"}, {"AUT", "AT"}, {"BEL", "BE"}, {"BRA", "BR"}, {"CAN", "CA"}, {"CHE", "CH"},
        {"CHN", "CN"}, {"CZE", "CZ"}, {"DEU", "DE"}, {"DNK", "DK"}, {"ESP", "ES"}, {"FIN", "FI"},
        {"FRA", "FR"}, {"GBR", "GB"}, {"IND", "IN"}, {"IRL", "IE"}, {"ITA", "IT"}, {"JPN", "JP"},
        {"KOR", "KR"}, {"MEX", "MX"}, {"NLD", "NL"}, {"NOR", "NO"}, {"NZL", "NZ"}, {"POL", "PL"},
        {"PRT", "PT"}, {"SWE", "SE"}, {"TUR", "TR"}, {"USA", "US"}, {"VNM", "VN"}, {"ZAF", "ZA"},
    };
    return kTable;
}

std::string Upper(std::string s)
{
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return s;
}

bool AllLetters(const std::string &s)
{
    return std::all_of(s.begin(), s.end(), [](unsigned char c) { return std::isalpha(c) != 0; });
}

void ResolveCountry(const AccountFields &f, Account &a)
{
    std::string c3 = f.country ? Upper(*f.country) : "";
    std::string c2 = f.country2 ? Upper(*f.country2) : "";
    if (f.country && (c3.size() != 3 || !AllLetters(c3)))
        throw InvalidAccountArgs("country must be a three-letter code such as KOR or USA, not '" +
                                 *f.country + "'");
    if (f.country2 && (c2.size() != 2 || !AllLetters(c2)))
        throw InvalidAccountArgs("country2 must be a two-letter code such as KR or US, not '" +
                                 *f.country2 + "'");
    if (c3.empty() && c2.empty()) {
        c3 = "USA";
        c2 = "US";
    } else if (c2.empty()) {
        auto it = Alpha3To2().find(c3);
        if (it == Alpha3To2().end())
            throw InvalidAccountArgs("no two-letter code known for country '" + c3 +
                                     "': give country2 as well");
        c2 = it->second;
    } else if (c3.empty()) {
        for (const auto &[three, two] : Alpha3To2())
            if (two == c2)
                c3 = three;
        if (c3.empty())
            throw InvalidAccountArgs("no three-letter code known for country2 '" + c2 +
                                     "': give country as well");
    }
    a.country = c3;
    a.country2 = c2;
}

// "YYYYMMDD" of a real calendar day.
bool IsBirthDate(const std::string &s)
{
    if (s.size() != 8 ||
        !std::all_of(s.begin(), s.end(), [](unsigned char c) { return std::isdigit(c) != 0; }))
        return false;
    const int year = std::stoi(s.substr(0, 4));
    const int month = std::stoi(s.substr(4, 2));
    const int day = std::stoi(s.substr(6, 2));
    return year >= 1900 && month >= 1 && month <= 12 && day >= 1 &&
           g_date_valid_dmy(static_cast<GDateDay>(day), static_cast<GDateMonth>(month),
                            static_cast<GDateYear>(year));
}

// A plausible postal code for the country, so a profile looks filled in.
std::string DefaultZipCode(const std::string &country2)
{
    static const std::map<std::string, std::string> kZip = {
        {"US", "10001"}, {"KR", "06164"},     {"DE", "10115"},   {"GB", "SW1A 1AA"},
        {"FR", "75001"}, {"JP", "100-0001"},  {"CA", "K1A 0B1"}, {"ES", "28001"},
        {"IT", "00118"}, {"BR", "01310-100"}, {"IN", "110001"},  {"AU", "2000"},
    };
    auto it = kZip.find(country2);
    return it == kZip.end() ? "" : it->second;
}

void ResolveProfile(const AccountFields &f, Account &a)
{
    a.prefix_name = f.prefix_name.value_or("");
    a.birth_date = f.birth_date.value_or("19900101");
    if (!a.birth_date.empty() && !IsBirthDate(a.birth_date))
        throw InvalidAccountArgs("birth_date must be a date as YYYYMMDD (e.g. 19851231), not '" +
                                 a.birth_date + "'");
    a.zip_code = f.zip_code ? *f.zip_code : DefaultZipCode(a.country2);
    a.mobile_num = f.mobile_num.value_or("");
    a.receive_email = f.receive_email ? Upper(*f.receive_email) : "N";
    if (a.receive_email != "Y" && a.receive_email != "N")
        throw InvalidAccountArgs("receive_email must be Y or N, not '" + *f.receive_email + "'");
    if (f.family_group)
        CheckIdentifier("family_group", *f.family_group);
}

} // namespace

AccountError InvalidAccountArgs(const std::string &message)
{
    return AccountError(kInvalidArgsName, message);
}

// Login ids and GUIDs travel in "id|guid|TYPE|..." strings, so neither may
// hold the separator; control characters would corrupt logs and settings.
void CheckIdentifier(const char *what, const std::string &value)
{
    if (value.empty())
        throw InvalidAccountArgs(std::string(what) + " must not be empty");
    if (value.size() > 255)
        throw InvalidAccountArgs(std::string(what) + " is longer than 255 bytes");
    for (unsigned char c : value)
        if (c == '|' || c < 0x20 || c == 0x7f)
            throw InvalidAccountArgs(std::string(what) +
                                     " must not contain '|' or control characters");
}

namespace {

// Every field of an account: its name in the control interface and in the
// simulator's own state, its member in the published document (nullptr:
// never published), and where it is kept.
struct AccountFieldInfo {
    const char *name;
    const char *published;
    std::string Account::*member;
    std::optional<std::string> AccountFields::*requested;
};

const AccountFieldInfo kAccountFields[] = {
    {"login_id", "account_id", &Account::login_id, &AccountFields::login_id},
    {"guid", "account_guid", &Account::guid, &AccountFields::guid},
    {"uid", "account_uid", &Account::uid, &AccountFields::uid},
    {"icon_path", "account_icon_path", &Account::icon_path, &AccountFields::icon_path},
    {"auth", "account_auth", &Account::auth, &AccountFields::auth},
    {"user_pin_set", "user_pin_set", &Account::user_pin_set, &AccountFields::user_pin_set},
    {"country", "userCountryCode", &Account::country, &AccountFields::country},
    {"country2", "alpha2CountryCode", &Account::country2, &AccountFields::country2},
    {"display_name", "displayName", &Account::display_name, &AccountFields::display_name},
    {"first_name", nullptr, &Account::first_name, &AccountFields::first_name},
    {"last_name", nullptr, &Account::last_name, &AccountFields::last_name},
    {"device_id", "userDeviceID", &Account::device_id, &AccountFields::device_id},
    {"password", nullptr, &Account::password, &AccountFields::password},
    {"prefix_name", nullptr, &Account::prefix_name, &AccountFields::prefix_name},
    {"birth_date", nullptr, &Account::birth_date, &AccountFields::birth_date},
    {"zip_code", nullptr, &Account::zip_code, &AccountFields::zip_code},
    {"mobile_num", nullptr, &Account::mobile_num, &AccountFields::mobile_num},
    {"receive_email", nullptr, &Account::receive_email, &AccountFields::receive_email},
    {"family_group", nullptr, &Account::family_group, &AccountFields::family_group},
};

} // namespace

const char *AccountFieldKeys()
{
    static const std::string keys = [] {
        std::string out;
        for (const auto &field : kAccountFields)
            out += (out.empty() ? "" : ", ") + std::string(field.name);
        return out;
    }();
    return keys.c_str();
}

AccountFields AccountFieldsFromVariant(GVariant *dict)
{
    if (!g_variant_is_of_type(dict, G_VARIANT_TYPE_VARDICT))
        throw InvalidAccountArgs("account fields must be a{sv}");
    AccountFields f;
    ForEachVardictEntry(dict, [&](const gchar *key, GVariant *value) {
        const AccountFieldInfo *known = nullptr;
        for (const auto &field : kAccountFields)
            if (std::strcmp(field.name, key) == 0)
                known = &field;
        if (known == nullptr)
            throw InvalidAccountArgs(std::string("unknown account field '") + key +
                                     "' (known: " + AccountFieldKeys() + ")");
        if (!g_variant_is_of_type(value, G_VARIANT_TYPE_STRING))
            throw InvalidAccountArgs(std::string("account field '") + key +
                                     "' must have type 's', got '" +
                                     g_variant_get_type_string(value) + "'");
        f.*(known->requested) = g_variant_get_string(value, nullptr);
    });
    return f;
}

// ---------------------------------------------------------------- IdGenerator

IdGenerator::IdGenerator(std::optional<std::uint32_t> seed)
    : rand_(seed ? g_rand_new_with_seed(*seed) : g_rand_new())
{
}

IdGenerator::~IdGenerator()
{
    g_rand_free(rand_);
}

std::string IdGenerator::Hex(std::size_t digits, bool upper)
{
    const char *alphabet = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string s;
    s.reserve(digits);
    for (std::size_t i = 0; i < digits; ++i)
        s += alphabet[g_rand_int_range(rand_, 0, 16)];
    return s;
}

std::string IdGenerator::Digits(std::size_t digits)
{
    std::string s;
    s.reserve(digits);
    for (std::size_t i = 0; i < digits; ++i)
        s += static_cast<char>('0' + g_rand_int_range(rand_, 0, 10));
    return s;
}

std::string IdGenerator::Base64Url(std::size_t bytes)
{
    std::vector<guchar> raw(bytes);
    for (auto &b : raw)
        b = static_cast<guchar>(g_rand_int_range(rand_, 0, 256));
    CharPtr encoded(g_base64_encode(raw.data(), raw.size()));
    std::string s = encoded.get();
    for (auto &c : s) {
        if (c == '+')
            c = '-';
        else if (c == '/')
            c = '_';
    }
    s.erase(s.find_last_not_of('=') + 1);
    return s;
}

// ------------------------------------------------------------ AccountRegistry

Account *AccountRegistry::Lookup(const std::string &login_id_or_guid)
{
    for (auto &a : accounts_)
        if (a.login_id == login_id_or_guid || a.guid == login_id_or_guid)
            return &a;
    return nullptr;
}

const Account &AccountRegistry::Find(const std::string &login_id_or_guid) const
{
    for (const auto &a : accounts_)
        if (a.login_id == login_id_or_guid || a.guid == login_id_or_guid)
            return a;
    throw AccountError(kErrorNoSuchAccount,
                       "no registered account has the login id or GUID '" + login_id_or_guid + "'");
}

const Account &AccountRegistry::Add(const AccountFields &f)
{
    if (!f.login_id)
        throw InvalidAccountArgs("an account needs a login_id");
    CheckIdentifier("login_id", *f.login_id);
    if (f.guid)
        CheckIdentifier("guid", *f.guid);
    if (f.auth && f.auth->empty())
        throw InvalidAccountArgs("auth must not be empty (leave it out to have one generated)");
    Account a;
    a.login_id = *f.login_id;
    a.user_pin_set = f.user_pin_set ? Upper(*f.user_pin_set) : "N";
    if (a.user_pin_set != "Y" && a.user_pin_set != "N")
        throw InvalidAccountArgs("user_pin_set must be Y or N, not '" + *f.user_pin_set + "'");
    ResolveCountry(f, a);
    ResolveProfile(f, a);
    // Lookups accept a login id or a GUID, so neither may clash with any
    // identifier of another account.
    if (Lookup(a.login_id) != nullptr)
        throw AccountError(kErrorAccountExists, "an account with the login id or GUID '" +
                                                    a.login_id + "' is already registered");
    if (f.guid && (Lookup(*f.guid) != nullptr || *f.guid == a.login_id))
        throw AccountError(kErrorAccountExists, "an account with the login id or GUID '" + *f.guid +
                                                    "' is already registered");
    if (accounts_.size() >= kMaxAccounts)
        throw AccountError(kErrorAccountLimit,
                           "the device already has " + std::to_string(kMaxAccounts) +
                               " accounts, the most it can register; remove one first");

    // Generated values in a fixed order, so a seeded run is reproducible.
    if (f.guid) {
        a.guid = *f.guid;
    } else {
        do
            a.guid = ids_.Hex(32, true);
        while (Lookup(a.guid) != nullptr);
    }
    a.auth = f.auth ? *f.auth : "UT-" + ids_.Hex(40, false);
    a.uid = f.uid ? *f.uid : ids_.Digits(10);
    a.device_id = f.device_id ? *f.device_id : ids_.Hex(20, true);
    a.icon_path = f.icon_path.value_or("");
    a.first_name = f.first_name.value_or("");
    a.last_name = f.last_name.value_or("");
    a.password = f.password.value_or("");
    // Without a shared group each account has a family group of its own.
    a.family_group = f.family_group ? *f.family_group : "FG-" + a.guid.substr(0, 16);
    if (f.display_name) {
        a.display_name = *f.display_name;
    } else if (!a.first_name.empty() || !a.last_name.empty()) {
        a.display_name =
            a.first_name + (a.first_name.empty() || a.last_name.empty() ? "" : " ") + a.last_name;
    } else {
        a.display_name = a.login_id.substr(0, a.login_id.find('@'));
    }
    accounts_.push_back(std::move(a));
    return accounts_.back();
}

Account AccountRegistry::Remove(const std::string &login_id_or_guid)
{
    const Account &found = Find(login_id_or_guid);
    auto it = accounts_.begin() + (&found - accounts_.data());
    Account removed = *it;
    if (removed.guid == active_guid_)
        active_guid_.clear();
    accounts_.erase(it);
    return removed;
}

const Account *AccountRegistry::FindByLoginId(const std::string &login_id) const
{
    for (const auto &a : accounts_)
        if (a.login_id == login_id)
            return &a;
    return nullptr;
}

const Account *AccountRegistry::FindByGuid(const std::string &guid) const
{
    for (const auto &a : accounts_)
        if (a.guid == guid)
            return &a;
    return nullptr;
}

void AccountRegistry::SetPassword(const std::string &login_id_or_guid, const std::string &password)
{
    if (password.empty())
        throw InvalidAccountArgs("the password must not be empty");
    Find(login_id_or_guid); // the error when there is none
    Lookup(login_id_or_guid)->password = password;
}

void AccountRegistry::SignIn(const std::string &login_id_or_guid)
{
    const Account &a = Find(login_id_or_guid);
    if (a.guid == active_guid_)
        throw AccountError(kErrorAlreadySignedIn,
                           "account '" + login_id_or_guid + "' is already signed in");
    active_guid_ = a.guid;
}

void AccountRegistry::SignOut()
{
    if (active_guid_.empty())
        throw AccountError(kErrorNotSignedIn, "nobody is signed in");
    active_guid_.clear();
}

const Account *AccountRegistry::active() const
{
    if (active_guid_.empty())
        return nullptr;
    for (const auto &a : accounts_)
        if (a.guid == active_guid_)
            return &a;
    return nullptr;
}

// ------------------------------------------------------------ documents

Json::Value PublicAccount(const Account &a)
{
    Json::Value v(Json::objectValue);
    for (const auto &field : kAccountFields)
        if (field.published != nullptr)
            v[field.published] = a.*(field.member);
    return v;
}

Json::Value PublicDocument(const AccountRegistry &registry)
{
    Json::Value doc(Json::objectValue);
    doc["account_count"] = static_cast<Json::Int>(registry.accounts().size());
    if (const Account *active = registry.active())
        doc["active_account"] = PublicAccount(*active);
    Json::Value list(Json::arrayValue);
    for (const auto &a : registry.accounts())
        list.append(PublicAccount(a));
    doc["list"] = list;
    return doc;
}

Json::Value DisplayNameObject(const Account &a)
{
    Json::Value v(Json::objectValue);
    v["displayName"] = a.display_name;
    v["firstName"] = a.first_name;
    v["lastName"] = a.last_name;
    return v;
}

Json::Value InternalAccounts(const AccountRegistry &registry)
{
    const Account *active = registry.active();
    Json::Value list(Json::arrayValue);
    for (const auto &a : registry.accounts()) {
        Json::Value v(Json::objectValue);
        for (const auto &field : kAccountFields)
            v[field.name] = a.*(field.member);
        v["active"] = active != nullptr && active->guid == a.guid;
        list.append(v);
    }
    Json::Value out(Json::objectValue);
    out["accounts"] = list;
    out["active"] = active ? active->guid : "";
    return out;
}

std::string JsonText(const Json::Value &value)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, value);
}

} // namespace ssosim
