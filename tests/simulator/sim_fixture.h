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

} // namespace simtest
