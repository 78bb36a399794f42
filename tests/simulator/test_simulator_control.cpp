// The control interface: scripting rules, journal and delivery bookkeeping,
// signals, and calls into clients.
#include <string>
#include <tuple>
#include <vector>

#include "sim_fixture.h"
#include "sso_simulator_harness.h"

namespace {

using simtest::Reply;
using simtest::RequestValues;
using simtest::SimTest;
using simtest::StringArg;

class SimControl : public SimTest {
protected:
    // Calls a control method directly; returns the D-Bus error name or "".
    std::string ControlError(const char *method, GVariant *params)
    {
        GError *error = nullptr;
        GVariant *r = g_dbus_connection_call_sync(
            sim_.connection(), ssotest::kSsoServiceName, ssotest::kSimulatorControlPath,
            ssotest::kSimulatorControlInterface, method, params, nullptr, G_DBUS_CALL_FLAGS_NONE,
            10000, nullptr, &error);
        if (r) {
            g_variant_unref(r);
            return "";
        }
        gchar *remote = g_dbus_error_get_remote_error(error);
        std::string name = remote ? remote : error->message;
        g_free(remote);
        g_error_free(error);
        return name;
    }

    std::string ConfigureError(const std::string &method, const std::string &dict_text)
    {
        GVariant *dict =
            g_variant_parse(G_VARIANT_TYPE_VARDICT, dict_text.c_str(), nullptr, nullptr, nullptr);
        EXPECT_NE(nullptr, dict) << dict_text;
        return ControlError("Configure", g_variant_new("(s@a{sv})", method.c_str(), dict));
    }

    // Sends method and expects its result delivered with result and, under
    // the argument name arg, payload.
    void ExpectDelivery(const std::string &method, int result, const char *arg,
                        const std::string &payload)
    {
        EXPECT_EQ(1, client_.RequestSimple(method).Int());
        ASSERT_TRUE(client_.WaitForCalls(1));
        const auto call = client_.Calls().at(0);
        EXPECT_EQ(result, simtest::Int32Arg(call, "result"));
        EXPECT_EQ(payload, StringArg(call, arg));
    }
};

constexpr const char *kInvalidArgs = "org.freedesktop.DBus.Error.InvalidArgs";

// ---- scripting ----

TEST_F(SimControl, ConfigureAcceptsEveryKnownKeyWithItsType)
{
    EXPECT_EQ("", ConfigureError("sso_request_access_token",
                                 "{'accept': <int32 1>, 'result': <int32 0>, 'payloads': <['a']>,"
                                 " 'answer_delay_ms': <uint32 0>, 'result_delay_ms': <uint32 0>,"
                                 " 'drop_result': <false>, 'error': <''>, 'no_answer': <false>}"));
    EXPECT_EQ(1, client_.RequestSimple("sso_request_access_token").Int());
}

TEST_F(SimControl, ConfigureRefusesUnknownMethodsKeysTypesAndErrorNames)
{
    EXPECT_EQ(kInvalidArgs, ConfigureError("sso_no_such_method", "{'accept': <int32 0>}"));
    EXPECT_EQ(kInvalidArgs, ConfigureError("sso_check_alive", "{'acept': <int32 0>}"));
    EXPECT_EQ(kInvalidArgs, ConfigureError("sso_check_alive", "{'accept': <int64 0>}"));
    EXPECT_EQ(kInvalidArgs, ConfigureError("sso_check_alive", "{'answer_delay_ms': <int32 5>}"));
    EXPECT_EQ(kInvalidArgs, ConfigureError("sso_check_alive", "{'payloads': <'one'>}"));
    EXPECT_EQ(kInvalidArgs, ConfigureError("sso_check_alive", "{'error': <'not a name'>}"));
    // A client callback is not a service method.
    EXPECT_EQ(kInvalidArgs, ConfigureError("sso_return_partner_auth_info", "{}"));
    EXPECT_EQ(kInvalidArgs, ControlError("ResetMethod", g_variant_new("(s)", "sso_nope")));
    // Nothing of a refused call was applied.
    EXPECT_EQ(kInvalidArgs, ConfigureError("sso_check_alive", "{'accept': <int32 0>, 'x': <1>}"));
    EXPECT_EQ(1, client_.RequestSimple("sso_check_alive").Int());
    // And the harness reports the refusal.
    ssotest::Behaviour b;
    b.accept = 0;
    EXPECT_THROW(sim_.Configure("sso_nope", b), std::runtime_error);
}

TEST_F(SimControl, ConfigureMergesIntoWhatWasScripted)
{
    ssotest::Behaviour result;
    result.result = 5;
    sim_.Configure("sso_request_auth_code", result);
    ssotest::Behaviour payload;
    payload.payloads = std::vector<std::string>{"AC-merged"};
    sim_.Configure("sso_request_auth_code", payload);
    ExpectDelivery("sso_request_auth_code", 5, "auth_code", "AC-merged");
}

TEST_F(SimControl, StarScriptsEveryMethodAndAMethodsOwnScriptingWins)
{
    ssotest::Behaviour refuse;
    refuse.accept = 0;
    sim_.Configure("*", refuse);
    EXPECT_EQ(0, client_.RequestSimple("sso_check_alive").Int());
    EXPECT_EQ(0, client_.RequestSimple("sso_request_access_token").Int());
    ssotest::Behaviour accept;
    accept.accept = 1;
    sim_.Configure("sso_request_access_token", accept);
    EXPECT_EQ(1, client_.RequestSimple("sso_request_access_token").Int());
    EXPECT_EQ(0, client_.RequestSimple("sso_check_alive").Int());
    sim_.ResetMethod("*");
    EXPECT_EQ(1, client_.RequestSimple("sso_check_alive").Int());
}

TEST_F(SimControl, StarFieldsCombineWithAMethodsOtherFields)
{
    ssotest::Behaviour star;
    star.result = 9;
    sim_.Configure("*", star);
    ssotest::Behaviour own;
    own.payloads = std::vector<std::string>{"AT-own"};
    sim_.Configure("sso_request_access_token", own);
    ExpectDelivery("sso_request_access_token", 9, "access_token", "AT-own");
}

TEST_F(SimControl, ResetMethodForgetsOnlyThatMethod)
{
    ssotest::Behaviour refuse;
    refuse.accept = 0;
    sim_.Configure("sso_check_alive", refuse);
    sim_.Configure("sso_reset", refuse);
    sim_.ResetMethod("sso_check_alive");
    EXPECT_EQ(1, client_.RequestSimple("sso_check_alive").Int());
    EXPECT_EQ(0, client_.RequestSimple("sso_reset").Int());
}

TEST_F(SimControl, ResetRestoresDefaultsAndClearsJournalAndDeliveries)
{
    ssotest::Behaviour refuse;
    refuse.accept = 0;
    sim_.Configure("*", refuse);
    sim_.Configure("sso_check_alive", refuse);
    ssotest::Behaviour accept;
    accept.accept = 1;
    sim_.Configure("sso_request_access_token", accept);
    EXPECT_EQ(1, client_.RequestSimple("sso_request_access_token").Int());
    ASSERT_TRUE(sim_.WaitForDeliveries(1));
    sim_.Reset();
    EXPECT_TRUE(sim_.Journal().empty());
    EXPECT_TRUE(sim_.Deliveries().empty());
    EXPECT_EQ(1, client_.RequestSimple("sso_check_alive").Int());
    EXPECT_EQ(1, client_.RequestSimple("sso_reset").Int());
    EXPECT_EQ(2u, sim_.Journal().size());
}

TEST_F(SimControl, ClearJournalAndClearDeliveriesAreIndependent)
{
    EXPECT_EQ(1, client_.RequestSimple("sso_request_access_token").Int());
    ASSERT_TRUE(sim_.WaitForDeliveries(1));
    sim_.ClearJournal();
    EXPECT_TRUE(sim_.Journal().empty());
    EXPECT_EQ(1u, sim_.Deliveries().size());
    EXPECT_EQ(1, client_.RequestSimple("sso_check_alive").Int());
    sim_.ClearDeliveries();
    EXPECT_TRUE(sim_.Deliveries().empty());
    ASSERT_EQ(1u, sim_.Journal().size());
    EXPECT_EQ("sso_check_alive", sim_.Journal()[0].method);
}

TEST_F(SimControl, WaitForJournalAndDeliveriesTimeOutWhenNothingComes)
{
    EXPECT_FALSE(sim_.WaitForJournal(1, std::chrono::milliseconds(50)));
    EXPECT_FALSE(sim_.WaitForDeliveries(1, std::chrono::milliseconds(50)));
}

// ---- signals ----

TEST_F(SimControl, EmitSignalReachesASubscriber)
{
    sim_.EmitSignal("LoginStatusChanged", "(1, 'user-1', int64 7)");
    sim_.EmitSignal("Reset");
    ASSERT_TRUE(client_.WaitForSignals(2));
    const auto signals = client_.Signals();
    EXPECT_EQ(ssotest::kSsoSignalPath, signals[0].path);
    EXPECT_EQ(ssotest::kSsoSignalInterface, signals[0].interface);
    EXPECT_EQ("LoginStatusChanged", signals[0].member);
    EXPECT_EQ("(1, 'user-1', int64 7)", signals[0].text);
    EXPECT_EQ("Reset", signals[1].member);
    EXPECT_EQ("()", signals[1].text);
}

TEST_F(SimControl, EmitSignalRefusesBadNamesAndArguments)
{
    EXPECT_EQ(kInvalidArgs, ControlError("EmitSignal", g_variant_new("(ss)", "Bad.Name", "()")));
    EXPECT_EQ(kInvalidArgs, ControlError("EmitSignal", g_variant_new("(ss)", "Ok", "(1,")));
    EXPECT_EQ(kInvalidArgs, ControlError("EmitSignal", g_variant_new("(ss)", "Ok", "1")));
}

// ---- calls into clients ----

TEST_F(SimControl, CallClientReachesTheClientWithTheGivenArguments)
{
    const std::string args = "('" + sim_.ObjectName() +
                             "', int64 1, int64 999, 'AT-stale', 0, int64 2, 0, "
                             "'sso_request_access_token')";
    EXPECT_EQ("", sim_.CallClient(client_.bus_name(), "sso_request_access_token", args));
    const auto calls = client_.Calls();
    ASSERT_EQ(1u, calls.size()) << "the call completes once the client replied";
    EXPECT_EQ("sso_request_access_token", calls[0].method);
    EXPECT_EQ(args, calls[0].text);
    // Not a result delivery.
    EXPECT_TRUE(sim_.Deliveries().empty());
}

TEST_F(SimControl, CallClientReportsTheClientsErrors)
{
    std::string e = sim_.CallClient(client_.bus_name(), "sso_no_such_callback", "()");
    EXPECT_EQ(0u, e.find("org.freedesktop.DBus.Error.UnknownMethod")) << e;
    e = sim_.CallClient(client_.bus_name(), "sso_request_access_token", "('too short',)");
    EXPECT_EQ(0u, e.find("org.freedesktop.DBus.Error.InvalidArgs")) << e;
    e = sim_.CallClient(ssotest::kSsoClientNamePrefix + std::string("obj1_nobody"),
                        "sso_request_access_token", "()");
    EXPECT_FALSE(e.empty());
    EXPECT_NE(std::string::npos, e.find("org.freedesktop.DBus.Error.")) << e;
    EXPECT_TRUE(client_.Calls().empty());
}

TEST_F(SimControl, CallClientReportsMalformedInputAsItsResult)
{
    for (const auto &[bus, member, args] :
         std::vector<std::tuple<std::string, std::string, std::string>>{
             {"not a bus name", "m", "()"},
             {"org.orvex.tv.ssoservice.ssoclient.", "m", "()"},
             {":1.1", "sso_request_access_token", "()"},
             {client_.bus_name(), "bad.member", "()"},
             {client_.bus_name(), "sso_request_access_token", "('x'"},
             {client_.bus_name(), "sso_request_access_token", "'not a tuple'"},
         }) {
        const std::string e = sim_.CallClient(bus, member, args);
        EXPECT_EQ(0u, e.find("org.freedesktop.DBus.Error.InvalidArgs: ")) << e;
    }
    EXPECT_TRUE(client_.Calls().empty());
}

TEST_F(SimControl, ControlCallsArentJournaled)
{
    sim_.ObjectName();
    sim_.Deliveries();
    sim_.EmitSignal("Nothing");
    EXPECT_TRUE(sim_.Journal().empty());
}

} // namespace
