// The start-up hand-shake's bounded wait: the creator of the link is woken
// only by the client object's registration. When the monitor gives up before
// that (an application id that makes no valid bus name), the first request
// waits out the 10 seconds and still goes out; later requests do not wait.
#include <chrono>
#include <cstdlib>

#include "sso_api/sso_api.h"
#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

namespace {

class Handshake : public ssotest::SimulatorTest {
protected:
    void SetUp() override
    {
        // "bad..app" leaves an empty element in the client bus name.
        setenv("SSO_PLATFORM_APP_ID", "bad..app", 1);
        SimulatorTest::SetUp();
    }
};

TEST_F(Handshake, WhenTheMonitorEndsEarlyTheFirstRequestWaitsTenSecondsThenGoesOut)
{
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(sso_check_alive(), 0);
    auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(9900));
    EXPECT_LT(waited, std::chrono::seconds(16));
    EXPECT_TRUE(log().Contains("m_ownerId is 0. Failed to g_bus_own_name() : "
                               "org.orvex.tv.ssoservice.ssoclient.obj"));
    EXPECT_TRUE(log().Contains("Wait for creating proxy-monitor (10s timeout)"));
    EXPECT_FALSE(log().Contains("LOCK_GIVE BEGIN"));
    ASSERT_EQ(sim_.Journal().size(), 1u);
    EXPECT_EQ(sim_.Journal()[0].method, "sso_check_alive");

    // Once set up, later requests do not wait again.
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(sso_check_alive(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(sim_.Journal().size(), 2u);
}

} // namespace
