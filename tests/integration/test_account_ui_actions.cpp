// The account verification and PIN flows against the stand-in account UI
// program: what each request launches, how every reply maps to the caller's
// callback, and the refusals.
#include <json/json.h>

#include <atomic>

#include "account_ui_support.h"
#include "sso_api_private.h"

namespace {

using apptest::Extras;
using namespace uitest;

constexpr const char *kAccountId = "kim@example.com";

class Actions : public AccountUiTest {};

// ---- what each request launches ----

enum class Flow { Verification, Pin, SetupPin };

struct ActionCase {
    const char *name;
    Flow flow;
    int pinType;
    const char *appId;
    const char *action;
    const char *mode;
};

// Parameters print as their names.
void PrintTo(const ActionCase &c, std::ostream *os)
{
    *os << c.name;
}

class ActionLaunches : public AccountUiTest, public ::testing::WithParamInterface<ActionCase> {};

int Request(Flow flow, const char *accountId, sso_account_ui_result_cb cb, void *userData,
            int pinType)
{
    switch (flow) {
    case Flow::Verification:
        return sso_request_account_verification(accountId, cb, userData);
    case Flow::Pin:
        return sso_request_account_verification_using_pin(accountId, cb, userData, pinType);
    case Flow::SetupPin:
        return sso_request_account_setup_pin(accountId, cb, userData, pinType);
    }
    return -2;
}

TEST_P(ActionLaunches, SendsTheActionInTheLaunchMode)
{
    const ActionCase &c = GetParam();
    Script(c.appId, {"Result=Complete", "Response=Done"});
    int token = 0;
    int rc = -2;
    loop_.Run([&] { rc = Request(c.flow, kAccountId, RecordFirst, &token, c.pinType); });
    ASSERT_EQ(rc, 0);
    apptest::Record r = WaitForRecord(c.appId);
    EXPECT_EQ(r.Get("env.SSO_PLATFORM_APP_ID"), c.appId);
    EXPECT_EQ(r.Get("app_id"), c.appId);
    EXPECT_EQ(r.Get("caller"), "");
    EXPECT_EQ(r.Get("operation"), APP_CONTROL_OPERATION_DEFAULT);
    EXPECT_EQ(r.Get("launch_mode"), c.mode);
    EXPECT_EQ(r.RequestExtras(), (Extras{{"LAUNCH_TYPE", "Verification"},
                                         {"ACCOUNT_ID", kAccountId},
                                         {"ACTION", c.action}}));
    ASSERT_TRUE(FirstCalls().WaitForCount(1));
    auto calls = FirstCalls().All();
    EXPECT_EQ(calls[0].userData, &token);
    EXPECT_EQ(calls[0].result, 0);
    EXPECT_EQ(calls[0].thread, loop_.id());
    EXPECT_TRUE(log().Contains(std::string("strAppId(") + c.appId + ") strAccountID(" + kAccountId +
                               ") strAccountAction(" + c.action + ")"));
    EXPECT_TRUE(log().Contains(std::string("Succeed to launch [") + c.appId + "]"));
}

INSTANTIATE_TEST_SUITE_P(
    AllActions, ActionLaunches,
    ::testing::Values(
        ActionCase{"Verification", Flow::Verification, 0, kAccountApp, "Default", "single"},
        ActionCase{"PinType0IsDefaultUngrouped", Flow::Pin, 0, kPinApp, "Default", "single"},
        ActionCase{"PinType1", Flow::Pin, 1, kPinApp, "PINVerify", "group"},
        ActionCase{"PinType2", Flow::Pin, 2, kPinApp, "PINVerify_NAccount", "group"},
        ActionCase{"PinType3IsDefaultUngrouped", Flow::Pin, 3, kPinApp, "Default", "single"},
        ActionCase{"PinTypeMinus1IsDefault", Flow::Pin, -1, kPinApp, "Default", "single"},
        ActionCase{"SetupType0", Flow::SetupPin, 0, kPinApp, "PINSetup", "group"},
        ActionCase{"SetupType1", Flow::SetupPin, 1, kPinApp, "PINSetup_High", "group"},
        ActionCase{"SetupType2", Flow::SetupPin, 2, kPinApp, "PINSetup_NAccount", "group"},
        ActionCase{"SetupType9", Flow::SetupPin, 9, kPinApp, "PINSetup", "group"}),
    [](const ::testing::TestParamInfo<ActionCase> &info) { return std::string(info.param.name); });

// ---- how each reply reaches the callback ----

struct ReplyCase {
    const char *name;
    std::vector<std::string> script;
    int result;
    bool hasJson;         // false: empty text
    const char *member;   // "result" member
    const char *response; // "response" member
};

// Parameters print as their names.
void PrintTo(const ReplyCase &c, std::ostream *os)
{
    *os << c.name;
}

class ReplyMapping : public AccountUiTest, public ::testing::WithParamInterface<ReplyCase> {};

TEST_P(ReplyMapping, MapsTheReply)
{
    const ReplyCase &c = GetParam();
    Script(kPinApp, c.script);
    int token = 0;
    loop_.Run([&] {
        ASSERT_EQ(sso_request_account_verification_using_pin(kAccountId, RecordFirst, &token, 1),
                  0);
    });
    ASSERT_TRUE(FirstCalls().WaitForCount(1));
    auto calls = FirstCalls().All();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].userData, &token);
    EXPECT_EQ(calls[0].result, c.result);
    EXPECT_TRUE(calls[0].hasData);
    EXPECT_EQ(calls[0].thread, loop_.id());
    if (!c.hasJson) {
        EXPECT_EQ(calls[0].data, "");
        return;
    }
    Json::Value root;
    Json::CharReaderBuilder reader;
    std::string errors;
    std::istringstream in(calls[0].data);
    ASSERT_TRUE(Json::parseFromStream(reader, in, &root, &errors)) << calls[0].data;
    ASSERT_TRUE(root.isObject());
    EXPECT_EQ(root.size(), 2u);
    EXPECT_EQ(root["result"].asString(), c.member);
    EXPECT_EQ(root["response"].asString(), c.response);
}

INSTANTIATE_TEST_SUITE_P(
    AllRows, ReplyMapping,
    ::testing::Values(
        ReplyCase{"PinChangeAccount",
                  {"Result=PINComplete", "Response=PINChangeAccount"},
                  0,
                  true,
                  "change_account",
                  "PINChangeAccount"},
        ReplyCase{
            "PinSkip", {"Result=PINComplete", "Response=PINSkip"}, 0, true, "success", "PINSkip"},
        ReplyCase{"PinSuccess",
                  {"Result=PINComplete", "Response=PINSuccess"},
                  0,
                  true,
                  "success",
                  "PINSuccess"},
        ReplyCase{"PinVerification",
                  {"Result=PINComplete", "Response=PINVerification"},
                  0,
                  true,
                  "success",
                  "PINVerification"},
        ReplyCase{"PinVerificationMax",
                  {"Result=PINComplete", "Response=PINVerificationMax"},
                  0,
                  true,
                  "success",
                  "PINVerificationMax"},
        ReplyCase{
            "PinEmptyResponseFailed", {"Result=PINComplete", "Response="}, 0, true, "failed", ""},
        ReplyCase{"PinOtherResponseFailed",
                  {"Result=PINComplete", "Response=pinsuccess"},
                  0,
                  true,
                  "failed",
                  "pinsuccess"},
        ReplyCase{
            "Complete", {"Result=Complete", "Response=Anything"}, 0, true, "success", "Anything"},
        ReplyCase{
            "LoginDoneEmptyResponse", {"Result=LoginDone", "Response="}, 0, true, "success", ""},
        ReplyCase{"LowerCaseComplete",
                  {"Result=complete", "Response=PINSuccess"},
                  -1,
                  true,
                  "failed",
                  "PINSuccess"},
        ReplyCase{
            "EmptyResult", {"Result=", "Response=PINSuccess"}, -1, true, "failed", "PINSuccess"},
        ReplyCase{"UnknownResult", {"Result=Cancel", "Response=x"}, -1, true, "failed", "x"},
        ReplyCase{"AppResultFailed",
                  {"Result=Complete", "Response=PINSuccess", "app_result=failed"},
                  -1,
                  false,
                  "",
                  ""},
        ReplyCase{"AppResultCancelled",
                  {"Result=Complete", "Response=PINSuccess", "app_result=cancelled"},
                  -1,
                  false,
                  "",
                  ""},
        ReplyCase{"MissingResult", {"Response=PINSuccess"}, -1, false, "", ""},
        ReplyCase{"MissingResponse", {"Result=Complete"}, -1, false, "", ""},
        ReplyCase{"NoReply", {"action=none"}, -1, false, "", ""},
        ReplyCase{"Crash", {"action=crash"}, -1, false, "", ""}),
    [](const ::testing::TestParamInfo<ReplyCase> &info) { return std::string(info.param.name); });

TEST_F(Actions, ReplyJsonIsTheDefaultStreamWriterWithRawUtf8)
{
    Script(kPinApp, {"Result=PINComplete", "Response=Gr%C3%BC%C3%9Fe \"q\""});
    loop_.Run(
        [&] { ASSERT_EQ(sso_request_account_setup_pin(kAccountId, RecordFirst, nullptr, 0), 0); });
    ASSERT_TRUE(FirstCalls().WaitForCount(1));
    auto calls = FirstCalls().All();
    EXPECT_EQ(calls[0].result, 0);
    EXPECT_EQ(calls[0].userData, nullptr);
    EXPECT_EQ(calls[0].data, "{\n\t\"response\" : \"Gr\xC3\xBC\xC3\x9F"
                             "e \\\"q\\\"\",\n\t\"result\" : \"failed\"\n}");
    EXPECT_TRUE(log().Contains("Input user data is null."));
    EXPECT_TRUE(log().Contains("result is [PINComplete]."));
    EXPECT_TRUE(log().Contains("strReplyResult is [0]."));
}

TEST_F(Actions, FailedReplyLogsAndGivesAnEmptyText)
{
    Script(kPinApp, {"app_result=cancelled"});
    loop_.Run(
        [&] { ASSERT_EQ(sso_request_account_setup_pin(kAccountId, RecordFirst, nullptr, 1), 0); });
    ASSERT_TRUE(FirstCalls().WaitForCount(1));
    EXPECT_TRUE(log().Contains("[m_SendCallback] APP_CONTROL_RESULT_FAILED."));
    EXPECT_TRUE(log().Contains("[START] s_account_action_finished_cb. replyResult [-1]"));
    EXPECT_TRUE(log().Contains("[END] s_account_action_finished_cb. replyResult [-1]"));
}

TEST_F(Actions, MissingExtrasAreLogged)
{
    Script(kPinApp, {"Result=Complete"});
    loop_.Run(
        [&] { ASSERT_EQ(sso_request_account_setup_pin(kAccountId, RecordFirst, nullptr, 1), 0); });
    ASSERT_TRUE(FirstCalls().WaitForCount(1));
    EXPECT_TRUE(log().Contains("Failed to get Response from callee."));
}

// ---- launch failures and refusals ----

TEST_F(Actions, LaunchFailureReportsTwice)
{
    ASSERT_EQ(app_control_unregister_app(kPinApp), APP_CONTROL_ERROR_NONE);
    int token = 0;
    int rc = -2;
    size_t callsAtReturn = 0;
    loop_.Run([&] {
        rc = sso_request_account_setup_pin(kAccountId, RecordFirst, &token, 1);
        callsAtReturn = FirstCalls().Count();
    });
    EXPECT_EQ(rc, -1);
    ASSERT_EQ(callsAtReturn, 1u);
    auto calls = FirstCalls().All();
    EXPECT_EQ(calls[0].userData, &token);
    EXPECT_EQ(calls[0].result, -1);
    EXPECT_TRUE(calls[0].hasData);
    EXPECT_EQ(calls[0].data, "");
    EXPECT_EQ(calls[0].thread, loop_.id());
    EXPECT_TRUE(log().Contains("Fail to launch [com.veltra.tv.CSAccountPIN]. ret("));
    EXPECT_TRUE(log().Contains("retValue is SSO_FALSE"));
    EXPECT_TRUE(log().Contains("[START] s_account_action_finished_cb. result [-1]"));
    EXPECT_TRUE(log().Contains("[END] s_account_action_finished_cb. result [-1]"));
}

TEST_F(Actions, UnknownAppIdReportsTwice)
{
    int rc = -2;
    loop_.Run([&] {
        rc = sso_private_request_account_action("org.orvex.test.no_such_app", kAccountId,
                                                RecordFirst, nullptr, "Default");
    });
    EXPECT_EQ(rc, -1);
    auto calls = FirstCalls().All();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].result, -1);
    EXPECT_EQ(calls[0].data, "");
}

TEST_F(Actions, NullAppIdMeansThePinApplication)
{
    Script(kPinApp, {"Result=LoginDone", "Response=x"});
    loop_.Run([&] {
        ASSERT_EQ(
            sso_private_request_account_action(nullptr, kAccountId, RecordFirst, nullptr, "Custom"),
            0);
    });
    apptest::Record r = WaitForRecord(kPinApp);
    EXPECT_EQ(r.Get("extra.ACTION"), "Custom");
    EXPECT_EQ(r.Get("launch_mode"), "group");
    ASSERT_TRUE(FirstCalls().WaitForCount(1));
    EXPECT_EQ(FirstCalls().All()[0].result, 0);
}

TEST_F(Actions, SignedOutIsRefusedWithoutCallback)
{
    for (int state : {0, 2}) {
        SetLoginState(state);
        loop_.Run([&] {
            EXPECT_EQ(sso_request_account_verification(kAccountId, RecordFirst, nullptr), -1);
            EXPECT_EQ(
                sso_request_account_verification_using_pin(kAccountId, RecordFirst, nullptr, 1),
                -1);
            EXPECT_EQ(sso_request_account_setup_pin(kAccountId, RecordFirst, nullptr, 1), -1);
        });
    }
    EXPECT_EQ(FirstCalls().Count(), 0u);
    EXPECT_EQ(log().Count("NOT Login State"), 6);
    EXPECT_FALSE(log().Contains("strAppId("));
}

TEST_F(Actions, NullArgumentsAreRefusedWithoutCallback)
{
    loop_.Run([&] {
        EXPECT_EQ(sso_request_account_verification(nullptr, RecordFirst, nullptr), -1);
        EXPECT_EQ(sso_request_account_verification(kAccountId, nullptr, nullptr), -1);
        EXPECT_EQ(sso_request_account_verification_using_pin(nullptr, RecordFirst, nullptr, 1), -1);
        EXPECT_EQ(sso_request_account_verification_using_pin(kAccountId, nullptr, nullptr, 1), -1);
        EXPECT_EQ(sso_request_account_setup_pin(nullptr, RecordFirst, nullptr, 1), -1);
        EXPECT_EQ(sso_request_account_setup_pin(kAccountId, nullptr, nullptr, 1), -1);
        EXPECT_EQ(
            sso_private_request_account_action(kPinApp, kAccountId, RecordFirst, nullptr, nullptr),
            -1);
    });
    EXPECT_EQ(FirstCalls().Count(), 0u);
    EXPECT_EQ(log().Count("accountid or account_action_cb or account_action is null"), 7);
    EXPECT_FALSE(log().Contains("NOT Login State"));
}

TEST_F(Actions, ANewerRequestTakesOverThePendingCallback)
{
    // The first request is answered; the second one's application never
    // answers. The one answer consumes the second callback, with the first
    // request's user data.
    Script(kAccountApp, {"Result=Complete", "Response=first"});
    Script(kPinApp, {"action=hang"});
    int first = 0;
    int second = 0;
    loop_.Run([&] {
        ASSERT_EQ(sso_request_account_verification(kAccountId, RecordFirst, &first), 0);
        ASSERT_EQ(sso_request_account_setup_pin(kAccountId, RecordSecond, &second, 1), 0);
    });
    ASSERT_TRUE(SecondCalls().WaitForCount(1));
    WaitForRecord(kPinApp);
    loop_.Run([] {});
    EXPECT_EQ(FirstCalls().Count(), 0u);
    auto calls = SecondCalls().All();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].userData, &first);
    EXPECT_EQ(calls[0].result, 0);
}

// A callback that starts the next flow from inside itself.
std::atomic<int> g_nestedReturn{-2};
int RequestAgainFromInside(void *userData, int result, char *data)
{
    g_nestedReturn = sso_request_account_setup_pin(kAccountId, RecordSecond, nullptr, 1);
    RecordFirst(userData, result, data);
    return 0;
}

TEST_F(Actions, TheSlotIsClearedAfterItsCallSoARequestMadeInsideIsNeverCalledBack)
{
    Script(kAccountApp, {"Result=Complete", "Response=first"});
    Script(kPinApp, {"Result=Complete", "Response=second"});
    g_nestedReturn = -2;
    loop_.Run([&] {
        ASSERT_EQ(sso_request_account_verification(kAccountId, RequestAgainFromInside, nullptr), 0);
    });
    ASSERT_TRUE(FirstCalls().WaitForCount(1));
    EXPECT_EQ(g_nestedReturn, 0);
    // The second application answers too; its reply finds the slot empty.
    WaitForDone(kPinApp);
    ASSERT_TRUE(ssotest::WaitUntil([&] { return log().Count("response is [second].") == 1; }));
    loop_.Run([] {});
    EXPECT_EQ(SecondCalls().Count(), 0u);
    EXPECT_EQ(FirstCalls().Count(), 1u);
}

} // namespace
