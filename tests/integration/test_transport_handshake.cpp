// The start-up hand-shake's bounded wait: when the client object cannot be
// registered, the first request waits out the 10 seconds and still goes out.
#include <gio/gio.h>

#include <chrono>

#include "SSOAPIClientUtil.h"
#include "sso_api/sso_api.h"
#include "sso_api_proxy.h"
#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

namespace {

using Handshake = ssotest::SimulatorTest;

const GDBusInterfaceVTable kNoCalls = {nullptr, nullptr, nullptr, {nullptr}};

TEST_F(Handshake, WhenTheClientObjectIsNeverRegisteredTheFirstRequestWaitsTenSecondsThenGoesOut)
{
    // Something else already exports the client interface at the client
    // object path on the process's system-bus connection, so the library's
    // registration fails.
    GError *error = nullptr;
    GDBusConnection *conn = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    ASSERT_NE(conn, nullptr);
    GDBusNodeInfo *node = g_dbus_node_info_new_for_xml(
        "<node><interface name='org.orvex.tv.ssoservice.ssoclient.interface'/></node>", nullptr);
    guint id = g_dbus_connection_register_object(conn, SSO_CLIENT_OBJECT_PATH, node->interfaces[0],
                                                 &kNoCalls, nullptr, nullptr, &error);
    ASSERT_NE(id, 0u) << (error ? error->message : "");

    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(sso_check_alive(), 0);
    auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(9900));
    EXPECT_TRUE(log().Contains("g_dbus_connection_register_object() return error."));
    EXPECT_TRUE(log().Contains("Wait for creating proxy-monitor (10s timeout)"));
    ASSERT_EQ(sim_.Journal().size(), 1u);
    EXPECT_EQ(sim_.Journal()[0].method, "sso_check_alive");

    // Once set up, later requests do not wait again.
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(sso_check_alive(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));

    g_dbus_connection_unregister_object(conn, id);
    g_dbus_node_info_unref(node);
    g_object_unref(conn);
}

} // namespace
