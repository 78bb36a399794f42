// The "request families" layer: what the simulated service decides about a
// request when nobody scripted its result. Tokens and auth codes are made up
// and journaled, account operations act on the accounts, profile and group
// queries answer from the signed-in account. Each decision is an Outcome: a
// result code (result_codes.h), the payload strings by client argument name,
// and the state change, which the service makes only when the result it
// delivers is kResultOk (a scripted failure changes nothing).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "account_service.h"
#include "contract.h"
#include "issued.h"
#include "result_codes.h"

namespace ssosim {

// Client argument name -> string payload.
using ResultValues = std::map<std::string, std::string>;

// The application-data key under which a whitelist token is stored for an
// app id (the misspelling is what readers look for).
inline constexpr const char *kWhitelistTokenKeyPrefix =
    "DATA_KEY_NAME_WHILIST_ACCESSTOKEN_RESPONSE_";

struct Outcome {
    std::int32_t result = kResultOk;
    ResultValues values;
    // A refusal: every string argument nobody scripted is delivered "".
    bool blank = false;
    // The state change. delivered holds every string argument as the client
    // will get it (over values); the commit may fill in those it only knows
    // once it has acted (a new account's GUID), never the scripted ones.
    std::function<void(ResultValues &delivered, const std::set<std::string> &scripted)> commit;
};

class RequestFamilies {
public:
    // seed makes tokens and codes reproducible (independently of the
    // account identifiers).
    RequestFamilies(AccountService &accounts, std::optional<std::uint32_t> seed);
    RequestFamilies(const RequestFamilies &) = delete;
    RequestFamilies &operator=(const RequestFamilies &) = delete;

    // An accepted asynchronous request, at the time its result is due.
    Outcome Compute(const Request &request);
    // The (i) answer of a synchronous request nobody scripted.
    std::int32_t SyncAccept(const Request &request) const;
    // What an accepted synchronous request does (after its answer).
    void SyncAccepted(const Request &request);

    // From then on app_id's secret key must be secret (unregistered app ids
    // take any non-empty secret).
    void RegisterClient(const std::string &app_id, const std::string &secret);
    // Once any pair is registered, whitelist tokens go only to registered
    // (package, signature) pairs.
    void RegisterWhitelist(const std::string &package, const std::string &signature);
    // IssuedJournal::ToJson as text.
    std::string IssuedJson() const;
    void ClearIssued() { issued_.Clear(); }

private:
    Outcome AccessToken(const Request &r);
    Outcome AuthCode(const Request &r);
    Outcome GenerateToken(const Request &r);
    Outcome RegisterAccount(const Request &r);
    Outcome Logout(const Request &r);
    Outcome VerifyPassword(const Request &r);
    Outcome AccountList(const Request &r);
    Outcome SetPassword(const Request &r);
    Outcome ResetPassword(const Request &r);
    Outcome Switch(const Request &r);
    Outcome UserInfo(const Request &r);
    Outcome FamilyGroup(const Request &r);
    Outcome GroupUsers(const Request &r);
    Outcome Whitelist(const Request &r);
    Outcome PartnerAuth(const Request &r);

    // kResultOk, or why the secret key is refused.
    std::int32_t CheckClient(const std::string &app_id, const std::string &secret) const;
    // kResultOk, or why the access token is refused for the signed-in
    // account and app_id.
    std::int32_t CheckAccessToken(const std::string &app_id, const std::string &token);
    // The token or code as delivered, recorded.
    void Issue(IssuedEntry entry, const std::string &arg_name, const ResultValues &delivered,
               const std::set<std::string> &scripted);
    std::string NewToken(const char *prefix);

    AccountService &accounts_;
    IdGenerator ids_;
    IssuedJournal issued_;
    std::map<std::string, std::string> clients_;              // app id -> secret
    std::set<std::pair<std::string, std::string>> whitelist_; // (package, signature)
};

} // namespace ssosim
