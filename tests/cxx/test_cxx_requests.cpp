// Every request family through the C++ API against the simulator, each
// request in both forms (callback and future), and what the C++ layer adds:
// deadlines, cancel, delivery to a main context, exactly-once under load,
// errors as values.
#include <gtest/gtest.h>
#include <json/json.h>
#include <package_manager_admin.h>
#include <vconf.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include "cxx_sim_support.h"
#include "json_text.h"
#include "loop_thread.h"
#include "signed_package.h"
#include "test_certs.h"

namespace {

using namespace cxxtest;

bool StartsWith(const std::string &text, const std::string &prefix)
{
    return text.rfind(prefix, 0) == 0;
}

using ssotest::ParseJson;

#define EXPECT_BOTH_OK(both)                                                                       \
    do {                                                                                           \
        EXPECT_TRUE((both).callback.ok()) << (both).callback.error().message();                    \
        EXPECT_TRUE((both).future.ok()) << (both).future.error().message();                        \
    } while (0)

class CxxRequests : public CxxSimTest {};

TEST_F(CxxRequests, TokensAndAuthCodesInBothForms)
{
    auto token = RunBoth(sso::request_access_token, {kAppId, "s3cret", "profile"});
    EXPECT_BOTH_OK(token);
    EXPECT_TRUE(StartsWith(token.callback.value(), "AT.")) << token.callback.value();
    EXPECT_TRUE(StartsWith(token.future.value(), "AT."));
    EXPECT_NE(token.callback.value(), token.future.value());
    EXPECT_STREQ(token.callback.code_name(), "ok");

    for (auto both :
         {RunBoth(sso::request_auth_code, {kAppId, std::nullopt}),
          RunBoth(sso::request_user_auth_code, {kAppId, "profile"}),
          RunBoth(sso::request_device_auth_code, {kAppId, std::nullopt}),
          RunBoth(sso::request_auth_code_for_effortless_login, {kAppId, "x"}),
          RunBoth(sso::request_auth_code_with_password, {kAppId, kKim, kKimPassword, std::nullopt}),
          RunBoth(sso::request_auth_code_for_other_device, {"DSC-1"})}) {
        EXPECT_BOTH_OK(both);
        EXPECT_TRUE(StartsWith(both.callback.value(), "AC.")) << both.callback.value();
        EXPECT_TRUE(StartsWith(both.future.value(), "AC.")) << both.future.value();
    }

    // An auth code of this app exchanged for a token, in both forms.
    std::string codes[2] = {sso::request_auth_code({kAppId, std::nullopt}, 10s).value(),
                            sso::request_auth_code({kAppId, std::nullopt}, 10s).value()};
    std::promise<sso::Result<std::string>> handed;
    auto pending = handed.get_future();
    sso::ScopedRequest r = sso::request_access_token_using_auth_code(
        {kAppId, "s3cret", codes[0], std::nullopt},
        [&](sso::Result<std::string> result) { handed.set_value(std::move(result)); },
        sso::Delivery::immediate());
    EXPECT_TRUE(StartsWith(Await(pending).value(), "AT."));
    EXPECT_TRUE(StartsWith(
        sso::request_access_token_using_auth_code({kAppId, "s3cret", codes[1], std::nullopt})
            .value(),
        "AT."));

    auto methods = Methods();
    for (const char *m :
         {"sso_request_access_token", "sso_request_auth_code", "sso_request_user_authcode",
          "sso_request_device_authcode", "sso_request_auth_code_for_effortless_login",
          "sso_request_authcode_with_ID_PWD", "sso_request_authcode_for_other_device",
          "sso_request_access_token_using_authcode"})
        EXPECT_NE(std::find(methods.begin(), methods.end(), m), methods.end()) << m;
}

TEST_F(CxxRequests, AuthCodesWithDeviceSecurityCodeChallengeAndVerifierInBothForms)
{
    for (auto both : {RunBoth(sso::request_user_auth_code_with_dsc, {kAppId, "s", "DSC", "code"}),
                      RunBoth(sso::request_user_auth_code_with_challenge,
                              {kAppId, std::nullopt, "DSC", std::nullopt, "challenge"}),
                      RunBoth(sso::request_user_auth_code_with_verifier,
                              {kAppId, std::nullopt, std::nullopt, std::nullopt, "verifier"})}) {
        EXPECT_BOTH_OK(both);
        EXPECT_TRUE(StartsWith(both.future.value(), "AC.")) << both.future.value();
    }
    auto methods = Methods();
    EXPECT_EQ(std::count(methods.begin(), methods.end(), "sso_request_user_authcode_with_dsc"), 2);
    EXPECT_EQ(
        std::count(methods.begin(), methods.end(), "sso_request_user_authcode_with_challenge"), 2);
    EXPECT_EQ(std::count(methods.begin(), methods.end(), "sso_request_user_authcode_with_verifier"),
              2);
}

TEST_F(CxxRequests, AccountOperationsInBothForms)
{
    auto list = RunBoth(sso::request_account_list, {});
    EXPECT_BOTH_OK(list);
    EXPECT_EQ(ParseJson(list.future.value())["account_count"].asInt(), 2);

    auto verified = RunBoth(sso::verify_password, {kKimPassword});
    EXPECT_BOTH_OK(verified);
    // A wrong password is an answer with the service's code, not a failure
    // of the call.
    auto wrong = RunBoth(sso::verify_password, {"nope"});
    for (auto *r : {&wrong.callback, &wrong.future}) {
        EXPECT_TRUE(r->answered());
        EXPECT_EQ(r->code(), ssosim::kResultWrongPassword);
        EXPECT_EQ(r->error(),
                  std::error_code(ssosim::kResultWrongPassword, sso::service_category()));
    }

    EXPECT_BOTH_OK(RunBoth(sso::set_password, {kLee, "lee-new"}));
    EXPECT_BOTH_OK(RunBoth(sso::request_password_reset, {kLee}));
    auto dynamic = RunBoth(sso::request_dynamic_account_list, {});
    EXPECT_BOTH_OK(dynamic);

    auto toLee = RunBoth(sso::switch_account, {kLee, std::nullopt});
    EXPECT_BOTH_OK(toLee);
    EXPECT_EQ(ParseJson(toLee.callback.value())["account_guid"].asString(), leeGuid_);
    EXPECT_EQ(sso::guid().value().str(), leeGuid_);
    EXPECT_BOTH_OK(RunBoth(sso::switch_account_by_guid, {kimGuid_, "extra"}));
    EXPECT_EQ(sso::guid().value().str(), kimGuid_);
    EXPECT_BOTH_OK(RunBoth(sso::switch_account_with_user_token, {kLee, kLeeToken}));
    EXPECT_EQ(sso::login_id().value().str(), kLee);

    auto out = sso::perform_logout({std::nullopt}, 10s).get();
    EXPECT_TRUE(out.ok()) << out.error().message();
    EXPECT_EQ(sso::login_state().value(), sso::LoginState::signed_out);
    std::promise<sso::Result<std::string>> handed;
    auto pending = handed.get_future();
    sso::switch_account(
        {kKim, std::nullopt}, [&](sso::Result<std::string> r) { handed.set_value(std::move(r)); },
        sso::Delivery::immediate());
    ASSERT_TRUE(Await(pending).ok());
    std::promise<sso::Result<std::string>> loggedOut;
    auto pendingOut = loggedOut.get_future();
    sso::perform_logout(
        {"confirm"}, [&](sso::Result<std::string> r) { loggedOut.set_value(std::move(r)); },
        sso::Delivery::immediate());
    EXPECT_TRUE(Await(pendingOut).ok());
}

TEST_F(CxxRequests, DeviceAccountCreationInBothForms)
{
    sso::Result<sso::Nothing> bare =
        sso::generate_token_with_auth_code({"AC.any", "new1@example.com", "DSC", true}).get();
    EXPECT_TRUE(bare.ok()) << bare.error().message();
    std::promise<sso::Result<sso::Nothing>> handed;
    auto pending = handed.get_future();
    sso::ScopedRequest r = sso::generate_token_with_auth_code(
        {"AC.any", "new2@example.com", std::nullopt, false},
        [&](sso::Result<sso::Nothing> result) { handed.set_value(std::move(result)); },
        sso::Delivery::immediate());
    EXPECT_TRUE(Await(pending).ok());

    auto flagged =
        RunBoth(sso::generate_token_with_auth_code_delete_flag, {kLee, "AC.any", true, "DSC"});
    EXPECT_BOTH_OK(flagged);
    EXPECT_EQ(ParseJson(flagged.future.value())["account_id"].asString(), kLee);
    auto withPassword = RunBoth(sso::generate_token_with_password, {kKim, kKimPassword, false});
    EXPECT_BOTH_OK(withPassword);
    auto registered = RunBoth(sso::register_account, {"new3@example.com", "AC.any", "", false});
    EXPECT_TRUE(registered.callback.ok()) << registered.callback.error().message();
    // The second registration of the same account is the service's to refuse.
    EXPECT_TRUE(registered.future.answered());
    EXPECT_EQ(registered.future.code(), ssosim::kResultAccountExists);
}

TEST_F(CxxRequests, AtTheSixAccountLimitTheRequestFailsWithAccountLimitSendingNothing)
{
    for (int i = 0; i < 4; ++i) {
        ssotest::AccountSpec more;
        more.login_id = "more" + std::to_string(i) + "@example.com";
        sim_.AddAccount(more);
    }
    sim_.ClearJournal();
    auto r = sso::register_account({"seventh@example.com", "AC.any", "", false}).get();
    EXPECT_FALSE(r.answered());
    EXPECT_EQ(r.error(), sso::errc::account_limit);
    EXPECT_TRUE(Methods().empty());
}

TEST_F(CxxRequests, ProfileAndGroupsInBothForms)
{
    auto text = RunBoth(sso::request_user_info_text, {});
    EXPECT_BOTH_OK(text);
    EXPECT_FALSE(ParseJson(text.future.value())["user_id"].asString().empty());

    auto record = RunBoth(sso::request_user_info, {});
    EXPECT_BOTH_OK(record);
    const sso::UserInfo &info = record.callback.value();
    EXPECT_FALSE(info.user_id.empty());
    EXPECT_EQ(info.birth_date, "19900101");
    EXPECT_EQ(record.future.value().user_id, info.user_id);

    auto json = RunBoth(sso::request_user_json_info, {});
    EXPECT_BOTH_OK(json);
    EXPECT_EQ(ParseJson(json.callback.value())["userCountryCode"].asString(), "KOR");

    auto identity = RunBoth(sso::request_identity_info, {});
    EXPECT_BOTH_OK(identity);
    EXPECT_EQ(identity.future.value().birthday, "19900101");
    EXPECT_TRUE(StartsWith(identity.future.value().identify_url, "https://"));

    auto nameCheck = RunBoth(sso::request_name_check_info, {});
    EXPECT_BOTH_OK(nameCheck);
    EXPECT_FALSE(nameCheck.callback.value().age.empty());
    EXPECT_TRUE(StartsWith(nameCheck.callback.value().check_url, "https://"));

    std::string token = sso::request_access_token({kAppId, "s3cret", std::nullopt}).value();
    auto family = RunBoth(sso::request_family_group, {kAppId, token});
    EXPECT_BOTH_OK(family);
    std::string group = ParseJson(family.future.value())["groupId"].asString();
    ASSERT_FALSE(group.empty());
    auto users = RunBoth(sso::request_group_users, {kAppId, token, group});
    EXPECT_BOTH_OK(users);
    EXPECT_EQ(ParseJson(users.callback.value())["groupId"].asString(), group);
    auto notMine = sso::request_group_users({kAppId, token, "FG-other"}).get();
    EXPECT_EQ(notMine.code(), ssosim::kResultNoSuchGroup);
}

TEST_F(CxxRequests, WhitelistTokensInBothFormsAndReadBackLocally)
{
    constexpr const char *kPackage = "org.example.cxx.pkg";
    certtest::TestCert cert = certtest::MakeCert(root_.path());
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, certtest::AddSignedPackage(cert, kPackage, kAppId));
    ASSERT_FALSE(sso::identify_caller());

    auto whitelist = RunBoth(sso::request_whitelist_access_token, {kAppId, "scope"});
    EXPECT_BOTH_OK(whitelist);
    // The token the service stored is the last one issued.
    EXPECT_EQ(sso::stored_whitelist_access_token(kAppId).value().str(), whitelist.future.value());
    EXPECT_EQ(sso::stored_whitelist_access_token(kAppId, kPackage).value().str(),
              whitelist.future.value());
    EXPECT_BOTH_OK(RunBoth(sso::request_signature_access_token, {kAppId, std::nullopt}));
    std::string signature = certtest::OpensslKeyDigest(cert.pem, "sha256");
    EXPECT_BOTH_OK(RunBoth(sso::request_package_whitelist_access_token,
                           {kAppId, kPackage, signature, std::nullopt}));

    // Another package's token is refused before anything is sent.
    sim_.ClearJournal();
    auto other = sso::request_package_whitelist_access_token(
                     {kAppId, "org.example.other", signature, std::nullopt})
                     .get();
    EXPECT_FALSE(other.answered());
    EXPECT_EQ(other.error().category(), sso::category());
    EXPECT_TRUE(Methods().empty());
    EXPECT_FALSE(sso::stored_whitelist_access_token(kAppId, "org.example.other"));
}

TEST_F(CxxRequests, SynchronousCallsGiveValuesAndOwnedTexts)
{
    EXPECT_EQ(sso::login_state().value(), sso::LoginState::signed_in);
    EXPECT_EQ(sso::account_count().value(), 2);
    EXPECT_EQ(sso::guid().value().str(), kimGuid_);
    EXPECT_FALSE(sso::uid().value().empty());
    EXPECT_TRUE(StartsWith(sso::auth_token().value().str(), "UT-"));
    EXPECT_FALSE(sso::device_id().value().empty());
    EXPECT_EQ(sso::login_id().value().view(), kKim);
    sso::LoginInfo info = sso::login_info().value();
    EXPECT_EQ(info.login_id, kKim);
    EXPECT_EQ(info.guid, kimGuid_);
    EXPECT_EQ(ParseJson(sso::login_json().value().str())["loginid"].asString(), kKim);
    EXPECT_NE(sso::accounts_json().value().view().find(kLee), std::string_view::npos);
    // Unset until the account UI writes it.
    EXPECT_FALSE(sso::popup_shown());
    ASSERT_EQ(vconf_set_int("memory/sso/view_status", 1), 0);
    EXPECT_TRUE(sso::popup_shown().value());
    EXPECT_EQ(sso::account_ui_application_id().value().view(), "com.veltra.tv.CSAccount");
    EXPECT_FALSE(sso::sign_in_enforced());
    EXPECT_FALSE(sso::check_alive());
    EXPECT_TRUE(sso::account_switching_available());
    EXPECT_FALSE(sso::request_current_account_notification());
    EXPECT_FALSE(sso::reset_service());
}

class CxxSignedOut : public CxxSimTest {
protected:
    bool SignInFirst() const override { return false; }
};

TEST_F(CxxSignedOut, RequestsThatNeedASignedInUserFailAtOnceAsValuesOrExceptions)
{
    auto r = sso::request_access_token({kAppId, "s3cret", std::nullopt}).get();
    EXPECT_FALSE(r.answered());
    EXPECT_EQ(r.error().category(), sso::category());
    // The C library's own cause, as a value of the C++ API.
    EXPECT_EQ(r.error(), sso::errc::not_signed_in);
    EXPECT_THROW((void)sso::request_user_info().value(), sso::Error);
    std::atomic<int> calls{0};
    sso::Request cb = sso::request_auth_code(
        {kAppId, std::nullopt},
        [&](sso::Result<std::string> result) {
            EXPECT_FALSE(result.answered());
            calls++;
        },
        sso::Delivery::immediate());
    EXPECT_EQ(calls.load(), 1);
    EXPECT_FALSE(cb.pending());

    EXPECT_FALSE(sso::guid());
    EXPECT_EQ(sso::guid().error(), sso::errc::not_signed_in);
    EXPECT_THROW((void)sso::login_info().value(), sso::Error);
    EXPECT_EQ(sso::login_state().value(), sso::LoginState::signed_out);
    // The device code needs nobody signed in.
    EXPECT_TRUE(sso::request_device_auth_code({kAppId, std::nullopt}).get().ok());
}

TEST_F(CxxRequests, ADeadlineEndsTheWaitAndTheLateResultIsDropped)
{
    ssotest::Behaviour slow;
    slow.result_delay_ms = 600;
    sim_.Configure("sso_request_access_token", slow);
    std::atomic<int> calls{0};
    std::promise<sso::Result<std::string>> handed;
    auto pending = handed.get_future();
    sso::Request r = sso::request_access_token(
        {kAppId, "s3cret", std::nullopt},
        [&](sso::Result<std::string> result) {
            if (calls++ == 0)
                handed.set_value(std::move(result));
        },
        sso::Options(100ms).deliver(sso::Delivery::immediate()));
    sso::Result<std::string> result = Await(pending);
    EXPECT_EQ(result.error(), sso::errc::deadline_exceeded);
    // The service still answers; the result has nobody to go to.
    ASSERT_TRUE(sim_.WaitForDeliveries(1));
    auto future = sso::request_access_token({kAppId, "s3cret", std::nullopt}, 50ms);
    EXPECT_EQ(future.get().error(), sso::errc::deadline_exceeded);
    ASSERT_TRUE(sim_.WaitForDeliveries(2));
    // A request after them gets its own result, not a late one.
    sim_.ResetMethod("sso_request_access_token");
    auto fresh = sso::request_access_token({kAppId, "s3cret", std::nullopt}).get();
    EXPECT_TRUE(fresh.ok());
    EXPECT_EQ(calls.load(), 1);
}

TEST_F(CxxRequests, CancelCompletesAtOnceAndTheResultThatFollowsIsDropped)
{
    ssotest::Behaviour slow;
    slow.result_delay_ms = 200;
    sim_.Configure("sso_request_auth_code", slow);
    std::atomic<int> calls{0};
    std::error_code seen;
    sso::Request r = sso::request_auth_code(
        {kAppId, std::nullopt},
        [&](sso::Result<std::string> result) {
            seen = result.error();
            calls++;
        },
        sso::Delivery::immediate());
    EXPECT_TRUE(r.cancel());
    EXPECT_EQ(calls.load(), 1);
    EXPECT_EQ(seen, sso::errc::cancelled);
    ASSERT_TRUE(sim_.WaitForDeliveries(1));
    // Still 1 once the library has had the result: a later request's result
    // is delivered after it, on the same thread.
    sim_.ResetMethod("sso_request_auth_code");
    EXPECT_TRUE(sso::request_auth_code({kAppId, std::nullopt}).get().ok());
    EXPECT_EQ(calls.load(), 1);
}

TEST_F(CxxRequests, ResultsReachTheMainContextOfTheThreadThatAsked)
{
    ssotest::LoopThread loop;
    std::mutex mutex;
    std::vector<std::thread::id> threads;
    auto record = [&](sso::Result<std::string> result) {
        EXPECT_TRUE(result.ok());
        std::lock_guard<std::mutex> lock(mutex);
        threads.push_back(std::this_thread::get_id());
    };
    // Made on the loop thread with the default delivery.
    loop.Run([&] { sso::request_access_token({kAppId, "s3cret", std::nullopt}, record); });
    // Made here, for the loop's context.
    GMainContext *context = nullptr;
    loop.Run([&] { context = g_main_context_ref_thread_default(); });
    sso::request_auth_code({kAppId, std::nullopt}, record, sso::Delivery::main_context(context));
    g_main_context_unref(context);
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return threads.size() == 2;
    }));
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(threads[0], loop.id());
    EXPECT_EQ(threads[1], loop.id());
}

TEST_F(CxxRequests, ManyThreadsManyRequestsEachCompletesExactlyOnce)
{
    constexpr int kThreads = 4, kEach = 15;
    std::atomic<int> ok{0}, calls{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
            std::vector<sso::Future<std::string>> futures;
            for (int i = 0; i < kEach; ++i) {
                sso::request_access_token(
                    {kAppId, "s3cret", std::nullopt},
                    [&](sso::Result<std::string> r) {
                        calls++;
                        if (r.ok())
                            ok++;
                    },
                    sso::Delivery::immediate());
                futures.push_back(sso::request_auth_code({kAppId, std::nullopt}));
            }
            for (auto &f : futures)
                if (f.get().ok())
                    ok++;
        });
    for (auto &t : threads)
        t.join();
    ASSERT_TRUE(ssotest::WaitUntil([&] { return calls.load() == kThreads * kEach; }));
    EXPECT_EQ(ok.load(), 2 * kThreads * kEach);
    ASSERT_TRUE(sim_.WaitForDeliveries(2 * kThreads * kEach));
    EXPECT_EQ(calls.load(), kThreads * kEach);
}

} // namespace
