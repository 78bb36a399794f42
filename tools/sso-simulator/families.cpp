#include "families.h"

#include <glib.h>

#include <json/value.h>

#include "SSORequestTable.h"
#include "publisher.h"
#include "sim_log.h"

namespace ssosim {

namespace {

// What the library sends for an optional string it was not given.
constexpr const char *kNoValue = "HAS_NO_VALUE";

// The string at index i of the request tuple, "" when there is none.
std::string Arg(const Request &r, gsize i)
{
    GVariant *params = r.params.get();
    if (params == nullptr || i >= g_variant_n_children(params))
        return "";
    VariantPtr child(g_variant_get_child_value(params, i));
    if (!g_variant_is_of_type(child.get(), G_VARIANT_TYPE_STRING))
        return "";
    return g_variant_get_string(child.get(), nullptr);
}

std::int32_t IntArg(const Request &r, gsize i)
{
    GVariant *params = r.params.get();
    if (params == nullptr || i >= g_variant_n_children(params))
        return 0;
    VariantPtr child(g_variant_get_child_value(params, i));
    if (!g_variant_is_of_type(child.get(), G_VARIANT_TYPE_INT32))
        return 0;
    return g_variant_get_int32(child.get());
}

// An optional argument: "" when absent.
std::string Optional(const std::string &value)
{
    return value == kNoValue ? "" : value;
}

Outcome Refuse(const Request &r, std::int32_t code, const char *why)
{
    SIM_LOGI("%s request_id %lld: result %d (%s)", r.method->name.c_str(),
             static_cast<long long>(r.request_id), code, why);
    Outcome o;
    o.result = code;
    o.blank = true;
    return o;
}

// An account in a list an application may see: no password, no user token.
Json::Value ListedAccount(const Account &a, bool active)
{
    // The public document's entry, less the user token (PublicAccount has no
    // password either).
    Json::Value v = PublicAccount(a);
    v.removeMember("account_auth");
    v["active"] = active;
    return v;
}

// Whole years from a YYYYMMDD birth date to today; "" when it is unknown.
std::string AgeOf(const std::string &birth_date)
{
    if (birth_date.size() != 8)
        return "";
    GDateTime *now = g_date_time_new_now_local();
    const int year = g_date_time_get_year(now);
    const int month = g_date_time_get_month(now);
    const int day = g_date_time_get_day_of_month(now);
    g_date_time_unref(now);
    const int born_year = std::stoi(birth_date.substr(0, 4));
    const int born_month = std::stoi(birth_date.substr(4, 2));
    const int born_day = std::stoi(birth_date.substr(6, 2));
    int age = year - born_year;
    if (month < born_month || (month == born_month && day < born_day))
        --age;
    return age < 0 ? "" : std::to_string(age);
}

// The members of a family group in registration order; the first owns it.
Json::Value GroupMembers(const AccountRegistry &registry, const std::string &group)
{
    Json::Value members(Json::arrayValue);
    for (const auto &a : registry.accounts()) {
        if (a.family_group != group)
            continue;
        Json::Value m(Json::objectValue);
        m["userId"] = a.uid;
        m["accountId"] = a.login_id;
        m["displayName"] = a.display_name;
        m["role"] = members.empty() ? "owner" : "member";
        members.append(m);
    }
    return members;
}

std::string GroupName(const AccountRegistry &registry, const std::string &group)
{
    for (const auto &a : registry.accounts())
        if (a.family_group == group)
            return (a.last_name.empty() ? a.display_name : a.last_name) + " family";
    return "";
}

const std::string &Value(const ResultValues &values, const std::string &name)
{
    static const std::string kEmpty;
    auto it = values.find(name);
    return it == values.end() ? kEmpty : it->second;
}

// Fills name with value unless the test scripted it.
void Fill(ResultValues &delivered, const std::set<std::string> &scripted, const std::string &name,
          const std::string &value)
{
    if (scripted.count(name) == 0)
        delivered[name] = value;
}

} // namespace

RequestFamilies::RequestFamilies(AccountService &accounts, std::optional<std::uint32_t> seed)
    // A seed of its own, so issuing a token never shifts the GUIDs a seeded
    // test expects.
    : accounts_(accounts),
      ids_(seed ? std::optional<std::uint32_t>(*seed ^ 0x5eed70c5u) : std::nullopt)
{
}

std::string RequestFamilies::NewToken(const char *prefix)
{
    return std::string(prefix) + ids_.Base64Url(24);
}

void RequestFamilies::RegisterClient(const std::string &app_id, const std::string &secret)
{
    if (app_id.empty() || secret.empty())
        throw InvalidAccountArgs("the app id and the secret must not be empty");
    clients_[app_id] = secret;
    SIM_LOGI("client %s registered", app_id.c_str());
}

void RequestFamilies::RegisterWhitelist(const std::string &package, const std::string &signature)
{
    ApplicationDataItem(package); // refuses a package id that cannot name an item
    if (signature.empty())
        throw InvalidAccountArgs("the signature must not be empty");
    whitelist_.emplace(package, signature);
    SIM_LOGI("whitelist: %s registered", package.c_str());
}

std::string RequestFamilies::IssuedJson() const
{
    return JsonText(issued_.ToJson());
}

std::int32_t RequestFamilies::CheckClient(const std::string &app_id,
                                          const std::string &secret) const
{
    if (secret.empty())
        return kResultInvalidClient;
    auto it = clients_.find(app_id);
    if (it != clients_.end() && it->second != secret)
        return kResultInvalidClient;
    return kResultOk;
}

std::int32_t RequestFamilies::CheckAccessToken(const std::string &app_id, const std::string &token)
{
    const Account *active = accounts_.registry().active();
    const IssuedEntry *e = issued_.Find(token);
    if (e == nullptr || e->revoked || active == nullptr || e->account_guid != active->guid ||
        e->app_id != app_id || (e->kind != kIssuedAccessToken && e->kind != kIssuedWhitelistToken))
        return kResultInvalidToken;
    return kResultOk;
}

void RequestFamilies::Issue(IssuedEntry entry, const std::string &arg_name,
                            const ResultValues &delivered, const std::set<std::string> &scripted)
{
    entry.value = Value(delivered, arg_name);
    entry.scripted = scripted.count(arg_name) != 0;
    const IssuedEntry &kept = issued_.Record(std::move(entry));
    // The value is a secret: the log gets its number only.
    SIM_LOGI("%s: issued %s #%d for app %s", kept.method.c_str(), kept.kind.c_str(), kept.sequence,
             kept.app_id.c_str());
}

// ---------------------------------------------------------------- dispatch

Outcome RequestFamilies::Compute(const Request &r)
{
    using Family = SSORequestFamily;
    using Handler = Outcome (RequestFamilies::*)(const Request &);
    static const std::map<Family, Handler> kHandlers = {
        {Family::AccessToken, &RequestFamilies::AccessToken},
        {Family::AuthCode, &RequestFamilies::AuthCode},
        {Family::GenerateToken, &RequestFamilies::GenerateToken},
        {Family::RegisterAccount, &RequestFamilies::RegisterAccount},
        {Family::Logout, &RequestFamilies::Logout},
        {Family::VerifyPassword, &RequestFamilies::VerifyPassword},
        {Family::AccountList, &RequestFamilies::AccountList},
        {Family::SetPassword, &RequestFamilies::SetPassword},
        {Family::ResetPassword, &RequestFamilies::ResetPassword},
        {Family::Switch, &RequestFamilies::Switch},
        {Family::UserInfo, &RequestFamilies::UserInfo},
        {Family::FamilyGroup, &RequestFamilies::FamilyGroup},
        {Family::GroupUsers, &RequestFamilies::GroupUsers},
        {Family::Whitelist, &RequestFamilies::Whitelist},
        {Family::PartnerAuth, &RequestFamilies::PartnerAuth},
    };
    const SSORequestType *row = sso_requests::ByServerMethod(r.method->name.c_str());
    if (row == nullptr)
        return Outcome{};
    auto handler = kHandlers.find(row->family);
    return handler == kHandlers.end() ? Outcome{} : (this->*handler->second)(r);
}

std::int32_t RequestFamilies::SyncAccept(const Request &r) const
{
    if (r.method->name == "sso_is_account_switching_available")
        return accounts_.registry().accounts().size() > 1 ? 1 : 0;
    return 1;
}

void RequestFamilies::SyncAccepted(const Request &r)
{
    const std::string &m = r.method->name;
    if (m == "sso_request_current_account_noti") {
        try {
            accounts_.Publish();
        } catch (const AccountError &e) {
            SIM_LOGE("%s: cannot publish: %s", m.c_str(), e.error_name.c_str());
        }
    } else if (m == "sso_reset") {
        issued_.RevokeAll();
        SIM_LOGI("%s: every issued token and code revoked", m.c_str());
    }
}

// ---------------------------------------------------------------- tokens

Outcome RequestFamilies::AccessToken(const Request &r)
{
    // (obj, app_id, secret_key, [auth_code,] scope, ...)
    const bool with_code = r.method->name == "sso_request_access_token_using_authcode";
    const std::string app_id = Arg(r, 1);
    const std::string secret = Arg(r, 2);
    const std::string code = with_code ? Arg(r, 3) : "";
    if (app_id.empty() || (with_code && code.empty()))
        return Refuse(r, kResultInvalidRequest, "app id or auth code empty");
    if (CheckClient(app_id, secret) != kResultOk)
        return Refuse(r, kResultInvalidClient, "secret key refused");
    const Account *active = accounts_.registry().active();
    if (active == nullptr)
        return Refuse(r, kResultNotSignedIn, "nobody is signed in");
    if (with_code) {
        // Codes from elsewhere are taken on trust; one of ours must be
        // fresh and for this app.
        const IssuedEntry *e = issued_.Find(code);
        if (e != nullptr && (e->kind != kIssuedAuthCode || e->revoked || e->redeemed ||
                             (!e->app_id.empty() && e->app_id != app_id)))
            return Refuse(r, kResultInvalidToken, "auth code revoked, redeemed or not this app's");
    }
    IssuedEntry entry;
    entry.kind = kIssuedAccessToken;
    entry.method = r.method->name;
    entry.app_id = app_id;
    entry.account_guid = active->guid;
    entry.scope = Optional(Arg(r, with_code ? 4 : 3));
    if (with_code)
        entry.extra["auth_code"] = code;
    Outcome o;
    o.values["access_token"] = NewToken("AT.");
    o.commit = [this, entry, code, with_code](ResultValues &delivered,
                                              const std::set<std::string> &scripted) {
        if (with_code)
            if (IssuedEntry *used = issued_.Find(code); used && used->kind == kIssuedAuthCode)
                used->redeemed = true;
        Issue(entry, "access_token", delivered, scripted);
    };
    return o;
}

Outcome RequestFamilies::AuthCode(const Request &r)
{
    const std::string &m = r.method->name;
    IssuedEntry entry;
    entry.kind = kIssuedAuthCode;
    entry.method = m;
    bool needs_login = true;
    const Account *owner = nullptr;
    if (m == "sso_request_authcode_for_other_device") {
        // (obj, dsc, ...)
        entry.extra["dsc"] = Optional(Arg(r, 1));
    } else {
        // (obj, app_id, ...)
        entry.app_id = Arg(r, 1);
        if (entry.app_id.empty())
            return Refuse(r, kResultInvalidRequest, "app id empty");
    }
    if (m == "sso_request_auth_code" || m == "sso_request_auth_code_for_effortless_login") {
        entry.scope = Optional(Arg(r, 2));
    } else if (m == "sso_request_user_authcode" || m == "sso_request_device_authcode") {
        // (obj, app_id, scope, "user" | "device", ...)
        entry.scope = Optional(Arg(r, 2));
        entry.extra["code_for"] = Arg(r, 3);
        needs_login = m == "sso_request_user_authcode";
    } else if (m == "sso_request_authcode_with_ID_PWD") {
        // (obj, app_id, account_id, passwd, scope, ...): for the named
        // account, signed in or not.
        needs_login = false;
        owner = accounts_.registry().FindByLoginId(Arg(r, 2));
        if (owner == nullptr)
            return Refuse(r, kResultNoSuchAccount, "no such account");
        const std::string password = Arg(r, 3);
        if (password.empty() || owner->password != password)
            return Refuse(r, kResultWrongPassword, "wrong password");
        entry.scope = Optional(Arg(r, 4));
    } else if (m != "sso_request_authcode_for_other_device") {
        // (obj, app_id, scope, dsc, response_type, [challenge | verifier,] ...)
        entry.scope = Optional(Arg(r, 2));
        entry.extra["dsc"] = Optional(Arg(r, 3));
        entry.extra["response_type"] = Optional(Arg(r, 4));
        if (m == "sso_request_user_authcode_with_challenge")
            entry.extra["code_challenge"] = Arg(r, 5);
        else if (m == "sso_request_user_authcode_with_verifier")
            entry.extra["code_verifier"] = Arg(r, 5);
    }
    if (needs_login) {
        owner = accounts_.registry().active();
        if (owner == nullptr)
            return Refuse(r, kResultNotSignedIn, "nobody is signed in");
    }
    // A device code belongs to the device, not to an account.
    entry.account_guid = owner ? owner->guid : "";
    Outcome o;
    o.values["auth_code"] = NewToken("AC.");
    o.commit = [this, entry](ResultValues &delivered, const std::set<std::string> &scripted) {
        Issue(entry, "auth_code", delivered, scripted);
    };
    return o;
}

// ---------------------------------------------------------------- accounts

Outcome RequestFamilies::GenerateToken(const Request &r)
{
    const std::string &m = r.method->name;
    std::string user_id;
    std::string password;
    bool check_password = false;
    Json::Value detail(Json::objectValue);
    if (m == "sso_generate_token_with_authcode_dsc") {
        // (obj, authcode, userid, dsc, cb, use_notification, ...)
        if (Arg(r, 1).empty())
            return Refuse(r, kResultInvalidRequest, "auth code empty");
        user_id = Arg(r, 2);
    } else if (m == "sso_generate_token_with_authcode_dsc_deleteFlag") {
        // (obj, userid, authcode, dsc, delete_flag, ...)
        user_id = Arg(r, 1);
        if (Arg(r, 2).empty())
            return Refuse(r, kResultInvalidRequest, "auth code empty");
        detail["delete_flag"] = IntArg(r, 4);
    } else {
        // (obj, userid, passwd, delete_flag, ...)
        user_id = Arg(r, 1);
        password = Arg(r, 2);
        check_password = true;
        detail["delete_flag"] = IntArg(r, 3);
    }
    try {
        CheckIdentifier("user id", user_id);
    } catch (const AccountError &) {
        return Refuse(r, kResultInvalidRequest, "user id empty or malformed");
    }
    const AccountRegistry &registry = accounts_.registry();
    const Account *known = registry.FindByLoginId(user_id);
    if (check_password && (password.empty() || (known && known->password != password)))
        return Refuse(r, kResultWrongPassword, "wrong password");
    if (known == nullptr && registry.FindByGuid(user_id) != nullptr)
        return Refuse(r, kResultAccountExists, "user id is another account's GUID");
    if (known == nullptr && registry.accounts().size() >= AccountRegistry::kMaxAccounts)
        return Refuse(r, kResultAccountLimit, "six accounts registered");
    Outcome o;
    o.commit = [this, user_id, password, detail](ResultValues &delivered,
                                                 const std::set<std::string> &scripted) {
        const Account *account = accounts_.registry().FindByLoginId(user_id);
        const bool added = account == nullptr;
        std::string guid;
        if (added) {
            AccountFields f;
            f.login_id = user_id;
            if (!password.empty())
                f.password = password;
            guid = accounts_.Add(f);
        } else {
            guid = account->guid;
        }
        const Account *active = accounts_.registry().active();
        if (active == nullptr || active->guid != guid)
            accounts_.SignIn(guid);
        Json::Value v = detail;
        v["account_id"] = user_id;
        v["account_guid"] = guid;
        v["added"] = added;
        v["signed_in"] = true;
        Fill(delivered, scripted, "response_data", JsonText(v));
        SIM_LOGI("token generated: account %s", added ? "added and signed in" : "signed in");
    };
    return o;
}

Outcome RequestFamilies::RegisterAccount(const Request &r)
{
    // (obj, account_id, authcode, dsc, perform_login, ...)
    const std::string account_id = Arg(r, 1);
    const bool sign_in = Arg(r, 4) == "on";
    try {
        CheckIdentifier("account id", account_id);
    } catch (const AccountError &) {
        return Refuse(r, kResultInvalidRequest, "account id empty or malformed");
    }
    if (Arg(r, 2).empty())
        return Refuse(r, kResultInvalidRequest, "auth code empty");
    const AccountRegistry &registry = accounts_.registry();
    if (registry.FindByLoginId(account_id) || registry.FindByGuid(account_id))
        return Refuse(r, kResultAccountExists, "account registered already");
    if (registry.accounts().size() >= AccountRegistry::kMaxAccounts)
        return Refuse(r, kResultAccountLimit, "six accounts registered");
    Outcome o;
    o.commit = [this, account_id, sign_in](ResultValues &delivered,
                                           const std::set<std::string> &scripted) {
        AccountFields f;
        f.login_id = account_id;
        const std::string guid = accounts_.Add(f);
        if (sign_in)
            accounts_.SignIn(guid);
        Json::Value v(Json::objectValue);
        v["account_id"] = account_id;
        v["account_guid"] = guid;
        v["signed_in"] = sign_in;
        Fill(delivered, scripted, "response_data", JsonText(v));
    };
    return o;
}

Outcome RequestFamilies::Logout(const Request &r)
{
    // (obj, confirm_id, ...)
    const Account *active = accounts_.registry().active();
    if (active == nullptr)
        return Refuse(r, kResultNotSignedIn, "nobody is signed in");
    Json::Value v(Json::objectValue);
    v["account_id"] = active->login_id;
    v["account_guid"] = active->guid;
    v["signed_out"] = true;
    Outcome o;
    o.values["response_data"] = JsonText(v);
    o.commit = [this](ResultValues &, const std::set<std::string> &) { accounts_.SignOut(); };
    return o;
}

Outcome RequestFamilies::VerifyPassword(const Request &r)
{
    // (obj, passwd, ...)
    const Account *active = accounts_.registry().active();
    if (active == nullptr)
        return Refuse(r, kResultNotSignedIn, "nobody is signed in");
    const std::string password = Arg(r, 1);
    if (password.empty() || active->password != password)
        return Refuse(r, kResultWrongPassword, "wrong password");
    Json::Value v(Json::objectValue);
    v["account_guid"] = active->guid;
    v["verified"] = true;
    Outcome o;
    o.values["response_data"] = JsonText(v);
    return o;
}

Outcome RequestFamilies::AccountList(const Request &)
{
    const AccountRegistry &registry = accounts_.registry();
    const Account *active = registry.active();
    Json::Value list(Json::arrayValue);
    for (const auto &a : registry.accounts())
        list.append(ListedAccount(a, active == &a));
    Json::Value v(Json::objectValue);
    v["account_count"] = static_cast<Json::Int>(registry.accounts().size());
    v["list"] = list;
    Outcome o;
    // The account list answers in response_data, the dynamic list in data.
    o.values["response_data"] = JsonText(v);
    o.values["data"] = o.values["response_data"];
    return o;
}

Outcome RequestFamilies::SetPassword(const Request &r)
{
    // (obj, account_id, password, ...)
    const std::string account_id = Arg(r, 1);
    const std::string password = Arg(r, 2);
    if (account_id.empty() || password.empty())
        return Refuse(r, kResultInvalidRequest, "account id or password empty");
    const Account *a = accounts_.registry().FindByLoginId(account_id);
    if (a == nullptr)
        return Refuse(r, kResultNoSuchAccount, "no such account");
    Json::Value v(Json::objectValue);
    v["account_id"] = account_id;
    v["account_guid"] = a->guid;
    v["password_set"] = true;
    Outcome o;
    o.values["data"] = JsonText(v);
    o.commit = [this, account_id, password](ResultValues &, const std::set<std::string> &) {
        accounts_.SetPassword(account_id, password);
    };
    return o;
}

Outcome RequestFamilies::ResetPassword(const Request &r)
{
    // (obj, email, ...): the mail goes out; the password stays until set.
    const std::string email = Arg(r, 1);
    if (email.empty())
        return Refuse(r, kResultInvalidRequest, "e-mail empty");
    if (accounts_.registry().FindByLoginId(email) == nullptr)
        return Refuse(r, kResultNoSuchAccount, "no such account");
    Json::Value v(Json::objectValue);
    v["email"] = email;
    v["reset_mail_sent"] = true;
    Outcome o;
    o.values["response_data"] = JsonText(v);
    return o;
}

Outcome RequestFamilies::Switch(const Request &r)
{
    // (obj, account id | GUID, extra | user token, ...)
    const std::string &m = r.method->name;
    const std::string key = Arg(r, 1);
    if (key.empty())
        return Refuse(r, kResultInvalidRequest, "account empty");
    const AccountRegistry &registry = accounts_.registry();
    const Account *target =
        m == "sso_switch_account_by_guid" ? registry.FindByGuid(key) : registry.FindByLoginId(key);
    if (target == nullptr)
        return Refuse(r, kResultNoSuchAccount, "no such account");
    if (m == "sso_switch_account_with_usertoken" && Arg(r, 2) != target->auth)
        return Refuse(r, kResultInvalidToken, "user token is not the account's");
    const Account *active = registry.active();
    Json::Value v(Json::objectValue);
    v["account_id"] = target->login_id;
    v["account_guid"] = target->guid;
    v["previous_account_guid"] = active ? active->guid : "";
    const std::string guid = target->guid;
    const bool already = active == target;
    Outcome o;
    o.values["response_data"] = JsonText(v);
    o.commit = [this, guid, already](ResultValues &, const std::set<std::string> &) {
        if (!already)
            accounts_.SignIn(guid);
    };
    return o;
}

// ---------------------------------------------------------------- profile

Outcome RequestFamilies::UserInfo(const Request &r)
{
    const Account *a = accounts_.registry().active();
    if (a == nullptr)
        return Refuse(r, kResultNotSignedIn, "nobody is signed in");
    Outcome o;
    ResultValues &v = o.values;
    v["user_id"] = a->uid;
    v["prefix_name"] = a->prefix_name;
    v["first_name"] = a->first_name;
    v["last_name"] = a->last_name;
    v["birth_date"] = a->birth_date;
    v["zip_code"] = a->zip_code;
    v["mobile_num"] = a->mobile_num;
    v["receive_email"] = a->receive_email;
    v["auth"] = a->auth;
    Json::Value json(Json::objectValue);
    for (const auto &[name, value] : v)
        json[name] = value;
    v["response_data"] = JsonText(json);
    v["birthday"] = a->birth_date;
    v["identify_url"] = "https://account.example.test/identity/verify?uid=" + a->uid;
    v["age"] = AgeOf(a->birth_date);
    v["check_url"] = "https://account.example.test/namecheck?uid=" + a->uid;
    return o;
}

Outcome RequestFamilies::FamilyGroup(const Request &r)
{
    // (obj, app_id, access_token, ...)
    const std::string app_id = Arg(r, 1);
    const std::string token = Arg(r, 2);
    if (app_id.empty() || token.empty())
        return Refuse(r, kResultInvalidRequest, "app id or access token empty");
    const Account *a = accounts_.registry().active();
    if (a == nullptr)
        return Refuse(r, kResultNotSignedIn, "nobody is signed in");
    if (CheckAccessToken(app_id, token) != kResultOk)
        return Refuse(r, kResultInvalidToken, "access token not issued for this account and app");
    Json::Value v(Json::objectValue);
    v["groupId"] = a->family_group;
    v["groupName"] = GroupName(accounts_.registry(), a->family_group);
    v["members"] = GroupMembers(accounts_.registry(), a->family_group);
    Outcome o;
    o.values["family_group_data"] = JsonText(v);
    return o;
}

Outcome RequestFamilies::GroupUsers(const Request &r)
{
    // (obj, app_id, access_token, group_id, ...)
    const std::string app_id = Arg(r, 1);
    const std::string token = Arg(r, 2);
    const std::string group = Arg(r, 3);
    if (app_id.empty() || token.empty() || group.empty())
        return Refuse(r, kResultInvalidRequest, "app id, access token or group id empty");
    const Account *a = accounts_.registry().active();
    if (a == nullptr)
        return Refuse(r, kResultNotSignedIn, "nobody is signed in");
    if (CheckAccessToken(app_id, token) != kResultOk)
        return Refuse(r, kResultInvalidToken, "access token not issued for this account and app");
    if (a->family_group != group)
        return Refuse(r, kResultNoSuchGroup, "not a member of that group");
    Json::Value v(Json::objectValue);
    v["groupId"] = group;
    v["users"] = GroupMembers(accounts_.registry(), group);
    Outcome o;
    o.values["group_users_data"] = JsonText(v);
    return o;
}

// ---------------------------------------------------------------- whitelist

Outcome RequestFamilies::Whitelist(const Request &r)
{
    // (obj, app_id, package, signature, scope, ...)
    const std::string app_id = Arg(r, 1);
    const std::string package = Arg(r, 2);
    const std::string signature = Arg(r, 3);
    if (app_id.empty() || signature.empty())
        return Refuse(r, kResultInvalidRequest, "app id or signature empty");
    try {
        ApplicationDataItem(package);
    } catch (const AccountError &) {
        return Refuse(r, kResultInvalidRequest, "package id cannot name an item");
    }
    if (!whitelist_.empty() && whitelist_.count({package, signature}) == 0)
        return Refuse(r, kResultNotWhitelisted, "package and signature not whitelisted");
    const Account *a = accounts_.registry().active();
    if (a == nullptr)
        return Refuse(r, kResultNotSignedIn, "nobody is signed in");
    IssuedEntry entry;
    entry.kind = kIssuedWhitelistToken;
    entry.method = r.method->name;
    entry.app_id = app_id;
    entry.account_guid = a->guid;
    entry.scope = Optional(Arg(r, 4));
    entry.package = package;
    Outcome o;
    o.values["response"] = NewToken("AT.");
    o.commit = [this, entry](ResultValues &delivered, const std::set<std::string> &scripted) {
        // Stored before the result goes out, so the application can read it
        // as soon as its callback runs.
        accounts_.SetApplicationData(entry.package, entry.account_guid,
                                     kWhitelistTokenKeyPrefix + entry.app_id,
                                     Value(delivered, "response"));
        Issue(entry, "response", delivered, scripted);
    };
    return o;
}

Outcome RequestFamilies::PartnerAuth(const Request &r)
{
    // (obj, auth key, auth value, method, ...): the value is not echoed.
    Json::Value v(Json::objectValue);
    v["authKey"] = Arg(r, 1);
    v["method"] = Arg(r, 3);
    v["status"] = "ok";
    Outcome o;
    o.values["response_data"] = JsonText(v);
    return o;
}

} // namespace ssosim
