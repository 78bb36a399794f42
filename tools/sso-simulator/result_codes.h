// The result codes the simulator delivers in the "result" field of a result
// call when nobody scripted one. They are the simulator's own choice (the
// library passes result codes through to the application unchanged), listed
// here once: the daemon uses them, "sso-simulator run --help" prints this
// table, and the test harness re-exports the constants so tests can name
// them; so are the error names of refused account operations. No
// dependencies, so any test or tool can include it.
#pragma once

namespace ssosim {

inline constexpr int kResultOk = 0;
// A write to the settings store or secure storage failed.
inline constexpr int kResultServiceError = 1;
// A mandatory argument is empty or malformed (an account id with '|', a
// package id that cannot name a secure-storage item...).
inline constexpr int kResultInvalidRequest = 2;
// The request needs a signed-in account and nobody is signed in.
inline constexpr int kResultNotSignedIn = 3;
// The password is empty or is not the account's (an account without a
// password never verifies).
inline constexpr int kResultWrongPassword = 4;
// The secret key is empty, or not the one registered for the app id.
inline constexpr int kResultInvalidClient = 5;
// No registered account has that login id, GUID or e-mail address.
inline constexpr int kResultNoSuchAccount = 6;
// Six accounts are registered: no room for another.
inline constexpr int kResultAccountLimit = 7;
// An account with that login id is already registered.
inline constexpr int kResultAccountExists = 8;
// An access token, auth code or user token the simulator did not issue for
// this account and app, or one that was revoked or already redeemed.
inline constexpr int kResultInvalidToken = 9;
// The package and signature are not a registered whitelist pair.
inline constexpr int kResultNotWhitelisted = 10;
// The signed-in account is not a member of that group.
inline constexpr int kResultNoSuchGroup = 11;
// The request's object name names another process than the one that sent it:
// its result would go to a client that did not ask. The answer of such a
// request (no result follows); a read gets the D-Bus error below instead.
inline constexpr int kResultNotYourObject = 12;
inline constexpr const char *kErrorNotYourObject = "org.orvex.tv.ssoservice.Error.NotYourObject";

// Error names of refused account operations, so callers (and tests,
// through the harness) can tell them apart.
inline constexpr const char *kErrorNoSuchAccount =
    "org.orvex.tv.ssoservice.simulator.Error.NoSuchAccount";
inline constexpr const char *kErrorAccountExists =
    "org.orvex.tv.ssoservice.simulator.Error.AccountExists";
inline constexpr const char *kErrorAccountLimit =
    "org.orvex.tv.ssoservice.simulator.Error.AccountLimit";
inline constexpr const char *kErrorNotSignedIn =
    "org.orvex.tv.ssoservice.simulator.Error.NotSignedIn";
inline constexpr const char *kErrorAlreadySignedIn =
    "org.orvex.tv.ssoservice.simulator.Error.AlreadySignedIn";

struct ResultCodeInfo {
    int code;
    const char *name;
    const char *meaning;
};

inline constexpr ResultCodeInfo kResultCodeTable[] = {
    {kResultOk, "ok", "done"},
    {kResultServiceError, "service-error", "the settings store or secure storage refused a write"},
    {kResultInvalidRequest, "invalid-request", "a mandatory argument is empty or malformed"},
    {kResultNotSignedIn, "not-signed-in", "the request needs a signed-in account"},
    {kResultWrongPassword, "wrong-password", "the password is empty or not the account's"},
    {kResultInvalidClient, "invalid-client",
     "the secret key is empty or not the one registered for the app id"},
    {kResultNoSuchAccount, "no-such-account",
     "no registered account has that login id, GUID or e-mail"},
    {kResultAccountLimit, "account-limit", "six accounts are registered already"},
    {kResultAccountExists, "account-exists", "that login id is registered already"},
    {kResultInvalidToken, "invalid-token",
     "token or code not issued for this account and app, revoked, or redeemed"},
    {kResultNotWhitelisted, "not-whitelisted",
     "package and signature are not a registered whitelist pair"},
    {kResultNoSuchGroup, "no-such-group", "the signed-in account is not in that group"},
    {kResultNotYourObject, "not-your-object",
     "the request's object name is not the sending process's (the answer; no result follows)"},
};

} // namespace ssosim
