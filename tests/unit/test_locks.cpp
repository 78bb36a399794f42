#include <pthread.h>

#include <cerrno>
#include <algorithm>
#include <thread>

#include "SSOAPIAutoLock.h"
#include "sso_lock.h"
#include "sso_test_harness.h"

namespace {

// What a try of the lock answers on another thread (0: taken, and let go
// at once).
template <class Lock>
int TryFromAnotherThread(Lock *lock, int (*tryLock)(Lock *), int (*unlock)(Lock *))
{
    int result = -1;
    std::thread t([&] {
        result = tryLock(lock);
        if (result == 0)
            unlock(lock);
    });
    t.join();
    return result;
}

int TryLockFromAnotherThread(pthread_mutex_t *mutex)
{
    return TryFromAnotherThread(mutex, pthread_mutex_trylock, pthread_mutex_unlock);
}

int TryReadLockFromAnotherThread(pthread_rwlock_t *lock)
{
    return TryFromAnotherThread(lock, pthread_rwlock_tryrdlock, pthread_rwlock_unlock);
}

using Locks = ssotest::RootTest;

TEST_F(Locks, AutoLockHoldsTheMutexForItsScope)
{
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    {
        SSOAPIAutoLock lock(&mutex);
        EXPECT_EQ(TryLockFromAnotherThread(&mutex), EBUSY);
    }
    EXPECT_EQ(TryLockFromAnotherThread(&mutex), 0);
    EXPECT_FALSE(log().Contains("pMutex is nullptr"));
}

TEST_F(Locks, AutoLockReleasesOnEarlyReturnAndException)
{
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    auto early = [&](bool leave) {
        SSOAPIAutoLock lock(&mutex);
        if (leave)
            return 1;
        return 0;
    };
    EXPECT_EQ(early(true), 1);
    EXPECT_EQ(TryLockFromAnotherThread(&mutex), 0);
    try {
        SSOAPIAutoLock lock(&mutex);
        throw 42;
    } catch (int) {
    }
    EXPECT_EQ(TryLockFromAnotherThread(&mutex), 0);
}

TEST_F(Locks, AutoLockWithANullMutexOnlyLogsInItsDestructor)
{
    {
        SSOAPIAutoLock lock(nullptr);
    }
    auto lines = log().LinesWith(
        {"SSOAPIAutoLock.cpp: ~SSOAPIAutoLock(", "\033[0;31mpMutex is nullptr\033[0m"});
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("W/system"), std::string::npos) << lines[0];
}

TEST_F(Locks, WriteLockExcludesReadersAndCountsItsDepth)
{
    pthread_rwlock_t rw = PTHREAD_RWLOCK_INITIALIZER;
    EXPECT_EQ(g_WRITELOCK_INDEX, 0);
    {
        SSOWriteLock lock(&rw);
        EXPECT_EQ(g_WRITELOCK_INDEX, 1);
        EXPECT_EQ(TryReadLockFromAnotherThread(&rw), EBUSY);
    }
    EXPECT_EQ(g_WRITELOCK_INDEX, 0);
    EXPECT_EQ(TryReadLockFromAnotherThread(&rw), 0);

    auto entry = log().LinesWith({"SSOWriteLock(", "\033[0;32mWriteLock(1)\033[0m"});
    auto exit = log().LinesWith({"~SSOWriteLock(", "\033[0;32mWriteLock(0)\033[0m"});
    ASSERT_EQ(entry.size(), 1u);
    ASSERT_EQ(exit.size(), 1u);
    EXPECT_NE(entry[0].find("W/"), std::string::npos);
    EXPECT_EQ(log().LinesWith({"sso_lock.cpp: SSOWriteLock(", "[START] "}).size(), 1u);
    EXPECT_EQ(log().LinesWith({"sso_lock.cpp: ~SSOWriteLock(", "[END] "}).size(), 1u);
    pthread_rwlock_destroy(&rw);
}

TEST_F(Locks, WriteLocksFromManyThreadsNeverOverlap)
{
    pthread_rwlock_t rw = PTHREAD_RWLOCK_INITIALIZER;
    int inside = 0;
    int maxInside = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                SSOWriteLock lock(&rw);
                ++inside;
                maxInside = std::max(maxInside, inside);
                EXPECT_EQ(g_WRITELOCK_INDEX, 1);
                --inside;
            }
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(maxInside, 1);
    EXPECT_EQ(g_WRITELOCK_INDEX, 0);
    pthread_rwlock_destroy(&rw);
}

} // namespace
