// A process of another user tries to get at this client's results, on a
// default-deny bus with the shipped policy and the simulator as the service:
// it takes over or squats the client's bus name, asks the service for a
// result in the client's name, and the service's own user replays results
// and sends results for requests the client never made or that were refused.
// In every case the attacker gets nothing, the application is called only
// with results of its own requests, and the client works on once the
// attacker is gone.
//
// The client is this test process (the library in-process, so its callbacks
// are seen); the attacker is sso-attack-peer run as "nobody".
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "SSOAPIClientUtil.h"
#include "policy_peers.h"
#include "sso_api/sso_api.h"
#include "sso_api_proxy.h"
#include "../reliability/reliability_support.h"

#ifndef SSO_ATTACK_PEER
#error "SSO_ATTACK_PEER must be defined"
#endif

namespace {

using reliability::PointerText;
using reliability::ReceivedLog;
using reliability::RecordingCb;
using ssotest::ChildProcess;

constexpr char kAppId[] = "org.example.victim";
constexpr const char *kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";
constexpr const char *kMethod = "sso_request_access_token";
// RequestName flags.
constexpr const char *kNoFlags = "0";
constexpr const char *kReplaceExisting = "2";

// Called only if the library calls a pointer this process never sent.
int AbortIfCalled(void *, int, char *)
{
    std::abort();
}

class ResultAttacks : public reliability::AppTest<policytest::StrictBusWithPeers, kAppId> {
protected:
    void SetUp() override
    {
        AppTest::SetUp();
        busName_ = std::string(ssotest::kSsoClientNamePrefix) + "obj" + std::to_string(getpid()) +
                   "_" + kAppId;
    }

    void StartService(const std::vector<std::string> &args = {})
    {
        sim_.StartWithArgs(args);
        ssotest::AccountSpec account;
        account.login_id = "victim@example.com";
        sim_.AddAccount(account);
        sim_.SignIn("victim@example.com");
    }

    ssotest::LogCapture log() const { return ssotest::LogCapture(root_.log_path()); }

    ChildProcess Attacker(const std::vector<std::string> &args)
    {
        return Peer(SSO_ATTACK_PEER, args, true);
    }

    std::string RunAttacker(const std::vector<std::string> &args)
    {
        return RunPeer(SSO_ATTACK_PEER, args, true);
    }

    // Ends an attacker and returns all it printed.
    static std::string Leave(ChildProcess &attacker)
    {
        attacker.Kill();
        attacker.Wait(std::chrono::seconds(5));
        return attacker.ReadStdout(std::chrono::milliseconds(500));
    }

    // The unique name of the library's connection.
    std::string ClientConnection()
    {
        auto connection = SSOAPISingleton<CSSOSvcGdbus>::GetInstance()->connection();
        return connection != nullptr ? connection->uniqueName() : "";
    }

    // Who owns the client's bus name now ("" for nobody).
    std::string NameOwner() { return sim_.NameOwner(busName_); }

    // A token request of the application whose result it waits for.
    // userData marks it; true once its one callback came.
    bool RequestToken(const void *userData)
    {
        const int before = ReceivedLog::Get().CountFor(userData);
        if (sso_request_access_token(kAppId, "secret", &RecordingCb,
                                     const_cast<void *>(userData)) != 0)
            return false;
        return ssotest::WaitUntil(
            [&] { return ReceivedLog::Get().CountFor(userData) == before + 1; });
    }

    // Every callback the application got answers one of the requests it made
    // (its user data) with a result the service sent to its connection.
    void ExpectOnlyOwnResults(const std::set<const void *> &sent)
    {
        const std::string self = ClientConnection();
        for (const auto &r : ReceivedLog::Get().All()) {
            EXPECT_EQ(1u, sent.count(r.userData)) << "a callback with user data " << r.userData;
            bool sentHere = false;
            for (const auto &d : sim_.Deliveries())
                sentHere |= d.destination == self &&
                            d.args.find("int64 " + PointerText(r.userData)) != std::string::npos &&
                            d.args.find("'" + r.text + "'") != std::string::npos;
            EXPECT_TRUE(sentHere) << "a result the service did not send here: " << r.text;
        }
    }

    // The service sent nothing anywhere but to the client's own connection.
    void ExpectEveryDeliveryToTheClient()
    {
        const std::string self = ClientConnection();
        for (const auto &d : sim_.Deliveries())
            EXPECT_EQ(self, d.destination) << d.method << " " << d.args;
    }

    // A result as the service would deliver it for a request of this client
    // (passes the sender check: the simulator sends it).
    std::string Result(const void *callback, const void *userData, const std::string &token)
    {
        return "('" + sim_.ObjectName() + "', int64 " + PointerText(callback) + ", int64 " +
               std::to_string(SSOAPIClientUtil::GetDBusProxyThreadId()) + ", '" + token +
               "', 0, int64 " + PointerText(userData) + ", 0, '" + kMethod + "')";
    }

    std::string busName_;
};

// ---------------------------------------------------------------- bus name

TEST_F(ResultAttacks, TakingOverTheClientNameFailsAndTheNextTokenStillReachesTheClient)
{
    REQUIRE_OTHER_USER();
    StartService();
    static int first, next, after;
    ASSERT_TRUE(RequestToken(&first));
    ASSERT_EQ(ClientConnection(), NameOwner());

    // Replacing the owner is asked for, but the client never allowed it: the
    // attacker only waits in the queue.
    ChildProcess attacker = Attacker({"hold", busName_, kReplaceExisting});
    ASSERT_TRUE(attacker.WaitForOutput("ready\n", std::chrono::seconds(10))) << attacker.output();
    EXPECT_NE(std::string::npos, attacker.output().find("reply 2\n")) << attacker.output();
    EXPECT_EQ(ClientConnection(), NameOwner());

    ASSERT_TRUE(RequestToken(&next));
    const std::string caught = Leave(attacker);
    EXPECT_EQ(std::string::npos, caught.find("caught")) << caught;
    EXPECT_EQ(std::string::npos, caught.find("acquired " + busName_)) << caught;
    ExpectEveryDeliveryToTheClient();

    ASSERT_TRUE(RequestToken(&after));
    ExpectOnlyOwnResults({&first, &next, &after});
}

TEST_F(ResultAttacks, OwningTheNameBeforeTheFirstRequestCatchesNothingAndTheClientRecovers)
{
    REQUIRE_OTHER_USER();
    StartService();
    ChildProcess attacker = Attacker({"hold", busName_, kNoFlags});
    ASSERT_TRUE(attacker.WaitForOutput("ready\n", std::chrono::seconds(10))) << attacker.output();
    ASSERT_NE(std::string::npos, attacker.output().find("reply 1\n")) << attacker.output();

    // The request is not sent while another process holds the name: its
    // result would go there.
    static int squatted, after;
    EXPECT_EQ(-1, sso_request_access_token(kAppId, "secret", &RecordingCb, &squatted));
    EXPECT_TRUE(log().Contains("The client name " + busName_ + " is held by process " +
                               std::to_string(attacker.pid()) +
                               "; the request is not sent, its result would go there"));
    for (const auto &entry : sim_.Journal())
        EXPECT_NE(kMethod, entry.method) << entry.args;

    // The bus hands the name to the waiting client once the attacker leaves.
    const std::string caught = Leave(attacker);
    EXPECT_EQ(std::string::npos, caught.find("caught")) << caught;
    ASSERT_TRUE(ssotest::WaitUntil([&] { return NameOwner() == ClientConnection(); }));
    ASSERT_TRUE(RequestToken(&after));
    EXPECT_EQ(0, ReceivedLog::Get().CountFor(&squatted));
    ExpectEveryDeliveryToTheClient();
    ExpectOnlyOwnResults({&after});
}

// ------------------------------------------------- requests in its name

TEST_F(ResultAttacks, ARequestInTheClientsNameIsRefusedByTheService)
{
    REQUIRE_OTHER_USER();
    StartService();
    static int own, after;
    ASSERT_TRUE(RequestToken(&own));
    const std::string obj = SSOAPIClientUtil::GetDBusObjectName();
    log().Clear();

    // Everything a real request of the client carries, its user data too.
    const std::string out =
        RunAttacker({"forge", obj, PointerText(reinterpret_cast<const void *>(&RecordingCb)),
                     PointerText(&own), std::to_string(SSOAPIClientUtil::GetDBusProxyThreadId())});
    EXPECT_NE(std::string::npos,
              out.find("answer " + std::to_string(ssosim::kResultNotYourObject) + "\n"))
        << out;
    EXPECT_EQ(std::string::npos, out.find("caught")) << out;
    EXPECT_EQ(1u, sim_.Deliveries().size());
    EXPECT_FALSE(log().Contains("<--- Client Method Name"));

    ASSERT_TRUE(RequestToken(&after));
    EXPECT_EQ(1, ReceivedLog::Get().CountFor(&own));
    ExpectEveryDeliveryToTheClient();
    ExpectOnlyOwnResults({&own, &after});
}

TEST_F(ResultAttacks, AServiceWithoutTheSenderCheckAnswersTheForgerNeverTheClient)
{
    REQUIRE_OTHER_USER();
    StartService({"--no-sender-check"});
    static int own, after;
    ASSERT_TRUE(RequestToken(&own));
    const std::string obj = SSOAPIClientUtil::GetDBusObjectName();
    log().Clear();

    const std::string out =
        RunAttacker({"forge", obj, PointerText(reinterpret_cast<const void *>(&AbortIfCalled)),
                     PointerText(&own), std::to_string(SSOAPIClientUtil::GetDBusProxyThreadId())});
    ASSERT_NE(std::string::npos, out.find("answer 1\n")) << out;
    // The result went to the connection that asked: the attacker's own.
    EXPECT_NE(std::string::npos, out.find("caught sso_request_access_token")) << out;
    const auto deliveries = sim_.Deliveries();
    ASSERT_EQ(2u, deliveries.size());
    const std::size_t at = out.find("unique ") + 7;
    EXPECT_EQ(out.substr(at, out.find('\n', at) - at), deliveries[1].destination);
    EXPECT_NE(ClientConnection(), deliveries[1].destination);
    EXPECT_FALSE(log().Contains("<--- Client Method Name"));

    ASSERT_TRUE(RequestToken(&after));
    EXPECT_EQ(1, ReceivedLog::Get().CountFor(&own));
    ExpectOnlyOwnResults({&own, &after});
}

// ------------------------------------- results the client never asked for

TEST_F(ResultAttacks, ACallbackValueTheClientNeverSentIsNeverCalled)
{
    REQUIRE_OTHER_USER();
    StartService();
    // One request outstanding: its result is held back, so the forged ones
    // below find a request of the same method waiting.
    ssotest::Behaviour held;
    held.drop_result = true;
    sim_.Configure(kMethod, held);
    static int waiting, foreign, after;
    ASSERT_EQ(0, sso_request_access_token(kAppId, "secret", &RecordingCb, &waiting));
    sim_.ResetMethod(kMethod);
    log().Clear();

    // Another user cannot call the client at all.
    const std::string denied =
        RunAttacker({"call", busName_, kMethod,
                     Result(reinterpret_cast<const void *>(&RecordingCb), &waiting, "AT.x")});
    EXPECT_NE(std::string::npos, denied.find(kAccessDenied)) << denied;

    // The service's user can: a callback the client never sent with the
    // waiting request's user data, and the real callback with user data of
    // no request.
    EXPECT_EQ("", sim_.CallClient(busName_, kMethod,
                                  Result(reinterpret_cast<const void *>(&AbortIfCalled), &waiting,
                                         "AT.forged-callback")));
    EXPECT_EQ("", sim_.CallClient(busName_, kMethod,
                                  Result(reinterpret_cast<const void *>(&RecordingCb), &foreign,
                                         "AT.forged-user-data")));
    // Answered calls are handled in order: once a genuine result is in, the
    // two before it have been.
    ASSERT_TRUE(RequestToken(&after));
    EXPECT_EQ(2, log().Count("[sso_request_access_token] answers no request of this process: "
                             "dropped"));
    EXPECT_EQ(0, ReceivedLog::Get().CountFor(&waiting));
    EXPECT_EQ(0, ReceivedLog::Get().CountFor(&foreign));
    ExpectOnlyOwnResults({&after});
}

TEST_F(ResultAttacks, AReplayedResultIsDeliveredOnce)
{
    REQUIRE_OTHER_USER();
    StartService();
    static int own, after;
    ASSERT_TRUE(RequestToken(&own));
    const auto deliveries = sim_.Deliveries();
    ASSERT_EQ(1u, deliveries.size());
    const std::string replay = deliveries[0].args;
    log().Clear();

    const std::string denied = RunAttacker({"call", busName_, kMethod, replay});
    EXPECT_NE(std::string::npos, denied.find(kAccessDenied)) << denied;
    EXPECT_EQ("", sim_.CallClient(busName_, kMethod, replay));
    EXPECT_EQ("", sim_.CallClient(busName_, kMethod, replay));

    ASSERT_TRUE(RequestToken(&after));
    EXPECT_EQ(1, ReceivedLog::Get().CountFor(&own));
    EXPECT_EQ(2, log().Count("[sso_request_access_token] answers no request of this process: "
                             "dropped"));
    ExpectOnlyOwnResults({&own, &after});
}

TEST_F(ResultAttacks, AResultForARefusedRequestIsDropped)
{
    REQUIRE_OTHER_USER();
    StartService();
    ASSERT_EQ(0, sso_check_alive());
    ssotest::Behaviour refuse;
    refuse.accept = 0;
    sim_.Configure(kMethod, refuse);
    static int refused, after;
    ASSERT_EQ(-1, sso_request_access_token(kAppId, "secret", &RecordingCb, &refused));
    sim_.ResetMethod(kMethod);
    log().Clear();

    const std::string matching =
        Result(reinterpret_cast<const void *>(&RecordingCb), &refused, "AT.for-a-refused-request");
    const std::string denied = RunAttacker({"call", busName_, kMethod, matching});
    EXPECT_NE(std::string::npos, denied.find(kAccessDenied)) << denied;
    EXPECT_EQ("", sim_.CallClient(busName_, kMethod, matching));

    ASSERT_TRUE(RequestToken(&after));
    EXPECT_EQ(0, ReceivedLog::Get().CountFor(&refused));
    EXPECT_EQ(1, log().Count("[sso_request_access_token] answers no request of this process: "
                             "dropped"));
    ExpectOnlyOwnResults({&after});
}

} // namespace
