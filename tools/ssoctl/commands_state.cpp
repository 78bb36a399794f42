// Commands about the device's state: status, the local getters, the policy
// predicates, watching for changes, and the library's own controls.
#include <glib-unix.h>
#include <vconf.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <cstdlib>
#include <functional>
#include <memory>

#include "ssoctl.h"

namespace ssoctl {

namespace {

// The account UI publishes whether its view is shown here.
constexpr const char *kViewStateKey = "memory/sso/view_status";

bool ReadText(int (*getter)(char **), std::string *out)
{
    char *s = nullptr;
    int ret = getter(&s);
    if (ret != 0) {
        // Untouched on failure, except by sso_get_accounts; free either way.
        std::free(s);
        return false;
    }
    *out = TakeString(s);
    return true;
}

std::string YesNo(bool b)
{
    return b ? "yes" : "no";
}

} // namespace

int CmdStatus(const Invocation &inv)
{
    bool alive = sso_check_alive() == 0;
    // Read at once: the calls below may fail for reasons of their own.
    const std::string aliveCause = alive ? std::string() : LastCause();
    const std::string aliveError = alive ? std::string() : LastCauseName();
    sso_login_state state = SSO_NOT_LOGIN;
    bool state_ok = sso_get_login_state(&state) == 0;
    const std::string stateCause = state_ok ? std::string() : LastCause();
    int count = 0;
    bool count_ok = sso_get_account_number(&count) == 0;
    bool signed_in = state_ok && state == SSO_LOGEDIN;
    std::string login_id, guid;
    if (signed_in) {
        ReadText(sso_get_login_user_id, &login_id);
        ReadText(sso_get_guid, &guid);
    }
    if (inv.json) {
        // Unknown or absent: null (docs/json-output.md).
        Json::Value v(Json::objectValue);
        v["alive"] = alive;
        v["signed_in"] = state_ok ? Json::Value(signed_in) : Json::Value();
        v["account_count"] = count_ok ? Json::Value(count) : Json::Value();
        v["login_id"] = signed_in ? Json::Value(login_id) : Json::Value();
        v["guid"] = signed_in ? Json::Value(Mask(guid, inv.show_secrets)) : Json::Value();
        v["error"] = alive ? Json::Value() : Json::Value(aliveError);
        PrintJson(v);
    } else {
        PrintLine(std::string("service: ") + (alive ? "alive" : "not answering"));
        PrintLine(std::string("state: ") + (!state_ok   ? "unknown"
                                            : signed_in ? "signed in"
                                                        : "signed out"));
        PrintLine("accounts: " + (count_ok ? std::to_string(count) : std::string("unknown")));
        if (signed_in) {
            PrintLine("login id: " + login_id);
            PrintLine("guid: " + Mask(guid, inv.show_secrets));
        }
    }
    if (!alive)
        return Fail("the SSO service did not answer: " + aliveCause, kExitFailed);
    return state_ok ? kExitOk : Fail("cannot read the login state: " + stateCause, kExitFailed);
}

int CmdAlive(const Invocation &inv)
{
    bool alive = sso_check_alive() == 0;
    if (inv.json) {
        Json::Value v(Json::objectValue);
        v["alive"] = alive;
        PrintJson(v);
    } else {
        PrintLine(alive ? "alive" : "not answering");
    }
    if (!alive) {
        const std::string cause = LastCause();
        return Fail("the SSO service did not answer: " + cause, kExitFailed);
    }
    return kExitOk;
}

int CmdCodes(const Invocation &inv)
{
    Json::Value causes(Json::arrayValue);
    Json::Value results(Json::arrayValue);
    if (!inv.json)
        PrintLine("Causes of failure (\"error\" with --json):");
    // The causes run from 0 up; the first value without a name ends them.
    for (int e = 0;; ++e) {
        const char *name = sso_error_name(static_cast<sso_error_e>(e));
        if (std::string(name) == "unknown")
            break;
        const char *text = sso_strerror(static_cast<sso_error_e>(e));
        Json::Value c(Json::objectValue);
        c["code"] = e;
        c["name"] = name;
        c["text"] = text;
        causes.append(c);
        if (!inv.json)
            PrintLine("  " + std::string(name) +
                      std::string(22 - std::min<size_t>(21, std::string(name).size()), ' ') + text);
    }
    if (!inv.json)
        PrintLine("Result codes of the SSO service:");
    for (int code = 0;; ++code) {
        const char *name = sso_service_result_name(code);
        if (name == nullptr)
            break;
        Json::Value r(Json::objectValue);
        r["code"] = code;
        r["name"] = name;
        results.append(r);
        if (!inv.json)
            PrintLine("  " + std::to_string(code) + "  " + name);
    }
    if (inv.json) {
        Json::Value v(Json::objectValue);
        v["causes"] = causes;
        v["service_results"] = results;
        PrintJson(v);
    }
    return kExitOk;
}

int CmdAccounts(const Invocation &inv)
{
    std::string text;
    if (!ReadText(sso_get_accounts, &text))
        return FailWithCause(inv, "accounts");
    Json::Value doc = ParseLoose(text);
    if (doc.isString())
        return Fail("accounts: the account document is not valid JSON", kExitFailed);
    if (!inv.show_secrets)
        MaskSecrets(doc);
    PrintLine(inv.json ? CompactJson(doc) : PrettyJson(doc));
    return kExitOk;
}

// ---- account: the local getters ----

namespace {

struct AccountField {
    const char *name;  // on the command line
    const char *label; // in the text listing
    const char *key;   // in JSON
    bool secret;
    // Reads the value into out (a text, or a JSON value for the records).
    std::function<bool(Json::Value *out)> read;
};

bool GetterField(int (*getter)(char **), Json::Value *out)
{
    std::string s;
    if (!ReadText(getter, &s))
        return false;
    *out = s;
    return true;
}

// The account as the library's JSON text, parsed.
bool LoginJson(Json::Value *out)
{
    std::string s;
    if (!ReadText(sso_get_login_json_info, &s))
        return false;
    *out = ParseLoose(s);
    return out->isObject();
}

bool LoginInfo(Json::Value *out)
{
    // Sized the way an application that allocates the record does it.
    int size = get_size_of_sso_login_info_s();
    if (size < static_cast<int>(sizeof(sso_login_info_s)))
        return false;
    std::unique_ptr<void, decltype(&std::free)> mem(std::calloc(1, static_cast<size_t>(size)),
                                                    &std::free);
    if (!mem)
        return false;
    auto *info = static_cast<sso_login_info_s *>(mem.get());
    if (sso_get_login_info(info) != 0)
        return false;
    auto field = [](const char *s, size_t n) { return std::string(s, strnlen(s, n)); };
    Json::Value v(Json::objectValue);
    v["login_id"] = field(info->login_id, sizeof info->login_id);
    v["guid"] = field(info->guid, sizeof info->guid);
    v["uid"] = field(info->uid, sizeof info->uid);
    v["user_icon_path"] = field(info->user_icon_path, sizeof info->user_icon_path);
    *out = v;
    return true;
}

const std::vector<AccountField> &AccountFields()
{
    static const std::vector<AccountField> fields = {
        {"login-id", "login id", "login_id", false,
         [](Json::Value *o) { return GetterField(sso_get_login_user_id, o); }},
        {"guid", "guid", "guid", true, [](Json::Value *o) { return GetterField(sso_get_guid, o); }},
        {"vd-uid", "vd uid", "vd_uid", false,
         [](Json::Value *o) { return GetterField(sso_get_login_vd_uid, o); }},
        {"auth-token", "auth token", "auth_token", true,
         [](Json::Value *o) { return GetterField(sso_get_auth_token, o); }},
        {"device-id", "device id", "device_id", false,
         [](Json::Value *o) { return GetterField(sso_get_device_id, o); }},
        {"country-codes", "country codes", "country_codes", false,
         [](Json::Value *o) {
             Json::Value j;
             if (!LoginJson(&j))
                 return false;
             Json::Value v(Json::objectValue);
             v["country_code"] = j["userCountryCode"].asString();
             v["alpha2_country_code"] = j["alpha2CountryCode"].asString();
             *o = v;
             return true;
         }},
        {"login-info", "login info", "login_info", false, LoginInfo},
        {"json-info", "json info", "json_info", false, LoginJson},
        {"ui-package", "account UI", "ui_package", false,
         [](Json::Value *o) { return GetterField(sso_get_account_ui_application_package_id, o); }},
    };
    return fields;
}

// The value as printed in text mode.
std::string FieldText(const AccountField &f, Json::Value v, bool show_secrets)
{
    if (v.isString())
        return f.secret ? Mask(v.asString(), show_secrets) : v.asString();
    if (!show_secrets)
        MaskSecrets(v);
    if (std::string(f.name) == "country-codes")
        return v["country_code"].asString() + " " + v["alpha2_country_code"].asString();
    return PrettyJson(v);
}

Json::Value FieldJson(const AccountField &f, Json::Value v, bool show_secrets)
{
    if (v.isString())
        return f.secret ? Json::Value(Mask(v.asString(), show_secrets)) : v;
    if (!show_secrets)
        MaskSecrets(v);
    return v;
}

} // namespace

int CmdAccount(const Invocation &inv)
{
    const std::string wanted = inv.Arg(0);
    if (wanted == "login-state") {
        sso_login_state state = SSO_NOT_LOGIN;
        if (sso_get_login_state(&state) != 0)
            return FailWithCause(inv, "account login-state");
        const char *text = state == SSO_LOGEDIN ? "signed-in" : "signed-out";
        if (inv.json) {
            Json::Value v(Json::objectValue);
            v["login_state"] = text;
            PrintJson(v);
        } else {
            PrintLine(text);
        }
        return kExitOk;
    }
    if (wanted == "account-number") {
        int count = 0;
        if (sso_get_account_number(&count) != 0)
            return FailWithCause(inv, "account account-number");
        if (inv.json) {
            Json::Value v(Json::objectValue);
            v["account_count"] = count;
            PrintJson(v);
        } else {
            PrintLine(std::to_string(count));
        }
        return kExitOk;
    }
    if (!wanted.empty()) {
        for (const AccountField &f : AccountFields()) {
            if (wanted != f.name)
                continue;
            Json::Value value;
            if (!f.read(&value))
                return FailWithCause(inv, "account " + wanted);
            if (inv.json) {
                Json::Value v(Json::objectValue);
                v[f.key] = FieldJson(f, value, inv.show_secrets);
                PrintJson(v);
            } else {
                PrintLine(FieldText(f, value, inv.show_secrets));
            }
            return kExitOk;
        }
        return UsageError(inv, "unknown field \"" + wanted + "\"");
    }

    // Everything: the state first, then what a signed-in account has.
    sso_login_state state = SSO_NOT_LOGIN;
    bool state_ok = sso_get_login_state(&state) == 0;
    bool signed_in = state_ok && state == SSO_LOGEDIN;
    int count = 0;
    bool count_ok = sso_get_account_number(&count) == 0;
    // Unknown or absent: null (docs/json-output.md).
    Json::Value all(Json::objectValue);
    all["signed_in"] = state_ok ? Json::Value(signed_in) : Json::Value();
    all["account_count"] = count_ok ? Json::Value(count) : Json::Value();
    if (!inv.json) {
        PrintLine(std::string("login state: ") + (!state_ok   ? "unknown"
                                                  : signed_in ? "signed in"
                                                              : "signed out"));
        PrintLine("accounts: " + (count_ok ? std::to_string(count) : std::string("unknown")));
    }
    for (const AccountField &f : AccountFields()) {
        if (std::string(f.name) == "json-info" || std::string(f.name) == "login-info")
            continue; // their values are listed one by one
        bool needs_login = std::string(f.name) != "ui-package";
        Json::Value value;
        if ((needs_login && !signed_in) || !f.read(&value)) {
            all[f.key] = Json::Value();
            continue;
        }
        if (inv.json)
            all[f.key] = FieldJson(f, value, inv.show_secrets);
        else
            PrintLine(std::string(f.label) + ": " + FieldText(f, value, inv.show_secrets));
    }
    all["user_icon_path"] = Json::Value();
    all["display_name"] = Json::Value();
    if (signed_in) {
        Json::Value info;
        if (LoginInfo(&info)) {
            if (inv.json)
                all["user_icon_path"] = info["user_icon_path"];
            else
                PrintLine("icon: " + info["user_icon_path"].asString());
        }
        Json::Value j;
        if (LoginJson(&j)) {
            if (inv.json)
                all["display_name"] = j["displayName"];
            else
                PrintLine("display name: " + j["displayName"].asString());
        }
    }
    if (inv.json)
        PrintJson(all);
    return state_ok ? kExitOk : Fail("account: cannot read the login state", kExitFailed);
}

// ---- policy ----

int CmdPolicy(const Invocation &inv)
{
    const std::string check = inv.Arg(0);
    if (check != "term" && inv.args.size() > 1)
        return UsageError(inv, "unexpected argument \"" + inv.Arg(1) + "\"");
    auto answer = [&](const char *key, const char *label, bool value) {
        if (inv.json) {
            Json::Value v(Json::objectValue);
            v[key] = value;
            PrintJson(v);
        } else {
            PrintLine(std::string(label) + ": " + YesNo(value));
        }
        return kExitOk;
    };
    if (check == "enforce-login")
        return answer("enforce_login", "enforce login", sso_check_enforce_login_condition() == 1);
    if (check == "temporary-logout")
        return answer("temporary_logout", "temporary logout",
                      sso_check_temporary_logout_condition() == 1);
    if (check == "switching")
        return answer("switching_available", "account switching",
                      sso_is_account_switching_available());
    if (check == "popup") {
        int popup = 0;
        if (sso_get_popup_state(&popup) != 0)
            return Fail("policy popup: cannot read the view state", kExitFailed);
        return answer("popup", "popup", popup == 1);
    }
    if (check == "term") {
        const std::string term = inv.Arg(1);
        int ret = sso_get_term_state(term.empty() ? nullptr : term.c_str());
        if (inv.json) {
            Json::Value v(Json::objectValue);
            v["ok"] = ret != -1;
            v["term_state"] = ret;
            PrintJson(v);
        }
        if (ret == -1)
            return Fail("policy term: the terms state is not available (a retired query)",
                        kExitFailed);
        if (!inv.json)
            PrintLine("term state: " + std::to_string(ret));
        return kExitOk;
    }
    if (!check.empty())
        return UsageError(inv, "unknown check \"" + check + "\"");

    bool enforce = sso_check_enforce_login_condition() == 1;
    bool temporary = sso_check_temporary_logout_condition() == 1;
    bool switching = sso_is_account_switching_available();
    int popup = 0;
    bool popup_ok = sso_get_popup_state(&popup) == 0;
    if (inv.json) {
        Json::Value v(Json::objectValue);
        v["enforce_login"] = enforce;
        v["temporary_logout"] = temporary;
        v["switching_available"] = switching;
        if (popup_ok)
            v["popup"] = popup == 1;
        PrintJson(v);
    } else {
        PrintLine("enforce login: " + YesNo(enforce));
        PrintLine("temporary logout: " + YesNo(temporary));
        PrintLine("account switching: " + YesNo(switching));
        PrintLine("popup: " + (popup_ok ? YesNo(popup == 1) : std::string("unknown")));
    }
    return kExitOk;
}

// ---- watch ----

namespace {

enum class WatchMode { Extra, Plain, Multi };

// Set once before the loop runs; read by the callbacks on the main loop.
bool g_watch_show_secrets = false;
bool g_watch_json = false;
WatchMode g_watch_mode = WatchMode::Extra;

std::vector<std::string> SplitBars(const std::string &text)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        size_t bar = text.find('|', start);
        parts.push_back(text.substr(start, bar - start));
        if (bar == std::string::npos)
            break;
        start = bar + 1;
    }
    return parts;
}

void PrintLoginEvent(sso_login_state state, const int *result, const std::string &login_id,
                     const std::string &guid, const std::string &event, const char *icon)
{
    const char *name = state == SSO_LOGEDIN ? "signed-in" : "signed-out";
    const bool has_login_id = g_watch_mode != WatchMode::Multi;
    const bool has_guid = g_watch_mode != WatchMode::Plain;
    const bool has_event = g_watch_mode == WatchMode::Extra;
    std::string shown_guid = Mask(guid, g_watch_show_secrets);
    if (g_watch_json) {
        Json::Value v(Json::objectValue);
        v["state"] = name;
        if (result)
            v["result"] = *result;
        if (has_login_id)
            v["login_id"] = login_id;
        if (has_guid)
            v["guid"] = shown_guid;
        if (has_event)
            v["event"] = event;
        if (icon)
            v["icon_path"] = icon;
        PrintJson(v);
        return;
    }
    std::string line = name;
    if (has_login_id)
        line += " login_id=" + login_id;
    if (has_guid)
        line += " guid=" + shown_guid;
    if (has_event)
        line += " event=" + event;
    if (icon)
        line += std::string(" icon=") + icon;
    if (result)
        line += " result=" + std::to_string(*result);
    PrintLine(line);
}

// The single subscriber; runs on the main loop.
int OnLoginStateChanged(void *, int result, sso_login_state state, char *text, char *icon)
{
    std::vector<std::string> parts = SplitBars(text ? text : "");
    if (g_watch_mode == WatchMode::Plain)
        parts = {text ? text : ""}; // the login id alone, bars and all
    parts.resize(std::max<size_t>(parts.size(), 3));
    PrintLoginEvent(state, &result, parts[0], parts[1], parts[2], icon);
    return 0;
}

// A registered callback; runs on the main loop. Its last argument is the
// icon path text, not user data.
int OnLoginStateChangedMulti(sso_login_state state, char *guid, void *icon)
{
    PrintLoginEvent(state, nullptr, "", guid ? guid : "", "", static_cast<const char *>(icon));
    return 0;
}

void OnViewStateChanged(keynode_t *node, void *)
{
    int value = vconf_keynode_get_int(node);
    const char *what = value == 1 ? "shown" : value == 0 ? "closed" : "changed";
    if (g_watch_json) {
        Json::Value v(Json::objectValue);
        v["view"] = what;
        v["view_state"] = value;
        PrintJson(v);
    } else {
        PrintLine(std::string("view-") + what + " view_state=" + std::to_string(value));
    }
}

gboolean OnStopSignal(gpointer data)
{
    g_main_loop_quit(static_cast<GMainLoop *>(data));
    return G_SOURCE_CONTINUE; // removed by CmdWatch
}

} // namespace

int CmdWatch(const Invocation &inv)
{
    if (inv.Flag("--plain") && inv.Flag("--multi"))
        return UsageError(inv, "--plain and --multi exclude each other");
    g_watch_show_secrets = inv.show_secrets;
    g_watch_json = inv.json;
    g_watch_mode = inv.Flag("--multi")   ? WatchMode::Multi
                   : inv.Flag("--plain") ? WatchMode::Plain
                                         : WatchMode::Extra;
    int ret = 0;
    switch (g_watch_mode) {
    case WatchMode::Extra:
        ret = sso_subscribe_login_state_change_extra(OnLoginStateChanged, nullptr);
        break;
    case WatchMode::Plain:
        ret = sso_subscribe_login_state_change(OnLoginStateChanged, nullptr);
        break;
    case WatchMode::Multi:
        ret = sso_register_login_state_changed_cb(OnLoginStateChangedMulti, nullptr);
        break;
    }
    if (ret != 0)
        return Fail("watch: cannot subscribe to login state changes", kExitFailed);
    if (vconf_notify_key_changed(kViewStateKey, OnViewStateChanged, nullptr) != 0) {
        if (g_watch_mode == WatchMode::Multi)
            sso_unregister_login_state_changed_cb(OnLoginStateChangedMulti);
        sso_unsubscribe_login_state_change();
        return Fail("watch: cannot watch the account view state", kExitFailed);
    }
    GMainLoop *loop = g_main_loop_new(nullptr, FALSE);
    guint sigint = g_unix_signal_add(SIGINT, OnStopSignal, loop);
    guint sigterm = g_unix_signal_add(SIGTERM, OnStopSignal, loop);
    PrintLine(inv.json ? "{\"watching\":true}" : "watching");
    g_main_loop_run(loop);
    vconf_ignore_key_changed(kViewStateKey, OnViewStateChanged);
    if (g_watch_mode == WatchMode::Multi)
        sso_unregister_login_state_changed_cb(OnLoginStateChangedMulti);
    sso_unsubscribe_login_state_change();
    g_source_remove(sigint);
    g_source_remove(sigterm);
    g_main_loop_unref(loop);
    return kExitOk;
}

// ---- library control ----

int CmdReset(const Invocation &inv)
{
    return ReportImmediate(inv, "reset", sso_reset(), "the service was asked to reset");
}

int CmdCurrentAccountNoti(const Invocation &inv)
{
    return ReportImmediate(inv, "current-account-noti", sso_request_current_account_noti(),
                           "the service announces the current account again");
}

int CmdCbReset(const Invocation &inv)
{
    return ReportImmediate(inv, "cb-reset", sso_cb_reset(), "callback registrations dropped");
}

int CmdGiveProxy(const Invocation &inv)
{
    bool before = sso_check_alive() == 0;
    sso_give_proxy();
    bool after = sso_check_alive() == 0;
    if (inv.json) {
        Json::Value v(Json::objectValue);
        v["ok"] = !after;
        v["alive_before"] = before;
        v["alive_after"] = after;
        PrintJson(v);
    } else {
        PrintLine(std::string("before: ") + (before ? "alive" : "not answering"));
        PrintLine("link given up");
        PrintLine(std::string("after: ") + (after ? "alive" : "not reachable from this process"));
    }
    return after ? Fail("give-proxy: the service is still reachable", kExitFailed) : kExitOk;
}

} // namespace ssoctl
