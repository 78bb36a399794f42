#include <cstdlib>
#include <memory>

#include "SSOAPIClientLifeCycle.h"
#include "SSOAPIUtil.h"
#include "sso_ss_data_storage.h"
#include "sso_test_harness.h"

namespace {

using LifeCycle = ssotest::RootTest;

TEST_F(LifeCycle, ConstructionMarksTheClientAliveAndRecordsTheAppId)
{
    setenv("SSO_PLATFORM_APP_ID", "org.example.lifecycle", 1);
    SSOAPIUtil::SetClientToTerminated();
    auto lifeCycle = std::make_unique<SSOAPIClientLifeCycle>();
    EXPECT_TRUE(SSOAPIUtil::IsClientAlive());
    EXPECT_EQ(lifeCycle->appId(), "org.example.lifecycle");
    auto lines = log().LinesWith({"SSOAPIClientLifeCycle.cpp: SSOAPIClientLifeCycle(",
                                  "\033[0;32mm_appId[org.example.lifecycle] Alive[1]\033[0m"});
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("W/system"), std::string::npos);
    lifeCycle.reset();
    unsetenv("SSO_PLATFORM_APP_ID");
}

TEST_F(LifeCycle, AfterTheDestructorIsClientAliveIsFalseAndLogsZero)
{
    setenv("SSO_PLATFORM_APP_ID", "org.example.lifecycle", 1);
    auto lifeCycle = std::make_unique<SSOAPIClientLifeCycle>();
    lifeCycle.reset();
    log().Clear();
    EXPECT_FALSE(SSOAPIUtil::IsClientAlive());
    EXPECT_TRUE(log().Contains("IsClientAlive("));
    EXPECT_TRUE(log().Contains("\033[0;33mm_bClientAlive [0]\033[0m"));
    unsetenv("SSO_PLATFORM_APP_ID");
}

TEST_F(LifeCycle, DestructorMarksTerminatedBeforeAnythingElse)
{
    setenv("SSO_PLATFORM_APP_ID", "org.example.lifecycle", 1);
    auto lifeCycle = std::make_unique<SSOAPIClientLifeCycle>();
    log().Clear();
    lifeCycle.reset();
    auto lines = log().Lines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_NE(lines[0].find("SetClientToTerminated("), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find("m_bClientAlive [0]"), std::string::npos);
    EXPECT_TRUE(log().Contains("m_appId[org.example.lifecycle] Alive[0]"));
    EXPECT_NE(lines.back().find("~SSOAPIClientLifeCycle("), std::string::npos) << lines.back();
    EXPECT_NE(lines.back().find("[END] "), std::string::npos);
    unsetenv("SSO_PLATFORM_APP_ID");
}

// What the unload hook saw when it ran.
struct HookSeen {
    int calls = 0;
    bool aliveDuringHook = true;
    bool dataCacheStillThere = false;
} g_hookSeen;

void RecordUnload()
{
    ++g_hookSeen.calls;
    g_hookSeen.aliveDuringHook = SSOAPIUtil::IsClientAlive();
    g_hookSeen.dataCacheStillThere =
        SSOAPISingleton<CSSOSSData>::PeekConstructedInstance() != nullptr;
}

TEST_F(LifeCycle, UnloadHookRunsOnceAfterTerminationAndBeforeTheObjectsGo)
{
    setenv("SSO_PLATFORM_APP_ID", "org.example.lifecycle", 1);
    g_hookSeen = HookSeen();
    auto lifeCycle = std::make_unique<SSOAPIClientLifeCycle>(RecordUnload);
    // The construction made the data cache, which the destructor removes.
    ASSERT_NE(SSOAPISingleton<CSSOSSData>::PeekConstructedInstance(), nullptr);
    EXPECT_EQ(g_hookSeen.calls, 0);
    lifeCycle.reset();
    EXPECT_EQ(g_hookSeen.calls, 1);
    EXPECT_FALSE(g_hookSeen.aliveDuringHook);
    EXPECT_TRUE(g_hookSeen.dataCacheStillThere);
    EXPECT_EQ(SSOAPISingleton<CSSOSSData>::PeekConstructedInstance(), nullptr);
    unsetenv("SSO_PLATFORM_APP_ID");
}

TEST_F(LifeCycle, WithoutAnUnloadHookTheDestructorStillEnds)
{
    setenv("SSO_PLATFORM_APP_ID", "org.example.lifecycle", 1);
    auto lifeCycle = std::make_unique<SSOAPIClientLifeCycle>(nullptr);
    log().Clear();
    lifeCycle.reset();
    EXPECT_TRUE(log().Contains("~SSOAPIClientLifeCycle("));
    EXPECT_FALSE(SSOAPIUtil::IsClientAlive());
    unsetenv("SSO_PLATFORM_APP_ID");
}

} // namespace
