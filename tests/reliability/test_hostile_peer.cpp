// Other processes on the bus calling the library's client object: wrong
// argument types and shapes, object names that are not theirs, request ids of
// no current request, methods the object does not have or does not deliver.
// Each call is refused by GDBus or by the sender check, or answered and
// dropped; the application hears of none of them.
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "SSOAPIClientUtil.h"
#include "reliability_support.h"
#include "sso_api/sso_api.h"
#include "sso_api_proxy.h"
#include "../common/expected_results.h"

namespace {

using reliability::PointerText;
using reliability::ReceivedLog;
using reliability::RecordingCb;

constexpr char kAppId[] = "org.example.peer";

// What the peer sends, given the simulator's own object name (which passes
// the sender check from the simulator's process), the library's object name
// and its monitor thread id.
struct Target {
    std::string peerObj;
    std::string ownObj;
    long long tid = 0;
};

struct PeerCase {
    const char *name;
    const char *method;
    std::function<std::string(const Target &)> args;
    // The error the peer gets, as a part of its text; "" when answered.
    const char *error;
    // A line the library logs about the call ("" for none to look for).
    const char *logged;
};

void PrintTo(const PeerCase &c, std::ostream *os)
{
    *os << c.name;
}

int g_peerMarker;

std::string Cb()
{
    return "int64 " + PointerText(reinterpret_cast<const void *>(&RecordingCb));
}

std::string Ud()
{
    return "int64 " + PointerText(&g_peerMarker);
}

// A well-formed shape-0 result with the given object name and request id.
std::string Shape0(const std::string &obj, long long tid, const std::string &method,
                   const std::string &cb = Cb())
{
    return "('" + obj + "', " + cb + ", int64 " + std::to_string(tid) + ", 'AC.peer', 0, " + Ud() +
           ", 7, '" + method + "')";
}

// A well-formed shape-3 result (user data before the result).
std::string Shape3(const std::string &obj, long long tid, const std::string &method)
{
    return "('" + obj + "', " + Cb() + ", int64 " + std::to_string(tid) + ", " + Ud() +
           ", 0, 'mapping', 7, '" + method + "')";
}

// A well-formed result of shape (0 or 3) to a method on the interface that
// the method table does not name: answered, then dropped by the dispatcher.
PeerCase OffTheTable(const char *name, const char *method, int shape)
{
    return PeerCase{name, method,
                    [method, shape](const Target &t) {
                        return shape == 3 ? Shape3(t.peerObj, t.tid, method)
                                          : Shape0(t.peerObj, t.tid, method);
                    },
                    "", "clientMethodType is CLIENT_METHOD_NONE"};
}

class PeerTest : public reliability::AppTest<ssotest::SimulatorTest, kAppId> {
protected:
    void SetUp() override
    {
        AppTest::SetUp();
        ASSERT_EQ(sso_check_alive(), 0);
        target_.peerObj = sim_.ObjectName();
        target_.ownObj = SSOAPIClientUtil::GetDBusObjectName();
        target_.tid = SSOAPIClientUtil::GetDBusProxyThreadId();
        busName_ = SSO_CLIENT_BUS_NAME_PREFIX + target_.ownObj;
    }

    // A genuine result after the hostile calls: once it is in, everything
    // sent before it has been handled by the library's one thread.
    void Barrier()
    {
        static int barrier;
        std::string args = "('" + target_.peerObj + "', " + Cb() + ", int64 " +
                           std::to_string(target_.tid) + ", 'barrier', 0, int64 " +
                           PointerText(&barrier) + ", 8, 'sso_request_auth_code')";
        ssotest::ExpectResult("sso_request_auth_code", reinterpret_cast<const void *>(&RecordingCb),
                              &barrier);
        ASSERT_EQ(sim_.CallClient(busName_, "sso_request_auth_code", args), "");
        ASSERT_TRUE(ssotest::WaitUntil([] { return ReceivedLog::Get().CountFor(&barrier) == 1; }));
    }

    Target target_;
    std::string busName_;
};

class HostilePeer : public PeerTest, public ::testing::WithParamInterface<PeerCase> {};

TEST_P(HostilePeer, IsRefusedOrDroppedAndNothingReachesTheApplication)
{
    const PeerCase &c = GetParam();
    std::string error = sim_.CallClient(busName_, c.method, c.args(target_));
    if (c.error[0] == '\0') {
        EXPECT_EQ(error, "");
    } else {
        EXPECT_NE(error.find(c.error), std::string::npos) << error;
    }
    Barrier();
    EXPECT_EQ(ReceivedLog::Get().CountFor(&g_peerMarker), 0) << "delivered to the application";
    EXPECT_EQ(ReceivedLog::Get().Count(), 1u);
    if (c.logged[0] != '\0') {
        EXPECT_TRUE(log().Contains(c.logged)) << c.logged;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Calls, HostilePeer,
    ::testing::Values(
        // ---- refused by GDBus against the introspection data
        PeerCase{"WrongTypes", "sso_request_access_token",
                 [](const Target &t) { return "('" + t.peerObj + "', 'not a number')"; },
                 "InvalidArgs", ""},
        PeerCase{"NumbersWhereTextsBelong", "sso_request_access_token",
                 [](const Target &) {
                     return std::string("(1, int64 2, int64 3, 4, 5, int64 6, 7, 8)");
                 },
                 "InvalidArgs", ""},
        PeerCase{"NoArguments", "sso_request_access_token",
                 [](const Target &) { return std::string("()"); }, "InvalidArgs", ""},
        PeerCase{"OneArgumentTooMany", "sso_request_auth_code",
                 [](const Target &t) {
                     std::string args = Shape0(t.peerObj, t.tid, "sso_request_auth_code");
                     args.pop_back();
                     return args + ", 'extra')";
                 },
                 "InvalidArgs", ""},
        PeerCase{"AnotherMethodsShape", "sso_get_user_info",
                 [](const Target &t) { return Shape0(t.peerObj, t.tid, "sso_get_user_info"); },
                 "InvalidArgs", ""},
        PeerCase{"ShapeThreeSentToShapeZero", "sso_request_auth_code",
                 [](const Target &t) { return Shape3(t.peerObj, t.tid, "sso_request_auth_code"); },
                 "InvalidArgs", ""},
        PeerCase{"UnknownMethod", "sso_no_such_result",
                 [](const Target &t) { return Shape0(t.peerObj, t.tid, "sso_no_such_result"); },
                 "UnknownMethod", ""},
        // In the method table, but not on the interface: unreachable.
        PeerCase{"TableOnlyMethod", "sso_CLIENT_partner_auth_info",
                 [](const Target &t) {
                     return Shape0(t.peerObj, t.tid, "sso_CLIENT_partner_auth_info");
                 },
                 "UnknownMethod", ""},
        // ---- refused by the sender check
        PeerCase{"TheLibrarysOwnObjectName", "sso_request_auth_code",
                 [](const Target &t) { return Shape0(t.ownObj, t.tid, "sso_request_auth_code"); },
                 "process id is different", "Caller process is invalid"},
        PeerCase{
            "AnotherProcessesObjectName", "sso_request_auth_code",
            [](const Target &t) { return Shape0("obj1_init", t.tid, "sso_request_auth_code"); },
            "process id is different", "Caller process is invalid"},
        PeerCase{"AnEmptyObjectName", "sso_request_auth_code",
                 [](const Target &t) { return Shape0("", t.tid, "sso_request_auth_code"); },
                 "process id is different", "Caller process is invalid"},
        // ---- answered, then dropped by the dispatcher
        PeerCase{
            "ARequestIdOfNoCurrentThread", "sso_request_auth_code",
            [](const Target &t) { return Shape0(t.peerObj, t.tid + 1, "sso_request_auth_code"); },
            "", "is not equal to tidProxyMonitor"},
        PeerCase{"AZeroRequestId", "sso_request_auth_code",
                 [](const Target &t) { return Shape0(t.peerObj, 0, "sso_request_auth_code"); }, "",
                 "tid is invalid : 0"},
        PeerCase{"ANegativeRequestId", "sso_request_auth_code",
                 [](const Target &t) { return Shape0(t.peerObj, -5, "sso_request_auth_code"); }, "",
                 "tid is invalid : -5"},
        PeerCase{"AZeroCallback", "sso_request_auth_code",
                 [](const Target &t) {
                     return Shape0(t.peerObj, t.tid, "sso_request_auth_code", "int64 0");
                 },
                 "", "pCallback is 0"},
        // On the interface, but not in the method table.
        OffTheTable("PartnerAuthInfo", "sso_return_partner_auth_info", 0),
        OffTheTable("AccessTokenUsingAuthcode", "sso_request_access_token_using_authcode", 0),
        OffTheTable("CpAccountMappingList", "sso_get_cp_account_mapping_list", 3),
        OffTheTable("AddCpAccountMapping", "sso_add_cp_account_mapping_info", 3),
        OffTheTable("RemoveCpAccountMapping", "sso_remove_cp_account_mapping_info", 3)),
    [](const ::testing::TestParamInfo<PeerCase> &info) { return std::string(info.param.name); });

// A process that passes the sender check by its own process id, but cannot
// know the id of the library's thread, is answered and dropped; an object
// path or interface the library does not serve is refused.
class HostileProcess : public PeerTest {};

std::string Gdbus(const std::vector<std::string> &args)
{
    std::vector<std::string> argv = {"/bin/sh", "-c",   "exec \"$@\" 2>&1", "sh",
                                     "gdbus",   "call", "--system"};
    argv.insert(argv.end(), args.begin(), args.end());
    auto r = ssotest::RunCommand(argv);
    return r.out;
}

TEST_F(HostileProcess, WithItsOwnObjectNameAndAGuessedRequestIdIsDropped)
{
    // "$$" is the shell's pid, and gdbus is exec'd in its place: the peer's
    // object name really is its own.
    auto r =
        ssotest::RunCommand({"/bin/sh", "-c",
                             "exec gdbus call --system --dest " + busName_ + " --object-path " +
                                 SSO_CLIENT_OBJECT_PATH + " --method " + SSO_CLIENT_INTERFACE +
                                 ".sso_request_auth_code \"'obj$$_peer'\" " +
                                 PointerText(reinterpret_cast<const void *>(&RecordingCb)) +
                                 " 12345 \"'AC.guess'\" 0 " + PointerText(&g_peerMarker) +
                                 " 1 \"'sso_request_auth_code'\" 2>&1"});
    EXPECT_EQ(r.status, 0) << r.out;
    Barrier();
    EXPECT_EQ(ReceivedLog::Get().CountFor(&g_peerMarker), 0);
    EXPECT_TRUE(log().Contains("[END] Caller process is valid"));
    EXPECT_TRUE(log().Contains("tid(12345) is not equal to tidProxyMonitor"));
}

TEST_F(HostileProcess, AnotherObjectPathOrInterfaceIsRefused)
{
    log().Clear();
    std::string path = Gdbus({"--dest", busName_, "--object-path", "/org/orvex/other", "--method",
                              std::string(SSO_CLIENT_INTERFACE) + ".sso_request_auth_code"});
    EXPECT_NE(path.find("Error"), std::string::npos) << path;
    std::string iface = Gdbus({"--dest", busName_, "--object-path", SSO_CLIENT_OBJECT_PATH,
                               "--method", "org.example.Other.sso_request_auth_code"});
    EXPECT_NE(iface.find("Error"), std::string::npos) << iface;
    Barrier();
    EXPECT_EQ(ReceivedLog::Get().Count(), 1u);
    // Only the barrier reached the library's handler.
    EXPECT_EQ(log().Count("<--- pMethodName ["), 1);
}

} // namespace
