// Every way a request is refused before it is sent: a null argument, nobody
// signed in, the service not answering the liveness check, a hotel product,
// the six-account limit, and the retired entry points. A refusal returns -1
// (or the limit's -100), sends nothing, takes no event index and never calls
// back.
#include <gtest/gtest.h>
#include <system_info.h>

#include <string>
#include <vector>

#include "test_requests_support.h"

namespace {

using namespace reqtest;

struct RefusalCase {
    const char *name;
    int (*call)();
    // The error line, without its colours; "" when the refusal logs none of
    // its own.
    const char *message;
};

void PrintTo(const RefusalCase &c, std::ostream *os)
{
    *os << c.name;
}

std::string CaseName(const ::testing::TestParamInfo<RefusalCase> &info)
{
    return info.param.name;
}

int g_ud;

// ------------------------------------------------------- null arguments

class RequestsNullArgument : public Requests, public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(RequestsNullArgument, IsRefusedBeforeAnythingIsSent)
{
    const RefusalCase &c = GetParam();
    EXPECT_EQ(c.call(), -1);
    EXPECT_TRUE(log().Contains(Red(c.message))) << c.message;
    // Not even a liveness check went out.
    EXPECT_TRUE(sim_.Journal().empty());
    EXPECT_EQ(NextAeIndex(), 0);
    ExpectOnlyTheNextRequestCalledBack();
}

INSTANTIATE_TEST_SUITE_P(
    EveryMember, RequestsNullArgument,
    ::testing::Values(
        RefusalCase{
            "AccessTokenWithScopeAppId",
            [] { return sso_request_access_token_with_scope(nullptr, "s", "x", &StringCb, &g_ud); },
            "app_id ,secret_key or request_access_token_cb is nullptr"},
        RefusalCase{
            "AccessTokenWithScopeSecret",
            [] { return sso_request_access_token_with_scope("a", nullptr, "x", &StringCb, &g_ud); },
            "app_id ,secret_key or request_access_token_cb is nullptr"},
        RefusalCase{
            "AccessTokenWithScopeCallback",
            [] { return sso_request_access_token_with_scope("a", "s", "x", nullptr, &g_ud); },
            "app_id ,secret_key or request_access_token_cb is nullptr"},
        RefusalCase{"AccessTokenCallback",
                    [] { return sso_request_access_token("a", "s", nullptr, &g_ud); },
                    "app_id ,secret_key or request_access_token_cb is nullptr"},
        RefusalCase{"AccessTokenUsingAuthcodeCode",
                    [] {
                        return sso_request_access_token_using_authcode("a", "s", nullptr, "x",
                                                                       &StringCb, &g_ud);
                    },
                    "app_id ,secret_key or auth_code or request_access_token_cb is NULL"},
        RefusalCase{"AuthCodeAppId",
                    [] { return sso_request_auth_code(nullptr, "x", &StringCb, &g_ud); },
                    "app_id or request_auth_code_cb is NULL"},
        RefusalCase{"UserAuthcodeCallback",
                    [] { return sso_request_user_authcode("a", "x", nullptr, &g_ud); },
                    "app_id or request_authcode_cb is NULL"},
        RefusalCase{"DeviceAuthcodeAppId",
                    [] { return sso_request_device_authcode(nullptr, "x", &StringCb, &g_ud); },
                    "app_id or request_device_authcode_cb is NULL"},
        RefusalCase{
            "EffortlessLoginCallback",
            [] { return sso_request_auth_code_for_effortless_login("a", "x", nullptr, &g_ud); },
            "app_id or request_auth_code_cb is nullptr"},
        RefusalCase{"AuthcodeWithIdPwdPassword",
                    [] {
                        return sso_request_authcode_with_ID_PWD("a", "id", nullptr, "x", &g_ud,
                                                                &StringCb);
                    },
                    "account_id or app_id or passwd or request_auth_code_cb is nullptr"},
        RefusalCase{"AuthcodeForOtherDeviceCallback",
                    [] { return sso_request_authcode_for_other_device("d", nullptr, &g_ud); },
                    "SSO_API_CHECK_NULL_RETURN. Return (request_auth_code_cb is nullptr)"},
        RefusalCase{"DscNotiUserId",
                    [] {
                        return sso_generate_token_with_authcode_dsc_noti(
                            "c", nullptr, "d", &ResultOnlyCb, &g_ud, true);
                    },
                    "NULL == authcode || NULL == userid"},
        RefusalCase{"DscAuthcode",
                    [] {
                        return sso_generate_token_with_authcode_dsc(nullptr, "u", "d",
                                                                    &ResultOnlyCb, &g_ud);
                    },
                    "NULL == authcode || NULL == userid"},
        RefusalCase{"DscDeleteFlagUserId",
                    [] {
                        return sso_generate_token_with_authcode_dsc_deleteFlag(
                            nullptr, "c", true, "d", &StringCb, &g_ud);
                    },
                    "nullptr == userid || nullptr == authcode"},
        RefusalCase{
            "GenerateIdPwdPassword",
            [] { return sso_generate_token_with_ID_PWD("u", nullptr, true, &StringCb, &g_ud); },
            "nullptr == userid || nullptr == passwd"},
        RefusalCase{"RegisterAccountAuthcode",
                    [] { return sso_register_account("id", nullptr, "d", &StringCb, &g_ud, true); },
                    "account_id or register_account_cb is NULL"},
        RefusalCase{"RegisterAccountCallback",
                    [] { return sso_register_account("id", "c", "d", nullptr, &g_ud, true); },
                    "account_id or register_account_cb is NULL"},
        RefusalCase{"RegisterAccountDsc",
                    [] { return sso_register_account("id", "c", nullptr, &StringCb, &g_ud, true); },
                    "SSO_API_CHECK_NULL_RETURN. Return (dsc is null)"},
        RefusalCase{"PerformLogoutCallback", [] { return sso_perform_logout(nullptr, &g_ud, "c"); },
                    "SSO_API_CHECK_NULL_RETURN. Return (perform_logout_cb is null)"},
        RefusalCase{"VerifyPasswordPassword",
                    [] { return sso_verify_password(nullptr, &StringCb, &g_ud); },
                    " passwd or verify_password_cb is NULL"},
        RefusalCase{"RequestAccountListCallback",
                    [] { return sso_request_account_list(nullptr, &g_ud); },
                    "SSO_API_CHECK_NULL_RETURN. Return (request_account_list_cb is null)"},
        RefusalCase{"SetPassfwPassword",
                    [] { return sso_set_passfw("id", nullptr, &StringCb, &g_ud); },
                    "account_id || password || callback is nullptr"},
        RefusalCase{"RequestResetPasswdEmail",
                    [] { return sso_request_reset_passwd(nullptr, &StringCb, &g_ud); },
                    " email or reset_passwd_cb is nullptr"},
        RefusalCase{"SwitchAccountId",
                    [] { return sso_switch_account(nullptr, &StringCb, &g_ud, "e"); },
                    "account_id and account_guid are null"},
        RefusalCase{"SwitchAccountCallback",
                    [] { return sso_switch_account("id", nullptr, &g_ud, "e"); },
                    "SSO_API_CHECK_NULL_RETURN. Return (switch_account_cb is null)"},
        RefusalCase{"SwitchAccountEmptyId",
                    [] { return sso_switch_account("", &StringCb, &g_ud, "e"); },
                    "accountInfo is empty"},
        RefusalCase{"SwitchAccountByGuidGuid",
                    [] { return sso_switch_account_by_guid(nullptr, &StringCb, &g_ud, "e"); },
                    "account_id and account_guid are null"},
        RefusalCase{"SwitchAccountByGuidEmptyGuid",
                    [] { return sso_switch_account_by_guid("", &StringCb, &g_ud, nullptr); },
                    "accountInfo is empty"},
        RefusalCase{
            "SwitchWithUsertokenToken",
            [] { return sso_switch_account_with_usertoken("id", &StringCb, &g_ud, nullptr); },
            "account_id or switch_account_cb or usertoken is nullptr"},
        RefusalCase{"SwitchWithUsertokenEmptyId",
                    [] { return sso_switch_account_with_usertoken("", &StringCb, &g_ud, "UT"); },
                    "account_id or switch_account_cb or usertoken is nullptr"},
        RefusalCase{"UserInfoV4Callback", [] { return sso_get_user_info_v4(nullptr, &g_ud); },
                    "SSO_API_CHECK_NULL_RETURN. Return (get_user_info_common_cb is null)"},
        RefusalCase{"UserInfoCallback", [] { return sso_get_user_info(nullptr, &g_ud); },
                    "SSO_API_CHECK_NULL_RETURN. Return (get_user_info_cb is nullptr)"},
        RefusalCase{
            "IdentifyCallback", [] { return sso_identify_current_user_info(nullptr, &g_ud); },
            "SSO_API_CHECK_NULL_RETURN. Return (sso_identify_current_user_info_cb is nullptr)"},
        RefusalCase{"NamecheckCallback", [] { return sso_get_namecheck_auth_info(nullptr, &g_ud); },
                    "SSO_API_CHECK_NULL_RETURN. Return (get_namecheck_auth_info_cb is nullptr)"},
        RefusalCase{"DynamicAccountListCallback",
                    [] { return sso_get_dynamic_my_account_list(nullptr, &g_ud); },
                    "SSO_API_CHECK_NULL_RETURN. Return (callback is nullptr)"},
        RefusalCase{"FamilyGroupToken",
                    [] { return sso_get_user_family_group("a", nullptr, &StringCb, &g_ud); },
                    "app_id, access_token or get_user_family_group_cb is nullptr"},
        RefusalCase{"GroupUsersGroupId",
                    [] { return sso_get_user_group_users("a", "t", nullptr, &StringCb, &g_ud); },
                    "app_id, access_token, group_id or get_user_group_users_cb is nullptr"},
        RefusalCase{"UserAuthcodeWithDscAppId",
                    [] {
                        return sso_request_user_authcode_with_dsc(nullptr, "s", "d", "r", &StringCb,
                                                                  &g_ud);
                    },
                    "app_id or request_auth_code_cb"},
        RefusalCase{"UserAuthcodeWithChallengeChallenge",
                    [] {
                        return sso_request_user_authcode_with_challenge("a", "s", "d", "r", nullptr,
                                                                        &StringCb, &g_ud);
                    },
                    "app_id or request_auth_code_cb or code_challenge is null"},
        RefusalCase{"UserAuthcodeWithVerifierCallback",
                    [] {
                        return sso_request_user_authcode_with_verifier("a", "s", "d", "r", "v",
                                                                       nullptr, &g_ud);
                    },
                    "app_id or request_auth_code_cb or code_verifier is null"},
        RefusalCase{"PartnerAuthInfoMethod",
                    [] {
                        return sso_private_request_partner_auth_info("k", "v", nullptr, &StringCb,
                                                                     &g_ud);
                    },
                    "pAauthKey or pMethod or pCallback is null"}),
    CaseName);

// Members that check both the login state and the service's liveness.
const RefusalCase kAccessTokenWithScope{
    "AccessTokenWithScope",
    [] { return sso_request_access_token_with_scope("a", "s", nullptr, &StringCb, &g_ud); }, ""};
const RefusalCase kAccessToken{
    "AccessToken", [] { return sso_request_access_token("a", "s", &StringCb, &g_ud); }, ""};
const RefusalCase kAuthCode{
    "AuthCode", [] { return sso_request_auth_code("a", nullptr, &StringCb, &g_ud); }, ""};
const RefusalCase kUserAuthcode{
    "UserAuthcode", [] { return sso_request_user_authcode("a", nullptr, &StringCb, &g_ud); }, ""};
const RefusalCase kRequestCurrentAccountNoti{"RequestCurrentAccountNoti",
                                             [] { return sso_request_current_account_noti(); }, ""};
const RefusalCase kFamilyGroup{
    "FamilyGroup", [] { return sso_get_user_family_group("a", "t", &StringCb, &g_ud); }, ""};
const RefusalCase kGroupUsers{
    "GroupUsers", [] { return sso_get_user_group_users("a", "t", "g", &StringCb, &g_ud); }, ""};
const RefusalCase kUserAuthcodeWithDsc{"UserAuthcodeWithDsc",
                                       [] {
                                           return sso_request_user_authcode_with_dsc(
                                               "a", nullptr, nullptr, nullptr, &StringCb, &g_ud);
                                       },
                                       ""};
const RefusalCase kUserAuthcodeWithChallenge{"UserAuthcodeWithChallenge",
                                             [] {
                                                 return sso_request_user_authcode_with_challenge(
                                                     "a", nullptr, nullptr, nullptr, "ch",
                                                     &StringCb, &g_ud);
                                             },
                                             ""};
const RefusalCase kUserAuthcodeWithVerifier{"UserAuthcodeWithVerifier",
                                            [] {
                                                return sso_request_user_authcode_with_verifier(
                                                    "a", nullptr, nullptr, nullptr, "v", &StringCb,
                                                    &g_ud);
                                            },
                                            ""};

// ------------------------------------------------------ nobody signed in

class RequestsSignedOut : public Requests {
protected:
    bool SignInFirst() const override { return false; }
};

class RequestsNotLoggedIn : public RequestsSignedOut,
                            public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(RequestsNotLoggedIn, IsRefusedWithoutSending)
{
    const RefusalCase &c = GetParam();
    EXPECT_EQ(c.call(), -1);
    EXPECT_TRUE(log().Contains(Red("result [0], Login State [0]. Return (Not login state)")));
    EXPECT_TRUE(Sent(sim_).empty());
    EXPECT_EQ(NextAeIndex(), 0);
    ExpectOnlyTheNextRequestCalledBack();
}

INSTANTIATE_TEST_SUITE_P(
    EveryLoginCheckingMember, RequestsNotLoggedIn,
    ::testing::Values(
        kAccessTokenWithScope, kAccessToken,
        RefusalCase{"AccessTokenUsingAuthcode",
                    [] {
                        return sso_request_access_token_using_authcode("a", "s", "c", nullptr,
                                                                       &StringCb, &g_ud);
                    },
                    ""},
        kAuthCode, kUserAuthcode,
        RefusalCase{"EffortlessLogin",
                    [] {
                        return sso_request_auth_code_for_effortless_login("a", nullptr, &StringCb,
                                                                          &g_ud);
                    },
                    ""},
        RefusalCase{"PerformLogout", [] { return sso_perform_logout(&StringCb, &g_ud, "c"); }, ""},
        RefusalCase{"VerifyPassword", [] { return sso_verify_password("p", &StringCb, &g_ud); },
                    ""},
        kRequestCurrentAccountNoti,
        RefusalCase{"UserInfoV4", [] { return sso_get_user_info_v4(&StringCb, &g_ud); }, ""},
        RefusalCase{"UserInfo", [] { return sso_get_user_info(&UserInfoCb, &g_ud); }, ""},
        RefusalCase{"Namecheck", [] { return sso_get_namecheck_auth_info(&NameCheckCb, &g_ud); },
                    ""},
        kFamilyGroup, kGroupUsers, kUserAuthcodeWithDsc, kUserAuthcodeWithChallenge,
        kUserAuthcodeWithVerifier,
        RefusalCase{"UserJsonInfo", [] { return sso_get_user_json_info(&JsonCb, &g_ud); }, ""}),
    CaseName);

// -------------------------------------------------- service not answering

class RequestsServiceNotAlive : public Requests,
                                public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(RequestsServiceNotAlive, IsRefusedAfterTheFailedLivenessCheck)
{
    const RefusalCase &c = GetParam();
    ssotest::Behaviour refuse;
    refuse.accept = 0;
    sim_.Configure("sso_check_alive", refuse);
    EXPECT_EQ(c.call(), -1);
    EXPECT_TRUE(log().Contains(Red("SSO SERVICE is not alive)")));
    auto journal = sim_.Journal();
    ASSERT_EQ(journal.size(), 1u);
    EXPECT_EQ(journal[0].method, "sso_check_alive");
    EXPECT_EQ(NextAeIndex(), 0);
    ExpectOnlyTheNextRequestCalledBack();
}

INSTANTIATE_TEST_SUITE_P(
    EveryLivenessCheckingMember, RequestsServiceNotAlive,
    ::testing::Values(
        kAccessTokenWithScope, kAccessToken, kAuthCode, kUserAuthcode,
        RefusalCase{"DeviceAuthcode",
                    [] { return sso_request_device_authcode("a", nullptr, &StringCb, &g_ud); }, ""},
        RefusalCase{"RequestAccountList", [] { return sso_request_account_list(&StringCb, &g_ud); },
                    ""},
        RefusalCase{"RequestResetPasswd",
                    [] { return sso_request_reset_passwd("e@example.com", &StringCb, &g_ud); }, ""},
        kRequestCurrentAccountNoti, kFamilyGroup, kGroupUsers, kUserAuthcodeWithDsc,
        kUserAuthcodeWithChallenge, kUserAuthcodeWithVerifier),
    CaseName);

TEST_F(Requests, WithTheServiceStoppedAFirstRequestFailsItsLivenessCheck)
{
    sim_.Stop();
    EXPECT_EQ(sso_request_access_token("a", "s", &StringCb, &g_ud), -1);
    EXPECT_TRUE(log().Contains(Red("SSO SERVICE is not alive)")));
    EXPECT_FALSE(log().Contains("---> methodName [sso_request_access_token]"));
}

TEST_F(Requests, AFailedLivenessCheckIsAskedAgainNextTime)
{
    ssotest::Behaviour refuse;
    refuse.accept = 0;
    sim_.Configure("sso_check_alive", refuse);
    EXPECT_EQ(sso_request_auth_code("a", nullptr, &StringCb, &g_ud), -1);
    sim_.ResetMethod("sso_check_alive");
    EXPECT_EQ(sso_request_auth_code("a", nullptr, &StringCb, &g_ud), 0);
    auto journal = sim_.Journal();
    ASSERT_EQ(journal.size(), 3u);
    EXPECT_EQ(journal[1].method, "sso_check_alive");
    EXPECT_EQ(AeIndexOf(journal[2].args), 0);
}

// ------------------------------------------------------------ hotel mode

struct CallCase {
    const char *name;
    int (*call)();
};

class RequestsHotelMode : public Requests, public ::testing::WithParamInterface<CallCase> {};

TEST_P(RequestsHotelMode, RefusesTokenGenerationWhateverTheArguments)
{
    ASSERT_EQ(system_info_set_custom_bool(kHotelFlag, true), SYSTEM_INFO_ERROR_NONE);
    EXPECT_EQ(GetParam().call(), -1);
    EXPECT_TRUE(log().Contains(Red("Hotel TV is not supporting easysetup")));
    // Refused before the arguments were looked at.
    EXPECT_FALSE(log().Contains("== userid"));
    EXPECT_TRUE(sim_.Journal().empty());
    EXPECT_EQ(NextAeIndex(), 0);
    ExpectOnlyTheNextRequestCalledBack();
}

INSTANTIATE_TEST_SUITE_P(
    EveryTokenGeneratingMember, RequestsHotelMode,
    ::testing::Values(CallCase{"DscNotiAllNull",
                               [] {
                                   return sso_generate_token_with_authcode_dsc_noti(
                                       nullptr, nullptr, nullptr, nullptr, nullptr, false);
                               }},
                      CallCase{"DscAllNull",
                               [] {
                                   return sso_generate_token_with_authcode_dsc(
                                       nullptr, nullptr, nullptr, nullptr, nullptr);
                               }},
                      CallCase{"DeleteFlagAllNull",
                               [] {
                                   return sso_generate_token_with_authcode_dsc_deleteFlag(
                                       nullptr, nullptr, false, nullptr, nullptr, nullptr);
                               }},
                      CallCase{"IdPwdAllNull",
                               [] {
                                   return sso_generate_token_with_ID_PWD(nullptr, nullptr, false,
                                                                         nullptr, nullptr);
                               }},
                      CallCase{"DscNotiValid",
                               [] {
                                   return sso_generate_token_with_authcode_dsc_noti(
                                       "AC", "new@example.com", "DSC", &ResultOnlyCb, &g_ud, true);
                               }},
                      CallCase{"IdPwdValid",
                               [] {
                                   return sso_generate_token_with_ID_PWD("new@example.com", "pw",
                                                                         true, &StringCb, &g_ud);
                               }}),
    [](const ::testing::TestParamInfo<CallCase> &info) { return std::string(info.param.name); });

TEST_F(Requests, AProductWithoutTheHotelOptionGeneratesTokens)
{
    ASSERT_EQ(system_info_set_custom_bool(kHotelFlag, false), SYSTEM_INFO_ERROR_NONE);
    EXPECT_EQ(sso_generate_token_with_ID_PWD("new@example.com", "pw", true, &StringCb, &g_ud), 0);
    EXPECT_FALSE(log().Contains("Hotel TV is not supporting easysetup"));
}

// --------------------------------------------------- the six-account limit

class RequestsAtSixAccounts : public Requests {
protected:
    void SetUp() override
    {
        Requests::SetUp();
        // Kim and Lee are the first two.
        for (const char *id :
             {"a3@example.com", "a4@example.com", "a5@example.com", "a6@example.com"}) {
            ssotest::AccountSpec account;
            account.login_id = id;
            sim_.AddAccount(account);
        }
        int count = 0;
        ASSERT_TRUE(
            ssotest::WaitUntil([&] { return sso_get_account_number(&count) == 0 && count == 6; }));
    }
};

class RequestsAccountLimit : public RequestsAtSixAccounts,
                             public ::testing::WithParamInterface<CallCase> {};

TEST_P(RequestsAccountLimit, RefusesANewAccountWithMinus100)
{
    EXPECT_EQ(GetParam().call(), -100);
    EXPECT_TRUE(log().Contains(Red("'Add Account' is not available. iRet(-100)")));
    EXPECT_TRUE(sim_.Journal().empty());
    EXPECT_EQ(NextAeIndex(), 0);
    ExpectOnlyTheNextRequestCalledBack();
}

INSTANTIATE_TEST_SUITE_P(
    EveryAccountAddingMember, RequestsAccountLimit,
    ::testing::Values(CallCase{"DscNoti",
                               [] {
                                   return sso_generate_token_with_authcode_dsc_noti(
                                       "AC", "new@example.com", "DSC", &ResultOnlyCb, &g_ud, true);
                               }},
                      CallCase{"Dsc",
                               [] {
                                   return sso_generate_token_with_authcode_dsc(
                                       "AC", "new@example.com", nullptr, &ResultOnlyCb, &g_ud);
                               }},
                      CallCase{"DeleteFlag",
                               [] {
                                   return sso_generate_token_with_authcode_dsc_deleteFlag(
                                       "new@example.com", "AC", true, "DSC", &StringCb, &g_ud);
                               }},
                      CallCase{"IdPwd",
                               [] {
                                   return sso_generate_token_with_ID_PWD("new@example.com", "pw",
                                                                         false, &StringCb, &g_ud);
                               }},
                      CallCase{"RegisterAccount",
                               [] {
                                   return sso_register_account("new@example.com", "AC", "DSC",
                                                               &StringCb, &g_ud, true);
                               }}),
    [](const ::testing::TestParamInfo<CallCase> &info) { return std::string(info.param.name); });

TEST_F(RequestsAtSixAccounts, StillAcceptsAnAccountThatIsAlreadyRegistered)
{
    EXPECT_EQ(sso_generate_token_with_ID_PWD("a5@example.com", "pw", false, &StringCb, &g_ud), 0);
    EXPECT_EQ(sso_register_account("lee@example.com", "AC", "", &StringCb, &g_ud, false), 0);
    auto journal = Sent(sim_);
    ASSERT_EQ(journal.size(), 2u);
    EXPECT_EQ(AeIndexOf(journal[0].args), 0);
    EXPECT_EQ(AeIndexOf(journal[1].args), 1);
}

// ------------------------------------------------------------- retired

TEST_F(Requests, GenerateTokenWithAuthcodeIsRetiredAndSendsNothing)
{
    EXPECT_EQ(sso_generate_token_with_authcode("AC", "u", &ResultOnlyCb, &g_ud), -1);
    EXPECT_EQ(sso_generate_token_with_authcode(nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(log().Count("\033[0;35m[START] 'sso_generate_token_with_authcode() API was "
                          "deprecated. Please, use sso_generate_token_with_authcode_dsc() or "
                          "sso_generate_token_with_authcode_dsc_noti()\033[0m"),
              2);
    EXPECT_TRUE(sim_.Journal().empty());
    EXPECT_EQ(NextAeIndex(), 0);
    ExpectOnlyTheNextRequestCalledBack();
}

TEST_F(Requests, EveryPartnerStubReturnsMinusOneWhateverItIsPassed)
{
    EXPECT_EQ(sso_get_partner_auth_info("key", &StringCb, &g_ud), -1);
    EXPECT_EQ(sso_get_partner_auth_info(nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(sso_save_partner_auth_info("key", "value", &StringCb, &g_ud), -1);
    EXPECT_EQ(sso_save_partner_auth_info(nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(sso_clear_partner_auth_info("key", &StringCb, &g_ud), -1);
    EXPECT_EQ(sso_clear_partner_auth_info(nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(log().Count(Red("'sso_get_partner_auth_info' API has been deprecated.")), 2);
    EXPECT_EQ(log().Count(Red("'sso_save_partner_auth_info' API has been deprecated.")), 2);
    EXPECT_EQ(log().Count(Red("'sso_clear_partner_auth_info' API has been deprecated.")), 2);

    char *info = reinterpret_cast<char *>(0x1);
    EXPECT_EQ(sso_get_cp_account_info("cp", &info), -1);
    EXPECT_EQ(info, reinterpret_cast<char *>(0x1));
    EXPECT_EQ(sso_get_cp_account_info(nullptr, nullptr), -1);
    EXPECT_EQ(log().LinesWith({"sso_get_cp_account_info(", "\033[0;35m[START] \033[0m"}).size(),
              2u);

    EXPECT_TRUE(sim_.Journal().empty());
    EXPECT_EQ(NextAeIndex(), 0);
    ExpectOnlyTheNextRequestCalledBack();
}

TEST_F(Requests, MappingStubsAnswerByTheLoginState)
{
    EXPECT_EQ(sso_get_cp_account_mapping_list(&StringCb, &g_ud), 0);
    EXPECT_EQ(sso_add_cp_account_mapping_info("cp", "user", &StringCb, &g_ud), 0);
    EXPECT_EQ(sso_remove_cp_account_mapping_info(nullptr, nullptr, nullptr), 0);
    sim_.SignOut();
    EXPECT_EQ(sso_get_cp_account_mapping_list(nullptr, nullptr), -1);
    EXPECT_EQ(sso_add_cp_account_mapping_info(nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(sso_remove_cp_account_mapping_info("cp", &StringCb, &g_ud), -1);
    EXPECT_EQ(log().Count(Red("Call sso_private_return_by_login_state_as_deprecated_api()")), 6);
    EXPECT_TRUE(sim_.Journal().empty());
    EXPECT_EQ(NextAeIndex(), 0);
    ExpectOnlyTheNextRequestCalledBack();
}

TEST_F(Requests, CallbackResetReturnsZeroWithNothingRegistered)
{
    EXPECT_EQ(sso_cb_reset(), 0);
    EXPECT_EQ(sso_cb_reset(), 0);
}

} // namespace
