/**
 * @file account.hpp
 * @brief Synchronous calls: the signed-in account read locally, the policy
 *        predicates, and the calls to the service that take no callback.
 *
 * Each wraps one C function (named in its description) and turns its
 * outcome into a value: a Text the caller owns, a record, or a
 * std::error_code. They block as their C functions do (the local reads do
 * not wait for anybody; the service calls wait up to 5000 ms, plus the link
 * set-up of a first request). Any thread.
 */
#ifndef SSO_API_CXX_ACCOUNT_HPP
#define SSO_API_CXX_ACCOUNT_HPP

#include <sso_api/cxx/result.hpp>
#include <sso_api/cxx/subscription.hpp>
#include <sso_api/cxx/text.hpp>

#include <string>
#include <system_error>

namespace sso {

/** @brief The signed-in account's identity, as read locally. */
struct LoginInfo {
    std::string login_id;  ///< Login id.
    std::string guid;      ///< GUID.
    std::string uid;       ///< UID.
    std::string icon_path; ///< Path of the account's icon file.
};

/** @name The signed-in account, read locally */
///@{
/** @return Whether a user is signed in (sso_get_login_state()). */
SSO_CXX_API Expected<LoginState> login_state();
/** @return The number of accounts on the device (sso_get_account_number()). */
SSO_CXX_API Expected<int> account_count();
/** @return The GUID of the signed-in account (sso_get_guid()). */
SSO_CXX_API Expected<Text> guid();
/** @return The UID of the signed-in account (sso_get_login_vd_uid()). */
SSO_CXX_API Expected<Text> uid();
/** @return The auth token of the signed-in account (sso_get_auth_token()). */
SSO_CXX_API Expected<Text> auth_token();
/** @return The user device id of the signed-in account (sso_get_device_id()). */
SSO_CXX_API Expected<Text> device_id();
/** @return The login id of the signed-in account (sso_get_login_user_id()). */
SSO_CXX_API Expected<Text> login_id();
/** @return Login id, GUID, UID and icon path (sso_get_login_info()). */
SSO_CXX_API Expected<LoginInfo> login_info();
/** @return The signed-in account as a JSON object (sso_get_login_json_info()). */
SSO_CXX_API Expected<Text> login_json();
/** @return The whole public account document (sso_get_accounts()). */
SSO_CXX_API Expected<Text> accounts_json();
/** @return Whether the account UI shows a popup (sso_get_popup_state()). */
SSO_CXX_API Expected<bool> popup_shown();
/** @return The application id of the account UI (sso_get_account_ui_application_package_id()). */
SSO_CXX_API Expected<Text> account_ui_application_id();
/**
 * @brief The whitelist access token stored for @p app_id in the own
 *        package's data (sso_get_whitelist_accesstoken()).
 * @param app_id The application (client) id.
 * @return The token.
 */
SSO_CXX_API Expected<Text> stored_whitelist_access_token(const std::string &app_id);
/**
 * @brief The whitelist access token stored for @p app_id in @p package's
 *        data (sso_api_get_whitelist_accesstoken()).
 * @param app_id  The application (client) id.
 * @param package The package (the caller's own, unless privileged).
 * @return The token.
 */
SSO_CXX_API Expected<Text> stored_whitelist_access_token(const std::string &app_id,
                                                         const std::string &package);
///@}

/** @name Policy */
///@{
/** @return Whether the user must be made to sign in (sso_check_enforce_login_condition()). */
SSO_CXX_API bool sign_in_enforced() noexcept;
/** @return Whether the signed-out state is a temporary logout
 * (sso_check_temporary_logout_condition()). */
SSO_CXX_API bool temporary_logout() noexcept;
///@}

/** @name The service link and the calls without a callback */
///@{
/** @return Nothing when the SSO service answers, else why not (sso_check_alive()). */
SSO_CXX_API std::error_code check_alive() noexcept;
/**
 * @brief Ends the library's link to the service for the rest of the process
 *        (sso_give_proxy()); never from a result callback.
 */
SSO_CXX_API void give_proxy() noexcept;
/** @return Whether the account can be switched now (sso_is_account_switching_available()). */
SSO_CXX_API bool account_switching_available() noexcept;
/** @return Whether the service accepted to announce the current account
 * (sso_request_current_account_noti()). */
SSO_CXX_API std::error_code request_current_account_notification() noexcept;
/** @return Whether the service accepted to reset (sso_reset()). */
SSO_CXX_API std::error_code reset_service() noexcept;
/** @return Whether the caller could be identified now (sso_pre_init_callerInformation()). */
SSO_CXX_API std::error_code identify_caller() noexcept;
///@}

} // namespace sso

#endif // SSO_API_CXX_ACCOUNT_HPP
