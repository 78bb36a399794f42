// The sender check of incoming D-Bus calls, against a real second process on
// the private bus.
#include <gio/gio.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "SSOAPIUtil.h"
#include "sso_bus_connection.h"
#include "sso_test_harness.h"

namespace {

class CallerCheck : public ssotest::BusTest {
protected:
    void SetUp() override
    {
        BusTest::SetUp();
        // A peer process: connects to the bus, prints its unique name, waits.
        peer_ = ssotest::ChildProcess::Fork([] {
            GError *error = nullptr;
            GDBusConnection *conn = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
            if (!conn)
                return 2;
            printf("%s\n", g_dbus_connection_get_unique_name(conn));
            fflush(stdout);
            pause();
            return 0;
        });
        ASSERT_TRUE(peer_.WaitForOutput("\n"));
        peerName_ = peer_.output().substr(0, peer_.output().find('\n'));
        GError *error = nullptr;
        conn_ =
            CSSOBusConnection::Open(CSSOBusConnection::SystemBusAddress(),
                                    SSOClock::now() + std::chrono::seconds(10), nullptr, &error);
        ASSERT_NE(conn_, nullptr) << (error ? error->message : "");
    }

    void TearDown() override
    {
        if (conn_)
            conn_->Close();
        peer_.Kill();
        peer_.Wait();
        BusTest::TearDown();
    }

    bool Check(GVariant *parameters)
    {
        if (parameters)
            g_variant_ref_sink(parameters);
        bool valid = SSOAPIUtil::IsCallerProcessValid(conn_.get(), peerName_.c_str(), parameters);
        if (parameters)
            g_variant_unref(parameters);
        return valid;
    }

    std::string PeerObj() const { return "obj" + std::to_string(peer_.pid()); }

    ssotest::ChildProcess peer_;
    std::string peerName_;
    std::shared_ptr<CSSOBusConnection> conn_;
};

TEST_F(CallerCheck, ThePeersOwnObjectNameInTheFirstArgumentPasses)
{
    std::string name = PeerObj() + "_org.example.app";
    EXPECT_TRUE(Check(g_variant_new("(sxx)", name.c_str(), gint64{1}, gint64{2})));
    EXPECT_TRUE(
        log().Contains("callerObjPid(" + PeerObj() + ") vs. dbusParamObjName(" + name + ")"));
    EXPECT_TRUE(log().Contains("[END] Caller process is valid"));
}

TEST_F(CallerCheck, TheRuleIsASubstringSearchNotANameComparison)
{
    // "obj<pid>" followed by more digits still contains "obj<pid>".
    std::string longer = "prefix-" + PeerObj() + "9_x";
    EXPECT_TRUE(Check(g_variant_new("(s)", longer.c_str())));
}

TEST_F(CallerCheck, AnotherProcessIdFails)
{
    std::string other = "obj" + std::to_string(getpid()) + "_org.example.app";
    EXPECT_FALSE(Check(g_variant_new("(s)", other.c_str())));
    EXPECT_TRUE(log().Contains("\033[0;31mINVALID Not found!\033[0m"));
}

TEST_F(CallerCheck, ANonStringFirstArgumentFails)
{
    EXPECT_FALSE(Check(g_variant_new("(xs)", gint64{42}, PeerObj().c_str())));
    EXPECT_TRUE(log().Contains("pChildValue is null"));
}

TEST_F(CallerCheck, NoArgumentsFail)
{
    EXPECT_FALSE(Check(g_variant_new("()")));
    EXPECT_FALSE(Check(nullptr));
    EXPECT_EQ(log().Count("pChildValue is null"), 2);
}

TEST_F(CallerCheck, ASenderTheBusDoesNotKnowFails)
{
    std::string name = PeerObj() + "_x";
    GVariant *params = g_variant_ref_sink(g_variant_new("(s)", name.c_str()));
    EXPECT_FALSE(SSOAPIUtil::IsCallerProcessValid(conn_.get(), ":1.999999", params));
    g_variant_unref(params);
    EXPECT_TRUE(log().Contains("Failed to get the process id of [:1.999999]"));
    EXPECT_TRUE(log().Contains("Failed to m_GetCallerObjProcessId()"));
}

TEST_F(CallerCheck, CallerObjectProcessIdIsObjFollowedByThePeersPid)
{
    std::string out = "untouched";
    ASSERT_TRUE(SSOAPIUtil::m_GetCallerObjectProcessId(conn_.get(), peerName_.c_str(), out));
    EXPECT_EQ(out, PeerObj());
    out = "untouched";
    EXPECT_FALSE(SSOAPIUtil::m_GetCallerObjectProcessId(conn_.get(), ":1.999999", out));
    EXPECT_EQ(out, "untouched");
}

} // namespace
