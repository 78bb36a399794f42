// Requests as a client sends them: answers, result deliveries of every shape,
// and each scriptable behaviour.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "sim_fixture.h"
#include "sso_simulator_harness.h"

namespace {

using simtest::Clock;
using simtest::Int32Arg;
using simtest::Int64Arg;
using simtest::RecordedCall;
using simtest::Reply;
using simtest::RequestValues;
using simtest::SimTest;
using simtest::StringArg;
using std::chrono::milliseconds;

class SimRequests : public SimTest {
protected:
    // Most requests need someone signed in to succeed.
    void SignInSomeone()
    {
        ssotest::AccountSpec s;
        s.login_id = "river@example.com";
        s.first_name = "River";
        s.last_name = "Song";
        sim_.SignIn(sim_.AddAccount(s));
    }
};

long long Ms(Clock::duration d)
{
    return std::chrono::duration_cast<milliseconds>(d).count();
}

// Waits for the one result of the request answered by r and expects it
// delivered no sooner than ms after the request went out, nor before the
// answer.
void ExpectResultAfter(simtest::FakeClient &client, const Reply &r, long long ms)
{
    ASSERT_TRUE(client.WaitForCalls(1));
    const auto call = client.Calls().at(0);
    EXPECT_GE(Ms(call.at - r.sent), ms);
    EXPECT_GE(call.at, r.at);
}

// The string arguments of a client method that carry payload (everything but
// obj_name and method_call), in order.
std::vector<std::string> PayloadArgNames(const std::string &client_method)
{
    std::vector<std::string> names;
    GDBusMethodInfo *info =
        g_dbus_interface_info_lookup_method(simtest::ClientInterface(), client_method.c_str());
    for (GDBusArgInfo **a = info->in_args; a && *a; ++a) {
        const std::string name = (*a)->name;
        if (std::string((*a)->signature) == "s" && name != "obj_name" && name != "method_call")
            names.push_back(name);
    }
    return names;
}

// ---- the ordinary asynchronous path ----

TEST_F(SimRequests, AnAsyncRequestIsAcceptedThenItsResultDelivered)
{
    SignInSomeone();
    RequestValues v;
    v.callback = 0x55aa00112233;
    v.request_id = 77;
    v.user_data = -5;
    v.ae_index = 9;
    Reply r = client_.RequestAsync("sso_request_access_token", "sso_request_access_token", v);
    ASSERT_TRUE(r.ok()) << r.error_name;
    EXPECT_EQ(1, r.Int());
    ASSERT_TRUE(client_.WaitForCalls(1));
    const RecordedCall call = client_.Calls().at(0);
    EXPECT_EQ("sso_request_access_token", call.method);
    const std::string obj_name = StringArg(call, "obj_name");
    EXPECT_EQ(sim_.ObjectName(), obj_name);
    EXPECT_NE(std::string::npos, obj_name.find("obj" + std::to_string(sim_.pid())));
    EXPECT_EQ(v.callback, Int64Arg(call, "request_access_token_cb"));
    EXPECT_EQ(77, Int64Arg(call, "request_id"));
    EXPECT_EQ(-5, Int64Arg(call, "user_data"));
    EXPECT_EQ(9, Int32Arg(call, "ae_index"));
    EXPECT_EQ("sso_request_access_token", StringArg(call, "method_call"));
    EXPECT_EQ(0, Int32Arg(call, "result"));
    // Sent by the process that owns the service name.
    GVariant *owner = g_dbus_connection_call_sync(
        client_.connection(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
        "org.freedesktop.DBus", "GetNameOwner", g_variant_new("(s)", ssotest::kSsoServiceName),
        G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
    ASSERT_NE(nullptr, owner);
    const gchar *unique = nullptr;
    g_variant_get(owner, "(&s)", &unique);
    EXPECT_EQ(unique, call.sender);
    g_variant_unref(owner);

    const auto deliveries = sim_.Deliveries();
    ASSERT_EQ(1u, deliveries.size());
    EXPECT_EQ(client_.unique_name(), deliveries[0].destination);
    EXPECT_EQ("sso_request_access_token", deliveries[0].method);
    EXPECT_EQ(call.text, deliveries[0].args);
}

TEST_F(SimRequests, TheResultGoesToTheClientMethodNamedByMethodCallNotTheRequest)
{
    Reply r = client_.RequestAsync("sso_request_partner_auth_info", "sso_return_partner_auth_info");
    EXPECT_EQ(1, r.Int());
    ASSERT_TRUE(client_.WaitForCalls(1));
    EXPECT_EQ("sso_return_partner_auth_info", client_.Calls().at(0).method);
}

TEST_F(SimRequests, ACallbackAfterAFlagIsFoundAsTheFirstInt64)
{
    // (ssssixxxis): the flag precedes the callback.
    RequestValues v;
    v.callback = 123456789;
    EXPECT_EQ(1, client_
                     .RequestAsync("sso_generate_token_with_authcode_dsc_deleteFlag",
                                   "sso_generate_token_with_authcode_dsc_deleteFlag", v)
                     .Int());
    // (ssssxixxis): the flag follows it.
    v.callback = 987654;
    v.request_id = 43;
    EXPECT_EQ(1, client_
                     .RequestAsync("sso_generate_token_with_authcode_dsc",
                                   "sso_generate_token_with_authcode_dsc", v)
                     .Int());
    ASSERT_TRUE(client_.WaitForCalls(2));
    const auto calls = client_.Calls();
    EXPECT_EQ(123456789, Int64Arg(calls[0], "sso_token_with_authcode_for_AI_SPK_cb"));
    EXPECT_EQ(42, Int64Arg(calls[0], "request_id"));
    EXPECT_EQ(987654, Int64Arg(calls[1], "sso_token_with_authcode_cb"));
    EXPECT_EQ(43, Int64Arg(calls[1], "request_id"));
}

// ---- every client method's shape ----

struct ShapeCase {
    const char *client_method; // method_call, the client method that receives the result
    const char *request;       // a server method that leads to it
};

// One row per client method.
const ShapeCase kShapes[] = {
    {"sso_request_access_token", "sso_request_access_token"},
    {"sso_request_access_token_using_authcode", "sso_request_access_token_using_authcode"},
    {"sso_request_auth_code", "sso_request_auth_code"},
    {"sso_request_authcode_with_ID_PWD", "sso_request_authcode_with_ID_PWD"},
    {"sso_request_auth_code_for_effortless_login", "sso_request_auth_code_for_effortless_login"},
    {"sso_request_user_authcode_with_dsc", "sso_request_user_authcode_with_dsc"},
    {"sso_request_authcode_for_other_device", "sso_request_authcode_for_other_device"},
    {"sso_request_service_auth_code", "sso_request_device_authcode"},
    {"RESULT_sso_service_request_whitelist_accesstoken",
     "sso_service_request_whitelist_accesstoken"},
    {"sso_register_account", "sso_register_account"},
    {"sso_switch_account", "sso_switch_account"},
    {"sso_switch_account_by_guid", "sso_switch_account_by_guid"},
    {"sso_switch_account_with_usertoken", "sso_switch_account_with_usertoken"},
    {"sso_verify_password", "sso_verify_password"},
    {"sso_request_reset_passwd", "sso_request_reset_passwd"},
    {"sso_perform_logout", "sso_perform_logout"},
    {"sso_request_account_list", "sso_request_account_list"},
    {"sso_generate_token_with_authcode_dsc_deleteFlag",
     "sso_generate_token_with_authcode_dsc_deleteFlag"},
    {"sso_generate_token_with_authcode_dsc", "sso_generate_token_with_authcode_dsc"},
    {"sso_generate_token_with_ID_PWD", "sso_generate_token_with_ID_PWD"},
    {"sso_identify_current_user_info", "sso_identify_current_user_info"},
    {"sso_get_user_info", "sso_get_user_info"},
    {"sso_get_user_info_v4", "sso_get_user_info_v4"},
    {"sso_get_namecheck_auth_info", "sso_get_namecheck_auth_info"},
    {"sso_set_passfw", "sso_set_passfw"},
    {"sso_get_dynamic_my_account_list", "sso_get_dynamic_my_account_list"},
    {"sso_get_cp_account_mapping_list", "sso_request_user_authcode"},
    {"sso_add_cp_account_mapping_info", "sso_request_user_authcode"},
    {"sso_remove_cp_account_mapping_info", "sso_request_user_authcode"},
    {"sso_return_partner_auth_info", "sso_request_partner_auth_info"},
    {"sso_request_user_authcode_with_challenge", "sso_request_user_authcode_with_challenge"},
    {"sso_request_user_authcode_with_verifier", "sso_request_user_authcode_with_verifier"},
    {"sso_get_user_family_group", "sso_get_user_family_group"},
    {"sso_get_user_group_users", "sso_get_user_group_users"},
};

void PrintTo(const ShapeCase &c, std::ostream *os)
{
    *os << c.request << " -> " << c.client_method;
}

TEST(SimShapes, TheTableCoversEveryClientMethodOnce)
{
    std::set<std::string> table;
    for (const auto &c : kShapes)
        EXPECT_TRUE(table.insert(c.client_method).second) << c.client_method;
    const auto names = simtest::MethodNames(simtest::ClientInterface());
    EXPECT_EQ(34u, names.size());
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()), table);
}

class SimShape : public SimTest, public ::testing::WithParamInterface<ShapeCase> {};

// The delivery must fit the client method exactly (the fake client exports the
// client XML, so GDBus there refuses anything else), with every field in its
// named place.
TEST_P(SimShape, DeliveryFollowsTheClientMethodArgumentByArgument)
{
    const ShapeCase &c = GetParam();
    const std::vector<std::string> payload_args = PayloadArgNames(c.client_method);
    std::vector<std::string> payloads;
    for (std::size_t i = 0; i < payload_args.size(); ++i)
        payloads.push_back("payload-" + std::to_string(i) + "-" + payload_args[i]);
    ssotest::Behaviour b;
    b.result = 17;
    b.payloads = payloads;
    sim_.Configure(c.request, b);

    RequestValues v;
    v.callback = 0x600d0000ca11;
    v.request_id = 4242;
    v.user_data = 0x5eed;
    v.ae_index = 2;
    Reply r = client_.RequestAsync(c.request, c.client_method, v);
    ASSERT_TRUE(r.ok()) << r.error_name << ": " << r.error_message;
    EXPECT_EQ(1, r.Int());
    ASSERT_TRUE(client_.WaitForCalls(1))
        << "no delivery; simulator deliveries: " << sim_.Deliveries().size();
    const RecordedCall call = client_.Calls().at(0);
    EXPECT_EQ(c.client_method, call.method);

    GDBusMethodInfo *info =
        g_dbus_interface_info_lookup_method(simtest::ClientInterface(), c.client_method);
    ASSERT_NE(nullptr, info);
    ASSERT_EQ(std::string("(") + simtest::InSignature(info) + ")",
              g_variant_get_type_string(call.args.get()));
    // The callback is the second argument whatever its name.
    EXPECT_EQ(v.callback, Int64Arg(call, info->in_args[1]->name));
    EXPECT_EQ(sim_.ObjectName(), StringArg(call, "obj_name"));
    EXPECT_EQ(v.request_id, Int64Arg(call, "request_id"));
    EXPECT_EQ(v.user_data, Int64Arg(call, "user_data"));
    EXPECT_EQ(v.ae_index, Int32Arg(call, "ae_index"));
    EXPECT_EQ(c.client_method, StringArg(call, "method_call"));
    EXPECT_EQ(17, Int32Arg(call, "result"));
    for (std::size_t i = 0; i < payload_args.size(); ++i)
        EXPECT_EQ(payloads[i], StringArg(call, payload_args[i])) << payload_args[i];
}

INSTANTIATE_TEST_SUITE_P(EveryClientMethod, SimShape, ::testing::ValuesIn(kShapes),
                         [](const ::testing::TestParamInfo<ShapeCase> &info) {
                             std::string name = info.param.client_method;
                             std::replace_if(
                                 name.begin(), name.end(),
                                 [](char ch) {
                                     return !std::isalnum(static_cast<unsigned char>(ch));
                                 },
                                 '_');
                             return name;
                         });

// ---- default payloads ----

TEST_F(SimRequests, UnscriptedPayloadsLookLikeTheRealThing)
{
    SignInSomeone();
    ASSERT_EQ(1, client_.RequestSimple("sso_request_access_token").Int());
    ASSERT_EQ(1, client_.RequestSimple("sso_request_auth_code").Int());
    ASSERT_EQ(1, client_.RequestSimple("sso_register_account").Int());
    ASSERT_EQ(1, client_.RequestSimple("sso_identify_current_user_info").Int());
    ASSERT_EQ(1, client_.RequestSimple("sso_get_user_info").Int());
    ASSERT_EQ(1, client_.RequestSimple("sso_get_namecheck_auth_info").Int());
    ASSERT_TRUE(client_.WaitForCalls(6));
    const auto calls = client_.Calls();
    for (const auto &call : calls)
        EXPECT_EQ(0, Int32Arg(call, "result")) << call.method;

    // Opaque tokens: a prefix and 24 random bytes in unpadded base64url.
    const std::string base64url =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    const std::string token = StringArg(calls[0], "access_token");
    EXPECT_EQ(35u, token.size()) << token;
    EXPECT_EQ(0u, token.find("AT.")) << token;
    EXPECT_EQ(std::string::npos, token.find_first_not_of(base64url, 3)) << token;
    const std::string code = StringArg(calls[1], "auth_code");
    EXPECT_EQ(0u, code.find("AC.")) << code;
    EXPECT_EQ(std::string::npos, code.find_first_not_of(base64url, 3)) << code;
    EXPECT_EQ(35u, code.size()) << code;
    // The fake client registers "s1" (the account id field).
    EXPECT_NE(std::string::npos,
              StringArg(calls[2], "response_data").find("\"account_id\":\"s1\""));
    EXPECT_EQ("19900101", StringArg(calls[3], "birthday"));
    EXPECT_EQ(0u, StringArg(calls[3], "identify_url").find("https://"));
    EXPECT_FALSE(StringArg(calls[4], "user_id").empty());
    EXPECT_EQ(8u, StringArg(calls[4], "birth_date").size());
    EXPECT_EQ("River", StringArg(calls[4], "first_name"));
    EXPECT_FALSE(StringArg(calls[5], "age").empty());
    EXPECT_EQ(0u, StringArg(calls[5], "check_url").find("https://"));
}

TEST_F(SimRequests, TwoTokensAreNotTheSame)
{
    SignInSomeone();
    ASSERT_EQ(1, client_.RequestSimple("sso_request_access_token").Int());
    ASSERT_EQ(1, client_.RequestSimple("sso_request_access_token").Int());
    ASSERT_TRUE(client_.WaitForCalls(2));
    const auto calls = client_.Calls();
    EXPECT_NE(StringArg(calls[0], "access_token"), StringArg(calls[1], "access_token"));
}

TEST_F(SimRequests, FewerScriptedPayloadsThanArgumentsLeaveTheRestDefault)
{
    SignInSomeone();
    ssotest::Behaviour b;
    b.payloads = std::vector<std::string>{"id-9", "Dr"};
    sim_.Configure("sso_get_user_info", b);
    ASSERT_EQ(1, client_.RequestSimple("sso_get_user_info").Int());
    ASSERT_TRUE(client_.WaitForCalls(1));
    const auto call = client_.Calls().at(0);
    EXPECT_EQ("id-9", StringArg(call, "user_id"));
    EXPECT_EQ("Dr", StringArg(call, "prefix_name"));
    EXPECT_EQ("19900101", StringArg(call, "birth_date"));
}

// ---- refusals and non-deliveries ----

TEST_F(SimRequests, AMethodCallThatIsNoClientMethodIsAnsweredButNotDelivered)
{
    Reply r = client_.RequestAsync("sso_request_access_token", "sso_no_such_callback");
    EXPECT_EQ(1, r.Int());
    Barrier();
    EXPECT_EQ(1u, client_.Calls().size()); // the barrier's only
    EXPECT_EQ(1u, sim_.Deliveries().size());
    EXPECT_EQ(2u, sim_.Journal().size());
    EXPECT_EQ(1u, log().LinesWith({"sso_no_such_callback", "nothing delivered"}).size());
}

TEST_F(SimRequests, AcceptZeroAnswersZeroAndDeliversNothing)
{
    ssotest::Behaviour b;
    b.accept = 0;
    sim_.Configure("sso_request_auth_code", b);
    EXPECT_EQ(0, client_.RequestSimple("sso_request_auth_code").Int());
    Barrier();
    EXPECT_EQ(1u, client_.Calls().size());
}

TEST_F(SimRequests, AnyAcceptOtherThanOneIsARefusal)
{
    ssotest::Behaviour b;
    b.accept = -3;
    sim_.Configure("sso_request_auth_code", b);
    EXPECT_EQ(-3, client_.RequestSimple("sso_request_auth_code").Int());
    Barrier();
    EXPECT_EQ(1u, client_.Calls().size());
}

TEST_F(SimRequests, ScriptedResultAndPayloadArriveUnchanged)
{
    ssotest::Behaviour b;
    b.result = -14;
    b.payloads = std::vector<std::string>{"AT-scripted \"quoted\" \xc3\xa9"};
    sim_.Configure("sso_request_access_token", b);
    EXPECT_EQ(1, client_.RequestSimple("sso_request_access_token").Int());
    ASSERT_TRUE(client_.WaitForCalls(1));
    const auto call = client_.Calls().at(0);
    EXPECT_EQ(-14, Int32Arg(call, "result"));
    EXPECT_EQ("AT-scripted \"quoted\" \xc3\xa9", StringArg(call, "access_token"));
}

TEST_F(SimRequests, DropResultAnswersButNeverDelivers)
{
    ssotest::Behaviour b;
    b.drop_result = true;
    sim_.Configure("sso_request_access_token", b);
    EXPECT_EQ(1, client_.RequestSimple("sso_request_access_token").Int());
    Barrier();
    EXPECT_EQ(1u, client_.Calls().size());
    EXPECT_EQ(1u, sim_.Deliveries().size());
}

TEST_F(SimRequests, AScriptedErrorIsTheAnswerAndNothingIsDelivered)
{
    ssotest::Behaviour b;
    b.error = "org.orvex.tv.Error.Busy";
    sim_.Configure("sso_request_access_token", b);
    Reply r = client_.RequestSimple("sso_request_access_token");
    EXPECT_FALSE(r.ok());
    EXPECT_EQ("org.orvex.tv.Error.Busy", r.error_name);
    Barrier();
    EXPECT_EQ(1u, client_.Calls().size());
    // The request itself was received.
    EXPECT_EQ("sso_request_access_token", sim_.Journal().at(0).method);
}

TEST_F(SimRequests, AnEmptyErrorNameTurnsTheErrorOffAgain)
{
    ssotest::Behaviour b;
    b.error = "org.orvex.tv.Error.Busy";
    sim_.Configure("sso_check_alive", b);
    EXPECT_FALSE(client_.RequestSimple("sso_check_alive").ok());
    b.error = "";
    sim_.Configure("sso_check_alive", b);
    EXPECT_EQ(1, client_.RequestSimple("sso_check_alive").Int());
}

TEST_F(SimRequests, NoAnswerLeavesTheCallerToItsOwnTimeout)
{
    ssotest::Behaviour b;
    b.no_answer = true;
    sim_.Configure("sso_request_access_token", b);
    Reply r = client_.RequestSimple("sso_request_access_token", 300);
    EXPECT_FALSE(r.ok());
    EXPECT_TRUE(r.timed_out) << r.error_name << " " << r.error_message;
    EXPECT_GE(Ms(r.at - r.sent), 250);
    // Still serving, and nothing was delivered for the unanswered request.
    Barrier();
    EXPECT_EQ(1u, client_.Calls().size());
    EXPECT_EQ(2u, sim_.Journal().size());
}

// ---- timing ----

TEST_F(SimRequests, AnswerDelayHoldsTheAnswerBack)
{
    ssotest::Behaviour b;
    b.answer_delay_ms = 300;
    sim_.Configure("sso_check_alive", b);
    Reply r = client_.RequestSimple("sso_check_alive");
    EXPECT_EQ(1, r.Int());
    EXPECT_GE(Ms(r.at - r.sent), 300);
}

TEST_F(SimRequests, AnswerDelayDoesNotBlockOtherRequests)
{
    ssotest::Behaviour b;
    b.answer_delay_ms = 2000;
    sim_.Configure("sso_reset", b);
    // A second connection sends a slow request while we send a quick one.
    simtest::FakeClient other("obj" + std::to_string(getpid()) + "_other");
    other.Start();
    std::thread slow([&] { EXPECT_EQ(1, other.RequestSimple("sso_reset").Int()); });
    ASSERT_TRUE(sim_.WaitForJournal(1));
    Reply quick = client_.RequestSimple("sso_check_alive");
    EXPECT_EQ(1, quick.Int());
    EXPECT_LT(Ms(quick.at - quick.sent), 1500);
    slow.join();
}

TEST_F(SimRequests, ResultDelayDeliversThatLongAfterTheAnswer)
{
    ssotest::Behaviour b;
    b.result_delay_ms = 400;
    sim_.Configure("sso_request_access_token", b);
    Reply r = client_.RequestSimple("sso_request_access_token");
    EXPECT_EQ(1, r.Int());
    EXPECT_TRUE(client_.Calls().empty()) << "delivered before the delay";
    ExpectResultAfter(client_, r, 400);
}

TEST_F(SimRequests, AnswerAndResultDelaysAddUp)
{
    ssotest::Behaviour b;
    b.answer_delay_ms = 200;
    b.result_delay_ms = 300;
    sim_.Configure("sso_request_auth_code", b);
    Reply r = client_.RequestSimple("sso_request_auth_code");
    EXPECT_EQ(1, r.Int());
    EXPECT_GE(Ms(r.at - r.sent), 200);
    ExpectResultAfter(client_, r, 500);
}

TEST_F(SimRequests, ResultsKeepTheirRequestsApartUnderDifferentDelays)
{
    ssotest::Behaviour slow;
    slow.result_delay_ms = 300;
    sim_.Configure("sso_request_access_token", slow);
    RequestValues first;
    first.request_id = 1;
    RequestValues second;
    second.request_id = 2;
    EXPECT_EQ(
        1,
        client_.RequestAsync("sso_request_access_token", "sso_request_access_token", first).Int());
    EXPECT_EQ(1,
              client_.RequestAsync("sso_request_auth_code", "sso_request_auth_code", second).Int());
    ASSERT_TRUE(client_.WaitForCalls(2));
    const auto calls = client_.Calls();
    // The quick one overtakes the delayed one.
    EXPECT_EQ(2, Int64Arg(calls[0], "request_id"));
    EXPECT_EQ(1, Int64Arg(calls[1], "request_id"));
}

// ---- synchronous controls and data reads ----

TEST_F(SimRequests, SynchronousControlsAreAnsweredAndNeverDelivered)
{
    for (const char *m : {"sso_check_alive", "sso_is_account_switching_available",
                          "sso_request_current_account_noti", "sso_reset"}) {
        Reply r = client_.Request(
            m, g_variant_new("(sxs)", client_.object_name().c_str(), static_cast<gint64>(1234), m));
        ASSERT_TRUE(r.ok()) << m << ": " << r.error_name;
        // Switching needs a second account to switch to.
        EXPECT_EQ(std::string(m) == "sso_is_account_switching_available" ? 0 : 1, r.Int()) << m;
    }
    ssotest::Behaviour refuse;
    refuse.accept = 0;
    sim_.Configure("sso_check_alive", refuse);
    EXPECT_EQ(0, client_.RequestSimple("sso_check_alive").Int());
    Barrier();
    EXPECT_EQ(1u, client_.Calls().size());
    EXPECT_EQ(1u, sim_.Deliveries().size());
}

TEST_F(SimRequests, DataReadsAnswerTheScriptedPayloadOrThePublishedState)
{
    // Unscripted, they answer what is published: no account, nobody signed in.
    EXPECT_EQ("{\"account_count\":0,\"list\":[]}",
              client_.RequestSimple("sso_get_public_account_data").String());
    EXPECT_EQ("", client_.RequestSimple("sso_get_extracted_application_data").String());
    ssotest::Behaviour b;
    b.payloads = std::vector<std::string>{"{\"id\":\"user-1\"}"};
    sim_.Configure("sso_get_public_account_data", b);
    b.payloads = std::vector<std::string>{"extracted"};
    sim_.Configure("sso_get_extracted_application_data", b);
    EXPECT_EQ("{\"id\":\"user-1\"}", client_.RequestSimple("sso_get_public_account_data").String());
    EXPECT_EQ("extracted", client_.RequestSimple("sso_get_extracted_application_data").String());
    Barrier();
    EXPECT_EQ(1u, client_.Calls().size());
}

TEST_F(SimRequests, DataReadsHonourErrorsAndDelays)
{
    ssotest::Behaviour b;
    b.error = "org.orvex.tv.Error.NotSignedIn";
    sim_.Configure("sso_get_public_account_data", b);
    EXPECT_EQ("org.orvex.tv.Error.NotSignedIn",
              client_.RequestSimple("sso_get_public_account_data").error_name);
    ssotest::Behaviour d;
    d.answer_delay_ms = 200;
    sim_.Configure("sso_get_extracted_application_data", d);
    Reply r = client_.RequestSimple("sso_get_extracted_application_data");
    EXPECT_EQ("", r.String());
    EXPECT_GE(Ms(r.at - r.sent), 200);
}

// ---- argument checking ----

TEST_F(SimRequests, WrongArgumentTypesAreRejectedBeforeTheJournal)
{
    Reply r = client_.Request("sso_check_alive",
                              g_variant_new("(sis)", client_.object_name().c_str(), 1, "x"));
    EXPECT_EQ("org.freedesktop.DBus.Error.InvalidArgs", r.error_name) << r.error_message;
    Reply missing =
        client_.Request("sso_request_access_token",
                        g_variant_new("(ssss)", client_.object_name().c_str(), "a", "b", "c"));
    EXPECT_EQ("org.freedesktop.DBus.Error.InvalidArgs", missing.error_name);
    Reply unknown = client_.Request("sso_no_such_method", g_variant_new("()"));
    EXPECT_EQ("org.freedesktop.DBus.Error.UnknownMethod", unknown.error_name);
    EXPECT_TRUE(sim_.Journal().empty());
    EXPECT_TRUE(sim_.Deliveries().empty());
}

// ---- journal ----

TEST_F(SimRequests, TheJournalRecordsSenderMethodAndTypedArgsInOrder)
{
    const std::string obj = client_.object_name();
    client_.Request("sso_check_alive",
                    g_variant_new("(sxs)", obj.c_str(), static_cast<gint64>(5), "sso_check_alive"));
    RequestValues v;
    v.callback = 11;
    v.request_id = 12;
    v.user_data = 13;
    v.ae_index = 2;
    client_.RequestAsync("sso_request_auth_code", "sso_request_auth_code", v);
    client_.RequestSimple("sso_get_public_account_data");
    const auto journal = sim_.Journal();
    ASSERT_EQ(3u, journal.size());
    for (const auto &e : journal)
        EXPECT_EQ(client_.unique_name(), e.sender);
    EXPECT_EQ("sso_check_alive", journal[0].method);
    EXPECT_EQ("('" + obj + "', int64 5, 'sso_check_alive')", journal[0].args);
    EXPECT_EQ("sso_request_auth_code", journal[1].method);
    EXPECT_EQ("('" + obj +
                  "', 's1', 's2', int64 11, int64 12, int64 13, 2, 'sso_request_auth_code')",
              journal[1].args);
    EXPECT_EQ("sso_get_public_account_data", journal[2].method);
}

TEST_F(SimRequests, ADeliveryToAClientThatIsGoneFailsQuietlyAndTheServiceCarriesOn)
{
    // The result goes to the connection that asked; this one is gone by
    // the time it is due.
    ssotest::Behaviour late;
    late.result_delay_ms = 300;
    sim_.Configure("sso_request_access_token", late);
    {
        simtest::FakeClient gone("obj" + std::to_string(getpid()) + "_gone");
        gone.Start();
        EXPECT_EQ(1,
                  gone.RequestAsync("sso_request_access_token", "sso_request_access_token").Int());
        gone.Stop();
    }
    ASSERT_TRUE(sim_.WaitForDeliveries(1));
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        return !log().LinesWith({"SSOSimulator", "delivery of", "failed"}).empty();
    }));
    Barrier();
    EXPECT_EQ(1u, client_.Calls().size());
}

TEST_F(SimRequests, AnObjectNameOfAnotherProcessIsRefusedAndNothingDelivered)
{
    // The client asks with names that are not its own process's: another
    // pid, no pid, no "obj" at all. Each is answered with the refusal and
    // gets no result, so no other client's callback is ever called.
    for (const std::string &name :
         {std::string("obj1_org.example.app"), std::string("9bad/name"),
          "obj" + std::to_string(getpid()) + "9_x", std::string("obj_x"), std::string("obj")}) {
        simtest::FakeClient other(name);
        Reply r = client_.Request("sso_request_access_token",
                                  other.BuildRequest("sso_request_access_token",
                                                     "sso_request_access_token", RequestValues{}));
        ASSERT_TRUE(r.ok()) << name << ": " << r.error_name;
        EXPECT_EQ(ssosim::kResultNotYourObject, r.Int()) << name;
    }
    // A read is refused with the service's error instead of data.
    simtest::FakeClient other("obj1_org.example.app");
    Reply data = client_.Request(
        "sso_get_public_account_data",
        g_variant_new("(sxs)", "obj1_org.example.app", gint64{1}, "sso_get_public_account_data"));
    EXPECT_EQ(ssosim::kErrorNotYourObject, data.error_name);
    Barrier();
    EXPECT_EQ(1u, sim_.Deliveries().size());
    EXPECT_EQ(1u, client_.Calls().size());
    EXPECT_TRUE(log().Contains("object name obj1_org.example.app is not the sender's; refused"));
}

TEST_F(SimRequests, ResultsGoToTheConnectionThatAskedNotToTheNameItsObjectMakes)
{
    // A connection that owns no client name at all still gets its result:
    // it goes to the connection that sent the request.
    simtest::FakeClient asker("obj" + std::to_string(getpid()) + "_asker");
    asker.StartWithoutName();
    EXPECT_EQ(1, asker.RequestAsync("sso_request_access_token", "sso_request_access_token").Int());
    ASSERT_TRUE(asker.WaitForCalls(1));
    EXPECT_EQ(asker.unique_name(), sim_.Deliveries().at(0).destination);
}

class SimRequestsWithoutSenderCheck : public SimRequests {
protected:
    void SetUp() override
    {
        ssotest::SimulatorTest::SetUp();
        sim_.Stop();
        sim_.StartWithArgs({"--no-sender-check"});
        client_.Start();
    }
};

TEST_F(SimRequestsWithoutSenderCheck, AServiceThatSkipsTheCheckAcceptsAnyNameButAnswersTheAsker)
{
    simtest::FakeClient other("obj1_org.example.app");
    Reply r = client_.Request("sso_request_access_token",
                              other.BuildRequest("sso_request_access_token",
                                                 "sso_request_access_token", RequestValues{}));
    EXPECT_EQ(1, r.Int());
    ASSERT_TRUE(client_.WaitForCalls(1));
    EXPECT_EQ(client_.unique_name(), sim_.Deliveries().at(0).destination);
}

} // namespace
