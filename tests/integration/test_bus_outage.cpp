// The system bus goes away and comes back (a bus restart takes the service
// with it): a request while it is gone fails at once, and the first request
// once bus and service are back is sent on a new link whose result arrives,
// outage after outage.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "sso_api/sso_api.h"
#include "sso_simulator_harness.h"
#include "sso_test_harness.h"
#include "../reliability/reliability_support.h"

namespace {

using reliability::ReceivedLog;
using reliability::RecordingCb;

constexpr const char *kAppId = "org.example.outage";
constexpr int kOutages = 10;

class BusOutage : public ssotest::SimulatorTest {
protected:
    void SetUp() override
    {
        setenv("SSO_PLATFORM_APP_ID", kAppId, 1);
        SimulatorTest::SetUp();
        ReceivedLog::Get().Clear();
    }

    // A device auth code (no account needed, so a fresh service will do);
    // its return value.
    static int Request(void *userData)
    {
        return sso_request_device_authcode(kAppId, nullptr, &RecordingCb, userData);
    }

    // The bus is brought back with the service, then one request must be
    // sent and its result delivered.
    void ComeBackAndDeliver(void *userData)
    {
        bus_.Start();
        sim_.Start();
        ASSERT_EQ(0, Request(userData));
        ASSERT_TRUE(ssotest::WaitUntil([&] { return ReceivedLog::Get().CountFor(userData) == 1; }));
        // The code the service sent on this link, not an earlier one's.
        EXPECT_TRUE(reliability::SimulatorSent(sim_, ReceivedLog::Get().All().back()));
    }

    void Outage()
    {
        bus_.Stop();
        sim_.Stop();
    }
};

TEST_F(BusOutage, EachRequestDuringAnOutageFailsAndTheFirstAfterItIsDelivered)
{
    static int first;
    ASSERT_EQ(0, Request(&first));
    ASSERT_TRUE(ReceivedLog::Get().WaitFor(1));

    static std::array<int, kOutages> during, after;
    for (int i = 0; i < kOutages; ++i) {
        SCOPED_TRACE("outage " + std::to_string(i + 1));
        Outage();
        EXPECT_EQ(-1, Request(&during[i]));
        ComeBackAndDeliver(&after[i]);
    }
    // Every result came once, none for a request that failed.
    for (int i = 0; i < kOutages; ++i)
        EXPECT_EQ(0, ReceivedLog::Get().CountFor(&during[i]));
    EXPECT_EQ(static_cast<size_t>(kOutages + 1), ReceivedLog::Get().Count());
}

TEST_F(BusOutage, AfterAnOutageNobodyRequestedInTheFirstRequestIsDelivered)
{
    static int first;
    ASSERT_EQ(0, Request(&first));
    ASSERT_TRUE(ReceivedLog::Get().WaitFor(1));

    // Nothing asks while the bus is away: the old link is found gone only by
    // the request after it.
    static std::array<int, kOutages> after;
    for (int i = 0; i < kOutages; ++i) {
        SCOPED_TRACE("outage " + std::to_string(i + 1));
        Outage();
        ComeBackAndDeliver(&after[i]);
    }
    EXPECT_EQ(static_cast<size_t>(kOutages + 1), ReceivedLog::Get().Count());
}

} // namespace
