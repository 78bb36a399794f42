// The shipped D-Bus policy files on a bus that denies everything they do not
// open, with peers running as another user ("nobody") and as the service's
// user (the user running the tests; the strict bus names it in the policy).
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

#ifndef SSO_POLICY_PEER
#error "SSO_POLICY_PEER must be defined"
#endif

namespace {

using ssotest::ChildProcess;

constexpr const char *kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";

extern "C" char **environ;

class StrictBusPolicy : public ::testing::Test {
protected:
    void SetUp() override
    {
        bus_.StartWithPolicy(ssotest::BusPolicy::Strict);
        // Platform files stay readable for the other user, as on a device.
        chmod(root_.path().c_str(), 0755);
    }

    void StartSimulator() { sim_.Start(); }

    // The other user, or a skip when the tests cannot become it.
    bool OtherUser()
    {
        if (geteuid() != 0)
            return false;
        const struct passwd *pw = getpwnam("nobody");
        if (pw == nullptr)
            return false;
        other_uid_ = pw->pw_uid;
        other_gid_ = pw->pw_gid;
        return true;
    }

    // Runs the peer with args, as the other user when as_other is set. The
    // environment is built here: the child only drops its privileges and
    // execs.
    ChildProcess Peer(const std::vector<std::string> &args, bool as_other,
                      const std::string &app_id = "org.example.policy")
    {
        std::vector<std::string> argv = {SSO_POLICY_PEER};
        argv.insert(argv.end(), args.begin(), args.end());
        std::vector<std::string> env;
        for (char **e = environ; *e != nullptr; ++e) {
            const std::string entry = *e;
            if (entry.rfind("SSO_PLATFORM_LOG=", 0) != 0 &&
                entry.rfind("SSO_PLATFORM_APP_ID=", 0) != 0)
                env.push_back(entry);
        }
        env.push_back("SSO_PLATFORM_LOG=stderr");
        env.push_back("SSO_PLATFORM_APP_ID=" + app_id);
        std::vector<char *> cargv;
        for (auto &a : argv)
            cargv.push_back(a.data());
        cargv.push_back(nullptr);
        std::vector<char *> cenv;
        for (auto &e : env)
            cenv.push_back(e.data());
        cenv.push_back(nullptr);
        const uid_t uid = other_uid_;
        const gid_t gid = other_gid_;
        return ChildProcess::Fork([&cargv, &cenv, as_other, uid, gid]() -> int {
            if (as_other && (setgroups(0, nullptr) != 0 || setgid(gid) != 0 || setuid(uid) != 0))
                return 125;
            // setuid clears the parent-death signal; the peer must still die
            // with the test.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            execve(cargv[0], cargv.data(), cenv.data());
            return 127;
        });
    }

    // Runs the peer to completion; returns its output, with the exit status
    // checked.
    std::string RunPeer(const std::vector<std::string> &args, bool as_other)
    {
        ChildProcess peer = Peer(args, as_other);
        const int status = peer.Wait(std::chrono::seconds(20));
        if (status == -1)
            peer.Kill();
        const std::string out = peer.ReadStdout(std::chrono::milliseconds(500));
        EXPECT_EQ(0, status) << out;
        return out;
    }

    ssotest::PlatformRoot root_;
    ssotest::PrivateBus bus_;
    ssotest::Simulator sim_;
    uid_t other_uid_ = 0;
    gid_t other_gid_ = 0;
};

#define REQUIRE_OTHER_USER()                                                                       \
    if (!OtherUser())                                                                              \
    GTEST_SKIP() << "needs root and a 'nobody' user to run a peer as another user"

TEST_F(StrictBusPolicy, TheShippedFilesNameTheServiceUser)
{
    const std::string dir = ssotest::BuildDir() + "/share/dbus-1/system.d/";
    for (const char *file :
         {"org.orvex.tv.ssoservice.server.conf", "org.orvex.tv.ssoservice.ssoclient.conf"}) {
        std::ifstream in(dir + file);
        ASSERT_TRUE(in) << dir << file;
        const std::string text((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
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
