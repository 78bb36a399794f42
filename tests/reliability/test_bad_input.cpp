// Bad arguments to every exported function: a null for each pointer, and an
// empty, a 1 MiB and a non-UTF-8 text for each string. The list of functions
// and of their parameters is read from the public header, so a new export, or
// a new parameter, without an entry here fails the test. Each entry knows the
// answer the function owes for each bad argument; where that answer is a
// failure, the library must also say so in its log. Leaks are the
// sanitizer build's to find.
#include <package_manager_admin.h>
#include <vconf.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "reliability_support.h"
#include "sso_api/sso_api.h"
#include "signed_package.h"
#include "test_certs.h"
#include "test_files.h"

#ifndef SSO_API_HEADER
#error "SSO_API_HEADER must name include/sso_api/sso_api.h"
#endif

namespace {

constexpr const char *kAppId = "org.example.badinput";
constexpr const char *kPackage = "org.example.badinput.pkg";
constexpr const char *kTokenKeyPrefix = "DATA_KEY_NAME_WHILIST_ACCESSTOKEN_RESPONSE_";

// ------------------------------------------------------- the public header

struct Param {
    std::string type;
    std::string name;
    bool text = false;    // const char *
    bool pointer = false; // any pointer, callbacks included
};

struct Export {
    std::string name;
    std::vector<Param> params;
};

std::string Trim(const std::string &s)
{
    size_t b = s.find_first_not_of(" \t\n");
    size_t e = s.find_last_not_of(" \t\n");
    return b == std::string::npos ? "" : s.substr(b, e - b + 1);
}

std::map<std::string, Export> ParseHeader()
{
    std::string text = ssotest::ReadWholeFile(SSO_API_HEADER);
    text = std::regex_replace(text, std::regex(R"(/\*[\s\S]*?\*/)"), " ");
    text = std::regex_replace(text, std::regex(R"(//[^\n]*)"), " ");
    std::map<std::string, Export> out;
    std::regex decl(R"(SSO_API\s+[\w\s\*]*?\b(\w+)\s*\(([^)]*)\)\s*;)");
    for (std::sregex_iterator it(text.begin(), text.end(), decl), end; it != end; ++it) {
        Export e;
        e.name = (*it)[1];
        std::stringstream params((*it)[2].str());
        std::string one;
        while (std::getline(params, one, ',')) {
            one = Trim(one);
            if (one.empty() || one == "void")
                continue;
            std::smatch m;
            if (!std::regex_match(one, m, std::regex(R"(([\s\S]*?)\s*\b(\w+))")))
                continue;
            Param p;
            p.type = Trim(m[1]);
            p.name = m[2];
            p.text = p.type == "const char *" || p.type == "const char*";
            p.pointer = p.type.find('*') != std::string::npos ||
                        (p.type.size() > 3 && p.type.compare(p.type.size() - 3, 3, "_cb") == 0);
            e.params.push_back(p);
        }
        out[e.name] = e;
    }
    return out;
}

// ------------------------------------------------------------ the table

enum class Bad { None, Null, Empty, Long, NotUtf8 };

const char *BadName(Bad bad)
{
    switch (bad) {
    case Bad::Null:
        return "null";
    case Bad::Empty:
        return "empty";
    case Bad::Long:
        return "1 MiB";
    case Bad::NotUtf8:
        return "not UTF-8";
    default:
        return "sound";
    }
}

const std::string &LongText()
{
    static const std::string text(1u << 20, 'x');
    return text;
}

// The arguments of one call: every one sound but the one under test.
class Args {
public:
    Args(std::string target, Bad bad) : target_(std::move(target)), bad_(bad) {}

    const char *Text(const char *name, const char *sound)
    {
        used_.insert(name);
        if (target_ != name)
            return sound;
        switch (bad_) {
        case Bad::Null:
            return nullptr;
        case Bad::Empty:
            return "";
        case Bad::Long:
            return LongText().c_str();
        case Bad::NotUtf8:
            return "caf\xe9\xff\xfe";
        default:
            return sound;
        }
    }

    template <typename T> T Ptr(const char *name, T sound)
    {
        used_.insert(name);
        return (target_ == name && bad_ == Bad::Null) ? nullptr : sound;
    }

    // An output text the library may allocate; freed after the call.
    char **Out(const char *name)
    {
        out_ = nullptr;
        return Ptr<char **>(name, &out_);
    }
    char *out() const { return out_; }

    const std::set<std::string> &used() const { return used_; }

private:
    std::string target_;
    Bad bad_;
    std::set<std::string> used_;
    char *out_ = nullptr;
};

// The answer owed for each bad argument. kSound: the same as with every
// argument sound.
constexpr int kSound = 1000;
constexpr int kNone = 2000; // not a case for this kind of parameter

struct Expect {
    int null = -1;
    int empty = kSound;
    int longText = kSound;
    int notUtf8 = -1;
    int For(Bad bad) const
    {
        switch (bad) {
        case Bad::Null:
            return null;
        case Bad::Empty:
            return empty;
        case Bad::Long:
            return longText;
        case Bad::NotUtf8:
            return notUtf8;
        default:
            return kSound;
        }
    }
};

// A text the service needs: no null, anything else is sent as it is, except
// text that is not UTF-8, which no D-Bus message can carry.
Expect Required()
{
    return {-1, kSound, kSound, -1};
}
// A text that may be left out.
Expect Optional()
{
    return {kSound, kSound, kSound, -1};
}
// A text that must not be empty either.
Expect NonEmpty()
{
    return {-1, -1, kSound, -1};
}
// A text the function does not look at, or passes on as bytes.
Expect Ignored()
{
    return {kSound, kSound, kSound, kSound};
}
// A text that must be there, and is then passed on as bytes.
Expect Present()
{
    return {-1, kSound, kSound, kSound};
}
// Pointers: required, or not needed.
Expect RequiredPointer()
{
    return {-1, kNone, kNone, kNone};
}
Expect OptionalPointer()
{
    return {kSound, kNone, kNone, kNone};
}

enum class World {
    SignedIn,    // the simulator up, kim signed in
    WithPackage, // also: this application belongs to a registered package
};

struct Entry {
    const char *name;
    int sound; // the answer with every argument sound
    std::map<std::string, Expect> params;
    std::function<int(Args &)> call; // null: no argument to get wrong
    World world = World::SignedIn;
    std::function<void()> after; // undoes what a call registered
};

void PrintTo(const Entry &e, std::ostream *os)
{
    *os << e.name;
}

int g_marker;
void *Ud()
{
    return &g_marker;
}
int StrCb(void *, int, char *)
{
    return 0;
}
int ResultCb(void *, int)
{
    return 0;
}
int TwoCb(void *, int, char *, char *)
{
    return 0;
}
int UserInfoCb(void *, int, sso_user_info)
{
    return 0;
}
int NameCheckCb(void *, bool, char *, char *, char *)
{
    return 0;
}
int LoginCb(void *, int, sso_login_state, char *, char *)
{
    return 0;
}
int MultiLoginCb(sso_login_state, char *, void *)
{
    return 0;
}
int g_window;

using P = std::map<std::string, Expect>;

// A getter that hands out a text: one pointer to fill, nothing else.
Entry TextGetter(const char *name, const char *out, int (*get)(char **))
{
    return Entry{
        name, 0, {{out, RequiredPointer()}}, [out, get](Args &a) { return get(a.Out(out)); }};
}

// A getter that fills one value of type T: one pointer, nothing else.
template <typename T> Entry ValueGetter(const char *name, const char *out, int (*get)(T *))
{
    return Entry{name, 0, {{out, RequiredPointer()}}, [out, get](Args &a) {
                     T value{};
                     return get(a.Ptr<T *>(out, &value));
                 }};
}

// Shorthands for the callbacks and user data of the request families.
#define CB(type, fn) a.Ptr<type>("callback", &fn)
#define UD a.Ptr<void *>("user_data", Ud())

std::vector<Entry> Table()
{
    const P cbUd = {{"callback", RequiredPointer()}, {"user_data", OptionalPointer()}};
    auto with = [&](P extra) {
        P all = cbUd;
        for (auto &e : extra)
            all[e.first] = e.second;
        return all;
    };
    return {
        // ---- link
        {"sso_check_alive", 0, {}, nullptr},
        // ---- why a call failed (no pointer to get wrong)
        {"sso_last_error", 0, {}, nullptr},
        {"sso_last_service_answer", 0, {}, nullptr},
        {"sso_error_name", 0, {}, nullptr},
        {"sso_strerror", 0, {}, nullptr},
        {"sso_service_result_name", 0, {}, nullptr},
        {"sso_give_proxy", 0, {}, nullptr},
        {"get_size_of_sso_login_info_s", 0, {}, nullptr},
        // ---- synchronous queries
        ValueGetter("sso_get_login_state", "state", &sso_get_login_state),
        ValueGetter("sso_get_account_number", "count", &sso_get_account_number),
        TextGetter("sso_get_guid", "guid", &sso_get_guid),
        TextGetter("sso_get_login_vd_uid", "uid", &sso_get_login_vd_uid),
        TextGetter("sso_get_auth_token", "auth_token", &sso_get_auth_token),
        TextGetter("sso_get_device_id", "device_id", &sso_get_device_id),
        ValueGetter("sso_get_login_info", "login_info", &sso_get_login_info),
        TextGetter("sso_get_login_user_id", "user_id", &sso_get_login_user_id),
        TextGetter("sso_get_login_json_info", "json", &sso_get_login_json_info),
        TextGetter("sso_get_accounts", "accounts", &sso_get_accounts),
        ValueGetter("sso_get_popup_state", "state", &sso_get_popup_state),
        TextGetter("sso_get_account_ui_application_package_id", "package_id",
                   &sso_get_account_ui_application_package_id),
        // ---- login-state notification: a null callback is a subscriber
        // that hears nothing; the user data is never looked at.
        {"sso_subscribe_login_state_change",
         0,
         {{"callback", OptionalPointer()}, {"user_data", OptionalPointer()}},
         [](Args &a) {
             return sso_subscribe_login_state_change(
                 a.Ptr<sso_login_state_changed_cb>("callback", &LoginCb), UD);
         },
         World::SignedIn,
         [] { sso_unsubscribe_login_state_change(); }},
        {"sso_subscribe_login_state_change_extra",
         0,
         {{"callback", OptionalPointer()}, {"user_data", OptionalPointer()}},
         [](Args &a) {
             return sso_subscribe_login_state_change_extra(
                 a.Ptr<sso_login_state_changed_cb>("callback", &LoginCb), UD);
         },
         World::SignedIn,
         [] { sso_unsubscribe_login_state_change(); }},
        {"sso_unsubscribe_login_state_change", 0, {}, nullptr},
        {"sso_register_login_state_changed_cb",
         0,
         {{"callback", OptionalPointer()}, {"user_data", OptionalPointer()}},
         [](Args &a) {
             return sso_register_login_state_changed_cb(
                 a.Ptr<sso_login_state_changed_multi_cb>("callback", &MultiLoginCb), UD);
         },
         World::SignedIn,
         [] {
             sso_unregister_login_state_changed_cb(&MultiLoginCb);
             sso_unregister_login_state_changed_cb(nullptr);
         }},
        {"sso_unregister_login_state_changed_cb",
         0,
         {{"callback", OptionalPointer()}},
         [](Args &a) {
             return sso_unregister_login_state_changed_cb(
                 a.Ptr<sso_login_state_changed_multi_cb>("callback", &MultiLoginCb));
         }},
        {"sso_cb_reset", 0, {}, nullptr},
        // ---- policy
        {"sso_check_enforce_login_condition", 0, {}, nullptr},
        {"sso_check_temporary_logout_condition", 0, {}, nullptr},
        {"sso_get_term_state",
         -1,
         {{"term_id", Ignored()}},
         [](Args &a) { return sso_get_term_state(a.Text("term_id", "terms-1")); }},
        // ---- tokens and auth codes
        {"sso_request_access_token_with_scope", 0,
         with({{"app_id", Required()}, {"secret_key", Required()}, {"scope", Optional()}}),
         [](Args &a) {
             return sso_request_access_token_with_scope(
                 a.Text("app_id", "org.example.player"), a.Text("secret_key", "s3cret"),
                 a.Text("scope", "profile"), CB(sso_request_access_token_cb, StrCb), UD);
         }},
        {"sso_request_access_token", 0, with({{"app_id", Required()}, {"secret_key", Required()}}),
         [](Args &a) {
             return sso_request_access_token(a.Text("app_id", "org.example.player"),
                                             a.Text("secret_key", "s3cret"),
                                             CB(sso_request_access_token_cb, StrCb), UD);
         }},
        {"sso_request_access_token_using_authcode", 0,
         with({{"app_id", Required()},
               {"secret_key", Required()},
               {"auth_code", Required()},
               {"scope", Optional()}}),
         [](Args &a) {
             return sso_request_access_token_using_authcode(
                 a.Text("app_id", "org.example.player"), a.Text("secret_key", "s3cret"),
                 a.Text("auth_code", "AC.code"), a.Text("scope", "profile"),
                 CB(sso_request_access_token_cb, StrCb), UD);
         }},
        {"sso_request_auth_code", 0, with({{"app_id", Required()}, {"scope", Optional()}}),
         [](Args &a) {
             return sso_request_auth_code(a.Text("app_id", "org.example.player"),
                                          a.Text("scope", "profile"),
                                          CB(sso_request_auth_code_cb, StrCb), UD);
         }},
        {"sso_request_user_authcode", 0, with({{"app_id", Required()}, {"scope", Optional()}}),
         [](Args &a) {
             return sso_request_user_authcode(a.Text("app_id", "org.example.player"),
                                              a.Text("scope", "profile"),
                                              CB(sso_request_auth_code_cb, StrCb), UD);
         }},
        {"sso_request_device_authcode", 0, with({{"app_id", Required()}, {"scope", Optional()}}),
         [](Args &a) {
             return sso_request_device_authcode(a.Text("app_id", "org.example.player"),
                                                a.Text("scope", "profile"),
                                                CB(sso_request_auth_code_cb, StrCb), UD);
         }},
        {"sso_request_auth_code_for_effortless_login", 0,
         with({{"app_id", Required()}, {"scope", Optional()}}),
         [](Args &a) {
             return sso_request_auth_code_for_effortless_login(
                 a.Text("app_id", "org.example.player"), a.Text("scope", "profile"),
                 CB(sso_request_auth_code_cb, StrCb), UD);
         }},
        {"sso_request_authcode_with_ID_PWD", 0,
         with({{"app_id", Required()},
               {"account_id", Required()},
               {"passwd", Required()},
               {"scope", Optional()}}),
         [](Args &a) {
             return sso_request_authcode_with_ID_PWD(
                 a.Text("app_id", "org.example.player"), a.Text("account_id", "kim@example.com"),
                 a.Text("passwd", "pw-kim"), a.Text("scope", "profile"), UD,
                 CB(sso_request_auth_code_cb, StrCb));
         }},
        {"sso_request_authcode_for_other_device", 0, with({{"dsc", Optional()}}),
         [](Args &a) {
             return sso_request_authcode_for_other_device(a.Text("dsc", "DSC-1"),
                                                          CB(sso_request_auth_code_cb, StrCb), UD);
         }},
        // The token-creating requests take a null callback: no result then.
        {"sso_generate_token_with_authcode_dsc_noti",
         0,
         {{"authcode", Required()},
          {"userid", Required()},
          {"dsc", Optional()},
          {"callback", OptionalPointer()},
          {"user_data", OptionalPointer()}},
         [](Args &a) {
             return sso_generate_token_with_authcode_dsc_noti(
                 a.Text("authcode", "AC.code"), a.Text("userid", "kim@example.com"),
                 a.Text("dsc", "DSC-1"), CB(sso_token_with_authcode_cb, ResultCb), UD, true);
         }},
        {"sso_generate_token_with_authcode_dsc",
         0,
         {{"authcode", Required()},
          {"userid", Required()},
          {"dsc", Optional()},
          {"callback", OptionalPointer()},
          {"user_data", OptionalPointer()}},
         [](Args &a) {
             return sso_generate_token_with_authcode_dsc(
                 a.Text("authcode", "AC.code"), a.Text("userid", "kim@example.com"),
                 a.Text("dsc", "DSC-1"), CB(sso_token_with_authcode_cb, ResultCb), UD);
         }},
        {"sso_generate_token_with_authcode_dsc_deleteFlag",
         0,
         {{"userid", Required()},
          {"authcode", Required()},
          {"dsc", Optional()},
          {"callback", OptionalPointer()},
          {"user_data", OptionalPointer()}},
         [](Args &a) {
             return sso_generate_token_with_authcode_dsc_deleteFlag(
                 a.Text("userid", "kim@example.com"), a.Text("authcode", "AC.code"), false,
                 a.Text("dsc", "DSC-1"), CB(sso_token_response_cb, StrCb), UD);
         }},
        {"sso_generate_token_with_ID_PWD",
         0,
         {{"userid", Required()},
          {"passwd", Required()},
          {"callback", OptionalPointer()},
          {"user_data", OptionalPointer()}},
         [](Args &a) {
             return sso_generate_token_with_ID_PWD(a.Text("userid", "kim@example.com"),
                                                   a.Text("passwd", "pw-kim"), false,
                                                   CB(sso_token_response_cb, StrCb), UD);
         }},
        // Retired: -1 whatever it is given.
        {"sso_generate_token_with_authcode",
         -1,
         {{"authcode", Ignored()},
          {"userid", Ignored()},
          {"callback", OptionalPointer()},
          {"user_data", OptionalPointer()}},
         [](Args &a) {
             return sso_generate_token_with_authcode(a.Text("authcode", "AC.code"),
                                                     a.Text("userid", "kim@example.com"),
                                                     CB(sso_token_with_authcode_cb, ResultCb), UD);
         }},
        {"sso_request_user_authcode_with_dsc", 0,
         with({{"app_id", Required()},
               {"scope", Optional()},
               {"dsc", Optional()},
               {"response_type", Optional()}}),
         [](Args &a) {
             return sso_request_user_authcode_with_dsc(
                 a.Text("app_id", "org.example.player"), a.Text("scope", "profile"),
                 a.Text("dsc", "DSC-1"), a.Text("response_type", "code"),
                 CB(sso_request_auth_code_cb, StrCb), UD);
         }},
        {"sso_request_user_authcode_with_challenge", 0,
         with({{"app_id", Required()},
               {"scope", Optional()},
               {"dsc", Optional()},
               {"response_type", Optional()},
               {"code_challenge", Required()}}),
         [](Args &a) {
             return sso_request_user_authcode_with_challenge(
                 a.Text("app_id", "org.example.player"), a.Text("scope", "profile"),
                 a.Text("dsc", "DSC-1"), a.Text("response_type", "code"),
                 a.Text("code_challenge", "challenge"), CB(sso_request_auth_code_cb, StrCb), UD);
         }},
        {"sso_request_user_authcode_with_verifier", 0,
         with({{"app_id", Required()},
               {"scope", Optional()},
               {"dsc", Optional()},
               {"response_type", Optional()},
               {"code_verifier", Required()}}),
         [](Args &a) {
             return sso_request_user_authcode_with_verifier(
                 a.Text("app_id", "org.example.player"), a.Text("scope", "profile"),
                 a.Text("dsc", "DSC-1"), a.Text("response_type", "code"),
                 a.Text("code_verifier", "verifier"), CB(sso_request_auth_code_cb, StrCb), UD);
         }},
        // ---- account operations
        {"sso_register_account", 0,
         with({{"account_id", Required()}, {"authcode", Required()}, {"dsc", Required()}}),
         [](Args &a) {
             return sso_register_account(a.Text("account_id", "kim@example.com"),
                                         a.Text("authcode", "AC.code"), a.Text("dsc", "DSC-1"),
                                         CB(sso_response_data_cb, StrCb), UD, false);
         }},
        {"sso_perform_logout", 0, with({{"confirm_id", Optional()}}),
         [](Args &a) {
             return sso_perform_logout(CB(sso_response_data_cb, StrCb), UD,
                                       a.Text("confirm_id", "confirm-1"));
         }},
        {"sso_verify_password", 0, with({{"passwd", Required()}}),
         [](Args &a) {
             return sso_verify_password(a.Text("passwd", "pw-kim"), CB(sso_response_data_cb, StrCb),
                                        UD);
         }},
        {"sso_request_account_list", 0, cbUd,
         [](Args &a) { return sso_request_account_list(CB(sso_response_data_cb, StrCb), UD); }},
        {"sso_set_passfw", 0, with({{"account_id", Required()}, {"password", Required()}}),
         [](Args &a) {
             return sso_set_passfw(a.Text("account_id", "kim@example.com"),
                                   a.Text("password", "pw-new"), CB(sso_response_data_cb, StrCb),
                                   UD);
         }},
        {"sso_request_reset_passwd", 0, with({{"email", Required()}}),
         [](Args &a) {
             return sso_request_reset_passwd(a.Text("email", "kim@example.com"),
                                             CB(sso_response_data_cb, StrCb), UD);
         }},
        {"sso_switch_account", 0, with({{"account_id", NonEmpty()}, {"extra", Optional()}}),
         [](Args &a) {
             return sso_switch_account(a.Text("account_id", "lee@example.com"),
                                       CB(sso_response_data_cb, StrCb), UD,
                                       a.Text("extra", "extra-1"));
         }},
        {"sso_switch_account_by_guid", 0, with({{"guid", NonEmpty()}, {"extra", Optional()}}),
         [](Args &a) {
             return sso_switch_account_by_guid(a.Text("guid", "0123456789ABCDEF0123456789ABCDEF"),
                                               CB(sso_response_data_cb, StrCb), UD,
                                               a.Text("extra", "extra-1"));
         }},
        {"sso_switch_account_with_usertoken", 0,
         with({{"account_id", NonEmpty()}, {"usertoken", Required()}}),
         [](Args &a) {
             return sso_switch_account_with_usertoken(a.Text("account_id", "lee@example.com"),
                                                      CB(sso_response_data_cb, StrCb), UD,
                                                      a.Text("usertoken", "UT-lee"));
         }},
        {"sso_is_account_switching_available", 0, {}, nullptr},
        {"sso_request_current_account_noti", 0, {}, nullptr},
        {"sso_reset", 0, {}, nullptr},
        // ---- profile and groups
        {"sso_get_user_info_v4", 0, cbUd,
         [](Args &a) { return sso_get_user_info_v4(CB(sso_response_data_cb, StrCb), UD); }},
        {"sso_get_user_info", 0, cbUd,
         [](Args &a) { return sso_get_user_info(CB(sso_get_user_info_cb, UserInfoCb), UD); }},
        {"sso_identify_current_user_info", 0, cbUd,
         [](Args &a) {
             return sso_identify_current_user_info(CB(sso_identify_user_info_cb, TwoCb), UD);
         }},
        {"sso_get_namecheck_auth_info", 0, cbUd,
         [](Args &a) {
             return sso_get_namecheck_auth_info(CB(sso_get_namecheck_auth_info_cb, NameCheckCb),
                                                UD);
         }},
        {"sso_get_dynamic_my_account_list", 0, cbUd,
         [](Args &a) {
             return sso_get_dynamic_my_account_list(CB(sso_response_data_cb, StrCb), UD);
         }},
        {"sso_get_user_family_group", 0,
         with({{"app_id", Required()}, {"access_token", Required()}}),
         [](Args &a) {
             return sso_get_user_family_group(a.Text("app_id", "org.example.player"),
                                              a.Text("access_token", "AT.token"),
                                              CB(sso_response_data_cb, StrCb), UD);
         }},
        {"sso_get_user_group_users", 0,
         with({{"app_id", Required()}, {"access_token", Required()}, {"group_id", Required()}}),
         [](Args &a) {
             return sso_get_user_group_users(
                 a.Text("app_id", "org.example.player"), a.Text("access_token", "AT.token"),
                 a.Text("group_id", "FG-1"), CB(sso_response_data_cb, StrCb), UD);
         }},
        // A null callback only means the result is dropped when it comes.
        {"sso_get_user_json_info",
         0,
         {{"callback", OptionalPointer()}, {"user_data", OptionalPointer()}},
         [](Args &a) { return sso_get_user_json_info(CB(sso_user_json_info_cb, StrCb), UD); }},
        // ---- retired partner and content-provider functions: every
        // argument is ignored.
        {"sso_get_partner_auth_info",
         -1,
         {{"auth_key", Ignored()},
          {"callback", OptionalPointer()},
          {"user_data", OptionalPointer()}},
         [](Args &a) {
             return sso_get_partner_auth_info(a.Text("auth_key", "key"),
                                              CB(sso_response_data_cb, StrCb), UD);
         }},
        {"sso_save_partner_auth_info",
         -1,
         {{"auth_key", Ignored()},
          {"auth_value", Ignored()},
          {"callback", OptionalPointer()},
          {"user_data", OptionalPointer()}},
         [](Args &a) {
             return sso_save_partner_auth_info(a.Text("auth_key", "key"),
                                               a.Text("auth_value", "value"),
                                               CB(sso_response_data_cb, StrCb), UD);
         }},
        {"sso_clear_partner_auth_info",
         -1,
         {{"auth_key", Ignored()},
          {"callback", OptionalPointer()},
          {"user_data", OptionalPointer()}},
         [](Args &a) {
             return sso_clear_partner_auth_info(a.Text("auth_key", "key"),
                                                CB(sso_response_data_cb, StrCb), UD);
         }},
        {"sso_get_cp_account_info",
         -1,
         {{"cp_id", Ignored()}, {"cp_account_info", OptionalPointer()}},
         [](Args &a) {
             return sso_get_cp_account_info(a.Text("cp_id", "cp"), a.Out("cp_account_info"));
         }},
        {"sso_get_cp_account_mapping_list",
         0,
         {{"callback", OptionalPointer()}, {"user_data", OptionalPointer()}},
         [](Args &a) {
             return sso_get_cp_account_mapping_list(CB(sso_response_data_cb, StrCb), UD);
         }},
        {"sso_add_cp_account_mapping_info",
         0,
         {{"cp_id", Ignored()},
          {"cp_user_id", Ignored()},
          {"callback", OptionalPointer()},
          {"user_data", OptionalPointer()}},
         [](Args &a) {
             return sso_add_cp_account_mapping_info(a.Text("cp_id", "cp"),
                                                    a.Text("cp_user_id", "user"),
                                                    CB(sso_response_data_cb, StrCb), UD);
         }},
        {"sso_remove_cp_account_mapping_info",
         0,
         {{"cp_id", Ignored()}, {"callback", OptionalPointer()}, {"user_data", OptionalPointer()}},
         [](Args &a) {
             return sso_remove_cp_account_mapping_info(a.Text("cp_id", "cp"),
                                                       CB(sso_response_data_cb, StrCb), UD);
         }},
        // ---- account UI: the texts travel as bytes to the launched
        // application; none is installed here, so a launch fails (1), and
        // a verification, which reports that through its callback, too (-1).
        {"sso_show", 1, with({{"data", Ignored()}, {"caller_id", Present()}}),
         [](Args &a) {
             return sso_show(1, a.Text("data", "0"), a.Text("caller_id", "org.example.caller"),
                             CB(sso_account_ui_result_cb, StrCb), UD);
         }},
        {"sso_show_term_page", 1,
         with({{"window", RequiredPointer()},
               {"reserved", OptionalPointer()},
               {"caller_id", Present()}}),
         [](Args &a) {
             return sso_show_term_page(a.Ptr<void *>("window", &g_window),
                                       a.Ptr<void *>("reserved", &g_window),
                                       a.Text("caller_id", "org.example.caller"),
                                       CB(sso_account_ui_result_cb, StrCb), UD);
         }},
        {"sso_show_with_transparent_win", 1, with({{"caller_id", Present()}}),
         [](Args &a) {
             return sso_show_with_transparent_win(1, a.Text("caller_id", "org.example.caller"),
                                                  CB(sso_account_ui_result_cb, StrCb), UD, true);
         }},
        {"sso_request_account_verification", -1, with({{"account_id", Present()}}),
         [](Args &a) {
             return sso_request_account_verification(a.Text("account_id", "kim@example.com"),
                                                     CB(sso_account_ui_result_cb, StrCb), UD);
         }},
        {"sso_request_account_verification_using_pin", -1, with({{"account_id", Present()}}),
         [](Args &a) {
             return sso_request_account_verification_using_pin(
                 a.Text("account_id", "kim@example.com"), CB(sso_account_ui_result_cb, StrCb), UD,
                 1);
         }},
        {"sso_request_account_setup_pin", -1, with({{"account_id", Present()}}),
         [](Args &a) {
             return sso_request_account_setup_pin(a.Text("account_id", "kim@example.com"),
                                                  CB(sso_account_ui_result_cb, StrCb), UD, 1);
         }},
        // ---- caller identity and whitelist tokens
        {"sso_pre_init_callerInformation", 0, {}, nullptr},
        {"sso_request_whitelist_accesstoken", 0,
         with({{"app_id", Required()}, {"scope", Optional()}}),
         [](Args &a) {
             return sso_request_whitelist_accesstoken(
                 a.Text("app_id", kAppId), a.Text("scope", "profile"),
                 CB(sso_request_whitelist_accesstoken_cb, StrCb), UD);
         },
         World::WithPackage},
        {"sso_request_signature_accesstoken", 0,
         with({{"app_id", Required()}, {"scope", Optional()}}),
         [](Args &a) {
             return sso_request_signature_accesstoken(
                 a.Text("app_id", kAppId), a.Text("scope", "profile"),
                 CB(sso_request_whitelist_accesstoken_cb, StrCb), UD);
         },
         World::WithPackage},
        // Only the caller's own package may be named.
        {"sso_api_request_whitelist_accesstoken", 0,
         with({{"app_id", Required()},
               {"packagename", {-1, -1, -1, -1}},
               {"signature", Required()},
               {"scope", Optional()}}),
         [](Args &a) {
             return sso_api_request_whitelist_accesstoken(
                 a.Text("app_id", kAppId), a.Text("packagename", kPackage),
                 a.Text("signature", "SIGNATURE"), a.Text("scope", "profile"),
                 CB(sso_request_whitelist_accesstoken_cb, StrCb), UD);
         },
         World::WithPackage},
        // Reads of the stored token: any other app id finds none.
        {"sso_get_whitelist_accesstoken",
         0,
         {{"app_id", {-1, -1, -1, -1}}, {"access_token", RequiredPointer()}},
         [](Args &a) {
             return sso_get_whitelist_accesstoken(a.Text("app_id", kAppId), a.Out("access_token"));
         },
         World::WithPackage},
        {"sso_get_signature_accesstoken",
         0,
         {{"app_id", {-1, -1, -1, -1}}, {"access_token", RequiredPointer()}},
         [](Args &a) {
             return sso_get_signature_accesstoken(a.Text("app_id", kAppId), a.Out("access_token"));
         },
         World::WithPackage},
        {"sso_api_get_whitelist_accesstoken",
         0,
         {{"app_id", {-1, -1, -1, -1}},
          {"packagename", {-1, -1, -1, -1}},
          {"access_token", RequiredPointer()}},
         [](Args &a) {
             return sso_api_get_whitelist_accesstoken(
                 a.Text("app_id", kAppId), a.Text("packagename", kPackage), a.Out("access_token"));
         },
         World::WithPackage},
    };
}

#undef CB
#undef UD

// ----------------------------------------------------------------- test

pid_t ThreadId()
{
    return static_cast<pid_t>(syscall(SYS_gettid));
}

class BadInput : public ssotest::SimulatorTest, public ::testing::WithParamInterface<Entry> {
protected:
    void SetUp() override
    {
        setenv("SSO_PLATFORM_APP_ID", kAppId, 1);
        // A GLib critical (a text GVariant refused, an object misused) ends
        // the test instead of passing as a line on stderr.
        g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL));
        SimulatorTest::SetUp();
        ssotest::AccountSpec kim = ssotest::KimAccount();
        kim.password = "pw-kim";
        guid_ = sim_.AddAccount(kim);
        sim_.AddAccount(ssotest::LeeAccount());
        sim_.SignIn("kim@example.com");
        vconf_set_int("memory/sso/view_status", 0);
        // Every request is accepted and answered with a failure, which
        // changes nothing: each call meets the same world.
        ssotest::Behaviour failing;
        failing.result = ssosim::kResultServiceError;
        sim_.Configure("*", failing);
        if (GetParam().world == World::WithPackage) {
            ASSERT_EQ(
                PACKAGE_MANAGER_ERROR_NONE,
                certtest::AddSignedPackage(certtest::MakeCert(root_.path()), kPackage, kAppId));
            sim_.SetApplicationData(kPackage, guid_, std::string(kTokenKeyPrefix) + kAppId,
                                    "WT-stored");
        }
    }

    struct Result {
        int value = 0;
        std::set<std::string> errors; // red lines this thread logged
        bool outTouched = false;
        sso_error_e cause = SSO_ERROR_NONE; // sso_last_error() right after the call
    };

    // One call, and the error lines the calling thread logged while it ran.
    Result Run(const Entry &e, Args &args)
    {
        log().Clear();
        Result r;
        // A cause no bad argument gives, so the call's own is seen to replace it.
        sso_get_cp_account_info(nullptr, nullptr);
        r.value = e.call(args);
        r.cause = sso_last_error();
        if (args.out() != nullptr) {
            r.outTouched = true;
            free(args.out());
        }
        if (e.after)
            e.after();
        const std::string tid = " " + std::to_string(ThreadId()) + " ";
        for (const auto &line : log().Lines()) {
            size_t at = line.find(" SSOAPIClient: ");
            if (at == std::string::npos || line.find(tid) == std::string::npos ||
                line.find("\033[0;31m") == std::string::npos)
                continue;
            r.errors.insert(line.substr(at));
        }
        return r;
    }

    std::string guid_;
};

TEST_P(BadInput, EachBadArgumentGetsTheAnswerItIsOwed)
{
    const Entry &e = GetParam();
    static const auto header = ParseHeader();
    auto it = header.find(e.name);
    ASSERT_NE(it, header.end()) << e.name << " is not exported by the header any more";

    // The entry covers exactly the pointer and text parameters the header
    // declares.
    std::set<std::string> declared;
    for (const auto &p : it->second.params)
        if (p.pointer)
            declared.insert(p.name);
    std::set<std::string> covered;
    for (const auto &p : e.params)
        covered.insert(p.first);
    ASSERT_EQ(declared, covered) << "the parameters of " << e.name << " changed";
    if (!e.call) {
        EXPECT_TRUE(declared.empty());
        return;
    }

    Args sound("", Bad::None);
    Result base = Run(e, sound);
    ASSERT_EQ(base.value, e.sound) << e.name << " with every argument sound";
    ASSERT_EQ(sound.used(), declared) << "the call does not pass every parameter by name";

    for (const auto &p : it->second.params) {
        if (!p.pointer)
            continue;
        const Expect &expect = e.params.at(p.name);
        for (Bad bad : {Bad::Null, Bad::Empty, Bad::Long, Bad::NotUtf8}) {
            int owed = expect.For(bad);
            if (owed == kNone || (!p.text && bad != Bad::Null))
                continue;
            if (owed == kSound)
                owed = e.sound;
            SCOPED_TRACE(std::string(e.name) + "(" + p.name + " " + BadName(bad) + ")");
            Args args(p.name, bad);
            Result r = Run(e, args);
            EXPECT_EQ(r.value, owed);
            if (owed != e.sound) {
                // The failure is told: an error line the sound call did not
                // write.
                bool told = false;
                for (const auto &line : r.errors)
                    told = told || base.errors.count(line) == 0;
                EXPECT_TRUE(told) << "no error line says why";
                // And the application can ask why: a missing argument, or
                // what the bad one led to (a value not stored under it...).
                if (bad == Bad::Null)
                    EXPECT_EQ(r.cause, SSO_ERROR_INVALID_ARGUMENT) << sso_error_name(r.cause);
                else
                    EXPECT_NE(r.cause, SSO_ERROR_NOT_SUPPORTED) << sso_error_name(r.cause);
            }
            // A failed getter hands out nothing (sso_get_accounts excepted:
            // it hands out an empty text).
            if (r.value != 0 && std::string(e.name) != "sso_get_accounts") {
                EXPECT_FALSE(r.outTouched);
            }
        }
    }
}

std::vector<Entry> Entries()
{
    return Table();
}

INSTANTIATE_TEST_SUITE_P(Exports, BadInput, ::testing::ValuesIn(Entries()),
                         [](const ::testing::TestParamInfo<Entry> &info) {
                             return std::string(info.param.name);
                         });

// Every export has an entry, so a new one cannot go untested.
TEST(BadInputTable, CoversEveryExportedFunction)
{
    std::set<std::string> inTable;
    for (const auto &e : Table())
        EXPECT_TRUE(inTable.insert(e.name).second) << "twice in the table: " << e.name;
    std::set<std::string> exported;
    for (const auto &e : ParseHeader())
        exported.insert(e.first);
    EXPECT_GT(exported.size(), 70u) << "the header was not parsed";
    EXPECT_EQ(exported, inTable);
}

} // namespace
