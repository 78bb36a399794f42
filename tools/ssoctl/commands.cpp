// The one table of ssoctl's commands: name, help, options, the library
// functions each reaches, and its handler. Every exported function of
// sso_api.h is reached by at least one command ("ssoctl --list-functions").
#include <map>

#include "ssoctl.h"

namespace ssoctl {

namespace {

// Every command option, and whether it takes a value. An option means the
// same wherever it is accepted.
const std::map<std::string, bool> &OptionTable()
{
    static const std::map<std::string, bool> options = {
        {"--access-token", true}, {"--account", true},      {"--app-id", true},
        {"--auth-code", true},    {"--caller", true},       {"--challenge", true},
        {"--confirm-id", true},   {"--data", true},         {"--delete-flag", true},
        {"--dsc", true},          {"--dynamic", false},     {"--effortless", false},
        {"--extra", true},        {"--guid", true},         {"--json-info", false},
        {"--login", false},       {"--multi", false},       {"--no-notification", false},
        {"--opaque", false},      {"--package", true},      {"--password", true},
        {"--pin-type", true},     {"--plain", false},       {"--response-type", true},
        {"--retired", false},     {"--scope", true},        {"--secret", true},
        {"--signature", true},    {"--transparent", false}, {"--user", true},
        {"--user-token", true},   {"--v4", false},          {"--verifier", true},
    };
    return options;
}

} // namespace

bool IsKnownOption(const std::string &option)
{
    return OptionTable().count(option) != 0;
}

bool OptionTakesValue(const std::string &option)
{
    auto it = OptionTable().find(option);
    return it != OptionTable().end() && it->second;
}

const std::vector<Command> &Commands()
{
    static const std::vector<Command> commands = {
        // ---- the device and the signed-in account ----
        {"Device and account",
         "status",
         "service reachability, login state and the signed-in account",
         "usage: ssoctl status\n"
         "Checks that the service answers and prints the login state, the number\n"
         "of accounts and, when signed in, the login id and (masked) GUID.\n"
         "Example: ssoctl status --show-secrets\n",
         {},
         0,
         0,
         {"sso_check_alive", "sso_get_login_state", "sso_get_account_number",
          "sso_get_login_user_id", "sso_get_guid", "sso_last_error", "sso_last_service_answer"},
         CmdStatus},
        {"Device and account",
         "alive",
         "whether the SSO service answers",
         "usage: ssoctl alive\n"
         "Asks the SSO service whether it is running (blocks for at most 5 s).\n"
         "Exit status 0 when it answers, 1 when it does not.\n"
         "Example: ssoctl alive && echo up\n",
         {},
         0,
         0,
         {"sso_check_alive"},
         CmdAlive},
        {"Device and account",
         "account",
         "the signed-in account, read locally (every getter)",
         "usage: ssoctl account [FIELD]\n"
         "Reads the signed-in account from the device's settings and secure storage,\n"
         "without asking the service. Without FIELD every value is printed; with\n"
         "one, only that value. Fields:\n"
         "  login-state     signed-in or signed-out\n"
         "  account-number  number of accounts on the device\n"
         "  login-id        the account's login id\n"
         "  guid            the account's GUID (masked)\n"
         "  vd-uid          the account's UID\n"
         "  auth-token      the account's auth token (masked)\n"
         "  device-id       the user's device id\n"
         "  country-codes   the three- and two-letter country codes\n"
         "  login-info      login id, GUID, UID and icon path, as one record\n"
         "  json-info       the account as the library's JSON text\n"
         "  ui-package      application id of the account UI\n"
         "Exit status 1 when the value cannot be read (nobody signed in).\n"
         "Example: ssoctl account\n"
         "Example: ssoctl --show-secrets account guid\n",
         {},
         0,
         1,
         {"sso_get_login_state", "sso_get_account_number", "sso_get_login_user_id", "sso_get_guid",
          "sso_get_login_vd_uid", "sso_get_auth_token", "sso_get_device_id", "sso_get_login_info",
          "get_size_of_sso_login_info_s", "sso_get_login_json_info",
          "sso_get_account_ui_application_package_id"},
         CmdAccount},
        {"Device and account",
         "accounts",
         "the device's account document",
         "usage: ssoctl accounts\n"
         "Prints the device's public account document (every registered account) as\n"
         "indented JSON, secrets masked. Read locally; no sign-in needed.\n"
         "Example: ssoctl accounts\n",
         {},
         0,
         0,
         {"sso_get_accounts"},
         CmdAccounts},
        {"Device and account",
         "codes",
         "the causes of failure and the service's result codes",
         "usage: ssoctl codes\n"
         "Lists why a call can fail (the name every command prints with --json as\n"
         "\"error\", and what it means) and the result codes the SSO service defines.\n"
         "Example: ssoctl --json codes\n",
         {},
         0,
         0,
         {"sso_error_name", "sso_strerror", "sso_service_result_name"},
         CmdCodes},
        {"Device and account",
         "policy",
         "enforce-login, temporary logout, switching, popup and term state",
         "usage: ssoctl policy [CHECK]\n"
         "Without CHECK prints every answer below. Checks:\n"
         "  enforce-login     must the user be made to sign in (local)\n"
         "  temporary-logout  is the signed-out state only temporary (local)\n"
         "  switching         can the account be switched now (asks the service)\n"
         "  popup             does the account UI show a popup (local)\n"
         "  term [TERM_ID]    the retired terms-state query; always unavailable\n"
         "The answers are yes or no (exit status 0); \"term\" exits 1.\n"
         "Example: ssoctl policy\n"
         "Example: ssoctl --json policy enforce-login\n",
         {},
         0,
         2,
         {"sso_check_enforce_login_condition", "sso_check_temporary_logout_condition",
          "sso_is_account_switching_available", "sso_get_popup_state", "sso_get_term_state"},
         CmdPolicy},
        {"Device and account",
         "watch",
         "print login and account-view changes until interrupted",
         "usage: ssoctl watch [--plain | --multi]\n"
         "Prints \"watching\", then one line per login state change and per change of\n"
         "the account view (shown or closed) until SIGINT or SIGTERM.\n"
         "  (default)  the single subscriber with the extended text: login id, GUID\n"
         "             and event sub-type\n"
         "  --plain    the single subscriber with the login id only\n"
         "  --multi    a registered callback, which hears the GUID only\n"
         "Example: ssoctl watch --json\n"
         "Example: ssoctl watch --multi\n",
         {"--plain", "--multi"},
         0,
         0,
         {"sso_subscribe_login_state_change_extra", "sso_subscribe_login_state_change",
          "sso_unsubscribe_login_state_change", "sso_register_login_state_changed_cb",
          "sso_unregister_login_state_changed_cb"},
         CmdWatch},

        // ---- tokens and codes ----
        {"Tokens and codes",
         "token",
         "request an access token",
         "usage: ssoctl token --app-id ID --secret KEY [--scope S] [--auth-code CODE]\n"
         "Requests an access token for the signed-in user and waits for it. With\n"
         "--auth-code the token is asked for in exchange of that auth code.\n"
         "A secret given as \"-\" is read from stdin.\n"
         "Example: ssoctl token --app-id my.app --secret s3cr3t --scope profile\n"
         "Example: ssoctl token --app-id my.app --secret - --auth-code AC.x < secret.txt\n",
         {"--app-id", "--secret", "--scope", "--auth-code"},
         0,
         0,
         {"sso_request_access_token_with_scope", "sso_request_access_token",
          "sso_request_access_token_using_authcode"},
         CmdToken},
        {"Tokens and codes",
         "auth-code",
         "request an auth code",
         "usage: ssoctl auth-code --app-id ID [--scope S]\n"
         "                        [--effortless | --account ID --password PW]\n"
         "Requests an authorization code for the signed-in user and waits for it.\n"
         "  --effortless            a code for effortless login\n"
         "  --account, --password   a code for that account, without anybody signed\n"
         "                          in (a password of \"-\" is read from stdin)\n"
         "Example: ssoctl auth-code --app-id my.app --scope profile\n"
         "Example: ssoctl auth-code --app-id my.app --account kim@example.com --password -\n",
         {"--app-id", "--scope", "--effortless", "--account", "--password"},
         0,
         0,
         {"sso_request_auth_code", "sso_request_auth_code_for_effortless_login",
          "sso_request_authcode_with_ID_PWD"},
         CmdAuthCode},
        {"Tokens and codes",
         "user-auth-code",
         "request a user auth code (optionally bound to a DSC, with PKCE)",
         "usage: ssoctl user-auth-code --app-id ID [--scope S] [--dsc DSC]\n"
         "                             [--response-type T] [--challenge C | --verifier V]\n"
         "Requests a user auth code for the signed-in user. With --dsc or\n"
         "--response-type it is bound to the device security code; --challenge or\n"
         "--verifier add a PKCE code challenge or code verifier.\n"
         "Example: ssoctl user-auth-code --app-id my.app\n"
         "Example: ssoctl user-auth-code --app-id my.app --dsc 1234 --challenge E9Melhoa\n",
         {"--app-id", "--scope", "--dsc", "--response-type", "--challenge", "--verifier"},
         0,
         0,
         {"sso_request_user_authcode", "sso_request_user_authcode_with_dsc",
          "sso_request_user_authcode_with_challenge", "sso_request_user_authcode_with_verifier"},
         CmdUserAuthCode},
        {"Tokens and codes",
         "device-auth-code",
         "request a device auth code (nobody signed in)",
         "usage: ssoctl device-auth-code --app-id ID [--scope S]\n"
         "Requests an auth code for the device itself; nobody needs to be signed in.\n"
         "Example: ssoctl device-auth-code --app-id my.app --scope device\n",
         {"--app-id", "--scope"},
         0,
         0,
         {"sso_request_device_authcode"},
         CmdDeviceAuthCode},
        {"Tokens and codes",
         "other-device-auth-code",
         "request an auth code for another device",
         "usage: ssoctl other-device-auth-code [--dsc DSC]\n"
         "Requests an auth code for another device, named by its device security code.\n"
         "Example: ssoctl other-device-auth-code --dsc 4711\n",
         {"--dsc"},
         0,
         0,
         {"sso_request_authcode_for_other_device"},
         CmdOtherDeviceAuthCode},
        {"Tokens and codes",
         "token-with-authcode",
         "create and sign in a device account from an auth code",
         "usage: ssoctl token-with-authcode --user ID --auth-code CODE [--dsc DSC]\n"
         "                                  [--no-notification | --delete-flag BOOL]\n"
         "       ssoctl token-with-authcode --retired\n"
         "Has the service create the device account of ID from CODE and sign it in.\n"
         "  --no-notification  do not tell the user\n"
         "  --delete-flag BOOL pass the delete flag (yes/no) and print the response\n"
         "  --retired          call the retired form, which always refuses\n"
         "Exit status 1 also when the device holds six accounts already.\n"
         "Example: ssoctl token-with-authcode --user kim@example.com --auth-code AC.x\n",
         {"--user", "--auth-code", "--dsc", "--no-notification", "--delete-flag", "--retired"},
         0,
         0,
         {"sso_generate_token_with_authcode_dsc", "sso_generate_token_with_authcode_dsc_noti",
          "sso_generate_token_with_authcode_dsc_deleteFlag", "sso_generate_token_with_authcode"},
         CmdTokenWithAuthcode},
        {"Tokens and codes",
         "token-with-password",
         "create and sign in a device account from a password",
         "usage: ssoctl token-with-password --user ID --password PW [--delete-flag BOOL]\n"
         "Has the service create the device account of ID from its password and sign\n"
         "it in. A password of \"-\" is read from stdin.\n"
         "Example: ssoctl token-with-password --user kim@example.com --password -\n",
         {"--user", "--password", "--delete-flag"},
         0,
         0,
         {"sso_generate_token_with_ID_PWD"},
         CmdTokenWithPassword},
        {"Tokens and codes",
         "whitelist-token",
         "request or read a whitelist access token",
         "usage: ssoctl whitelist-token request --app-id ID [--scope S]\n"
         "                              [--package PKG --signature SIG]\n"
         "       ssoctl whitelist-token get --app-id ID [--package PKG]\n"
         "The caller is this process: its application id (SSO_PLATFORM_APP_ID), the\n"
         "package the registry puts it in and that package's author certificate.\n"
         "  request  asks the service for a token and waits for it\n"
         "  get      reads the token the service stored for ID in the account data\n"
         "--package (and --signature) name the package explicitly; only the caller's\n"
         "own package is allowed, unless the caller is a system package.\n"
         "Example: SSO_PLATFORM_APP_ID=org.example.app ssoctl whitelist-token request "
         "--app-id my.app\n"
         "Example: SSO_PLATFORM_APP_ID=org.example.app ssoctl whitelist-token get --app-id "
         "my.app\n",
         {"--app-id", "--scope", "--package", "--signature"},
         1,
         1,
         {"sso_pre_init_callerInformation", "sso_request_whitelist_accesstoken",
          "sso_api_request_whitelist_accesstoken", "sso_get_whitelist_accesstoken",
          "sso_api_get_whitelist_accesstoken"},
         CmdWhitelistToken},
        {"Tokens and codes",
         "signature-token",
         "request or read a signature access token",
         "usage: ssoctl signature-token request --app-id ID [--scope S]\n"
         "       ssoctl signature-token get --app-id ID\n"
         "The same as whitelist-token, through the signature functions.\n"
         "Example: SSO_PLATFORM_APP_ID=org.example.app ssoctl signature-token get --app-id "
         "my.app\n",
         {"--app-id", "--scope"},
         1,
         1,
         {"sso_pre_init_callerInformation", "sso_request_signature_accesstoken",
          "sso_get_signature_accesstoken"},
         CmdSignatureToken},

        // ---- account operations ----
        {"Account operations",
         "logout",
         "sign the current user out",
         "usage: ssoctl logout [--confirm-id ID]\n"
         "Signs the current user out and waits for the outcome.\n"
         "Example: ssoctl logout\n",
         {"--confirm-id"},
         0,
         0,
         {"sso_perform_logout"},
         CmdLogout},
        {"Account operations",
         "switch",
         "switch the active account",
         "usage: ssoctl switch ACCOUNT_ID [--extra TEXT]\n"
         "       ssoctl switch --guid GUID [--extra TEXT]\n"
         "       ssoctl switch ACCOUNT_ID --user-token TOKEN\n"
         "Switches the active account by login id, by GUID, or by login id with the\n"
         "account's user token, and waits for the outcome. A token of \"-\" is read\n"
         "from stdin.\n"
         "Example: ssoctl switch kim@example.com\n"
         "Example: ssoctl switch --guid 0123456789ABCDEF0123456789ABCDEF\n",
         {"--guid", "--user-token", "--extra"},
         0,
         1,
         {"sso_switch_account", "sso_switch_account_by_guid", "sso_switch_account_with_usertoken"},
         CmdSwitch},
        {"Account operations",
         "register",
         "register an account with an auth code",
         "usage: ssoctl register ACCOUNT_ID --auth-code CODE [--dsc DSC] [--login]\n"
         "Registers the account on the device, signing it in with --login.\n"
         "Exit status 1 also when the device holds six accounts already.\n"
         "Example: ssoctl register kim@example.com --auth-code AC.x --login\n",
         {"--auth-code", "--dsc", "--login"},
         1,
         1,
         {"sso_register_account"},
         CmdRegister},
        {"Account operations",
         "verify-password",
         "check the signed-in account's password",
         "usage: ssoctl verify-password --password PW\n"
         "Checks PW against the signed-in account (\"-\" reads it from stdin).\n"
         "Example: ssoctl verify-password --password - < pw.txt\n",
         {"--password"},
         0,
         0,
         {"sso_verify_password"},
         CmdVerifyPassword},
        {"Account operations",
         "reset-password",
         "send a password-reset mail",
         "usage: ssoctl reset-password EMAIL\n"
         "Asks the service to send a password-reset mail to EMAIL.\n"
         "Example: ssoctl reset-password kim@example.com\n",
         {},
         1,
         1,
         {"sso_request_reset_passwd"},
         CmdResetPassword},
        {"Account operations",
         "set-password",
         "set an account's password",
         "usage: ssoctl set-password ACCOUNT_ID --password PW\n"
         "Sets the password of ACCOUNT_ID (\"-\" reads it from stdin).\n"
         "Example: ssoctl set-password kim@example.com --password -\n",
         {"--password"},
         1,
         1,
         {"sso_set_passfw"},
         CmdSetPassword},
        {"Account operations",
         "account-list",
         "ask the service for the list of accounts",
         "usage: ssoctl account-list [--dynamic]\n"
         "Asks the service for the device's accounts; --dynamic asks for the dynamic\n"
         "list of the user's accounts instead.\n"
         "Example: ssoctl account-list --json\n",
         {"--dynamic"},
         0,
         0,
         {"sso_request_account_list", "sso_get_dynamic_my_account_list"},
         CmdAccountList},
        {"Account operations",
         "current-account-noti",
         "have the service announce the account again",
         "usage: ssoctl current-account-noti\n"
         "Asks the service to announce the current account again (signed in only).\n"
         "Example: ssoctl current-account-noti\n",
         {},
         0,
         0,
         {"sso_request_current_account_noti"},
         CmdCurrentAccountNoti},
        {"Account operations",
         "reset",
         "ask the service to reset",
         "usage: ssoctl reset\n"
         "Asks the SSO service to reset.\n"
         "Example: ssoctl reset\n",
         {},
         0,
         0,
         {"sso_reset"},
         CmdReset},

        // ---- profile and groups ----
        {"Profile and groups",
         "user-info",
         "the signed-in user's profile",
         "usage: ssoctl user-info [--v4 | --json-info]\n"
         "Asks the service for the signed-in user's profile.\n"
         "  (default)    the profile record, one field a line\n"
         "  --v4         the service's JSON text\n"
         "  --json-info  the profile with the country codes, as the library's JSON\n"
         "Example: ssoctl user-info --v4\n",
         {"--v4", "--json-info"},
         0,
         0,
         {"sso_get_user_info", "sso_get_user_info_v4", "sso_get_user_json_info"},
         CmdUserInfo},
        {"Profile and groups",
         "identify-user",
         "identity-verification data of the user",
         "usage: ssoctl identify-user\n"
         "Asks for the current user's birthday and identity-verification URL.\n"
         "Example: ssoctl identify-user\n",
         {},
         0,
         0,
         {"sso_identify_current_user_info"},
         CmdIdentifyUser},
        {"Profile and groups",
         "namecheck",
         "name-check data of the signed-in user",
         "usage: ssoctl namecheck\n"
         "Asks for the signed-in user's name-check data: birth date, age, URL.\n"
         "Example: ssoctl namecheck --json\n",
         {},
         0,
         0,
         {"sso_get_namecheck_auth_info"},
         CmdNamecheck},
        {"Profile and groups",
         "family-group",
         "the signed-in user's family group",
         "usage: ssoctl family-group --app-id ID (--access-token T | --secret KEY [--scope S])\n"
         "Asks for the family group with an access token of app ID; with --secret a\n"
         "token is requested first (\"-\" reads a token or secret from stdin).\n"
         "Example: ssoctl family-group --app-id my.app --secret s3cr3t\n",
         {"--app-id", "--access-token", "--secret", "--scope"},
         0,
         0,
         {"sso_get_user_family_group", "sso_request_access_token_with_scope"},
         CmdFamilyGroup},
        {"Profile and groups",
         "group-users",
         "the members of a group",
         "usage: ssoctl group-users GROUP_ID --app-id ID (--access-token T | --secret KEY)\n"
         "Asks for the members of GROUP_ID, as family-group does.\n"
         "Example: ssoctl group-users FG-0123456789ABCDEF --app-id my.app --secret s3cr3t\n",
         {"--app-id", "--access-token", "--secret", "--scope"},
         1,
         1,
         {"sso_get_user_group_users", "sso_request_access_token_with_scope"},
         CmdGroupUsers},

        // ---- account UI ----
        {"Account UI",
         "show",
         "open an account page and wait until it closes",
         "usage: ssoctl show TYPE [--data TEXT] [--caller ID] [--transparent | --opaque]\n"
         "       ssoctl show terms [--caller ID]\n"
         "Launches the account UI on page TYPE and waits until the page closes, then\n"
         "prints the login state. TYPE is a number from 0 to 99 or one of:\n"
         "  sign-in (1), web-account (8), voice-registration (9) (--data: the account\n"
         "  id), switch-account (10) (--data: the GUID), terms (the terms page, 7)\n"
         "--transparent or --opaque ask for a transparent window or not (no --data).\n"
         "--caller names the caller (default: SSO_PLATFORM_APP_ID, else \"ssoctl\").\n"
         "Example: ssoctl show sign-in\n"
         "Example: ssoctl show switch-account --data 0123456789ABCDEF0123456789ABCDEF\n",
         {"--data", "--caller", "--transparent", "--opaque"},
         1,
         1,
         {"sso_show", "sso_show_term_page", "sso_show_with_transparent_win"},
         CmdShow},
        {"Account UI",
         "verify-account",
         "have the account UI verify the signed-in user",
         "usage: ssoctl verify-account [ACCOUNT_ID]\n"
         "Launches the account UI to verify the user (default: the signed-in login\n"
         "id) and prints its answer. Exit status 1 when it failed.\n"
         "Example: ssoctl verify-account kim@example.com\n",
         {},
         0,
         1,
         {"sso_request_account_verification", "sso_get_login_user_id"},
         CmdVerifyAccount},
        {"Account UI",
         "verify-pin",
         "have the PIN application verify the user's PIN",
         "usage: ssoctl verify-pin [ACCOUNT_ID] [--pin-type TYPE]\n"
         "Launches the PIN application to verify the PIN of ACCOUNT_ID (default: the\n"
         "signed-in login id) and prints its answer. TYPE: verify (1, default),\n"
         "other-account (2), plain (0: a plain verification), or a number.\n"
         "Exit status 1 when the verification failed.\n"
         "Example: ssoctl verify-pin kim@example.com --pin-type other-account\n",
         {"--pin-type"},
         0,
         1,
         {"sso_request_account_verification_using_pin", "sso_get_login_user_id"},
         CmdVerifyPin},
        {"Account UI",
         "setup-pin",
         "have the PIN application set up a PIN",
         "usage: ssoctl setup-pin [ACCOUNT_ID] [--pin-type TYPE]\n"
         "Launches the PIN application to set up a PIN for ACCOUNT_ID (default: the\n"
         "signed-in login id). TYPE: plain (0, default), high (1), other-account (2),\n"
         "or a number.\n"
         "Example: ssoctl setup-pin --pin-type high\n",
         {"--pin-type"},
         0,
         1,
         {"sso_request_account_setup_pin", "sso_get_login_user_id"},
         CmdSetupPin},

        // ---- library control and retired functions ----
        {"Library control and retired functions",
         "cb-reset",
         "drop the library's callback registrations",
         "usage: ssoctl cb-reset\n"
         "Drops every callback registration the library holds for this process and\n"
         "the cached hotel-mode answer.\n"
         "Example: ssoctl cb-reset\n",
         {},
         0,
         0,
         {"sso_cb_reset"},
         CmdCbReset},
        {"Library control and retired functions",
         "give-proxy",
         "bring the D-Bus link up, tear it down, show it is gone",
         "usage: ssoctl give-proxy\n"
         "Checks the service, tears the library's D-Bus link down for the rest of the\n"
         "process and checks again, which must now fail.\n"
         "Example: ssoctl give-proxy\n",
         {},
         0,
         0,
         {"sso_give_proxy", "sso_check_alive"},
         CmdGiveProxy},
        {"Library control and retired functions",
         "partner-auth",
         "retired partner authentication data (always refused)",
         "usage: ssoctl partner-auth save KEY VALUE | get KEY | clear KEY\n"
         "The retired partner-authentication functions; they always refuse.\n"
         "Example: ssoctl partner-auth get my-key\n",
         {},
         1,
         3,
         {"sso_save_partner_auth_info", "sso_get_partner_auth_info", "sso_clear_partner_auth_info"},
         CmdPartnerAuth},
        {"Library control and retired functions",
         "cp-mapping",
         "retired content-provider account mapping",
         "usage: ssoctl cp-mapping add CP_ID CP_USER_ID | remove CP_ID | list | get CP_ID\n"
         "The retired content-provider mapping functions: add, remove and list are\n"
         "accepted while signed in but deliver no result; get always refuses.\n"
         "Example: ssoctl cp-mapping list\n",
         {},
         1,
         3,
         {"sso_add_cp_account_mapping_info", "sso_remove_cp_account_mapping_info",
          "sso_get_cp_account_mapping_list", "sso_get_cp_account_info"},
         CmdCpMapping},
    };
    return commands;
}

const Command *FindCommand(const std::string &name)
{
    for (const Command &c : Commands())
        if (name == c.name)
            return &c;
    return nullptr;
}

} // namespace ssoctl
