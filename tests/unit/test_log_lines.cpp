// Log lines known by their number: each carries the line the device's log
// tools look for, wherever the code around it has moved.
#include <pthread.h>

#include <string>

#include "SSOAPIAutoLock.h"
#include "SSOAPIClientLifeCycle.h"
#include "SSOAPISingleton.h"
#include "SSOAPIUtil.h"
#include "sso_lock.h"
#include "sso_test_harness.h"

namespace {

using FixedLineNumbers = ssotest::RootTest;

struct Holder : SSOAPISingleton<Holder> {};

// "<function>(<line>) > <colour><text>".
std::string At(const std::string &function, int line, const char *colour, const std::string &text)
{
    return function + "(" + std::to_string(line) + ") > " + colour + text;
}

constexpr const char *kMagenta = "\033[0;35m";
constexpr const char *kYellow = "\033[0;33m";
constexpr const char *kGreen = "\033[0;32m";
constexpr const char *kRed = "\033[0;31m";

TEST_F(FixedLineNumbers, TheSingletonTemplateWritesLines28And39And47And57)
{
    log().Clear();
    (void)SSOAPISingleton<Holder>::GetInstance();
    SSOAPISingleton<Holder>::RemoveInstance();
    EXPECT_TRUE(log().Contains(At("GetInstance", 28, kMagenta, "[START] ")));
    EXPECT_TRUE(log().Contains(At("GetInstance", 39, kMagenta, "[END] ")));
    EXPECT_TRUE(log().Contains(At("RemoveInstance", 47, kMagenta, "[START] ")));
    EXPECT_TRUE(log().Contains(At("RemoveInstance", 57, kMagenta, "[END] ")));
}

TEST_F(FixedLineNumbers, TheWriteLockWritesLines45And53And61And62)
{
    pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
    log().Clear();
    {
        SSOWriteLock held(&lock);
    }
    EXPECT_TRUE(log().Contains(At("SSOWriteLock", 45, kMagenta, "[START] ")));
    EXPECT_TRUE(log().Contains(At("SSOWriteLock", 53, kGreen, "WriteLock(1)")));
    EXPECT_TRUE(log().Contains(At("~SSOWriteLock", 61, kGreen, "WriteLock(0)")));
    EXPECT_TRUE(log().Contains(At("~SSOWriteLock", 62, kMagenta, "[END] ")));
}

TEST_F(FixedLineNumbers, AnAutoLockWithoutAMutexWritesLine32)
{
    log().Clear();
    {
        SSOAPIAutoLock none(nullptr);
    }
    EXPECT_TRUE(log().Contains(At("~SSOAPIAutoLock", 32, kRed, "pMutex is nullptr")));
}

TEST_F(FixedLineNumbers, TheAliveFlagWritesLines20And28And35)
{
    log().Clear();
    SSOAPIUtil::SetClientToTerminated();
    (void)SSOAPIUtil::IsClientAlive();
    SSOAPIUtil::SetClientToAlive();
    EXPECT_TRUE(log().Contains(At("SetClientToTerminated", 28, kYellow, "m_bClientAlive [0]")));
    EXPECT_TRUE(log().Contains(At("IsClientAlive", 35, kYellow, "m_bClientAlive [0]")));
    EXPECT_TRUE(log().Contains(At("SetClientToAlive", 20, kYellow, "m_bClientAlive [1]")));
}

TEST_F(FixedLineNumbers, TheLifeCycleWritesLines12And19And26And33)
{
    log().Clear();
    {
        SSOAPIClientLifeCycle lifeCycle;
        EXPECT_TRUE(log().Contains(At("SSOAPIClientLifeCycle", 12, kMagenta, "[START] ")));
        EXPECT_TRUE(log().Contains(At("SSOAPIClientLifeCycle", 19, kGreen, "m_appId[")));
    }
    EXPECT_TRUE(log().Contains(At("~SSOAPIClientLifeCycle", 26, kGreen, "m_appId[")));
    EXPECT_TRUE(log().Contains(At("~SSOAPIClientLifeCycle", 33, kMagenta, "[END] ")));
    SSOAPIUtil::SetClientToAlive();
}

} // namespace
