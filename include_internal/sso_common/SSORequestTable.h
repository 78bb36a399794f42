// Every request the library sends to the SSO service, one row each: what it
// is called on the service, where its result comes back, and the types of
// the fields it carries. The request frame builds and checks each tuple from
// its row; the tests, the simulator and ssoctl read the same rows.
//
// An asynchronous request ("Async") is sent as
//   (object name, <fields>, callback, <afterCallback>, request id, user data,
//    ae_index, method_call)
// and its result arrives on the client method named by delivery. A plain one
// is sent as (object name, request id, method name, <fields>) and answered
// "(i)"; a data read the same way, answered "(s)".
//
// No dependencies: any target may include it.
#pragma once

#include <cstddef>
#include <cstring>

enum class SSORequestForm {
    Async,
    Plain,
    Data,
};

// What the service does with a request, as the simulator plays it: the
// rows of one family share their handling there.
enum class SSORequestFamily {
    None, // answered at once: plain requests and data reads
    AccessToken,
    AuthCode,
    GenerateToken,
    RegisterAccount,
    Logout,
    VerifyPassword,
    AccountList,
    SetPassword,
    ResetPassword,
    Switch,
    UserInfo,
    FamilyGroup,
    GroupUsers,
    Whitelist,
    PartnerAuth,
};

struct SSORequestType {
    const char *function;      // the exported (or internal) function that sends it
    const char *serverMethod;  // the service's method
    const char *methodCall;    // the tuple's method_call field (Async)
    const char *delivery;      // client method of the result; nullptr: none is delivered
    const char *fields;        // GVariant types of the request's own fields
    const char *afterCallback; // types between the callback and the request id
    SSORequestForm form;
    SSORequestFamily family;
};

namespace sso_requests {

inline constexpr SSORequestType kTable[] = {
    // Tokens and auth codes.
    {"sso_request_access_token_with_scope", "sso_request_access_token", "sso_request_access_token",
     "sso_request_access_token", "sss", "", SSORequestForm::Async, SSORequestFamily::AccessToken},
    {"sso_request_access_token_using_authcode", "sso_request_access_token_using_authcode",
     "sso_request_access_token", "sso_request_access_token", "ssss", "", SSORequestForm::Async,
     SSORequestFamily::AccessToken},
    {"sso_request_auth_code", "sso_request_auth_code", "sso_request_auth_code",
     "sso_request_auth_code", "ss", "", SSORequestForm::Async, SSORequestFamily::AuthCode},
    {"sso_request_user_authcode", "sso_request_user_authcode", "sso_request_service_auth_code",
     "sso_request_service_auth_code", "sss", "", SSORequestForm::Async, SSORequestFamily::AuthCode},
    {"sso_request_device_authcode", "sso_request_device_authcode", "sso_request_service_auth_code",
     "sso_request_service_auth_code", "sss", "", SSORequestForm::Async, SSORequestFamily::AuthCode},
    {"sso_request_auth_code_for_effortless_login", "sso_request_auth_code_for_effortless_login",
     "sso_request_auth_code_for_effortless_login", "sso_request_auth_code_for_effortless_login",
     "ss", "", SSORequestForm::Async, SSORequestFamily::AuthCode},
    {"sso_request_authcode_with_ID_PWD", "sso_request_authcode_with_ID_PWD",
     "sso_request_authcode_with_ID_PWD", "sso_request_authcode_with_ID_PWD", "ssss", "",
     SSORequestForm::Async, SSORequestFamily::AuthCode},
    {"sso_request_authcode_for_other_device", "sso_request_authcode_for_other_device",
     "sso_request_authcode_for_other_device", "sso_request_authcode_for_other_device", "s", "",
     SSORequestForm::Async, SSORequestFamily::AuthCode},
    {"sso_generate_token_with_authcode_dsc_noti", "sso_generate_token_with_authcode_dsc",
     "sso_generate_token_with_authcode_dsc", "sso_generate_token_with_authcode_dsc", "sss", "i",
     SSORequestForm::Async, SSORequestFamily::GenerateToken},
    {"sso_generate_token_with_authcode_dsc_deleteFlag",
     "sso_generate_token_with_authcode_dsc_deleteFlag",
     "sso_generate_token_with_authcode_dsc_deleteFlag",
     "sso_generate_token_with_authcode_dsc_deleteFlag", "sssi", "", SSORequestForm::Async,
     SSORequestFamily::GenerateToken},
    {"sso_generate_token_with_ID_PWD", "sso_generate_token_with_ID_PWD",
     "sso_generate_token_with_ID_PWD", "sso_generate_token_with_ID_PWD", "ssi", "",
     SSORequestForm::Async, SSORequestFamily::GenerateToken},
    {"sso_request_user_authcode_with_dsc", "sso_request_user_authcode_with_dsc",
     "sso_request_user_authcode_with_dsc", "sso_request_user_authcode_with_dsc", "ssss", "",
     SSORequestForm::Async, SSORequestFamily::AuthCode},
    {"sso_request_user_authcode_with_challenge", "sso_request_user_authcode_with_challenge",
     "sso_request_user_authcode_with_challenge", "sso_request_user_authcode_with_challenge",
     "sssss", "", SSORequestForm::Async, SSORequestFamily::AuthCode},
    {"sso_request_user_authcode_with_verifier", "sso_request_user_authcode_with_verifier",
     "sso_request_user_authcode_with_verifier", "sso_request_user_authcode_with_verifier", "sssss",
     "", SSORequestForm::Async, SSORequestFamily::AuthCode},
    {"sso_api_request_whitelist_accesstoken", "sso_service_request_whitelist_accesstoken",
     "sso_service_request_whitelist_accesstoken",
     "RESULT_sso_service_request_whitelist_accesstoken", "ssss", "", SSORequestForm::Async,
     SSORequestFamily::Whitelist},

    // Account operations.
    {"sso_register_account", "sso_register_account", "sso_register_account", "sso_register_account",
     "ssss", "", SSORequestForm::Async, SSORequestFamily::RegisterAccount},
    {"sso_perform_logout", "sso_perform_logout", "sso_perform_logout", "sso_perform_logout", "s",
     "", SSORequestForm::Async, SSORequestFamily::Logout},
    {"sso_verify_password", "sso_verify_password", "sso_verify_password", "sso_verify_password",
     "s", "", SSORequestForm::Async, SSORequestFamily::VerifyPassword},
    {"sso_request_account_list", "sso_request_account_list", "sso_request_account_list",
     "sso_request_account_list", "", "", SSORequestForm::Async, SSORequestFamily::AccountList},
    {"sso_set_passfw", "sso_set_passfw", "sso_set_passfw", "sso_set_passfw", "ss", "",
     SSORequestForm::Async, SSORequestFamily::SetPassword},
    {"sso_request_reset_passwd", "sso_request_reset_passwd", "sso_request_reset_passwd",
     "sso_request_reset_passwd", "s", "", SSORequestForm::Async, SSORequestFamily::ResetPassword},
    {"sso_switch_account", "sso_switch_account", "sso_switch_account", "sso_switch_account", "ss",
     "", SSORequestForm::Async, SSORequestFamily::Switch},
    {"sso_switch_account_by_guid", "sso_switch_account_by_guid", "sso_switch_account_by_guid",
     "sso_switch_account_by_guid", "ss", "", SSORequestForm::Async, SSORequestFamily::Switch},
    {"sso_switch_account_with_usertoken", "sso_switch_account_with_usertoken",
     "sso_switch_account_with_usertoken", "sso_switch_account_with_usertoken", "ss", "",
     SSORequestForm::Async, SSORequestFamily::Switch},

    // Profile and groups.
    {"sso_get_user_info_v4", "sso_get_user_info_v4", "sso_get_user_info_v4", "sso_get_user_info_v4",
     "", "", SSORequestForm::Async, SSORequestFamily::UserInfo},
    {"sso_get_user_info", "sso_get_user_info", "sso_get_user_info", "sso_get_user_info", "", "",
     SSORequestForm::Async, SSORequestFamily::UserInfo},
    {"sso_identify_current_user_info", "sso_identify_current_user_info",
     "sso_identify_current_user_info", "sso_identify_current_user_info", "", "",
     SSORequestForm::Async, SSORequestFamily::UserInfo},
    {"sso_get_namecheck_auth_info", "sso_get_namecheck_auth_info", "sso_get_namecheck_auth_info",
     "sso_get_namecheck_auth_info", "", "", SSORequestForm::Async, SSORequestFamily::UserInfo},
    {"sso_get_dynamic_my_account_list", "sso_get_dynamic_my_account_list",
     "sso_get_dynamic_my_account_list", "sso_get_dynamic_my_account_list", "", "",
     SSORequestForm::Async, SSORequestFamily::AccountList},
    {"sso_get_user_family_group", "sso_get_user_family_group", "sso_get_user_family_group",
     "sso_get_user_family_group", "ss", "", SSORequestForm::Async, SSORequestFamily::FamilyGroup},
    {"sso_get_user_group_users", "sso_get_user_group_users", "sso_get_user_group_users",
     "sso_get_user_group_users", "sss", "", SSORequestForm::Async, SSORequestFamily::GroupUsers},

    // The retired partner authentication: its result method is not delivered.
    {"sso_private_request_partner_auth_info", "sso_request_partner_auth_info",
     "sso_return_partner_auth_info", nullptr, "sss", "", SSORequestForm::Async,
     SSORequestFamily::PartnerAuth},

    // Plain requests, answered "(i)".
    {"sso_check_alive", "sso_check_alive", nullptr, nullptr, "", "", SSORequestForm::Plain,
     SSORequestFamily::None},
    {"sso_is_account_switching_available", "sso_is_account_switching_available", nullptr, nullptr,
     "", "", SSORequestForm::Plain, SSORequestFamily::None},
    {"sso_request_current_account_noti", "sso_request_current_account_noti", nullptr, nullptr, "",
     "", SSORequestForm::Plain, SSORequestFamily::None},
    {"sso_reset", "sso_reset", nullptr, nullptr, "", "", SSORequestForm::Plain,
     SSORequestFamily::None},

    // Reads answered "(s)".
    {"sso_private_get_public_account_data", "sso_get_public_account_data", nullptr, nullptr, "", "",
     SSORequestForm::Data, SSORequestFamily::None},
    {"sso_private_get_extracted_application_data", "sso_get_extracted_application_data", nullptr,
     nullptr, "sss", "", SSORequestForm::Data, SSORequestFamily::None},
};

inline constexpr size_t kCount = sizeof(kTable) / sizeof(kTable[0]);

// How the service lays out a result it delivers on a client method, one
// letter a field: o object name, c callback, t request id, u user data,
// r result, s a text (in order), a ae_index, m method_call. The dispatcher
// decodes every result by these letters.
struct SSODeliveryShape {
    const char *signature;
    const char *roles;
};

inline constexpr SSODeliveryShape kDeliveryShapes[] = {
    {"(sxxsixis)", "octsruam"},
    {"(sxxixis)", "octruam"},
    {"(sxxisxis)", "octrsuam"},
    {"(sxxxisis)", "octursam"},
    {"(sxxxissis)", "octurssam"},
    {"(sxxxisssis)", "octursssam"},
    {"(sxxxisssssssssis)", "octursssssssssam"},
};

// The most texts a delivery carries.
inline constexpr size_t kMaxDeliveryTexts = 9;

// The roles of a delivery signature, or nullptr.
inline const char *DeliveryRoles(const char *signature)
{
    for (const SSODeliveryShape &shape : kDeliveryShapes)
        if (std::strcmp(shape.signature, signature) == 0)
            return shape.roles;
    return nullptr;
}

// The row sent to a server method, or nullptr.
inline const SSORequestType *ByServerMethod(const char *method)
{
    for (const SSORequestType &type : kTable)
        if (std::strcmp(type.serverMethod, method) == 0)
            return &type;
    return nullptr;
}

// The row of a function, or nullptr.
inline const SSORequestType *ByFunction(const char *function)
{
    for (const SSORequestType &type : kTable)
        if (std::strcmp(type.function, function) == 0)
            return &type;
    return nullptr;
}

} // namespace sso_requests
