// The sender check remembers each peer's process id by its unique bus name:
// a result needs no extra round trip to the bus, yet a restarted service, a
// rebuilt link and a peer that is not the service are all still checked.
#include <gio/gio.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "SSOAPIClientUtil.h"
#include "sso_api/sso_api.h"
#include "sso_api_private.h"
#include "sso_api_proxy.h"
#include "../common/expected_results.h"
#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

namespace {

std::atomic<int> g_delivered{0};

int OnResult(void *, int, char *)
{
    ++g_delivered;
    return 0;
}

gint64 Int(const void *p)
{
    return static_cast<gint64>(reinterpret_cast<intptr_t>(p));
}

class CallerPidCache : public ssotest::SimulatorTest {
protected:
    void SetUp() override
    {
        setenv("SSO_PLATFORM_APP_ID", "org.example.pidcache", 1);
        SimulatorTest::SetUp();
        g_delivered = 0;
    }

    // One access-token request whose result comes back on this process's
    // client object; true once it was delivered.
    bool RequestAndDeliver()
    {
        int before = g_delivered;
        // Sent by hand, so the link (rebuilt here after a bus restart) is
        // brought up first, as the request frame would.
        if (sso_check_alive() != 0)
            return false;
        long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
        std::string obj = SSOAPIClientUtil::GetDBusObjectName();
        ssotest::ExpectResult("sso_request_access_token", reinterpret_cast<void *>(&OnResult),
                              nullptr);
        GVariant *reply = nullptr;
        if (sso_private_request_method(
                "sso_request_access_token",
                g_variant_new("(ssssxxxis)", obj.c_str(), "app-id", "secret", "HAS_NO_VALUE",
                              Int(reinterpret_cast<void *>(&OnResult)), static_cast<gint64>(tid),
                              gint64{0}, 0, "sso_request_access_token"),
                &reply) != 0)
            return false;
        return ssotest::WaitUntil([&] { return g_delivered > before; });
    }

    // How often the bus was asked for the process id of the simulator now
    // running.
    int LookupsOfTheSimulator()
    {
        return static_cast<int>(
            log()
                .LinesWith({"GetConnectionUnixProcessID(:", ") = " + std::to_string(sim_.pid())})
                .size());
    }

    // How often the sender check ran for a call of the simulator now running.
    int ChecksOfTheSimulator()
    {
        return log().Count("objectPid = obj" + std::to_string(sim_.pid()) + "\033");
    }

    std::string ServiceOwner() { return sim_.NameOwner(ssotest::kSsoServiceName); }
};

TEST_F(CallerPidCache, ResultsFromTheSameServiceAskTheBusForItsProcessIdOnce)
{
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(RequestAndDeliver()) << i;
    EXPECT_EQ(LookupsOfTheSimulator(), 1);
    // The check itself, and its line, still run for every call.
    EXPECT_EQ(ChecksOfTheSimulator(), 3);
    EXPECT_EQ(log().Count("Caller process is invalid"), 0);
}

TEST_F(CallerPidCache, ARestartedServiceIsCheckedAgain)
{
    ASSERT_TRUE(RequestAndDeliver());
    pid_t first = sim_.pid();
    sim_.Restart();
    ASSERT_NE(sim_.pid(), first);
    // A new process under a new unique name: asked for, checked, accepted.
    ASSERT_TRUE(RequestAndDeliver());
    EXPECT_EQ(LookupsOfTheSimulator(), 1);
}

TEST_F(CallerPidCache, AKnownServiceNamingAnotherProcessIsStillRefused)
{
    ASSERT_TRUE(RequestAndDeliver());
    // The service's process id is remembered now; a call from it whose
    // obj_name does not carry that id is refused all the same.
    long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    std::string args = "('obj1_elsewhere', int64 " +
                       std::to_string(Int(reinterpret_cast<void *>(&OnResult))) + ", int64 " +
                       std::to_string(tid) + ", 'x', 0, int64 0, 0, 'sso_request_access_token')";
    std::string answer =
        sim_.CallClient(SSO_CLIENT_BUS_NAME_PREFIX + SSOAPIClientUtil::GetDBusObjectName(),
                        "sso_request_access_token", args);
    EXPECT_NE(answer.find("process id is different"), std::string::npos) << answer;
    EXPECT_EQ(g_delivered, 1);
    EXPECT_EQ(LookupsOfTheSimulator(), 1);
}

TEST_F(CallerPidCache, ARebuiltLinkForgetsTheProcessIdsItKnew)
{
    ASSERT_TRUE(RequestAndDeliver());
    std::string before = ServiceOwner();
    sim_.Stop();
    bus_.Restart();
    sim_.Start();
    // A fresh bus hands its unique names out again from the start, so the
    // new service usually has the old one's name: only a forgotten entry
    // lets its results through.
    EXPECT_FALSE(ServiceOwner().empty());
    ASSERT_TRUE(RequestAndDeliver()) << "service was " << before << ", now " << ServiceOwner();
    EXPECT_TRUE(log().Contains("m_pConnectionToServer is disconnected"));
    EXPECT_EQ(LookupsOfTheSimulator(), 1);
    EXPECT_EQ(log().Count("Caller process is invalid"), 0);
}

} // namespace
