// Peer programs on a default-deny bus with the shipped D-Bus policy, run as
// another user ("nobody") or as the user running the tests (the service's
// user on the strict bus). The cases that need another user skip unless the
// tests run as root.
#pragma once

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>
#include <vector>

#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

extern "C" char **environ;

namespace policytest {

class StrictBusWithPeers : public ::testing::Test {
protected:
    void SetUp() override
    {
        bus_.StartWithPolicy(ssotest::BusPolicy::Strict);
        // Platform files stay readable for the other user, as on a device.
        chmod(root_.path().c_str(), 0755);
    }

    // The other user, or false when the tests cannot become it.
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

    // Runs program with args, as the other user when as_other is set. The
    // environment is built here: the child only drops its privileges and
    // execs.
    ssotest::ChildProcess Peer(const std::string &program, const std::vector<std::string> &args,
                               bool as_other, const std::string &app_id = "org.example.policy")
    {
        std::vector<std::string> argv = {program};
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
        return ssotest::ChildProcess::Fork([&cargv, &cenv, as_other, uid, gid]() -> int {
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
    std::string RunPeer(const std::string &program, const std::vector<std::string> &args,
                        bool as_other)
    {
        ssotest::ChildProcess peer = Peer(program, args, as_other);
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

} // namespace policytest
