// The account UI flows through the C++ API, with sso-account-ui-test standing
// in for the account UI applications and the simulator signing users in.
#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/stat.h>
#include <vconf.h>

#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "cxx_sim_support.h"
#include "loop_thread.h"

namespace {

using namespace cxxtest;

constexpr const char *kCaller = "org.example.cxx.caller";

class CxxAccountUi : public CxxSimTest {
protected:
    void SetUp() override
    {
        CxxSimTest::SetUp();
        if (RegisterApps()) {
            for (const char *id : {"com.veltra.tv.CSAccount", "com.veltra.tv.CSAccountPIN",
                                   "QHVMP48x7k.WebAccountExtension"}) {
                auto r = ssotest::RunCommand({ssotest::ToolPath("sso-platform"), "app", "add", id,
                                              "--exec", ssotest::ToolPath("sso-account-ui-test")});
                ASSERT_EQ(r.status, 0) << r.out;
            }
        }
    }
    void TearDown() override
    {
        loop_.Run([] { sso_cb_reset(); });
        loop_.Stop();
        CxxSimTest::TearDown();
    }
    bool SignInFirst() const override { return false; }
    virtual bool RegisterApps() const { return true; }

    // "name=value" lines for every account UI application.
    void Script(const std::vector<std::string> &lines) const
    {
        const std::string dir = root_.path() + "/run/sso-account-ui";
        mkdir((root_.path() + "/run").c_str(), 0700);
        mkdir(dir.c_str(), 0700);
        std::ofstream out(dir + "/script", std::ios::trunc);
        for (const auto &line : lines)
            out << line << "\n";
    }

    // Made on the loop thread, as the account UI functions want; the
    // outcome is awaited here.
    template <class Make> auto OnLoop(Make make)
    {
        decltype(make()) future;
        loop_.Run([&] { future = make(); });
        return future;
    }

    ssotest::LoopThread loop_;
};

TEST_F(CxxAccountUi, TheSignInPageCompletesWhenTheViewClosesWithTheUserSignedIn)
{
    Script({"sign_in=" + std::string(kKim)});
    std::mutex mutex;
    std::vector<std::thread::id> where;
    sso::LoginEvent signedIn;
    sso::Subscription sub;
    loop_.Run([&] {
        sub = sso::on_sign_in([&](const sso::LoginEvent &e) {
                  std::lock_guard<std::mutex> lock(mutex);
                  signedIn = e;
              }).value();
    });
    std::promise<sso::Result<sso::Nothing>> closed;
    auto pending = closed.get_future();
    loop_.Run([&] {
        sso::show_account_page({1, std::nullopt, kCaller}, [&](sso::Result<sso::Nothing> r) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                where.push_back(std::this_thread::get_id());
            }
            closed.set_value(std::move(r));
        });
    });
    sso::Result<sso::Nothing> r = Await(pending);
    EXPECT_TRUE(r.ok()) << r.error().message();
    EXPECT_EQ(sso::login_state().value(), sso::LoginState::signed_in);
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return signedIn.login_id == kKim;
    }));
    std::lock_guard<std::mutex> lock(mutex);
    ASSERT_EQ(where.size(), 1u);
    EXPECT_EQ(where[0], loop_.id());
}

TEST_F(CxxAccountUi, VerificationAndPinFlowsAnswerWithTheUisJson)
{
    sim_.SignIn(kKim);
    Script({"Result=Complete", "Response=Verified"});
    auto verified = Await(OnLoop([] { return sso::verify_account({kKim}); }));
    ASSERT_TRUE(verified.ok()) << verified.error().message();
    Json::Value v;
    std::istringstream in(verified.value());
    ASSERT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &v, nullptr));
    EXPECT_EQ(v["result"].asString(), "success");
    EXPECT_EQ(v["response"].asString(), "Verified");

    Script({"Result=PINComplete", "Response=PINChangeAccount"});
    auto pin = Await(OnLoop([] { return sso::verify_pin({kKim, 1}); }));
    ASSERT_TRUE(pin.ok());
    EXPECT_NE(pin.value().find("change_account"), std::string::npos) << pin.value();

    Script({"app_result=failed"});
    auto setup = Await(OnLoop([] { return sso::set_up_pin({kKim, 2}); }));
    EXPECT_TRUE(setup.answered());
    EXPECT_EQ(setup.code(), -1);
}

TEST_F(CxxAccountUi, TheTermsPageCompletesOnceLaunched)
{
    auto r = Await(OnLoop([] { return sso::show_terms_page({kCaller}); }));
    EXPECT_TRUE(r.ok()) << r.error().message();
}

TEST_F(CxxAccountUi, ANewerPageSupersedesTheOlderOneAndTheViewClosingEndsIt)
{
    // The view is opened and closed here, not by the two launched UI
    // processes: one of them opening the view after it was closed would
    // leave it open for good.
    Script({"view=off"});
    auto first = OnLoop([] { return sso::show_account_page({10, "GUID", kCaller}); });
    auto second = OnLoop([] { return sso::show_transparent_account_page({10, kCaller, true}); });
    EXPECT_EQ(Await(std::move(first)).error(), sso::errc::superseded);
    ASSERT_EQ(vconf_set_int("memory/sso/view_status", 1), 0);
    ASSERT_TRUE(ssotest::WaitUntil([] { return sso::popup_shown().value_or(false); },
                                   std::chrono::seconds(20)));
    EXPECT_FALSE(second.ready());
    ASSERT_EQ(vconf_set_int("memory/sso/view_status", 0), 0);
    ASSERT_EQ(second.wait_for(20s), std::future_status::ready);
    EXPECT_TRUE(second.get().ok());
}

class CxxAccountUiMissing : public CxxAccountUi {
protected:
    bool RegisterApps() const override { return false; }
};

TEST_F(CxxAccountUiMissing, APageThatCannotBeLaunchedFailsWithLaunchFailed)
{
    auto page = Await(OnLoop([] { return sso::show_account_page({1, std::nullopt, kCaller}); }));
    EXPECT_FALSE(page.answered());
    EXPECT_EQ(page.error(), sso::errc::launch_failed);
    // A verification that cannot be launched is answered -1 at once.
    sim_.SignIn(kKim);
    auto verified = OnLoop([] { return sso::verify_account({kKim}); });
    ASSERT_TRUE(verified.ready());
    auto r = verified.get();
    EXPECT_TRUE(r.answered());
    EXPECT_EQ(r.code(), -1);
}

} // namespace
