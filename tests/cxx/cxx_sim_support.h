// Shared by the integration tests of the C++ API: the simulator with two
// accounts (kim signed in), and helpers that run a request in both forms and
// wait for its outcome with a deadline.
#pragma once

#include <sso_api/sso_api.hpp>

#include <chrono>
#include <cstdlib>
#include <future>
#include <string>
#include <utility>

#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

namespace cxxtest {

using namespace std::chrono_literals;

inline constexpr const char *kAppId = "org.example.cxx";
inline constexpr const char *kKim = "kim@example.com";
inline constexpr const char *kLee = "lee@example.com";
inline constexpr const char *kKimPassword = "kim-password";
inline constexpr const char *kLeeToken = "UT-lee-user-token";

// The outcome of one request in both forms: first with a callback, then as a
// future.
template <class T> struct Both {
    sso::Result<T> callback;
    sso::Result<T> future;
};

// Waits for what a callback hands over, at most 20 s.
template <class T> sso::Result<T> Await(std::future<sso::Result<T>> &pending)
{
    if (pending.wait_for(20s) != std::future_status::ready)
        return sso::Result<T>(std::make_error_code(std::errc::timed_out));
    return pending.get();
}

// The same for the library's own handle; takes it, so that a call's
// handle can be awaited in place.
template <class T> sso::Result<T> Await(sso::Future<T> pending)
{
    if (pending.wait_for(20s) != std::future_status::ready)
        return sso::Result<T>(std::make_error_code(std::errc::timed_out));
    return pending.get();
}

class CxxSimTest : public ssotest::SimulatorTest {
protected:
    void SetUp() override
    {
        setenv("SSO_PLATFORM_APP_ID", kAppId, 1);
        SimulatorTest::SetUp();
        ssotest::AccountSpec kim;
        kim.login_id = kKim;
        kim.password = kKimPassword;
        kim.country = "KOR";
        kim.country2 = "KR";
        kimGuid_ = sim_.AddAccount(kim);
        ssotest::AccountSpec lee;
        lee.login_id = kLee;
        lee.auth = kLeeToken;
        leeGuid_ = sim_.AddAccount(lee);
        if (SignInFirst())
            sim_.SignIn(kKim);
    }

    virtual bool SignInFirst() const { return true; }

    // The request in the callback form (delivered on the completing thread)
    // and then in the future form; each must complete within 10 s.
    template <class Desc>
    auto RunBoth(const sso::Operation<Desc> &op, const typename Desc::Params &params)
        -> Both<typename sso::Operation<Desc>::Payload>
    {
        using P = typename sso::Operation<Desc>::Payload;
        std::promise<sso::Result<P>> promise;
        std::future<sso::Result<P>> handed = promise.get_future();
        // Scoped: a callback that comes after a failed wait finds nobody.
        sso::ScopedRequest r = op(
            params, [&promise](sso::Result<P> result) { promise.set_value(std::move(result)); },
            sso::Options(10s).deliver(sso::Delivery::immediate()));
        sso::Result<P> first = Await(handed);
        sso::Result<P> second = op(params, 10s).get();
        return {std::move(first), std::move(second)};
    }

    // The server methods of the journal, without the liveness checks.
    std::vector<std::string> Methods() { return sim_.RequestMethods(); }

    std::string kimGuid_;
    std::string leeGuid_;
};

} // namespace cxxtest
