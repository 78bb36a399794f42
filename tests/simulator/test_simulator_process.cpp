// The simulator as a process: start-up, the bus names and objects it serves,
// its exit paths, and what it refuses.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <string>

#include "sim_fixture.h"
#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

namespace {

using simtest::Clock;
using simtest::FakeClient;
using simtest::SimTest;
using ssotest::Simulator;

class SimProcess : public ssotest::BusTest {};

// The pid behind a bus name, from the bus itself.
pid_t OwnerPid(GDBusConnection *c, const std::string &name)
{
    GVariant *r = g_dbus_connection_call_sync(
        c, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "GetConnectionUnixProcessID", g_variant_new("(s)", name.c_str()), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
    if (r == nullptr)
        return -1;
    guint32 pid = 0;
    g_variant_get(r, "(u)", &pid);
    g_variant_unref(r);
    return static_cast<pid_t>(pid);
}

std::string Introspect(GDBusConnection *c, const char *path)
{
    GError *error = nullptr;
    GVariant *r = g_dbus_connection_call_sync(
        c, ssotest::kSsoServiceName, path, "org.freedesktop.DBus.Introspectable", "Introspect",
        nullptr, G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, &error);
    if (r == nullptr) {
        std::string msg = error->message;
        g_error_free(error);
        ADD_FAILURE() << "Introspect " << path << ": " << msg;
        return "";
    }
    const gchar *xml = nullptr;
    g_variant_get(r, "(&s)", &xml);
    std::string out = xml;
    g_variant_unref(r);
    return out;
}

TEST_F(SimProcess, StartsQuicklyAndPrintsOneReadyLine)
{
    Simulator sim;
    const auto start = Clock::now();
    sim.Start();
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    // "Well under a second" on an idle machine; generous for a loaded one.
    EXPECT_LT(took.count(), 2000);
    EXPECT_EQ("ready\n", sim.output());
    EXPECT_TRUE(sim.running());
    EXPECT_EQ(0, sim.Stop());
}

TEST_F(SimProcess, OwnsTheServiceNameAsItsOwnProcess)
{
    Simulator sim;
    sim.Start();
    EXPECT_EQ(sim.pid(), OwnerPid(sim.connection(), ssotest::kSsoServiceName));
    EXPECT_TRUE(sim.NameHasOwner(ssotest::kSsoServiceName));
    sim.Stop();
    // Gone with the process: a later simulator can have it.
    EXPECT_TRUE(ssotest::WaitUntil([&] { return !sim.NameHasOwner(ssotest::kSsoServiceName); }));
}

TEST_F(SimProcess, SigtermExitsZero)
{
    Simulator sim;
    sim.Start();
    EXPECT_EQ(0, sim.Stop());
    EXPECT_EQ(0, sim.exit_status());
    EXPECT_FALSE(sim.running());
}

TEST_F(SimProcess, SigintExitsZero)
{
    ssotest::EnsureStorageService();
    auto child = ssotest::ChildProcess::Spawn({ssotest::ToolPath("sso-simulator"), "run"});
    ASSERT_TRUE(child.WaitForOutput("ready\n"));
    child.Kill(SIGINT);
    EXPECT_EQ(0, child.Wait());
}

TEST_F(SimProcess, QuitExitsZeroAfterAnswering)
{
    Simulator sim;
    sim.Start();
    EXPECT_EQ(0, sim.Quit());
}

TEST_F(SimProcess, StopWhileRequestsAndDeliveriesArePendingStillExitsZero)
{
    Simulator sim;
    sim.Start();
    FakeClient client;
    client.Start();
    ssotest::Behaviour slow;
    slow.result_delay_ms = 60000;
    sim.Configure("sso_request_access_token", slow);
    ssotest::Behaviour silent;
    silent.no_answer = true;
    sim.Configure("sso_check_alive", silent);
    ssotest::Behaviour late;
    late.answer_delay_ms = 60000;
    sim.Configure("sso_reset", late);
    EXPECT_EQ(1, client.RequestSimple("sso_request_access_token").Int());
    EXPECT_TRUE(client.RequestSimple("sso_check_alive", 100).timed_out);
    EXPECT_TRUE(client.RequestSimple("sso_reset", 100).timed_out);
    EXPECT_EQ(0, sim.Stop());
}

TEST_F(SimProcess, RestartComesBackWithANewProcessAndAnEmptyJournal)
{
    Simulator sim;
    sim.Start();
    FakeClient client;
    client.Start();
    ASSERT_EQ(1, client.RequestSimple("sso_check_alive").Int());
    ASSERT_EQ(1u, sim.Journal().size());
    const pid_t first = sim.pid();
    sim.Restart();
    EXPECT_NE(first, sim.pid());
    EXPECT_TRUE(sim.Journal().empty());
    EXPECT_EQ(1, client.RequestSimple("sso_check_alive").Int());
}

TEST_F(SimProcess, ASecondSimulatorOnTheSameBusFailsWithExit1AndSaysWhy)
{
    Simulator sim;
    sim.Start();
    ssotest::SimulatorCommandResult r = ssotest::RunSimulatorCommand({});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", r.out) << "must not claim to be ready";
    EXPECT_NE(std::string::npos, r.err.find(ssotest::kSsoServiceName)) << r.err;
    EXPECT_NE(std::string::npos, r.err.find("already owned")) << r.err;
    // The first one is unaffected.
    EXPECT_TRUE(sim.running());
    EXPECT_EQ(sim.pid(), OwnerPid(sim.connection(), ssotest::kSsoServiceName));
}

TEST_F(SimProcess, AnUnreachableBusFailsWithExit1AndSaysWhy)
{
    ssotest::SimulatorCommandResult r = ssotest::RunSimulatorCommand(
        {"run"}, {{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + bus_.dir() + "/no-such-socket"}});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_NE(std::string::npos, r.err.find("cannot connect to the system bus")) << r.err;
}

TEST_F(SimProcess, TheBusGoingAwayEndsTheSimulatorWithFailure)
{
    Simulator sim;
    sim.Start();
    bus_.Stop();
    ASSERT_TRUE(ssotest::WaitUntil([&] { return !sim.running(); }));
    EXPECT_EQ(1, sim.exit_status());
}

TEST_F(SimProcess, ObjectNameIsObjPidAndTheDefaultAppId)
{
    Simulator sim;
    sim.Start();
    EXPECT_EQ("obj" + std::to_string(sim.pid()) + "_org.orvex.ssoservice", sim.ObjectName());
}

TEST_F(SimProcess, ObjectNameTakesTheAppIdFromTheEnvironment)
{
    Simulator sim;
    sim.Start({{"SSO_PLATFORM_APP_ID", "com.example.sim"}});
    EXPECT_EQ("obj" + std::to_string(sim.pid()) + "_com.example.sim", sim.ObjectName());
}

TEST_F(SimProcess, IntrospectionListsEveryServerMethodWithItsSignature)
{
    Simulator sim;
    sim.Start();
    const std::string xml = Introspect(sim.connection(), ssotest::kSsoServicePath);
    GError *error = nullptr;
    GDBusNodeInfo *node = g_dbus_node_info_new_for_xml(xml.c_str(), &error);
    ASSERT_NE(nullptr, node) << error->message;
    GDBusInterfaceInfo *served =
        g_dbus_node_info_lookup_interface(node, ssotest::kSsoServiceInterface);
    ASSERT_NE(nullptr, served) << xml;
    GDBusInterfaceInfo *expected = simtest::ServerInterface();
    auto served_names = simtest::MethodNames(served);
    auto expected_names = simtest::MethodNames(expected);
    std::sort(served_names.begin(), served_names.end());
    std::sort(expected_names.begin(), expected_names.end());
    EXPECT_EQ(expected_names, served_names);
    EXPECT_EQ(38u, expected_names.size());
    for (const auto &name : expected_names) {
        GDBusMethodInfo *want = g_dbus_interface_info_lookup_method(expected, name.c_str());
        GDBusMethodInfo *got = g_dbus_interface_info_lookup_method(served, name.c_str());
        ASSERT_NE(nullptr, got) << name;
        EXPECT_EQ(simtest::InSignature(want), simtest::InSignature(got)) << name;
        ASSERT_NE(nullptr, got->out_args[0]) << name;
        EXPECT_STREQ(want->out_args[0]->signature, got->out_args[0]->signature) << name;
    }
    g_dbus_node_info_unref(node);
}

TEST_F(SimProcess, TheControlObjectIsServedOnTheSameName)
{
    Simulator sim;
    sim.Start();
    const std::string xml = Introspect(sim.connection(), ssotest::kSimulatorControlPath);
    GDBusNodeInfo *node = g_dbus_node_info_new_for_xml(xml.c_str(), nullptr);
    ASSERT_NE(nullptr, node) << xml;
    GDBusInterfaceInfo *control =
        g_dbus_node_info_lookup_interface(node, ssotest::kSimulatorControlInterface);
    ASSERT_NE(nullptr, control) << xml;
    std::set<std::string> names;
    for (const auto &n : simtest::MethodNames(control))
        names.insert(n);
    for (const char *m :
         {"Configure", "ResetMethod", "Reset", "GetJournal", "ClearJournal", "GetDeliveries",
          "ClearDeliveries", "EmitSignal", "CallClient", "GetObjectName", "Quit"})
        EXPECT_EQ(1u, names.count(m)) << m;
    g_dbus_node_info_unref(node);
}

TEST_F(SimTest, LogsRequestsDeliveriesAndScriptingUnderItsTag)
{
    ssotest::Behaviour b;
    b.result = 4;
    sim_.Configure("sso_request_auth_code", b);
    ASSERT_EQ(1, client_.RequestSimple("sso_request_auth_code").Int());
    ASSERT_TRUE(client_.WaitForCalls(1));
    const auto log = this->log();
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        return !log.LinesWith({"SSOSimulator", "deliver", "sso_request_auth_code"}).empty();
    }));
    EXPECT_EQ(1u, log.LinesWith({"SSOSimulator", "request sso_request_auth_code from"}).size());
    EXPECT_EQ(1u, log.LinesWith({"SSOSimulator", "behaviour of sso_request_auth_code"}).size());
    EXPECT_EQ(1u, log.LinesWith({"SSOSimulator", "answer sso_request_auth_code: 1"}).size());
    EXPECT_FALSE(log.LinesWith({"SSOSimulator", "ready"}).empty());
}

} // namespace
