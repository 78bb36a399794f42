// The shipped D-Bus policy files on a bus that denies everything they do not
// open, with peers running as another user ("nobody") and as the service's
// user (the user running the tests; the strict bus names it in the policy).
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "policy_peers.h"
#include "test_files.h"

#ifndef SSO_POLICY_PEER
#error "SSO_POLICY_PEER must be defined"
#endif

namespace {

using ssotest::ChildProcess;

constexpr const char *kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";

class StrictBusPolicy : public policytest::StrictBusWithPeers {
protected:
    void StartSimulator() { sim_.Start(); }

    ChildProcess Peer(const std::vector<std::string> &args, bool as_other)
    {
        return StrictBusWithPeers::Peer(SSO_POLICY_PEER, args, as_other);
    }

    std::string RunPeer(const std::vector<std::string> &args, bool as_other)
    {
        return StrictBusWithPeers::RunPeer(SSO_POLICY_PEER, args, as_other);
    }
};

TEST_F(StrictBusPolicy, TheShippedFilesNameTheServiceUser)
{
    const std::string dir = ssotest::BuildDir() + "/share/dbus-1/system.d/";
    for (const char *file :
         {"org.orvex.tv.ssoservice.server.conf", "org.orvex.tv.ssoservice.ssoclient.conf"}) {
        ASSERT_EQ(0, access((dir + file).c_str(), R_OK)) << dir << file;
        const std::string text = ssotest::ReadWholeFile(dir + file);
        EXPECT_NE(std::string::npos, text.find("<policy user=\"" SSO_SERVICE_USER "\">")) << file;
        EXPECT_EQ(std::string::npos, text.find('@')) << file << " has an unconfigured variable";
    }
}

TEST_F(StrictBusPolicy, ClientOfAnotherUserOwnsItsNameReachesTheServiceAndGetsTheResult)
{
    REQUIRE_OTHER_USER();
    StartSimulator();
    const std::string out = RunPeer({"request", "org.example.policy"}, true);
    EXPECT_NE(std::string::npos, out.find("uid " + std::to_string(other_uid_) + "\n")) << out;
    EXPECT_NE(std::string::npos, out.find("return 0\n")) << out;
    EXPECT_NE(std::string::npos, out.find("callback 0\n")) << out;
    // The result went to the connection of the other user's process that
    // asked, which owned its client name.
    const auto deliveries = sim_.Deliveries();
    ASSERT_EQ(1u, deliveries.size());
    EXPECT_TRUE(g_dbus_is_unique_name(deliveries[0].destination.c_str()))
        << deliveries[0].destination;
    const auto journal = sim_.Journal();
    ASSERT_FALSE(journal.empty());
    EXPECT_EQ(journal.back().sender, deliveries[0].destination);
}

TEST_F(StrictBusPolicy, AnotherUserCannotOwnTheServiceName)
{
    REQUIRE_OTHER_USER();
    // The name is free, so only the policy can refuse it.
    EXPECT_NE(std::string::npos,
              RunPeer({"own", ssotest::kSsoServiceName}, true).find(kAccessDenied));
    // The service's user gets it (1: primary owner).
    EXPECT_NE(std::string::npos,
              RunPeer({"own", ssotest::kSsoServiceName}, false).find("reply 1\n"));
}

TEST_F(StrictBusPolicy, AnotherUserOwnsClientNamesButNoOthers)
{
    REQUIRE_OTHER_USER();
    EXPECT_NE(std::string::npos,
              RunPeer({"own", "org.orvex.tv.ssoservice.unrelated"}, true).find(kAccessDenied));
    EXPECT_NE(std::string::npos,
              RunPeer({"own", std::string(ssotest::kSsoClientNamePrefix) + "obj1_x"}, true)
                  .find("reply 1\n"));
}

TEST_F(StrictBusPolicy, OnlyTheServiceUserReachesTheClientInterface)
{
    REQUIRE_OTHER_USER();
    StartSimulator();
    // A client of the other user, so the caller's user is all that differs.
    ChildProcess client = Peer({"serve", "org.example.policy"}, true);
    ASSERT_TRUE(client.WaitForOutput("ready\n", std::chrono::seconds(15))) << client.output();
    const std::string out = client.output();
    const std::size_t at = out.find("serving ") + 8;
    const std::string bus_name = out.substr(at, out.find('\n', at) - at);
    ASSERT_TRUE(ssotest::WaitUntil([&] { return sim_.NameHasOwner(bus_name); }));

    const std::string stranger = RunPeer({"call", bus_name}, true);
    EXPECT_NE(std::string::npos, stranger.find(kAccessDenied)) << stranger;

    // The service's user gets through the bus; the client's own sender check
    // then refuses the call, which is not the service's process.
    const std::string service_user = RunPeer({"call", bus_name}, false);
    EXPECT_EQ(std::string::npos, service_user.find(kAccessDenied)) << service_user;
    EXPECT_NE(std::string::npos, service_user.find("process id is different")) << service_user;
}

} // namespace
