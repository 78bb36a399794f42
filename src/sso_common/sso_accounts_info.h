// The account record the library carries between its layers: the active
// account of the public account document, and the document itself.
#pragma once

#include <string>

struct sso_accounts_info {
    std::string accountsInfoJsonString; // the whole document, kept even when signed out
    std::string strLoginID;             // "account_id"
    std::string strLoginPassword;       // never filled
    std::string strLoginGUID;           // "account_guid"
    std::string strLoginUID;            // "account_uid"
    std::string strUserIconPath;        // "account_icon_path"
    std::string strAccountAuth;         // "account_auth": never logged
    std::string strUserPinSet;          // "user_pin_set"
    std::string userCountryCode;        // "userCountryCode"
    std::string alpha2CountryCode;      // "alpha2CountryCode"
    int numOfAccounts = 0;              // "account_count"
    std::string displayName;            // "displayName"
    std::string userDeviceID;           // "userDeviceID"
};
