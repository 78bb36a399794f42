// The "issued" journal: every access token, auth code and whitelist token
// the simulated service handed out, with what it was bound to. Requests that
// take a token back (family groups, access token for an auth code) look it
// up here, and tests compare what a client received with what was issued.
#pragma once

#include <json/value.h>

#include <map>
#include <string>
#include <vector>

namespace ssosim {

inline constexpr const char *kIssuedAccessToken = "access_token";
inline constexpr const char *kIssuedAuthCode = "auth_code";
inline constexpr const char *kIssuedWhitelistToken = "whitelist_token";

struct IssuedEntry {
    int sequence = 0;                         // 1, 2, ... in the order of issue
    std::string kind;                         // one of the kIssued* names
    std::string value;                        // the token or code as delivered
    std::string method;                       // the server method that asked for it
    std::string app_id;                       // client id; "" when the request names none
    std::string account_guid;                 // "" for a device code
    std::string scope;                        // "" when absent ("HAS_NO_VALUE")
    std::string package;                      // whitelist tokens only
    std::map<std::string, std::string> extra; // request details (dsc, challenge...)
    bool scripted = false;                    // the value came from a scripted payload
    bool revoked = false;                     // sso_reset revokes everything
    bool redeemed = false;                    // an auth code exchanged for a token
};

class IssuedJournal {
public:
    // Numbers the entry and keeps it.
    const IssuedEntry &Record(IssuedEntry entry);
    // The latest entry with that value; nullptr when none.
    IssuedEntry *Find(const std::string &value);
    void RevokeAll();
    void Clear() { entries_.clear(); }

    // {"issued": [{"sequence", "kind", "value", "method", "app_id",
    // "account_guid", "scope", "package", "extra": {...}, "scripted",
    // "revoked", "redeemed"}...]}
    Json::Value ToJson() const;

private:
    std::vector<IssuedEntry> entries_;
    int next_ = 1;
};

} // namespace ssosim
