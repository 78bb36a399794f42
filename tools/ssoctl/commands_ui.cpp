// Commands that launch the account UI applications: account pages, account
// verification, PIN verification and set-up. Their results are delivered on
// the main loop of this thread, which AwaitResult runs.
#include <climits>
#include <cstdlib>
#include <utility>

#include "ssoctl.h"

namespace ssoctl {

namespace {

// Readable names of account pages.
const std::vector<std::pair<std::string, int>> &PageNames()
{
    static const std::vector<std::pair<std::string, int>> names = {
        {"sign-in", 1},
        {"web-account", 8},
        {"voice-registration", 9},
        {"switch-account", 10},
    };
    return names;
}

std::string CallerId(const Invocation &inv)
{
    if (inv.Has("--caller"))
        return inv.Value("--caller");
    const char *app = std::getenv("SSO_PLATFORM_APP_ID");
    return app && *app ? app : "ssoctl";
}

// Prints how an account page ended: closed (or, for the web pages, launched)
// and who is signed in now.
int ReportPage(const Invocation &inv, Pending *p, bool web_page)
{
    if (p->result != 0)
        return ReportFailedResult(inv, "show", p->result);
    sso_login_state state = SSO_NOT_LOGIN;
    bool signed_in = sso_get_login_state(&state) == 0 && state == SSO_LOGEDIN;
    std::string login_id;
    if (signed_in) {
        char *s = nullptr;
        if (sso_get_login_user_id(&s) == 0)
            login_id = TakeString(s);
    }
    if (inv.json) {
        Json::Value v = Outcome(true, 0);
        v["closed"] = !web_page;
        v["signed_in"] = signed_in;
        if (signed_in)
            v["login_id"] = login_id;
        PrintJson(v);
    } else {
        PrintLine(web_page ? "web page launched" : "account page closed");
        PrintLine(signed_in ? "state: signed in as " + login_id : "state: signed out");
    }
    return kExitOk;
}

int LaunchFailed(const Invocation &inv, const std::string &what, int ret)
{
    if (inv.json) {
        Json::Value v = Outcome(false, ret);
        v["launched"] = false;
        PrintJson(v);
    }
    return Fail(what + ": the account UI could not be launched (result " + std::to_string(ret) +
                    ")",
                kExitFailed);
}

} // namespace

int CmdShow(const Invocation &inv)
{
    const std::string page = inv.Arg(0);
    const std::string caller = CallerId(inv);
    const bool transparent = inv.Flag("--transparent"), opaque = inv.Flag("--opaque");
    if (transparent && opaque)
        return UsageError(inv, "--transparent and --opaque exclude each other");
    if ((transparent || opaque) && inv.Has("--data"))
        return UsageError(inv, "--data cannot go with --transparent or --opaque");
    Pending *p = NewPending();
    int ret = 0;
    bool web_page = false;
    if (page == "terms") {
        if (transparent || opaque || inv.Has("--data"))
            return UsageError(inv, "the terms page takes only --caller");
        web_page = true;
        // The window argument must be non-null; the library does not read it.
        static int window;
        ret = sso_show_term_page(&window, nullptr, caller.c_str(), OnText, p);
    } else {
        long type = -1;
        for (const auto &[name, number] : PageNames())
            if (page == name)
                type = number;
        if (type < 0 && !ParseInt(page, 0, 99, &type))
            return UsageError(inv, "TYPE must be a number from 0 to 99 or a page name, got \"" +
                                       page + "\"");
        web_page = type == 7 || type == 8;
        if (transparent || opaque)
            ret = sso_show_with_transparent_win(static_cast<int>(type), caller.c_str(), OnText, p,
                                                transparent);
        else
            ret =
                sso_show(static_cast<int>(type), inv.Optional("--data"), caller.c_str(), OnText, p);
    }
    if (ret == 1)
        return LaunchFailed(inv, "show", ret);
    if (ret != 0)
        return ReportRefused(inv, "show", ret);
    int rc = AwaitResult(p, inv, "show");
    return rc != kExitOk ? rc : ReportPage(inv, p, web_page);
}

namespace {

// The account to verify: the argument, else the signed-in login id.
bool AccountId(const Invocation &inv, std::string *out, int *rc)
{
    if (!inv.args.empty()) {
        *out = inv.Arg(0);
        return true;
    }
    char *s = nullptr;
    if (sso_get_login_user_id(&s) != 0) {
        *rc = Fail(inv.command + ": nobody is signed in; name the account", kExitFailed);
        return false;
    }
    *out = TakeString(s);
    return true;
}

// PIN types by name, or any number.
bool PinType(const Invocation &inv, const std::vector<std::pair<std::string, int>> &names,
             int fallback, int *out, int *rc)
{
    if (!inv.Has("--pin-type")) {
        *out = fallback;
        return true;
    }
    const std::string text = inv.Value("--pin-type");
    for (const auto &[name, number] : names) {
        if (text == name) {
            *out = number;
            return true;
        }
    }
    long number = 0;
    if (!ParseInt(text, INT_MIN, INT_MAX, &number)) {
        *rc = UsageError(inv, "unknown --pin-type \"" + text + "\"");
        return false;
    }
    *out = static_cast<int>(number);
    return true;
}

// Launches one account action (launch gets the account id and the wait
// state) and reports the account UI's answer.
template <typename Launch>
int RunAccountAction(const Invocation &inv, const std::string &account, Launch launch)
{
    const std::string what = inv.command;
    Pending *p = NewPending();
    int ret = launch(account.c_str(), p);
    if (ret != 0) {
        // A failed launch has already called back with -1; a refusal has not.
        if (p->done)
            return LaunchFailed(inv, what, ret);
        return ReportRefused(inv, what, ret);
    }
    int rc = AwaitResult(p, inv, what);
    if (rc != kExitOk)
        return rc;
    Json::Value reply = ParseLoose(p->texts.empty() ? "" : p->texts[0]);
    const std::string verdict = reply.isObject() ? reply["result"].asString() : "";
    const std::string response = reply.isObject() ? reply["response"].asString() : "";
    const bool ok = p->result == 0 && verdict != "failed";
    if (inv.json) {
        Json::Value v = Outcome(ok, p->result);
        v["account_id"] = account;
        if (reply.isObject())
            v["reply"] = reply;
        PrintJson(v);
    } else if (ok) {
        PrintLine(verdict + (response.empty() ? "" : " (response: " + response + ")"));
    }
    if (!ok)
        return Fail(what + ": the account UI answered " +
                        (verdict.empty()
                             ? "with a failure (result " + std::to_string(p->result) + ")"
                             : "\"" + verdict + "\" (response: " + response + ")"),
                    kExitFailed);
    return kExitOk;
}

// A PIN flow: its --pin-type names (and the type without one), the account,
// then the request.
int RunPinAction(const Invocation &inv, const std::vector<std::pair<std::string, int>> &types,
                 int fallback, int (*request)(const char *, sso_account_ui_result_cb, void *, int))
{
    int rc = 0, type = 0;
    std::string account;
    if (!PinType(inv, types, fallback, &type, &rc) || !AccountId(inv, &account, &rc))
        return rc;
    return RunAccountAction(inv, account, [type, request](const char *id, Pending *p) {
        return request(id, OnText, p, type);
    });
}

} // namespace

int CmdVerifyAccount(const Invocation &inv)
{
    int rc = 0;
    std::string account;
    if (!AccountId(inv, &account, &rc))
        return rc;
    return RunAccountAction(inv, account, [](const char *id, Pending *p) {
        return sso_request_account_verification(id, OnText, p);
    });
}

int CmdVerifyPin(const Invocation &inv)
{
    return RunPinAction(inv, {{"verify", 1}, {"other-account", 2}, {"plain", 0}}, 1,
                        sso_request_account_verification_using_pin);
}

int CmdSetupPin(const Invocation &inv)
{
    return RunPinAction(inv, {{"plain", 0}, {"high", 1}, {"other-account", 2}}, 0,
                        sso_request_account_setup_pin);
}

} // namespace ssoctl
