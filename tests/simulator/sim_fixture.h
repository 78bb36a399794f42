// The fixture of the simulator's own tests: a private bus, a running
// simulator (sim_) and a fake client (client_) owning its client bus name.
#pragma once

#include <string>

#include "fake_client.h"
#include "sso_simulator_harness.h"

namespace simtest {

class SimTest : public ssotest::SimulatorTest {
protected:
    void SetUp() override
    {
        ssotest::SimulatorTest::SetUp();
        client_.Start();
    }
    void TearDown() override
    {
        client_.Stop();
        ssotest::SimulatorTest::TearDown();
    }

    // Sends a request whose result is delivered and waits for that delivery.
    // The simulator handles requests one after another and calls the client
    // in order on one connection, so once the barrier's result is here every
    // earlier unscripted-delay request is fully handled: "nothing else was
    // delivered" then holds without waiting for a time-out.
    void Barrier(const std::string &method = "sso_request_account_list")
    {
        RequestValues v;
        v.request_id = 987654321;
        const std::size_t before = client_.Calls().size();
        Reply r = client_.RequestAsync(method, method, v);
        ASSERT_TRUE(r.ok()) << r.error_name << " " << r.error_message;
        ASSERT_EQ(1, r.Int());
        ASSERT_TRUE(client_.WaitForCalls(before + 1)) << "the barrier result never came";
        const auto calls = client_.Calls();
        ASSERT_EQ(method, calls.back().method);
        ASSERT_EQ(987654321, Int64Arg(calls.back(), "request_id"));
    }

    FakeClient client_;
};

// The two accounts of the simulator's own tests: every field of kim
// chosen, ana with defaults where the tests want them. Both are in one
// family group.
inline ssotest::AccountSpec Kim()
{
    ssotest::AccountSpec s{"kim@example.com"};
    s.guid = "0123456789ABCDEF0123456789ABCDEF";
    s.uid = "4815162342";
    s.icon_path = "/opt/sso-test/icons/kim.png";
    s.auth = "UT-kim-token";
    s.user_pin_set = "Y";
    s.country = "KOR";
    s.display_name = "Kim J.";
    s.first_name = "Jisoo";
    s.last_name = "Kim";
    s.device_id = "DEVICE-KIM-1";
    s.password = "kim-secret";
    s.prefix_name = "Dr";
    s.birth_date = "19850317";
    s.zip_code = "04524";
    s.mobile_num = "+82-10-5550-0101";
    s.receive_email = "Y";
    s.family_group = "FG-KIM-HOUSE";
    return s;
}
inline ssotest::AccountSpec Ana()
{
    ssotest::AccountSpec s{"ana@example.org"};
    s.guid = "FEDCBA9876543210FEDCBA9876543210";
    s.uid = "1123581321";
    s.auth = "UT-ana-token";
    s.country = "USA";
    s.first_name = "Ana";
    s.last_name = "Silva";
    s.password = "ana-secret";
    s.family_group = "FG-KIM-HOUSE";
    return s;
}

} // namespace simtest
