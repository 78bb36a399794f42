// Commands that act on the device's accounts or query the user's profile and
// groups, and the retired partner and content-provider functions.
#include <cstdlib>

#include "ssoctl.h"

namespace ssoctl {

int CmdRegister(const Invocation &inv)
{
    int rc = 0;
    std::string code;
    if (!Need(inv, "--auth-code", &code, &rc))
        return rc;
    const std::string account = inv.Arg(0);
    // The service expects a DSC text here: "" for none.
    const std::string dsc = inv.Value("--dsc", "");
    Pending *p = nullptr;
    rc = SendAndWait(inv, "register", &p, [&](Pending *pending) {
        return sso_register_account(account.c_str(), code.c_str(), dsc.c_str(), OnText, pending,
                                    inv.Flag("--login"));
    });
    return rc != kExitOk ? rc : FinishResponse(inv, p, "register");
}

int CmdLogout(const Invocation &inv)
{
    Pending *p = nullptr;
    int rc = SendAndWait(inv, "logout", &p, [&](Pending *pending) {
        return sso_perform_logout(OnText, pending, inv.Optional("--confirm-id"));
    });
    return rc != kExitOk ? rc : FinishResponse(inv, p, "logout", "signed out");
}

int CmdVerifyPassword(const Invocation &inv)
{
    int rc = 0;
    std::string password;
    if (!NeedSecret(inv, "--password", &password, &rc))
        return rc;
    Pending *p = nullptr;
    rc = SendAndWait(inv, "verify-password", &p, [&](Pending *pending) {
        return sso_verify_password(password.c_str(), OnText, pending);
    });
    return rc != kExitOk ? rc : FinishResponse(inv, p, "verify-password", "password verified");
}

int CmdResetPassword(const Invocation &inv)
{
    const std::string email = inv.Arg(0);
    Pending *p = nullptr;
    int rc = SendAndWait(inv, "reset-password", &p, [&](Pending *pending) {
        return sso_request_reset_passwd(email.c_str(), OnText, pending);
    });
    return rc != kExitOk ? rc
                         : FinishResponse(inv, p, "reset-password",
                                          "password-reset mail requested for " + email);
}

int CmdSetPassword(const Invocation &inv)
{
    int rc = 0;
    std::string password;
    if (!NeedSecret(inv, "--password", &password, &rc))
        return rc;
    const std::string account = inv.Arg(0);
    Pending *p = nullptr;
    rc = SendAndWait(inv, "set-password", &p, [&](Pending *pending) {
        return sso_set_passfw(account.c_str(), password.c_str(), OnText, pending);
    });
    return rc != kExitOk ? rc
                         : FinishResponse(inv, p, "set-password", "password set for " + account);
}

int CmdSwitch(const Invocation &inv)
{
    const bool by_guid = inv.Has("--guid");
    if (by_guid && !inv.args.empty())
        return UsageError(inv, "give either ACCOUNT_ID or --guid");
    if (!by_guid && inv.args.empty())
        return UsageError(inv, "ACCOUNT_ID or --guid is required");
    if (inv.Has("--user-token") && (by_guid || inv.Has("--extra")))
        return UsageError(inv, "--user-token goes with ACCOUNT_ID alone");
    const std::string target = by_guid ? inv.Value("--guid") : inv.Arg(0);
    const char *extra = inv.Optional("--extra");
    int rc = 0;
    Pending *p = nullptr;
    if (inv.Has("--user-token")) {
        std::string token;
        if (!NeedSecret(inv, "--user-token", &token, &rc))
            return rc;
        rc = SendAndWait(inv, "switch", &p, [&](Pending *pending) {
            return sso_switch_account_with_usertoken(target.c_str(), OnText, pending,
                                                     token.c_str());
        });
    } else if (by_guid) {
        rc = SendAndWait(inv, "switch", &p, [&](Pending *pending) {
            return sso_switch_account_by_guid(target.c_str(), OnText, pending, extra);
        });
    } else {
        rc = SendAndWait(inv, "switch", &p, [&](Pending *pending) {
            return sso_switch_account(target.c_str(), OnText, pending, extra);
        });
    }
    const std::string shown = by_guid ? Mask(target, inv.show_secrets) : target;
    return rc != kExitOk ? rc : FinishResponse(inv, p, "switch", "switched to " + shown);
}

int CmdAccountList(const Invocation &inv)
{
    Pending *p = nullptr;
    int rc = SendAndWait(inv, "account-list", &p, [&](Pending *pending) {
        return inv.Flag("--dynamic") ? sso_get_dynamic_my_account_list(OnText, pending)
                                     : sso_request_account_list(OnText, pending);
    });
    return rc != kExitOk ? rc : FinishResponse(inv, p, "account-list");
}

// ---- profile and groups ----

int CmdUserInfo(const Invocation &inv)
{
    if (inv.Flag("--v4") && inv.Flag("--json-info"))
        return UsageError(inv, "--v4 and --json-info exclude each other");
    Pending *p = nullptr;
    int rc = 0;
    if (inv.Flag("--v4") || inv.Flag("--json-info")) {
        rc = SendAndWait(inv, "user-info", &p, [&](Pending *pending) {
            return inv.Flag("--v4") ? sso_get_user_info_v4(OnText, pending)
                                    : sso_get_user_json_info(OnText, pending);
        });
        return rc != kExitOk ? rc : FinishResponse(inv, p, "user-info");
    }
    rc = SendAndWait(inv, "user-info", &p,
                     [&](Pending *pending) { return sso_get_user_info(OnUserInfo, pending); });
    if (rc != kExitOk)
        return rc;
    if (p->result != 0)
        return ReportFailedResult(inv, "user-info", p->result);
    Json::Value info(Json::objectValue);
    for (size_t i = 0; i < p->texts.size(); ++i)
        info[kUserInfoFields[i]] = p->texts[i];
    if (!inv.show_secrets)
        MaskSecrets(info);
    if (inv.json) {
        Json::Value v = Outcome(true, 0);
        v["user_info"] = info;
        PrintJson(v);
    } else {
        for (const char *field : kUserInfoFields)
            PrintLine(std::string(field) + ": " + info[field].asString());
    }
    return kExitOk;
}

int CmdIdentifyUser(const Invocation &inv)
{
    Pending *p = nullptr;
    int rc = SendAndWait(inv, "identify-user", &p, [&](Pending *pending) {
        return sso_identify_current_user_info(OnIdentify, pending);
    });
    if (rc != kExitOk)
        return rc;
    if (p->result != 0)
        return ReportFailedResult(inv, "identify-user", p->result);
    if (inv.json) {
        Json::Value v = Outcome(true, 0);
        v["birthday"] = p->texts[0];
        v["identify_url"] = p->texts[1];
        PrintJson(v);
    } else {
        PrintLine("birthday: " + p->texts[0]);
        PrintLine("identify url: " + p->texts[1]);
    }
    return kExitOk;
}

int CmdNamecheck(const Invocation &inv)
{
    Pending *p = nullptr;
    int rc = SendAndWait(inv, "namecheck", &p, [&](Pending *pending) {
        return sso_get_namecheck_auth_info(OnNameCheck, pending);
    });
    if (rc != kExitOk)
        return rc;
    // The callback carries a success flag, not the service's result code.
    const bool success = p->result == 0;
    if (inv.json) {
        Json::Value v(Json::objectValue);
        v["ok"] = success;
        v["success"] = success;
        v["birth_date"] = p->texts[0];
        v["age"] = p->texts[1];
        v["check_url"] = p->texts[2];
        PrintJson(v);
    } else if (success) {
        PrintLine("birth date: " + p->texts[0]);
        PrintLine("age: " + p->texts[1]);
        PrintLine("check url: " + p->texts[2]);
    }
    return success ? kExitOk : Fail("namecheck: the service reported a failure", kExitFailed);
}

namespace {

// The access token for a group query: given, or requested with --secret.
bool GroupToken(const Invocation &inv, const std::string &what, const std::string &app,
                std::string *token, int *rc)
{
    if (inv.Has("--access-token") && inv.Has("--secret")) {
        *rc = UsageError(inv, "--access-token and --secret exclude each other");
        return false;
    }
    if (inv.Has("--access-token")) {
        if (inv.Has("--scope")) {
            *rc = UsageError(inv, "--scope goes with --secret");
            return false;
        }
        return NeedSecret(inv, "--access-token", token, rc);
    }
    std::string secret;
    if (!inv.Has("--secret")) {
        *rc = UsageError(inv, "--access-token or --secret is required");
        return false;
    }
    if (!NeedSecret(inv, "--secret", &secret, rc))
        return false;
    Pending *p = nullptr;
    *rc = SendAndWait(inv, what + " (access token)", &p, [&](Pending *pending) {
        return sso_request_access_token_with_scope(app.c_str(), secret.c_str(),
                                                   inv.Optional("--scope"), OnText, pending);
    });
    if (*rc != kExitOk)
        return false;
    if (p->result != 0) {
        *rc = ReportFailedResult(inv, what + " (access token)", p->result);
        return false;
    }
    *token = p->texts.empty() ? "" : p->texts[0];
    return true;
}

} // namespace

int CmdFamilyGroup(const Invocation &inv)
{
    int rc = 0;
    std::string app, token;
    if (!Need(inv, "--app-id", &app, &rc) || !GroupToken(inv, "family-group", app, &token, &rc))
        return rc;
    Pending *p = nullptr;
    rc = SendAndWait(inv, "family-group", &p, [&](Pending *pending) {
        return sso_get_user_family_group(app.c_str(), token.c_str(), OnText, pending);
    });
    return rc != kExitOk ? rc : FinishResponse(inv, p, "family-group");
}

int CmdGroupUsers(const Invocation &inv)
{
    int rc = 0;
    std::string app, token;
    if (!Need(inv, "--app-id", &app, &rc) || !GroupToken(inv, "group-users", app, &token, &rc))
        return rc;
    const std::string group = inv.Arg(0);
    Pending *p = nullptr;
    rc = SendAndWait(inv, "group-users", &p, [&](Pending *pending) {
        return sso_get_user_group_users(app.c_str(), token.c_str(), group.c_str(), OnText, pending);
    });
    return rc != kExitOk ? rc : FinishResponse(inv, p, "group-users");
}

// ---- retired functions ----

int CmdPartnerAuth(const Invocation &inv)
{
    const std::string action = inv.Arg(0);
    const size_t want = action == "save" ? 3 : 2;
    if (action != "save" && action != "get" && action != "clear")
        return UsageError(inv, "expected save, get or clear, got \"" + action + "\"");
    if (inv.args.size() < want)
        return UsageError(inv, "missing argument");
    if (inv.args.size() > want)
        return UsageError(inv, "unexpected argument \"" + inv.args[want] + "\"");
    const std::string key = inv.Arg(1), value = inv.Arg(2);
    const std::string what = "partner-auth " + action;
    Pending *p = nullptr;
    int rc = SendAndWait(inv, what, &p, [&](Pending *pending) {
        if (action == "save")
            return sso_save_partner_auth_info(key.c_str(), value.c_str(), OnText, pending);
        if (action == "get")
            return sso_get_partner_auth_info(key.c_str(), OnText, pending);
        return sso_clear_partner_auth_info(key.c_str(), OnText, pending);
    });
    return rc != kExitOk ? rc : FinishResponse(inv, p, what);
}

int CmdCpMapping(const Invocation &inv)
{
    const std::string action = inv.Arg(0);
    size_t want = action == "add" ? 3 : action == "list" ? 1 : 2;
    if (action != "add" && action != "remove" && action != "list" && action != "get")
        return UsageError(inv, "expected add, remove, list or get, got \"" + action + "\"");
    if (inv.args.size() < want)
        return UsageError(inv, "missing argument");
    if (inv.args.size() > want)
        return UsageError(inv, "unexpected argument \"" + inv.args[want] + "\"");
    const std::string cp_id = inv.Arg(1), cp_user = inv.Arg(2);
    const std::string what = "cp-mapping " + action;
    if (action == "get") {
        char *info = nullptr;
        int ret = sso_get_cp_account_info(cp_id.c_str(), &info);
        if (ret != 0) {
            std::free(info); // not written on failure
            return ReportRefused(inv, what, ret);
        }
        std::string text = TakeString(info);
        if (inv.json) {
            Json::Value v = Outcome(true, 0);
            v["cp_account_info"] = ParseLoose(text);
            PrintJson(v);
        } else {
            PrintLine(text);
        }
        return kExitOk;
    }
    // Accepted while signed in, but these retired functions never call back.
    Pending *p = NewPending();
    int ret = action == "add"
                  ? sso_add_cp_account_mapping_info(cp_id.c_str(), cp_user.c_str(), OnText, p)
              : action == "remove" ? sso_remove_cp_account_mapping_info(cp_id.c_str(), OnText, p)
                                   : sso_get_cp_account_mapping_list(OnText, p);
    return ReportImmediate(inv, what, ret, "accepted (a retired function: no result follows)");
}

} // namespace ssoctl
