/**
 * @file requests.hpp
 * @brief Every request of the SSO service and of the account UI, described
 *        once (sso::requests) and offered in both forms (sso::Operation).
 *
 * A description names the request's arguments (its Params, filled in order
 * with braces), the shape of its answer and the C function that sends it.
 * `std::optional<std::string>` arguments map to the C API's "NULL means
 * none": std::nullopt is sent as absent, "" as an empty text. What each
 * request checks first, how long it blocks and what the service does with
 * it is said at its C function in sso_api.h.
 *
 * The retired C functions (partner authentication, content-provider
 * accounts, sso_generate_token_with_authcode) are not offered: they never
 * call back.
 */
#ifndef SSO_API_CXX_REQUESTS_HPP
#define SSO_API_CXX_REQUESTS_HPP

#include <sso_api/cxx/request.hpp>

#include <optional>
#include <string>

namespace sso {

/// @cond INTERNAL
namespace detail {

inline const char *opt(const std::optional<std::string> &text) noexcept
{
    return text.has_value() ? text->c_str() : nullptr;
}

// What a description has besides its Params and send().
template <Shape S, bool UserPaced = false> struct Kind {
    static constexpr Shape shape = S;
    static constexpr bool user_paced = UserPaced;
};
using ServiceText = Kind<Shape::text>;
using UiText = Kind<Shape::text, true>;
using PageKind = Kind<Shape::view_closed, true>;

} // namespace detail
/// @endcond

/** @brief The descriptions of the requests, one per request. */
namespace requests {

/** @brief An access token of an application (sso_request_access_token_with_scope()). */
struct AccessToken : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string app_id;               ///< The application (client) id.
        std::string secret_key;           ///< The application's secret.
        std::optional<std::string> scope; ///< The scope, if any.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_access_token_with_scope(p.app_id.c_str(), p.secret_key.c_str(),
                                                   detail::opt(p.scope), cb, ud);
    }
    /// @endcond
};

/** @brief An access token for an auth code (sso_request_access_token_using_authcode()). */
struct AccessTokenUsingAuthCode : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string app_id;               ///< The application (client) id.
        std::string secret_key;           ///< The application's secret.
        std::string auth_code;            ///< The auth code to exchange.
        std::optional<std::string> scope; ///< The scope, if any.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_access_token_using_authcode(p.app_id.c_str(), p.secret_key.c_str(),
                                                       p.auth_code.c_str(), detail::opt(p.scope),
                                                       cb, ud);
    }
    /// @endcond
};

/** @brief An auth code of the signed-in user (sso_request_auth_code()). */
struct AuthCode : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string app_id;               ///< The application (client) id.
        std::optional<std::string> scope; ///< The scope, if any.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_auth_code(p.app_id.c_str(), detail::opt(p.scope), cb, ud);
    }
    /// @endcond
};

/** @brief A user auth code (sso_request_user_authcode()). */
struct UserAuthCode : detail::ServiceText {
    /** @brief The arguments. */
    using Params = AuthCode::Params;
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_user_authcode(p.app_id.c_str(), detail::opt(p.scope), cb, ud);
    }
    /// @endcond
};

/** @brief A device auth code; needs nobody signed in (sso_request_device_authcode()). */
struct DeviceAuthCode : detail::ServiceText {
    /** @brief The arguments. */
    using Params = AuthCode::Params;
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_device_authcode(p.app_id.c_str(), detail::opt(p.scope), cb, ud);
    }
    /// @endcond
};

/** @brief An auth code for effortless login (sso_request_auth_code_for_effortless_login()). */
struct EffortlessLoginAuthCode : detail::ServiceText {
    /** @brief The arguments. */
    using Params = AuthCode::Params;
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_auth_code_for_effortless_login(p.app_id.c_str(), detail::opt(p.scope),
                                                          cb, ud);
    }
    /// @endcond
};

/** @brief An auth code for an account id and its password (sso_request_authcode_with_ID_PWD()). */
struct AuthCodeWithPassword : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string app_id;               ///< The application (client) id.
        std::string account_id;           ///< The account's id.
        std::string password;             ///< The account's password (never logged).
        std::optional<std::string> scope; ///< The scope, if any.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_authcode_with_ID_PWD(p.app_id.c_str(), p.account_id.c_str(),
                                                p.password.c_str(), detail::opt(p.scope), ud, cb);
    }
    /// @endcond
};

/** @brief An auth code for another device (sso_request_authcode_for_other_device()). */
struct AuthCodeForOtherDevice : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::optional<std::string> dsc; ///< The other device's security code, if any.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_authcode_for_other_device(detail::opt(p.dsc), cb, ud);
    }
    /// @endcond
};

/**
 * @brief The device account of a user from an auth code; answers with the
 *        result code only (sso_generate_token_with_authcode_dsc_noti()).
 */
struct GenerateToken : detail::Kind<detail::Shape::bare> {
    /** @brief The arguments. */
    struct Params {
        std::string auth_code;          ///< The auth code.
        std::string user_id;            ///< The account's user id.
        std::optional<std::string> dsc; ///< The device security code, if any.
        bool use_notification = true;   ///< Whether the service tells the user.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::BareCallback cb, void *ud) noexcept
    {
        return sso_generate_token_with_authcode_dsc_noti(
            p.auth_code.c_str(), p.user_id.c_str(), detail::opt(p.dsc), cb, ud, p.use_notification);
    }
    /// @endcond
};

/**
 * @brief The device account of a user from an auth code, with a delete flag
 *        (sso_generate_token_with_authcode_dsc_deleteFlag()).
 */
struct GenerateTokenWithDeleteFlag : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string user_id;            ///< The account's user id.
        std::string auth_code;          ///< The auth code.
        bool delete_flag = false;       ///< Passed to the service.
        std::optional<std::string> dsc; ///< The device security code, if any.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_generate_token_with_authcode_dsc_deleteFlag(
            p.user_id.c_str(), p.auth_code.c_str(), p.delete_flag, detail::opt(p.dsc), cb, ud);
    }
    /// @endcond
};

/** @brief The device account of a user from a password (sso_generate_token_with_ID_PWD()). */
struct GenerateTokenWithPassword : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string user_id;      ///< The account's user id.
        std::string password;     ///< The account's password (never logged).
        bool delete_flag = false; ///< Passed to the service.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_generate_token_with_ID_PWD(p.user_id.c_str(), p.password.c_str(), p.delete_flag,
                                              cb, ud);
    }
    /// @endcond
};

/** @brief A user auth code bound to a device security code (sso_request_user_authcode_with_dsc()).
 */
struct UserAuthCodeWithDsc : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string app_id;                       ///< The application (client) id.
        std::optional<std::string> scope;         ///< The scope, if any.
        std::optional<std::string> dsc;           ///< The device security code, if any.
        std::optional<std::string> response_type; ///< The response type, if any.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_user_authcode_with_dsc(p.app_id.c_str(), detail::opt(p.scope),
                                                  detail::opt(p.dsc), detail::opt(p.response_type),
                                                  cb, ud);
    }
    /// @endcond
};

/** @brief UserAuthCodeWithDsc with a PKCE code challenge
 * (sso_request_user_authcode_with_challenge()). */
struct UserAuthCodeWithChallenge : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string app_id;                       ///< The application (client) id.
        std::optional<std::string> scope;         ///< The scope, if any.
        std::optional<std::string> dsc;           ///< The device security code, if any.
        std::optional<std::string> response_type; ///< The response type, if any.
        std::string code_challenge;               ///< The code challenge (may be empty).
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_user_authcode_with_challenge(
            p.app_id.c_str(), detail::opt(p.scope), detail::opt(p.dsc),
            detail::opt(p.response_type), p.code_challenge.c_str(), cb, ud);
    }
    /// @endcond
};

/** @brief UserAuthCodeWithDsc with a PKCE code verifier
 * (sso_request_user_authcode_with_verifier()). */
struct UserAuthCodeWithVerifier : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string app_id;                       ///< The application (client) id.
        std::optional<std::string> scope;         ///< The scope, if any.
        std::optional<std::string> dsc;           ///< The device security code, if any.
        std::optional<std::string> response_type; ///< The response type, if any.
        std::string code_verifier;                ///< The code verifier (may be empty).
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_user_authcode_with_verifier(
            p.app_id.c_str(), detail::opt(p.scope), detail::opt(p.dsc),
            detail::opt(p.response_type), p.code_verifier.c_str(), cb, ud);
    }
    /// @endcond
};

/** @brief Registers an account (sso_register_account()). */
struct RegisterAccount : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string account_id;     ///< The account's id.
        std::string auth_code;      ///< The auth code.
        std::string dsc;            ///< The device security code, sent as given ("" for none).
        bool perform_login = false; ///< Whether the service signs the account in.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_register_account(p.account_id.c_str(), p.auth_code.c_str(), p.dsc.c_str(), cb,
                                    ud, p.perform_login);
    }
    /// @endcond
};

/** @brief Signs the current user out (sso_perform_logout()). */
struct Logout : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::optional<std::string> confirm_id; ///< A confirmation id for the service, if any.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_perform_logout(cb, ud, detail::opt(p.confirm_id));
    }
    /// @endcond
};

/** @brief Checks a password against the signed-in account (sso_verify_password()). */
struct VerifyPassword : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string password; ///< The password to check (never logged).
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_verify_password(p.password.c_str(), cb, ud);
    }
    /// @endcond
};

/** @brief The list of the device's accounts (sso_request_account_list()). */
struct AccountList : detail::ServiceText {
    /** @brief No arguments. */
    struct Params {};
    /// @cond INTERNAL
    static int send(const Params &, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_account_list(cb, ud);
    }
    /// @endcond
};

/** @brief Sets the password of an account (sso_set_passfw()). */
struct SetPassword : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string account_id; ///< The account's id.
        std::string password;   ///< The new password (never logged).
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_set_passfw(p.account_id.c_str(), p.password.c_str(), cb, ud);
    }
    /// @endcond
};

/** @brief A password-reset mail (sso_request_reset_passwd()). */
struct PasswordReset : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string email; ///< The address.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_reset_passwd(p.email.c_str(), cb, ud);
    }
    /// @endcond
};

/** @brief Switches the active account by account id (sso_switch_account()). */
struct SwitchAccount : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string account_id;           ///< The account's id; must not be empty.
        std::optional<std::string> extra; ///< Passed to the service, if any ("" also means none).
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_switch_account(p.account_id.c_str(), cb, ud, detail::opt(p.extra));
    }
    /// @endcond
};

/** @brief Switches the active account by GUID (sso_switch_account_by_guid()). */
struct SwitchAccountByGuid : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string guid;                 ///< The account's GUID; must not be empty.
        std::optional<std::string> extra; ///< Passed to the service, if any ("" also means none).
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_switch_account_by_guid(p.guid.c_str(), cb, ud, detail::opt(p.extra));
    }
    /// @endcond
};

/** @brief Switches the active account with a user token (sso_switch_account_with_usertoken()). */
struct SwitchAccountWithUserToken : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string account_id; ///< The account's id; must not be empty.
        std::string user_token; ///< The user token.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_switch_account_with_usertoken(p.account_id.c_str(), cb, ud,
                                                 p.user_token.c_str());
    }
    /// @endcond
};

/** @brief A whitelist access token for the own package (sso_request_whitelist_accesstoken()). */
struct WhitelistAccessToken : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string app_id;               ///< The application (client) id.
        std::optional<std::string> scope; ///< The scope, if any.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_whitelist_accesstoken(p.app_id.c_str(), detail::opt(p.scope), cb, ud);
    }
    /// @endcond
};

/** @brief The same as WhitelistAccessToken (sso_request_signature_accesstoken()). */
struct SignatureAccessToken : detail::ServiceText {
    /** @brief The arguments. */
    using Params = WhitelistAccessToken::Params;
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_signature_accesstoken(p.app_id.c_str(), detail::opt(p.scope), cb, ud);
    }
    /// @endcond
};

/**
 * @brief A whitelist access token with an explicit package and signature
 *        (sso_api_request_whitelist_accesstoken()).
 */
struct PackageWhitelistAccessToken : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string app_id;               ///< The application (client) id.
        std::string package;              ///< The package (the caller's own, unless privileged).
        std::string signature;            ///< The certificate fingerprint to send.
        std::optional<std::string> scope; ///< The scope, if any.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_api_request_whitelist_accesstoken(
            p.app_id.c_str(), p.package.c_str(), p.signature.c_str(), detail::opt(p.scope), cb, ud);
    }
    /// @endcond
};

/** @brief The signed-in user's profile as the service's JSON text (sso_get_user_info_v4()). */
struct UserProfileText : detail::ServiceText {
    /** @brief No arguments. */
    struct Params {};
    /// @cond INTERNAL
    static int send(const Params &, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_get_user_info_v4(cb, ud);
    }
    /// @endcond
};

/** @brief The signed-in user's profile as a record (sso_get_user_info()). */
struct UserProfile : detail::Kind<detail::Shape::user_info> {
    /** @brief No arguments. */
    struct Params {};
    /// @cond INTERNAL
    static int send(const Params &, detail::UserInfoCallback cb, void *ud) noexcept
    {
        return sso_get_user_info(cb, ud);
    }
    /// @endcond
};

/** @brief The profile and country codes as a JSON text (sso_get_user_json_info()). */
struct UserProfileJson : detail::ServiceText {
    /** @brief No arguments. */
    struct Params {};
    /// @cond INTERNAL
    static int send(const Params &, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_get_user_json_info(cb, ud);
    }
    /// @endcond
};

/** @brief Identity-verification data (sso_identify_current_user_info()). */
struct Identity : detail::Kind<detail::Shape::identity> {
    /** @brief No arguments. */
    struct Params {};
    /// @cond INTERNAL
    static int send(const Params &, detail::IdentityCallback cb, void *ud) noexcept
    {
        return sso_identify_current_user_info(cb, ud);
    }
    /// @endcond
};

/** @brief Name-check data (sso_get_namecheck_auth_info()). */
struct NameCheck : detail::Kind<detail::Shape::name_check> {
    /** @brief No arguments. */
    struct Params {};
    /// @cond INTERNAL
    static int send(const Params &, detail::NameCheckCallback cb, void *ud) noexcept
    {
        return sso_get_namecheck_auth_info(cb, ud);
    }
    /// @endcond
};

/** @brief The dynamic list of the user's accounts (sso_get_dynamic_my_account_list()). */
struct DynamicAccountList : detail::ServiceText {
    /** @brief No arguments. */
    struct Params {};
    /// @cond INTERNAL
    static int send(const Params &, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_get_dynamic_my_account_list(cb, ud);
    }
    /// @endcond
};

/** @brief The family group of the signed-in user (sso_get_user_family_group()). */
struct FamilyGroup : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string app_id;       ///< The application (client) id.
        std::string access_token; ///< An access token of the application.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_get_user_family_group(p.app_id.c_str(), p.access_token.c_str(), cb, ud);
    }
    /// @endcond
};

/** @brief The members of a group (sso_get_user_group_users()). */
struct GroupUsers : detail::ServiceText {
    /** @brief The arguments. */
    struct Params {
        std::string app_id;       ///< The application (client) id.
        std::string access_token; ///< An access token of the application.
        std::string group_id;     ///< The group.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_get_user_group_users(p.app_id.c_str(), p.access_token.c_str(),
                                        p.group_id.c_str(), cb, ud);
    }
    /// @endcond
};

/**
 * @brief Shows an account page and completes when the account view closes
 *        (sso_show()).
 *
 * The process has one armed "view closed" notice: a newer account page
 * completes the older request with errc::superseded. Do not mix with
 * sso_show() of the C API, which takes the notice over.
 */
struct AccountPage : detail::PageKind {
    /** @brief The arguments. */
    struct Params {
        int type = 1;                    ///< The page number (1: sign-in, 10: switch account...).
        std::optional<std::string> data; ///< Passed to the page, if any.
        std::string caller_id;           ///< The caller's id.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_show(p.type, detail::opt(p.data), p.caller_id.c_str(), cb, ud);
    }
    /// @endcond
};

/** @brief AccountPage with a transparent window or not (sso_show_with_transparent_win()). */
struct TransparentAccountPage : detail::PageKind {
    /** @brief The arguments. */
    struct Params {
        int type = 1;            ///< The page number.
        std::string caller_id;   ///< The caller's id.
        bool transparent = true; ///< Whether the page opens in a transparent window.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_show_with_transparent_win(p.type, p.caller_id.c_str(), cb, ud, p.transparent);
    }
    /// @endcond
};

/**
 * @brief The terms page (sso_show_term_page()): completes as soon as it is
 *        launched.
 */
struct TermsPage : detail::PageKind {
    /** @brief The arguments. */
    struct Params {
        std::string caller_id; ///< The caller's id.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        // The C function wants a window but does not read it.
        static int window;
        return sso_show_term_page(&window, nullptr, p.caller_id.c_str(), cb, ud);
    }
    /// @endcond
};

/**
 * @brief Has the account UI verify the signed-in user; answers 0 or -1 with
 *        a JSON text (sso_request_account_verification()).
 *
 * The process has one pending account UI answer: start the next flow only
 * after this one has completed.
 */
struct AccountVerification : detail::UiText {
    /** @brief The arguments. */
    struct Params {
        std::string account_id; ///< The account to verify.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_account_verification(p.account_id.c_str(), cb, ud);
    }
    /// @endcond
};

/** @brief AccountVerification with the PIN application
 * (sso_request_account_verification_using_pin()). */
struct PinVerification : detail::UiText {
    /** @brief The arguments. */
    struct Params {
        std::string account_id; ///< The account to verify.
        int pin_type = 1;       ///< 1 the PIN, 2 the PIN of another account, else plain.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_account_verification_using_pin(p.account_id.c_str(), cb, ud, p.pin_type);
    }
    /// @endcond
};

/** @brief Sets up a PIN with the PIN application (sso_request_account_setup_pin()). */
struct PinSetup : detail::UiText {
    /** @brief The arguments. */
    struct Params {
        std::string account_id; ///< The account.
        int pin_type = 0;       ///< 1 "high", 2 another account, else plain.
    };
    /// @cond INTERNAL
    static int send(const Params &p, detail::TextCallback cb, void *ud) noexcept
    {
        return sso_request_account_setup_pin(p.account_id.c_str(), cb, ud, p.pin_type);
    }
    /// @endcond
};

} // namespace requests

/** @name Tokens and auth codes */
///@{
/** @brief An access token (requests::AccessToken). */
inline constexpr Operation<requests::AccessToken> request_access_token{};
/** @brief An access token for an auth code (requests::AccessTokenUsingAuthCode). */
inline constexpr Operation<requests::AccessTokenUsingAuthCode>
    request_access_token_using_auth_code{};
/** @brief An auth code (requests::AuthCode). */
inline constexpr Operation<requests::AuthCode> request_auth_code{};
/** @brief A user auth code (requests::UserAuthCode). */
inline constexpr Operation<requests::UserAuthCode> request_user_auth_code{};
/** @brief A device auth code (requests::DeviceAuthCode). */
inline constexpr Operation<requests::DeviceAuthCode> request_device_auth_code{};
/** @brief An auth code for effortless login (requests::EffortlessLoginAuthCode). */
inline constexpr Operation<requests::EffortlessLoginAuthCode>
    request_auth_code_for_effortless_login{};
/** @brief An auth code for an account id and password (requests::AuthCodeWithPassword). */
inline constexpr Operation<requests::AuthCodeWithPassword> request_auth_code_with_password{};
/** @brief An auth code for another device (requests::AuthCodeForOtherDevice). */
inline constexpr Operation<requests::AuthCodeForOtherDevice> request_auth_code_for_other_device{};
/** @brief A device account from an auth code (requests::GenerateToken). */
inline constexpr Operation<requests::GenerateToken> generate_token_with_auth_code{};
/** @brief A device account with a delete flag (requests::GenerateTokenWithDeleteFlag). */
inline constexpr Operation<requests::GenerateTokenWithDeleteFlag>
    generate_token_with_auth_code_delete_flag{};
/** @brief A device account from a password (requests::GenerateTokenWithPassword). */
inline constexpr Operation<requests::GenerateTokenWithPassword> generate_token_with_password{};
/** @brief A user auth code bound to a DSC (requests::UserAuthCodeWithDsc). */
inline constexpr Operation<requests::UserAuthCodeWithDsc> request_user_auth_code_with_dsc{};
/** @brief A user auth code with a code challenge (requests::UserAuthCodeWithChallenge). */
inline constexpr Operation<requests::UserAuthCodeWithChallenge>
    request_user_auth_code_with_challenge{};
/** @brief A user auth code with a code verifier (requests::UserAuthCodeWithVerifier). */
inline constexpr Operation<requests::UserAuthCodeWithVerifier>
    request_user_auth_code_with_verifier{};
/** @brief A whitelist access token (requests::WhitelistAccessToken). */
inline constexpr Operation<requests::WhitelistAccessToken> request_whitelist_access_token{};
/** @brief A signature access token (requests::SignatureAccessToken). */
inline constexpr Operation<requests::SignatureAccessToken> request_signature_access_token{};
/** @brief A whitelist access token for a named package (requests::PackageWhitelistAccessToken). */
inline constexpr Operation<requests::PackageWhitelistAccessToken>
    request_package_whitelist_access_token{};
///@}

/** @name Account operations */
///@{
/** @brief Registers an account (requests::RegisterAccount). */
inline constexpr Operation<requests::RegisterAccount> register_account{};
/** @brief Signs out (requests::Logout). */
inline constexpr Operation<requests::Logout> perform_logout{};
/** @brief Checks a password (requests::VerifyPassword). */
inline constexpr Operation<requests::VerifyPassword> verify_password{};
/** @brief The device's accounts (requests::AccountList). */
inline constexpr Operation<requests::AccountList> request_account_list{};
/** @brief Sets an account's password (requests::SetPassword). */
inline constexpr Operation<requests::SetPassword> set_password{};
/** @brief A password-reset mail (requests::PasswordReset). */
inline constexpr Operation<requests::PasswordReset> request_password_reset{};
/** @brief Switches by account id (requests::SwitchAccount). */
inline constexpr Operation<requests::SwitchAccount> switch_account{};
/** @brief Switches by GUID (requests::SwitchAccountByGuid). */
inline constexpr Operation<requests::SwitchAccountByGuid> switch_account_by_guid{};
/** @brief Switches with a user token (requests::SwitchAccountWithUserToken). */
inline constexpr Operation<requests::SwitchAccountWithUserToken> switch_account_with_user_token{};
///@}

/** @name Profile and groups */
///@{
/** @brief The profile as a JSON text (requests::UserProfileText). */
inline constexpr Operation<requests::UserProfileText> request_user_info_text{};
/** @brief The profile as a record (requests::UserProfile). */
inline constexpr Operation<requests::UserProfile> request_user_info{};
/** @brief The profile and country codes as JSON (requests::UserProfileJson). */
inline constexpr Operation<requests::UserProfileJson> request_user_json_info{};
/** @brief Identity-verification data (requests::Identity). */
inline constexpr Operation<requests::Identity> request_identity_info{};
/** @brief Name-check data (requests::NameCheck). */
inline constexpr Operation<requests::NameCheck> request_name_check_info{};
/** @brief The dynamic account list (requests::DynamicAccountList). */
inline constexpr Operation<requests::DynamicAccountList> request_dynamic_account_list{};
/** @brief The family group (requests::FamilyGroup). */
inline constexpr Operation<requests::FamilyGroup> request_family_group{};
/** @brief A group's members (requests::GroupUsers). */
inline constexpr Operation<requests::GroupUsers> request_group_users{};
///@}

/** @name Account UI */
///@{
/** @brief An account page, until it closes (requests::AccountPage). */
inline constexpr Operation<requests::AccountPage> show_account_page{};
/** @brief An account page, transparent or not (requests::TransparentAccountPage). */
inline constexpr Operation<requests::TransparentAccountPage> show_transparent_account_page{};
/** @brief The terms page (requests::TermsPage). */
inline constexpr Operation<requests::TermsPage> show_terms_page{};
/** @brief Account verification (requests::AccountVerification). */
inline constexpr Operation<requests::AccountVerification> verify_account{};
/** @brief PIN verification (requests::PinVerification). */
inline constexpr Operation<requests::PinVerification> verify_pin{};
/** @brief PIN set-up (requests::PinSetup). */
inline constexpr Operation<requests::PinSetup> set_up_pin{};
///@}

} // namespace sso

#endif // SSO_API_CXX_REQUESTS_HPP
