// Commands that obtain tokens and codes: access tokens, the auth-code
// variants, device accounts made from a code or a password, and whitelist
// (signature) access tokens.
#include <cstdlib>

#include "ssoctl.h"

namespace ssoctl {

namespace {

bool Exclusive(const Invocation &inv, const std::string &a, const std::string &b, int *rc)
{
    bool has_a = inv.Has(a) || inv.Flag(a);
    bool has_b = inv.Has(b) || inv.Flag(b);
    if (has_a && has_b) {
        *rc = UsageError(inv, a + " and " + b + " exclude each other");
        return false;
    }
    return true;
}

} // namespace

int CmdToken(const Invocation &inv)
{
    int rc = 0;
    std::string app, secret;
    if (!Need(inv, "--app-id", &app, &rc) || !NeedSecret(inv, "--secret", &secret, &rc))
        return rc;
    const char *scope = inv.Optional("--scope");
    Pending *p = nullptr;
    if (inv.Has("--auth-code")) {
        std::string code = inv.Value("--auth-code");
        rc = SendAndWait(inv, "token", &p, [&](Pending *pending) {
            return sso_request_access_token_using_authcode(app.c_str(), secret.c_str(),
                                                           code.c_str(), scope, OnText, pending);
        });
    } else if (scope) {
        rc = SendAndWait(inv, "token", &p, [&](Pending *pending) {
            return sso_request_access_token_with_scope(app.c_str(), secret.c_str(), scope, OnText,
                                                       pending);
        });
    } else {
        rc = SendAndWait(inv, "token", &p, [&](Pending *pending) {
            return sso_request_access_token(app.c_str(), secret.c_str(), OnText, pending);
        });
    }
    return rc != kExitOk ? rc : FinishSecretText(inv, p, "token", "access_token");
}

int CmdAuthCode(const Invocation &inv)
{
    int rc = 0;
    std::string app;
    if (!Need(inv, "--app-id", &app, &rc) || !Exclusive(inv, "--effortless", "--account", &rc))
        return rc;
    if (inv.Has("--password") && !inv.Has("--account"))
        return UsageError(inv, "--password goes with --account");
    const char *scope = inv.Optional("--scope");
    Pending *p = nullptr;
    if (inv.Flag("--effortless")) {
        rc = SendAndWait(inv, "auth-code", &p, [&](Pending *pending) {
            return sso_request_auth_code_for_effortless_login(app.c_str(), scope, OnText, pending);
        });
    } else if (inv.Has("--account")) {
        std::string account = inv.Value("--account"), password;
        if (!NeedSecret(inv, "--password", &password, &rc))
            return rc;
        // Note the order: user data before the callback.
        rc = SendAndWait(inv, "auth-code", &p, [&](Pending *pending) {
            return sso_request_authcode_with_ID_PWD(app.c_str(), account.c_str(), password.c_str(),
                                                    scope, pending, OnText);
        });
    } else {
        rc = SendAndWait(inv, "auth-code", &p, [&](Pending *pending) {
            return sso_request_auth_code(app.c_str(), scope, OnText, pending);
        });
    }
    return rc != kExitOk ? rc : FinishSecretText(inv, p, "auth-code", "auth_code");
}

int CmdUserAuthCode(const Invocation &inv)
{
    int rc = 0;
    std::string app;
    if (!Need(inv, "--app-id", &app, &rc) || !Exclusive(inv, "--challenge", "--verifier", &rc))
        return rc;
    const char *scope = inv.Optional("--scope");
    const char *dsc = inv.Optional("--dsc");
    const char *type = inv.Optional("--response-type");
    const char *challenge = inv.Optional("--challenge");
    const char *verifier = inv.Optional("--verifier");
    Pending *p = nullptr;
    rc = SendAndWait(inv, "user-auth-code", &p, [&](Pending *pending) {
        if (challenge)
            return sso_request_user_authcode_with_challenge(app.c_str(), scope, dsc, type,
                                                            challenge, OnText, pending);
        if (verifier)
            return sso_request_user_authcode_with_verifier(app.c_str(), scope, dsc, type, verifier,
                                                           OnText, pending);
        if (dsc || type)
            return sso_request_user_authcode_with_dsc(app.c_str(), scope, dsc, type, OnText,
                                                      pending);
        return sso_request_user_authcode(app.c_str(), scope, OnText, pending);
    });
    return rc != kExitOk ? rc : FinishSecretText(inv, p, "user-auth-code", "auth_code");
}

int CmdDeviceAuthCode(const Invocation &inv)
{
    int rc = 0;
    std::string app;
    if (!Need(inv, "--app-id", &app, &rc))
        return rc;
    Pending *p = nullptr;
    rc = SendAndWait(inv, "device-auth-code", &p, [&](Pending *pending) {
        return sso_request_device_authcode(app.c_str(), inv.Optional("--scope"), OnText, pending);
    });
    return rc != kExitOk ? rc : FinishSecretText(inv, p, "device-auth-code", "auth_code");
}

int CmdOtherDeviceAuthCode(const Invocation &inv)
{
    Pending *p = nullptr;
    int rc = SendAndWait(inv, "other-device-auth-code", &p, [&](Pending *pending) {
        return sso_request_authcode_for_other_device(inv.Optional("--dsc"), OnText, pending);
    });
    return rc != kExitOk ? rc : FinishSecretText(inv, p, "other-device-auth-code", "auth_code");
}

int CmdTokenWithAuthcode(const Invocation &inv)
{
    int rc = 0;
    const std::string what = "token-with-authcode";
    Pending *p = nullptr;
    if (inv.Flag("--retired")) {
        if (inv.Flag("--no-notification") || inv.Has("--delete-flag") || inv.Has("--dsc"))
            return UsageError(inv, "--retired takes only --user and --auth-code");
        rc = SendAndWait(inv, what, &p, [&](Pending *pending) {
            return sso_generate_token_with_authcode(inv.Optional("--auth-code"),
                                                    inv.Optional("--user"), OnResultOnly, pending);
        });
        return rc != kExitOk ? rc : FinishPlain(inv, p, what, "token generated");
    }
    std::string user, code;
    if (!Need(inv, "--user", &user, &rc) || !Need(inv, "--auth-code", &code, &rc) ||
        !Exclusive(inv, "--no-notification", "--delete-flag", &rc))
        return rc;
    const char *dsc = inv.Optional("--dsc");
    const std::string done = "device account of " + user + " signed in";
    if (inv.Has("--delete-flag")) {
        bool flag = false;
        if (!ParseBool(inv.Value("--delete-flag"), &flag))
            return UsageError(inv, "--delete-flag needs yes or no, got \"" +
                                       inv.Value("--delete-flag") + "\"");
        rc = SendAndWait(inv, what, &p, [&](Pending *pending) {
            return sso_generate_token_with_authcode_dsc_deleteFlag(user.c_str(), code.c_str(), flag,
                                                                   dsc, OnText, pending);
        });
        return rc != kExitOk ? rc : FinishResponse(inv, p, what);
    }
    if (inv.Flag("--no-notification")) {
        rc = SendAndWait(inv, what, &p, [&](Pending *pending) {
            return sso_generate_token_with_authcode_dsc_noti(code.c_str(), user.c_str(), dsc,
                                                             OnResultOnly, pending, false);
        });
    } else {
        rc = SendAndWait(inv, what, &p, [&](Pending *pending) {
            return sso_generate_token_with_authcode_dsc(code.c_str(), user.c_str(), dsc,
                                                        OnResultOnly, pending);
        });
    }
    return rc != kExitOk ? rc : FinishPlain(inv, p, what, done);
}

int CmdTokenWithPassword(const Invocation &inv)
{
    int rc = 0;
    std::string user, password;
    if (!Need(inv, "--user", &user, &rc) || !NeedSecret(inv, "--password", &password, &rc))
        return rc;
    bool flag = false;
    if (inv.Has("--delete-flag") && !ParseBool(inv.Value("--delete-flag"), &flag))
        return UsageError(inv, "--delete-flag needs yes or no, got \"" +
                                   inv.Value("--delete-flag") + "\"");
    Pending *p = nullptr;
    rc = SendAndWait(inv, "token-with-password", &p, [&](Pending *pending) {
        return sso_generate_token_with_ID_PWD(user.c_str(), password.c_str(), flag, OnText,
                                              pending);
    });
    return rc != kExitOk ? rc : FinishResponse(inv, p, "token-with-password");
}

// ---- whitelist and signature access tokens ----

namespace {

// Which functions a whitelist-style command uses.
struct TokenFamily {
    const char *command;
    int (*request)(const char *, const char *, sso_request_whitelist_accesstoken_cb, void *);
    int (*get)(const char *, char **);
    bool explicit_package; // --package and --signature reach the sso_api_* forms
};

int RunTokenFamily(const Invocation &inv, const TokenFamily &family)
{
    const std::string action = inv.Arg(0);
    if (action != "request" && action != "get")
        return UsageError(inv, "expected \"request\" or \"get\", got \"" + action + "\"");
    const std::string what = std::string(family.command) + " " + action;
    int rc = 0;
    std::string app;
    if (!Need(inv, "--app-id", &app, &rc))
        return rc;
    if (family.explicit_package) {
        if (inv.Has("--signature") && !inv.Has("--package"))
            return UsageError(inv, "--signature goes with --package");
        if (action == "request" && inv.Has("--package") && !inv.Has("--signature"))
            return UsageError(inv, "--package needs --signature for a request");
    }
    if (action == "get" && (inv.Has("--scope") || inv.Has("--signature")))
        return UsageError(inv, "get takes no --scope or --signature");
    // Identifies this process (application, package, executable) up front,
    // as an application does before its first whitelist call.
    if (sso_pre_init_callerInformation() != 0)
        return Fail(what + ": cannot identify the calling application", kExitFailed);

    if (action == "request") {
        const char *scope = inv.Optional("--scope");
        Pending *p = nullptr;
        rc = SendAndWait(inv, what, &p, [&](Pending *pending) {
            if (inv.Has("--package"))
                return sso_api_request_whitelist_accesstoken(
                    app.c_str(), inv.Value("--package").c_str(), inv.Value("--signature").c_str(),
                    scope, OnText, pending);
            return family.request(app.c_str(), scope, OnText, pending);
        });
        return rc != kExitOk ? rc : FinishSecretText(inv, p, what, "access_token");
    }

    char *token = nullptr;
    int ret =
        inv.Has("--package")
            ? sso_api_get_whitelist_accesstoken(app.c_str(), inv.Value("--package").c_str(), &token)
            : family.get(app.c_str(), &token);
    if (ret != 0) {
        std::free(token); // untouched on failure; freed in case it was not
        if (inv.json) {
            PrintJson(Outcome(false, ret));
        }
        return Fail(what + ": no token for " + app +
                        " (nobody signed in, the package is not this application's, or none "
                        "is stored)",
                    kExitFailed);
    }
    std::string shown = Mask(TakeString(token), inv.show_secrets);
    if (inv.json) {
        Json::Value v = Outcome(true, 0);
        v["access_token"] = shown;
        PrintJson(v);
    } else {
        PrintLine(shown);
    }
    return kExitOk;
}

} // namespace

int CmdWhitelistToken(const Invocation &inv)
{
    return RunTokenFamily(inv, {"whitelist-token", sso_request_whitelist_accesstoken,
                                sso_get_whitelist_accesstoken, true});
}

int CmdSignatureToken(const Invocation &inv)
{
    return RunTokenFamily(inv, {"signature-token", sso_request_signature_accesstoken,
                                sso_get_signature_accesstoken, false});
}

} // namespace ssoctl
