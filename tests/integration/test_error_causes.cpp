// Why a call failed: each cause of sso_last_error() as an application meets
// it, the service's answer of a refusal, and the names of causes and result
// codes. Through the shared library and its public header only.
#include <gtest/gtest.h>
#include <sso_api/sso_api.h>
#include <vconf.h>
#include <sys/stat.h>

#include <cstdlib>
#include <set>
#include <string>
#include <thread>

#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

namespace {

int NoCb(void *, int, char *)
{
    return 0;
}

// The one failure every test provokes first, so a cause seen afterwards is
// the one the call under test recorded.
void Forget()
{
    sso_get_cp_account_info(nullptr, nullptr);
    ASSERT_EQ(sso_last_error(), SSO_ERROR_NOT_SUPPORTED);
}

int Token()
{
    return sso_request_access_token("tv.app", "secret", NoCb, nullptr);
}

class Causes : public ssotest::SimulatorTest {
protected:
    void SetUp() override
    {
        setenv("SSO_PLATFORM_APP_ID", "org.example.causes", 1);
        SimulatorTest::SetUp();
        sim_.AddAccount(ssotest::KimAccount());
        sim_.SignIn("kim@example.com");
        sim_.RegisterClient("tv.app", "secret");
    }
};

TEST_F(Causes, AMissingArgumentIsInvalidArgument)
{
    Forget();
    EXPECT_EQ(sso_request_access_token(nullptr, "secret", NoCb, nullptr), -1);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_INVALID_ARGUMENT);
    Forget();
    EXPECT_EQ(sso_request_access_token("tv.app", "\xff\xfe", NoCb, nullptr), -1);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_INVALID_ARGUMENT);
    Forget();
    EXPECT_EQ(sso_get_guid(nullptr), -1);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_INVALID_ARGUMENT);
}

TEST_F(Causes, NobodySignedInIsNotSignedIn)
{
    sim_.SignOut();
    Forget();
    EXPECT_EQ(Token(), -1);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_NOT_SIGNED_IN);
    char *guid = nullptr;
    Forget();
    EXPECT_EQ(sso_get_guid(&guid), -1);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_NOT_SIGNED_IN);
    // A login state the service never wrote reads the same way.
    ASSERT_EQ(vconf_unset("db/sso/login_status"), 0);
    sso_login_state state;
    Forget();
    EXPECT_EQ(sso_get_login_state(&state), -1);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_NOT_SIGNED_IN);
}

TEST_F(Causes, ARefusalKeepsTheServicesAnswer)
{
    ssotest::Behaviour refuse;
    refuse.accept = ssosim::kResultNotYourObject;
    sim_.Configure("sso_request_access_token", refuse);
    Forget();
    EXPECT_EQ(Token(), -1);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_SERVICE_REFUSED);
    EXPECT_EQ(sso_last_service_answer(), SSO_SERVICE_RESULT_NOT_YOUR_OBJECT);
    EXPECT_STREQ(sso_service_result_name(sso_last_service_answer()), "not_your_object");
    // The answer belongs to the refusal: another cause has none.
    Forget();
    EXPECT_EQ(sso_last_service_answer(), 0);
}

TEST_F(Causes, NoServiceIsServiceNotRunning)
{
    sim_.Stop();
    Forget();
    EXPECT_EQ(sso_check_alive(), -1);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_SERVICE_NOT_RUNNING);
}

TEST_F(Causes, NoBusIsNoBus)
{
    sim_.Stop();
    bus_.Stop();
    Forget();
    EXPECT_EQ(sso_check_alive(), -1);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_NO_BUS);
}

TEST_F(Causes, AServiceThatNeverAnswersIsTimedOut)
{
    ssotest::Behaviour silent;
    silent.no_answer = true;
    sim_.Configure("sso_check_alive", silent);
    Forget();
    EXPECT_EQ(sso_check_alive(), -1);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_TIMED_OUT);
}

TEST_F(Causes, AfterGiveProxyTheLinkIsGivenUp)
{
    ASSERT_EQ(sso_check_alive(), 0);
    sso_give_proxy();
    Forget();
    EXPECT_EQ(sso_check_alive(), -1);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_LINK_GIVEN_UP);
}

TEST_F(Causes, AnotherPackagesTokenIsNotAllowed)
{
    char *token = nullptr;
    Forget();
    EXPECT_EQ(sso_api_get_whitelist_accesstoken("tv.app", "org.example.someone.else", &token), -1);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_NOT_ALLOWED);
}

TEST_F(Causes, AnUnreadableSettingIsStorageUnreadable)
{
    // A directory where the setting's file belongs cannot be read as one.
    const std::string file = root_.path() + "/vconf/db%2Fsso%2Faccount_count";
    ASSERT_EQ(vconf_unset("db/sso/account_count"), 0);
    ASSERT_EQ(mkdir(file.c_str(), 0700), 0) << file;
    int count = 0;
    Forget();
    EXPECT_EQ(sso_get_account_number(&count), -1);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_STORAGE_UNREADABLE);
    rmdir(file.c_str());
}

TEST_F(Causes, AValueTheAccountLacksIsNotFound)
{
    char *token = nullptr;
    Forget();
    EXPECT_EQ(sso_get_whitelist_accesstoken("tv.app.without.token", &token), -1);
    EXPECT_NE(sso_last_error(), SSO_ERROR_NOT_SUPPORTED);
}

TEST_F(Causes, TheSixAccountLimit)
{
    for (int i = 1; i < 6; ++i) {
        ssotest::AccountSpec more;
        more.login_id = "user" + std::to_string(i) + "@example.com";
        sim_.AddAccount(more);
    }
    Forget();
    EXPECT_EQ(sso_register_account("seventh@example.com", "AC", "DSC", NoCb, nullptr, true), -100);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_ACCOUNT_LIMIT);
}

TEST_F(Causes, ARetiredFunctionIsNotSupported)
{
    EXPECT_EQ(sso_generate_token_with_authcode("AC", "user", nullptr, nullptr), -1);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_NOT_SUPPORTED);
}

TEST_F(Causes, AnAccountUiThatCannotBeLaunchedIsLaunchFailed)
{
    // No account UI application is registered on this platform root.
    Forget();
    EXPECT_EQ(sso_show(1, nullptr, "caller", NoCb, nullptr), 1);
    EXPECT_EQ(sso_last_error(), SSO_ERROR_LAUNCH_FAILED);
}

TEST_F(Causes, EachThreadHasItsOwn)
{
    Forget();
    std::thread other([] {
        EXPECT_EQ(sso_last_error(), SSO_ERROR_NONE);
        EXPECT_EQ(sso_get_guid(nullptr), -1);
        EXPECT_EQ(sso_last_error(), SSO_ERROR_INVALID_ARGUMENT);
    });
    other.join();
    EXPECT_EQ(sso_last_error(), SSO_ERROR_NOT_SUPPORTED);
}

TEST(CauseNames, EveryCauseHasAStableSnakeCaseNameAndASentence)
{
    std::set<std::string> names;
    for (int e = SSO_ERROR_NONE; e <= SSO_ERROR_INTERNAL; ++e) {
        const std::string name = sso_error_name(static_cast<sso_error_e>(e));
        EXPECT_NE(name, "unknown") << e;
        EXPECT_TRUE(names.insert(name).second) << name << " twice";
        for (char c : name)
            EXPECT_TRUE((c >= 'a' && c <= 'z') || c == '_') << name;
        EXPECT_GT(std::string(sso_strerror(static_cast<sso_error_e>(e))).size(), 5u);
    }
    EXPECT_STREQ(sso_error_name(SSO_ERROR_NO_BUS), "no_bus");
    EXPECT_STREQ(sso_error_name(static_cast<sso_error_e>(999)), "unknown");
    EXPECT_STRNE(sso_strerror(static_cast<sso_error_e>(999)), "");
}

TEST(CauseNames, TheServicesResultCodesAreNamedAsTheServiceNamesThem)
{
    for (const auto &c : ssosim::kResultCodeTable) {
        std::string expected = c.name;
        for (char &ch : expected)
            if (ch == '-')
                ch = '_';
        ASSERT_NE(sso_service_result_name(c.code), nullptr) << c.code;
        EXPECT_EQ(expected, sso_service_result_name(c.code));
    }
    EXPECT_EQ(sso_service_result_name(-1), nullptr);
    EXPECT_EQ(sso_service_result_name(999), nullptr);
}

} // namespace
