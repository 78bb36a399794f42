// The synchronous calls: one C function each, its outcome turned into a
// value.
#include "runtime.h"

#include <cstring>

namespace sso {

namespace {

// A getter that hands out a text for the caller to free().
template <class Getter> Expected<Text> TakeText(Getter getter)
{
    char *out = nullptr;
    const int rc = getter(&out);
    Text text(out); // freed on every path (sso_get_accounts sets it on failure too)
    if (rc != 0)
        return detail::failure_after(rc);
    return Expected<Text>(std::move(text));
}

std::error_code Outcome(int rc) noexcept
{
    return rc == 0 ? std::error_code() : detail::failure_after(rc);
}

std::string Field(const char *text, std::size_t size)
{
    return std::string(text, strnlen(text, size));
}

} // namespace

Expected<LoginState> login_state()
{
    sso_login_state state = SSO_NOT_LOGIN;
    const int rc = sso_get_login_state(&state);
    if (rc != 0)
        return detail::failure_after(rc);
    return state == SSO_LOGEDIN ? LoginState::signed_in : LoginState::signed_out;
}

Expected<int> account_count()
{
    int count = 0;
    const int rc = sso_get_account_number(&count);
    if (rc != 0)
        return detail::failure_after(rc);
    return count;
}

Expected<Text> guid()
{
    return TakeText(sso_get_guid);
}

Expected<Text> uid()
{
    return TakeText(sso_get_login_vd_uid);
}

Expected<Text> auth_token()
{
    return TakeText(sso_get_auth_token);
}

Expected<Text> device_id()
{
    return TakeText(sso_get_device_id);
}

Expected<Text> login_id()
{
    return TakeText(sso_get_login_user_id);
}

Expected<LoginInfo> login_info()
{
    sso_login_info_s info;
    std::memset(&info, 0, sizeof(info));
    const int rc = sso_get_login_info(&info);
    if (rc != 0)
        return detail::failure_after(rc);
    return LoginInfo{Field(info.login_id, sizeof info.login_id), Field(info.guid, sizeof info.guid),
                     Field(info.uid, sizeof info.uid),
                     Field(info.user_icon_path, sizeof info.user_icon_path)};
}

Expected<Text> login_json()
{
    return TakeText(sso_get_login_json_info);
}

Expected<Text> accounts_json()
{
    return TakeText(sso_get_accounts);
}

Expected<bool> popup_shown()
{
    int state = 0;
    const int rc = sso_get_popup_state(&state);
    if (rc != 0)
        return detail::failure_after(rc);
    return state == 1;
}

Expected<Text> account_ui_application_id()
{
    return TakeText(sso_get_account_ui_application_package_id);
}

Expected<Text> stored_whitelist_access_token(const std::string &app_id)
{
    return TakeText([&](char **out) { return sso_get_whitelist_accesstoken(app_id.c_str(), out); });
}

Expected<Text> stored_whitelist_access_token(const std::string &app_id, const std::string &package)
{
    return TakeText([&](char **out) {
        return sso_api_get_whitelist_accesstoken(app_id.c_str(), package.c_str(), out);
    });
}

bool sign_in_enforced() noexcept
{
    return sso_check_enforce_login_condition() == 1;
}

bool temporary_logout() noexcept
{
    return sso_check_temporary_logout_condition() == 1;
}

std::error_code check_alive() noexcept
{
    return Outcome(sso_check_alive());
}

void give_proxy() noexcept
{
    sso_give_proxy();
}

bool account_switching_available() noexcept
{
    return sso_is_account_switching_available();
}

std::error_code request_current_account_notification() noexcept
{
    return Outcome(sso_request_current_account_noti());
}

std::error_code reset_service() noexcept
{
    return Outcome(sso_reset());
}

std::error_code identify_caller() noexcept
{
    return Outcome(sso_pre_init_callerInformation());
}

} // namespace sso
