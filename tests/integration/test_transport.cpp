// The D-Bus link end to end against the simulator on a private bus: the
// request frame, the client object and its sender check, result dispatch on
// the monitor thread, link repair and link give-up.
#include <gio/gio.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "SSOAPIClientUtil.h"
#include "SSOAPIUtil.h"
#include "sso_api/sso_api.h"
#include "sso_api_private.h"
#include "sso_api_proxy.h"
#include "../common/expected_results.h"
#include "sso_simulator_harness.h"
#include "sso_test_harness.h"
#include "../common/loop_thread.h"

namespace {

// ------------------------------------------------------ recorded callbacks

struct Delivery {
    std::string thread;
    pthread_t threadId;
    void *userData = nullptr;
    int result = 0;
    bool flag = false;
    std::vector<std::string> texts;
};

std::mutex g_mutex;
std::vector<Delivery> g_deliveries;
std::atomic<int> g_inside{0};
std::atomic<int> g_maxInside{0};

void Record(void *userData, int result, std::vector<std::string> texts, bool flag = false)
{
    int now = ++g_inside;
    int prev = g_maxInside.load();
    while (now > prev && !g_maxInside.compare_exchange_weak(prev, now)) {
    }
    char name[32] = {0};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    Delivery d;
    d.thread = name;
    d.threadId = pthread_self();
    d.userData = userData;
    d.result = result;
    d.flag = flag;
    d.texts = std::move(texts);
    // Stay inside long enough for an overlapping delivery to show.
    std::this_thread::sleep_for(std::chrono::microseconds(200));
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_deliveries.push_back(std::move(d));
    }
    --g_inside;
}

int StringCb(void *ud, int result, char *text)
{
    Record(ud, result, {text ? text : "(null)"});
    return 0;
}
int ResultOnlyCb(void *ud, int result)
{
    Record(ud, result, {});
    return 0;
}
int TwoStringsCb(void *ud, int result, char *a, char *b)
{
    Record(ud, result, {a, b});
    return 0;
}
int NameCheckCb(void *ud, bool ok, char *a, char *b, char *c)
{
    Record(ud, ok ? 1 : 0, {a, b, c}, ok);
    return 0;
}
int UserInfoCb(void *ud, int result, sso_user_info info)
{
    Record(ud, result,
           {info.user_id, info.prefix_name, info.first_name, info.last_name, info.birth_date,
            info.zip_code, info.mobile_num, info.receive_email, info.auth});
    return 0;
}

size_t DeliveryCount()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_deliveries.size();
}

std::vector<Delivery> Deliveries()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_deliveries;
}

gint64 Int(const void *p)
{
    return static_cast<gint64>(reinterpret_cast<intptr_t>(p));
}

// An access-token request tuple asking for delivery on methodCall.
GVariant *AsyncRequest(const std::string &methodCall, const void *callback, const void *userData,
                       int aeIndex = 0)
{
    long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    std::string obj = SSOAPIClientUtil::GetDBusObjectName();
    return g_variant_new("(ssssxxxis)", obj.c_str(), "app-id", "secret", "HAS_NO_VALUE",
                         Int(callback), static_cast<gint64>(tid), Int(userData), aeIndex,
                         methodCall.c_str());
}

int SendAsync(const std::string &methodCall, const void *callback, const void *userData)
{
    // Sent by hand, past the request frame: recorded as the frame would.
    ssotest::ExpectResult(methodCall, callback, userData);
    GVariant *reply = nullptr;
    return sso_private_request_method("sso_request_access_token",
                                      AsyncRequest(methodCall, callback, userData), &reply);
}

std::string ClientBusName()
{
    return SSO_CLIENT_BUS_NAME_PREFIX + SSOAPIClientUtil::GetDBusObjectName();
}

class Transport : public ssotest::SimulatorTest {
protected:
    void SetUp() override
    {
        setenv("SSO_PLATFORM_APP_ID", "org.example.transport", 1);
        SimulatorTest::SetUp();
        std::lock_guard<std::mutex> lock(g_mutex);
        g_deliveries.clear();
        g_maxInside = 0;
    }

    // A client-method argument tuple as the service would send it.
    std::string ClientArgs(const std::string &method, long long tid, const std::string &payload,
                           int result = 0, const void *cb = reinterpret_cast<void *>(&StringCb),
                           const void *ud = reinterpret_cast<void *>(0x1234))
    {
        return "('" + sim_.ObjectName() + "', int64 " + std::to_string(Int(cb)) + ", int64 " +
               std::to_string(tid) + ", '" + payload + "', " + std::to_string(result) + ", int64 " +
               std::to_string(Int(ud)) + ", 0, '" + method + "')";
    }
};

// ------------------------------------------------------------ request frame

TEST_F(Transport, CheckAliveIsSentAsObjectNameThreadIdAndMethodName)
{
    EXPECT_EQ(sso_check_alive(), 0);
    auto journal = sim_.Journal();
    ASSERT_EQ(journal.size(), 1u);
    EXPECT_EQ(journal[0].method, "sso_check_alive");
    long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    EXPECT_GT(tid, 0);
    std::string obj = "obj" + std::to_string(getpid()) + "_org.example.transport";
    EXPECT_EQ(journal[0].args,
              "('" + obj + "', int64 " + std::to_string(tid) + ", 'sso_check_alive')");
    EXPECT_TRUE(log().Contains("[END] pMethodName[sso_check_alive] sso_result[0] result[1]"));
}

TEST_F(Transport, AServiceAnswerOfZeroGivesMinusOne)
{
    ssotest::Behaviour refuse;
    refuse.accept = 0;
    sim_.Configure("sso_check_alive", refuse);
    EXPECT_EQ(sso_check_alive(), -1);
    EXPECT_TRUE(log().Contains("\033[0;31mresult(0) is not 1\033[0m"));
    EXPECT_TRUE(log().Contains("[END] pMethodName[sso_check_alive] sso_result[-1] result[0]"));
}

TEST_F(Transport, TheReplySlotIsNullAfterEveryCall)
{
    GVariant *reply = reinterpret_cast<GVariant *>(0x1);
    std::string obj = SSOAPIClientUtil::GetDBusObjectName();
    long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    EXPECT_EQ(sso_private_request_method(
                  "sso_check_alive", g_variant_new("(sxs)", obj.c_str(), gint64{tid}, "x"), &reply),
              0);
    EXPECT_EQ(reply, nullptr);

    reply = reinterpret_cast<GVariant *>(0x1);
    ssotest::Behaviour refuse;
    refuse.accept = 7;
    sim_.Configure("sso_check_alive", refuse);
    EXPECT_EQ(sso_private_request_method(
                  "sso_check_alive", g_variant_new("(sxs)", obj.c_str(), gint64{tid}, "x"), &reply),
              -1);
    EXPECT_EQ(reply, nullptr);

    reply = reinterpret_cast<GVariant *>(0x1);
    EXPECT_EQ(sso_private_request_method("no_such_method", g_variant_new("()"), &reply), -1);
    EXPECT_EQ(reply, nullptr);
    EXPECT_TRUE(log().Contains("Failed to CallMethodToServer(). methodName [no_such_method]"));
    EXPECT_TRUE(log().Contains("sso_private_call_dbus_method_to_server() return false"));
}

TEST_F(Transport, CheckAliveWithTheServiceAbsentIsMinusOne)
{
    sim_.Stop();
    EXPECT_EQ(sso_check_alive(), -1);
    EXPECT_TRUE(log().Contains("g_dbus_connection_call_sync return error. "
                               "org.freedesktop.DBus.Error.ServiceUnknown"));
}

TEST_F(Transport, AfterGiveProxyNoRequestReachesTheBus)
{
    ASSERT_EQ(sso_check_alive(), 0);
    std::string busName = ClientBusName();
    sso_give_proxy();
    sim_.ClearJournal();
    EXPECT_EQ(sso_check_alive(), -1);
    EXPECT_TRUE(sim_.Journal().empty());
    EXPECT_TRUE(log().Contains("d-bus connection and proxy-monitor are already terminated"));
    EXPECT_TRUE(log().Contains("Failed to GetProxy()"));
    // The bus name is given up and the monitor thread is gone.
    EXPECT_TRUE(ssotest::WaitUntil([&] { return !sim_.NameHasOwner(busName); }));
    EXPECT_EQ(SSOAPIClientUtil::GetDBusProxyThreadId(), 0);

    int before = log().Count("already terminated");
    sso_give_proxy();
    EXPECT_EQ(log().Count("already terminated"), before + 1);
}

TEST_F(Transport, GiveProxyBeforeAnyRequestConnectsThenGivesUp)
{
    sso_give_proxy();
    EXPECT_TRUE(log().Contains("m_bProxyMonitorCreated = 1"));
    EXPECT_TRUE(log().Contains("m_bProxyMonitorCreated = 0"));
    EXPECT_EQ(sso_check_alive(), -1);
    EXPECT_TRUE(sim_.Journal().empty());
}

TEST_F(Transport, AHeartbeatNeverStartsTheServiceButOtherCallsMay)
{
    CSSOSvcGdbus *transport = SSOAPISingleton<CSSOSvcGdbus>::GetInstance();
    GVariant *reply = nullptr;
    EXPECT_TRUE(transport->CallMethodToServer(
        "sso_check_alive", g_variant_new("(sxs)", "o", gint64{1}, "x"), &reply, 5000));
    ASSERT_NE(reply, nullptr);
    g_variant_unref(reply);
    EXPECT_FALSE(log().Contains("Set G_DBUS_CALL_FLAGS_NO_AUTO_START"));
    reply = nullptr;
    EXPECT_FALSE(transport->CallMethodToServer("heartbeat", g_variant_new("()"), &reply, 5000));
    EXPECT_TRUE(log().Contains("Set G_DBUS_CALL_FLAGS_NO_AUTO_START"));
}

// ------------------------------------------------------------ result delivery

TEST_F(Transport, AResultReachesTheCallbackOnTheMonitorThreadWithItsUserData)
{
    ssotest::Behaviour behaviour;
    behaviour.result = 7;
    behaviour.payloads = {"TOKEN-abc"};
    sim_.Configure("sso_request_access_token", behaviour);
    int userData = 0;
    ASSERT_EQ(SendAsync("sso_request_access_token", reinterpret_cast<void *>(&StringCb), &userData),
              0);
    ASSERT_TRUE(ssotest::WaitUntil([] { return DeliveryCount() == 1; }));
    Delivery d = Deliveries()[0];
    EXPECT_EQ(d.thread, "SSOProxyMonitor");
    EXPECT_FALSE(pthread_equal(d.threadId, pthread_self()));
    EXPECT_EQ(static_cast<long long>(d.threadId), SSOAPIClientUtil::GetDBusProxyThreadId());
    EXPECT_EQ(d.userData, &userData);
    EXPECT_EQ(d.result, 7);
    EXPECT_EQ(d.texts, std::vector<std::string>{"TOKEN-abc"});
    EXPECT_TRUE(log().Contains("[START] [sso_request_access_token]'s Return-Callback : result(7)"));
    // The payload is a secret: no [DEVEL] line without the marker.
    EXPECT_FALSE(log().Contains("TOKEN-abc"));
}

TEST_F(Transport, PayloadsAreLoggedOnlyWithTheDebugMarker)
{
    root_.CreateDeviceFile("/etc/debug");
    ssotest::Behaviour behaviour;
    behaviour.payloads = {"TOKEN-devel"};
    sim_.Configure("sso_request_access_token", behaviour);
    ASSERT_EQ(SendAsync("sso_request_access_token", reinterpret_cast<void *>(&StringCb), nullptr),
              0);
    ASSERT_TRUE(ssotest::WaitUntil([] { return DeliveryCount() == 1; }));
    EXPECT_TRUE(log().Contains("\033[0;32m[DEVEL] pData(TOKEN-devel)\033[0m"));
}

struct ShapeCase {
    const char *methodCall;
    const void *callback;
    int result;
    std::vector<std::string> payloads;
    std::vector<std::string> expected;
    int expectedResult;
};

void PrintTo(const ShapeCase &c, std::ostream *os)
{
    *os << c.methodCall;
}

class DeliveryShape : public Transport, public ::testing::WithParamInterface<ShapeCase> {};

TEST_P(DeliveryShape, ReachesTheCallbackInTheFormOfItsShape)
{
    const ShapeCase &c = GetParam();
    ssotest::Behaviour behaviour;
    behaviour.result = c.result;
    behaviour.payloads = c.payloads;
    sim_.Configure("sso_request_access_token", behaviour);
    int userData = 0;
    ASSERT_EQ(SendAsync(c.methodCall, c.callback, &userData), 0);
    ASSERT_TRUE(ssotest::WaitUntil([] { return DeliveryCount() == 1; }))
        << "nothing delivered for " << c.methodCall;
    Delivery d = Deliveries()[0];
    EXPECT_EQ(d.userData, &userData);
    EXPECT_EQ(d.result, c.expectedResult);
    EXPECT_EQ(d.texts, c.expected);
    EXPECT_EQ(d.thread, "SSOProxyMonitor");
}

const std::string k200(200, 'u');

INSTANTIATE_TEST_SUITE_P(
    Shapes, DeliveryShape,
    ::testing::Values(
        ShapeCase{
            "sso_request_auth_code", reinterpret_cast<void *>(&StringCb), 3, {"AC-1"}, {"AC-1"}, 3},
        ShapeCase{"sso_generate_token_with_authcode_dsc",
                  reinterpret_cast<void *>(&ResultOnlyCb),
                  4,
                  {},
                  {},
                  4},
        ShapeCase{"sso_generate_token_with_ID_PWD",
                  reinterpret_cast<void *>(&StringCb),
                  5,
                  {"R2"},
                  {"R2"},
                  5},
        ShapeCase{"sso_get_user_info_v4",
                  reinterpret_cast<void *>(&StringCb),
                  6,
                  {"{\"v\":4}"},
                  {"{\"v\":4}"},
                  6},
        ShapeCase{"sso_identify_current_user_info",
                  reinterpret_cast<void *>(&TwoStringsCb),
                  0,
                  {"19900101", "https://id.example/x"},
                  {"19900101", "https://id.example/x"},
                  0},
        // The name check hands over a success flag, not the result code.
        ShapeCase{"sso_get_namecheck_auth_info",
                  reinterpret_cast<void *>(&NameCheckCb),
                  0,
                  {"19800202", "46", "https://check"},
                  {"19800202", "46", "https://check"},
                  1},
        ShapeCase{"sso_get_namecheck_auth_info",
                  reinterpret_cast<void *>(&NameCheckCb),
                  5,
                  {"b", "a", "u"},
                  {"b", "a", "u"},
                  0},
        ShapeCase{
            "sso_get_user_info",
            reinterpret_cast<void *>(&UserInfoCb),
            0,
            {k200, "Mr", "Ann", "Lee", "19700101", "12345", "555", "yes", "AUTH"},
            {std::string(126, 'u'), "Mr", "Ann", "Lee", "19700101", "12345", "555", "yes", "AUTH"},
            0}));

TEST_F(Transport, AResultForAnotherMonitorThreadIsAnsweredButNotDelivered)
{
    ASSERT_EQ(sso_check_alive(), 0);
    long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    std::string error = sim_.CallClient(ClientBusName(), "sso_request_access_token",
                                        ClientArgs("sso_request_access_token", tid + 1, "stale"));
    EXPECT_EQ(error, "");
    // The service is answered before the check, so the line may trail the reply.
    EXPECT_TRUE(ssotest::WaitUntil([&] {
        return log().Contains("tid(" + std::to_string(tid + 1) +
                              ") is not equal to tidProxyMonitor(" + std::to_string(tid) + ")");
    }));
    // The same call with the current id is delivered: the refusal was the id.
    ssotest::ExpectResult("sso_request_access_token", reinterpret_cast<void *>(&StringCb),
                          reinterpret_cast<void *>(0x1234));
    EXPECT_EQ(sim_.CallClient(ClientBusName(), "sso_request_access_token",
                              ClientArgs("sso_request_access_token", tid, "fresh")),
              "");
    ASSERT_TRUE(ssotest::WaitUntil([] { return DeliveryCount() == 1; }));
    EXPECT_EQ(Deliveries()[0].texts, std::vector<std::string>{"fresh"});
}

TEST_F(Transport, APartnerAuthInfoCallIsAnsweredAndNotDelivered)
{
    ASSERT_EQ(sso_check_alive(), 0);
    long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    EXPECT_EQ(sim_.CallClient(ClientBusName(), "sso_return_partner_auth_info",
                              ClientArgs("sso_return_partner_auth_info", tid, "partner")),
              "");
    EXPECT_TRUE(log().Contains("clientMethodType is CLIENT_METHOD_NONE"));
    EXPECT_EQ(DeliveryCount(), 0u);
}

TEST_F(Transport, ATerminatedLibraryAnswersEveryCallAndDeliversNone)
{
    ASSERT_EQ(sso_check_alive(), 0);
    long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    std::string busName = ClientBusName();
    SSOAPIUtil::SetClientToTerminated();
    EXPECT_EQ(sim_.CallClient(busName, "sso_request_access_token",
                              ClientArgs("sso_request_access_token", tid, "late")),
              "");
    EXPECT_EQ(sim_.CallClient(busName, "sso_get_user_info_v4",
                              "('" + sim_.ObjectName() + "', int64 1, int64 " +
                                  std::to_string(tid) +
                                  ", int64 2, 0, 'x', 0, 'sso_get_user_info_v4')"),
              "");
    EXPECT_EQ(DeliveryCount(), 0u);
    SSOAPIUtil::SetClientToAlive();
}

TEST_F(Transport, AZeroCallbackIsNotCalled)
{
    ASSERT_EQ(sso_check_alive(), 0);
    long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    EXPECT_EQ(sim_.CallClient(ClientBusName(), "sso_request_access_token",
                              ClientArgs("sso_request_access_token", tid, "x", 0, nullptr)),
              "");
    EXPECT_TRUE(
        ssotest::WaitUntil([&] { return log().Contains("\033[0;31mpCallback is 0\033[0m"); }));
}

TEST_F(Transport, WrongArgumentTypesAreRejectedBeforeTheLibrary)
{
    ASSERT_EQ(sso_check_alive(), 0);
    std::string error = sim_.CallClient(ClientBusName(), "sso_request_access_token",
                                        "('" + sim_.ObjectName() + "', 'not a number')");
    EXPECT_NE(error.find("InvalidArgs"), std::string::npos) << error;
    EXPECT_FALSE(log().Contains("<--- Client Method Name [sso_request_access_token]"));
    std::string unknown = sim_.CallClient(ClientBusName(), "no_such_method", "()");
    EXPECT_NE(unknown.find("UnknownMethod"), std::string::npos) << unknown;
    EXPECT_EQ(DeliveryCount(), 0u);
}

TEST_F(Transport, CallbacksRunOneAtATimeAndEachRequestIsDeliveredOnce)
{
    constexpr int kThreads = 4;
    constexpr int kPerThread = 10;
    std::vector<int> slots(kThreads * kPerThread, 0);
    std::vector<std::thread> threads;
    std::atomic<int> accepted{0};
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i)
                if (SendAsync("sso_request_access_token", reinterpret_cast<void *>(&StringCb),
                              &slots[t * kPerThread + i]) == 0)
                    ++accepted;
        });
    for (auto &th : threads)
        th.join();
    ASSERT_EQ(accepted.load(), kThreads * kPerThread);
    ASSERT_TRUE(ssotest::WaitUntil([] { return DeliveryCount() == kThreads * kPerThread; }));
    EXPECT_EQ(g_maxInside.load(), 1);
    std::vector<int> seen(slots.size(), 0);
    for (const auto &d : Deliveries()) {
        EXPECT_EQ(d.thread, "SSOProxyMonitor");
        auto *slot = static_cast<int *>(d.userData);
        ASSERT_GE(slot, &slots[0]);
        ASSERT_LE(slot, &slots.back());
        ++seen[slot - &slots[0]];
    }
    for (int count : seen)
        EXPECT_EQ(count, 1);
}

// ------------------------------------------------------------ sender check

TEST_F(Transport, AnotherProcessCallingTheClientObjectGetsProcessIdIsDifferent)
{
    ASSERT_EQ(sso_check_alive(), 0);
    long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    std::string busName = ClientBusName();
    std::string ourObj = SSOAPIClientUtil::GetDBusObjectName();
    // The peer (gdbus, a process of its own) claims to be us: our object
    // name, not one with its own pid.
    auto peer =
        ssotest::RunCommand({"/bin/sh",
                             "-c",
                             "exec \"$@\" 2>&1",
                             "sh",
                             "gdbus",
                             "call",
                             "--system",
                             "--dest",
                             busName,
                             "--object-path",
                             SSO_CLIENT_OBJECT_PATH,
                             "--method",
                             std::string(SSO_CLIENT_INTERFACE) + ".sso_request_access_token",
                             "'" + ourObj + "'",
                             std::to_string(Int(reinterpret_cast<void *>(&StringCb))),
                             std::to_string(tid),
                             "'spoofed'",
                             "0",
                             "0",
                             "0",
                             "'sso_request_access_token'"});
    EXPECT_NE(peer.status, 0);
    EXPECT_NE(peer.out.find("process id is different"), std::string::npos) << peer.out;
    EXPECT_TRUE(log().Contains("Caller process is invalid"));
    EXPECT_FALSE(log().Contains("<--- Client Method Name"));
    EXPECT_EQ(DeliveryCount(), 0u);
}

// --------------------------------------------------------- handler and signals

std::atomic<int> g_customCalls{0};
void CustomHandler(CSSOBusConnection *, const char *, const char *, const char *, const char *,
                   GVariant *, CSSOBusInvocation *invocation, void *)
{
    ++g_customCalls;
    invocation->ReturnValue(nullptr);
}

TEST_F(Transport, TheFirstRegisteredHandlerWins)
{
    CSSOSvcGdbus *transport = SSOAPISingleton<CSSOSvcGdbus>::GetInstance();
    transport->RegisterCallback(CustomHandler, nullptr);
    // Every request registers the dispatcher; it is ignored now.
    ASSERT_EQ(sso_check_alive(), 0);
    long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    EXPECT_EQ(sim_.CallClient(ClientBusName(), "sso_request_access_token",
                              ClientArgs("sso_request_access_token", tid, "x")),
              "");
    EXPECT_EQ(g_customCalls.load(), 1);
    EXPECT_EQ(DeliveryCount(), 0u);
    EXPECT_EQ(log().Count("Registered m_pHandleMethodCallCb"), 1);
}

TEST_F(Transport, ServiceSignalsAreLoggedInTheMainContextOfTheFirstRequest)
{
    // The first request comes from this thread, whose default context is the
    // process's global one: the service's signals are handled there, not on
    // the monitor thread.
    ASSERT_EQ(sso_check_alive(), 0);
    sim_.EmitSignal("account_changed", "()");
    // A result sent after the signal has reached the monitor: the signal was
    // read by then, yet nothing logged it without this context running.
    ASSERT_EQ(SendAsync("sso_request_access_token", reinterpret_cast<void *>(&StringCb), nullptr),
              0);
    ASSERT_TRUE(ssotest::WaitUntil([] { return DeliveryCount() == 1; }));
    EXPECT_FALSE(log().Contains("---> pSignalName [account_changed]"));
    EXPECT_TRUE(ssotest::WaitUntil([&] {
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
        return log().Contains("---> pSignalName [account_changed]");
    }));
}

TEST_F(Transport, ServiceSignalsRunOnTheMainLoopThreadThatMadeTheFirstRequest)
{
    ssotest::LoopThread loop;
    pid_t loopTid = 0;
    loop.Run([&] {
        loopTid = static_cast<pid_t>(syscall(SYS_gettid));
        EXPECT_EQ(sso_check_alive(), 0);
    });
    sim_.EmitSignal("account_changed", "()");
    const std::string ids = " " + std::to_string(getpid()) + " " + std::to_string(loopTid) + " ";
    EXPECT_TRUE(ssotest::WaitUntil([&] {
        return !log().LinesWith({ids, "---> pSignalName [account_changed]"}).empty();
    }));
}

// ----------------------------------------------------------- introspection

TEST_F(Transport, TheBusShowsThe34MethodsOfTheClientObject)
{
    ASSERT_EQ(sso_check_alive(), 0);
    auto result = ssotest::RunCommand({"gdbus", "introspect", "--system", "--dest", ClientBusName(),
                                       "--object-path", SSO_CLIENT_OBJECT_PATH, "--xml"});
    ASSERT_EQ(result.status, 0) << result.out;
    GError *error = nullptr;
    GDBusNodeInfo *seen = g_dbus_node_info_new_for_xml(result.out.c_str(), &error);
    ASSERT_NE(seen, nullptr) << (error ? error->message : "");
    GDBusNodeInfo *expected =
        g_dbus_node_info_new_for_xml(CSSOSvcGdbus::m_introspectionXml.c_str(), nullptr);
    GDBusInterfaceInfo *iface = g_dbus_node_info_lookup_interface(seen, SSO_CLIENT_INTERFACE);
    ASSERT_NE(iface, nullptr);
    GDBusInterfaceInfo *want = expected->interfaces[0];
    size_t n = 0;
    for (; want->methods[n] != nullptr; ++n) {
        ASSERT_NE(iface->methods[n], nullptr);
        EXPECT_STREQ(iface->methods[n]->name, want->methods[n]->name);
        for (size_t a = 0; want->methods[n]->in_args[a] != nullptr; ++a) {
            ASSERT_NE(iface->methods[n]->in_args[a], nullptr);
            EXPECT_STREQ(iface->methods[n]->in_args[a]->name, want->methods[n]->in_args[a]->name);
            EXPECT_STREQ(iface->methods[n]->in_args[a]->signature,
                         want->methods[n]->in_args[a]->signature);
        }
    }
    EXPECT_EQ(n, 34u);
    EXPECT_EQ(iface->methods[n], nullptr);
    g_dbus_node_info_unref(seen);
    g_dbus_node_info_unref(expected);
}

// -------------------------------------------------------------- link repair

TEST_F(Transport, AfterTheBusRestartsTheNextRequestRebuildsTheLink)
{
    ASSERT_EQ(sso_check_alive(), 0);
    sim_.Stop();
    bus_.Restart();
    sim_.Start();
    EXPECT_EQ(sso_check_alive(), 0);
    EXPECT_TRUE(log().Contains(
        "m_pConnectionToServer is disconnected. Try to clean up and connect again."));
    // Both directions work again: the new client object receives results.
    ASSERT_EQ(SendAsync("sso_request_access_token", reinterpret_cast<void *>(&StringCb), nullptr),
              0);
    EXPECT_TRUE(ssotest::WaitUntil([] { return DeliveryCount() == 1; }));
    EXPECT_TRUE(sim_.NameHasOwner(ClientBusName()));
}

} // namespace
