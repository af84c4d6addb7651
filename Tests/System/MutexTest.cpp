#include "System/Mutex.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace
{

// Whether another thread could take the lock now.
template <class MutexType>
bool gIsFree(MutexType& ioMutex)
{
    bool isFree = false;
    std::thread(
        [&]()
        {
            if (ioMutex.TryLock())
            {
                isFree = true;
                ioMutex.Unlock();
            }
        })
        .join();
    return isFree;
}

// A thread counts up, this one waits for it with the given wait.
template <class MutexType, class ConditionType>
void gExpectHandover()
{
    constexpr std::chrono::hours farAway(1);
    MutexType mutex;
    ConditionType condition;
    int value = 0;
    std::thread other(
        [&]()
        {
            for (int count = 0; count < 2; ++count)
            {
                System::ScopedLock<MutexType> lock(mutex);
                ++value;
                condition.NotifyAll();
            }
        });
    {
        System::ScopedLock<MutexType> lock(mutex);
        // Another thread changes the value while the waits have the lock released.
        while (value < 1) // NOLINT(bugprone-infinite-loop)
            condition.Wait(mutex);
        while (value < 2) // NOLINT(bugprone-infinite-loop)
            condition.WaitFor(mutex, farAway);
        EXPECT_FALSE(condition.WaitFor(mutex, std::chrono::milliseconds(0)));
        EXPECT_FALSE(gIsFree(mutex));
    }
    other.join();
    EXPECT_TRUE(gIsFree(mutex));
}

TEST(MutexTest, WaitsGiveTheLockBackAndTakeItAgain)
{
    gExpectHandover<System::Mutex, System::ConditionVariable>();
    gExpectHandover<System::RecursiveMutex, System::RecursiveConditionVariable>();
}

TEST(MutexTest, LocksAreHeldExactlyWhileTheyAreSaidToBe)
{
    System::Mutex mutex;
    System::RecursiveMutex recursive;
    const auto lockInside = [&recursive]()
    {
        System::RecursiveMutexLock lock(recursive);
        EXPECT_FALSE(gIsFree(recursive));
    };
    {
        System::UniqueLock lock(mutex);
        EXPECT_FALSE(gIsFree(mutex));
        lock.Unlock();
        EXPECT_TRUE(gIsFree(mutex));
        EXPECT_FALSE(lock.IsLocked());
        lock.Lock();
        EXPECT_FALSE(gIsFree(mutex));

        System::RecursiveMutexLock outer(recursive);
        lockInside();
        EXPECT_FALSE(gIsFree(recursive));
    }
    EXPECT_TRUE(gIsFree(mutex));
    EXPECT_TRUE(gIsFree(recursive));
}

} // namespace
