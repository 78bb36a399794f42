// The system bus goes away and comes back (a bus restart takes the service
// with it): a request while it is gone fails at once, and the first request
// once bus and service are back is sent on a new link whose result arrives,
// outage after outage.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>

#include "sso_api/sso_api.h"
#include "sso_api_private.h"
#include "sso_simulator_harness.h"
#include "sso_test_harness.h"
#include "../reliability/reliability_support.h"

namespace {

using reliability::ReceivedLog;
using reliability::RecordingCb;

constexpr char kAppId[] = "org.example.outage";
constexpr int kOutages = 10;

class BusOutage : public reliability::AppTest<ssotest::SimulatorTest, kAppId> {
protected:
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

// A request made up on one link and sent once the link is rebuilt (the bus
// restarted in between, as for a thread that was held up between the two):
// sent on the new link it must carry that link's request id, or its result
// is dropped on arrival; so it is either delivered or not sent at all.
class RequestAcrossARebuild : public BusOutage, public ::testing::WithParamInterface<bool> {};

TEST_P(RequestAcrossARebuild, IsDeliveredOrNotSent)
{
    const bool byAnotherThread = GetParam();
    ASSERT_EQ(0, sso_check_alive());
    static int late;
    SSORequestFrame frame("sso_request_device_authcode");
    ASSERT_TRUE(frame.Open());

    Outage();
    bus_.Start();
    sim_.Start();
    // Else the send itself finds the link gone.
    if (byAnotherThread) {
        std::thread other([] { EXPECT_EQ(0, sso_check_alive()); });
        other.join();
    }
    const size_t sentBefore = sim_.Journal().size();

    const int rc = frame.Send({kAppId, "HAS_NO_VALUE", "device"},
                              Value(reinterpret_cast<void *>(&RecordingCb)), Value(&late));
    if (rc == 0)
        EXPECT_TRUE(ssotest::WaitUntil([] { return ReceivedLog::Get().CountFor(&late) == 1; }))
            << "accepted, never delivered";
    else
        EXPECT_EQ(sentBefore, sim_.Journal().size()) << "refused, yet sent";
    // The next request goes out on the new link and is delivered.
    static int next;
    ASSERT_EQ(0, Request(&next));
    EXPECT_TRUE(ssotest::WaitUntil([] { return ReceivedLog::Get().CountFor(&next) == 1; }));
}

INSTANTIATE_TEST_SUITE_P(Rebuilt, RequestAcrossARebuild, ::testing::Values(true, false),
                         [](const ::testing::TestParamInfo<bool> &info) {
                             return info.param ? "ByAnotherThread" : "ByTheSendItself";
                         });

} // namespace
