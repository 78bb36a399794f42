// Helpers of the request and dispatch paths: the shapes of the client
// callback methods, the request's common fields (object name, request id),
// and the account helpers. (The callbacks' records are filled by the API
// layer: sso_api_records.h.)
#pragma once

#include <sso_api/sso_api.h>

#include <json/json.h>

#include <map>
#include <string>

#include "sso_accounts_info.h"

#include <gio/gio.h>

// The argument shape of a client callback method; the value is the shape's
// number. Shapes 0 to 2 carry user_data after the result, 3 to 6 right after
// request_id.
enum CLIENT_DBUS_METHOD_TYPE {
    CLIENT_METHOD_NONE = -1,
    CLIENT_METHOD_STRING_RESULT = 0,            // (sxxsixis)
    CLIENT_METHOD_RESULT_ONLY = 1,              // (sxxixis)
    CLIENT_METHOD_RESULT_STRING = 2,            // (sxxisxis)
    CLIENT_METHOD_USERDATA_RESULT_STRING = 3,   // (sxxxisis)
    CLIENT_METHOD_USERDATA_RESULT_2STRINGS = 4, // (sxxxissis)
    CLIENT_METHOD_USERDATA_RESULT_3STRINGS = 5, // (sxxxisssis)
    CLIENT_METHOD_USERDATA_RESULT_9STRINGS = 6, // (sxxxisssssssssis)
};

class SSOAPIClientUtil {
public:
    // The shape of a client method, or CLIENT_METHOD_NONE for a name the
    // table does not know.
    static CLIENT_DBUS_METHOD_TYPE GetClientDBusMethodType(const char *methodName);
    // The GVariant format of a shape, or "".
    static std::string GetClientDBusMethodParameterFormat(CLIENT_DBUS_METHOD_TYPE type);

    // The transport's object name (creating and connecting the transport on
    // first use), or "" once the library is being unloaded.
    static std::string GetDBusObjectName();
    // The transport's monitor thread id (creating the transport on first
    // use), or 0.
    static long long GetDBusProxyThreadId();
    // Whether a request id that came back from the service is the current
    // monitor thread's: results addressed to an earlier one are refused.
    static bool IsThreadIdEqualToDBusProxy(long long tid);

    // A missing optional string is sent as "HAS_NO_VALUE".
    static std::string GetParameterWithCheckNoValue(const char *value);

    // ------------------------------------------------------------ accounts

    // The active account from the data cache. False once the library is
    // being unloaded.
    static bool GetAccountsInfo(sso_accounts_info &out);
    // The number of registered accounts, or -1.
    static int GetNumberOfAccount();
    // 0 when an account with this login id may be added (at most six
    // accounts; an id already registered never counts against the limit),
    // -100 at the limit, -1 when it cannot tell.
    static int IsAddAccountAvailable(const char *loginId);
    // JSON texts in a calloc'ed buffer the caller frees.
    static bool GetJsonStringLoginInfo(sso_accounts_info &info, char **out);
    static bool GetJsonStringUserInfoAndCountryCode(sso_user_info &info, char **out);
    // The member named key of the display-name object in "db/sso/display_name".
    static bool GetUserDisplayName(const std::string &key, std::string &out);

    // The sub-type of the last account event: the third "|"-separated piece
    // of "memory/sso/event_extra", or "NONE".
    static std::string GetAccountEventSubType();
    // Whether the signed-out state is only a temporary logout: true when the
    // status is 1 or cannot be read.
    static bool IsTemporaryLogoutCondition();

    static bool m_GetJsonObjectFromString(std::string &text, Json::Value &out);
    static bool m_IsAccountIdRegistered(std::string &accountsInfoJsonString, int numOfAccounts,
                                        const char *accountId);

private:
    static const std::map<std::string, CLIENT_DBUS_METHOD_TYPE> m_clientDBusMethodTypeInfo;
    static const std::map<CLIENT_DBUS_METHOD_TYPE, std::string> m_clientDBusMethodParamFormatInfo;
};
