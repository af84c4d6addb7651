// Locks that clang's thread safety analysis can follow: mutexes, guards and condition variables.
//
// The standard's own types carry no annotations, so -Wthread-safety can't tell what they protect. A class groups its members by
// the lock that guards them and marks each with GUARDED_BY; a private function that expects the lock to be held says so with
// REQUIRES. Threads: any. Ownership: whoever embeds a mutex owns it; guards and condition variables only refer to it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define SYSTEM_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define SYSTEM_THREAD_ANNOTATION(x)
#endif

#ifndef CAPABILITY
#define CAPABILITY(inName) SYSTEM_THREAD_ANNOTATION(capability(inName))
#endif
#ifndef SCOPED_CAPABILITY
#define SCOPED_CAPABILITY SYSTEM_THREAD_ANNOTATION(scoped_lockable)
#endif
#ifndef GUARDED_BY
#define GUARDED_BY(inMutex) SYSTEM_THREAD_ANNOTATION(guarded_by(inMutex))
#endif
#ifndef PT_GUARDED_BY
#define PT_GUARDED_BY(inMutex) SYSTEM_THREAD_ANNOTATION(pt_guarded_by(inMutex))
#endif
#ifndef REQUIRES
#define REQUIRES(...) SYSTEM_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#endif
#ifndef ACQUIRE
#define ACQUIRE(...) SYSTEM_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#endif
#ifndef TRY_ACQUIRE
#define TRY_ACQUIRE(...) SYSTEM_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#endif
#ifndef RELEASE
#define RELEASE(...) SYSTEM_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#endif
#ifndef EXCLUDES
#define EXCLUDES(...) SYSTEM_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#endif
#ifndef RETURN_CAPABILITY
#define RETURN_CAPABILITY(inMutex) SYSTEM_THREAD_ANNOTATION(lock_returned(inMutex))
#endif
#ifndef NO_THREAD_SAFETY_ANALYSIS
#define NO_THREAD_SAFETY_ANALYSIS SYSTEM_THREAD_ANNOTATION(no_thread_safety_analysis)
#endif

namespace System
{

// A plain lock. REQUIRES: the thread that locks it doesn't hold it yet.
class CAPABILITY("mutex") Mutex
{
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void Lock() ACQUIRE() { mMutex.lock(); }
    [[nodiscard]] bool TryLock() TRY_ACQUIRE(true) { return mMutex.try_lock(); }
    void Unlock() RELEASE() { mMutex.unlock(); }

private:
    friend class ConditionVariable;

    std::mutex mMutex;
};

// A lock that the thread which holds it may take again. The analysis doesn't know of the second time, so a function that can be
// called with and without it takes it itself and carries no annotation.
class CAPABILITY("mutex") RecursiveMutex
{
public:
    RecursiveMutex() = default;
    RecursiveMutex(const RecursiveMutex&) = delete;
    RecursiveMutex& operator=(const RecursiveMutex&) = delete;

    void Lock() ACQUIRE() { mMutex.lock(); }
    [[nodiscard]] bool TryLock() TRY_ACQUIRE(true) { return mMutex.try_lock(); }
    void Unlock() RELEASE() { mMutex.unlock(); }

private:
    friend class RecursiveConditionVariable;

    std::recursive_mutex mMutex;
};

// Holds a lock for the time of a block.
template <class MutexType>
class SCOPED_CAPABILITY ScopedLock
{
public:
    explicit ScopedLock(MutexType& ioMutex) ACQUIRE(ioMutex) : mMutex(ioMutex) { mMutex.Lock(); }
    ~ScopedLock() RELEASE() { mMutex.Unlock(); }

    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    MutexType& mMutex;
};

using MutexLock = ScopedLock<Mutex>;
using RecursiveMutexLock = ScopedLock<RecursiveMutex>;

// Holds a lock for the time of a block, and can give it back in between.
template <class MutexType>
class SCOPED_CAPABILITY BasicUniqueLock
{
public:
    explicit BasicUniqueLock(MutexType& ioMutex) ACQUIRE(ioMutex) : mMutex(ioMutex) { mMutex.Lock(); }
    ~BasicUniqueLock() RELEASE()
    {
        if (mIsLocked)
            mMutex.Unlock();
    }

    BasicUniqueLock(const BasicUniqueLock&) = delete;
    BasicUniqueLock& operator=(const BasicUniqueLock&) = delete;

    void Lock() ACQUIRE()
    {
        mMutex.Lock();
        mIsLocked = true;
    }

    void Unlock() RELEASE()
    {
        mIsLocked = false;
        mMutex.Unlock();
    }

    [[nodiscard]] bool IsLocked() const { return mIsLocked; }

private:
    MutexType& mMutex;
    bool mIsLocked = true;
};

using UniqueLock = BasicUniqueLock<Mutex>;
using RecursiveUniqueLock = BasicUniqueLock<RecursiveMutex>;

// A condition variable of a Mutex. A wait may end without a notification: test the condition in a loop. There is no form with a
// predicate, since the analysis can't see that a lambda runs under the lock.
class ConditionVariable
{
public:
    // Gives the mutex back, waits, and takes it again.
    void Wait(Mutex& ioMutex) REQUIRES(ioMutex)
    {
        std::unique_lock<std::mutex> lock(ioMutex.mMutex, std::adopt_lock);
        mCondition.wait(lock);
        lock.release();
    }

    // As Wait, for no longer than inTimeout. False if the time ran out.
    bool WaitFor(Mutex& ioMutex, std::chrono::milliseconds inTimeout) REQUIRES(ioMutex)
    {
        std::unique_lock<std::mutex> lock(ioMutex.mMutex, std::adopt_lock);
        const std::cv_status status = mCondition.wait_for(lock, inTimeout);
        lock.release();
        return status == std::cv_status::no_timeout;
    }

    void NotifyOne() { mCondition.notify_one(); }
    void NotifyAll() { mCondition.notify_all(); }

private:
    std::condition_variable mCondition;
};

// A condition variable of a RecursiveMutex. REQUIRES of all waits: the thread holds the mutex exactly once, as only one hold is
// given back.
class RecursiveConditionVariable
{
public:
    void Wait(RecursiveMutex& ioMutex) REQUIRES(ioMutex) { mCondition.wait(ioMutex.mMutex); }

    // As Wait, for no longer than inTimeout. False if the time ran out.
    bool WaitFor(RecursiveMutex& ioMutex, std::chrono::milliseconds inTimeout) REQUIRES(ioMutex)
    {
        return mCondition.wait_for(ioMutex.mMutex, inTimeout) == std::cv_status::no_timeout;
    }

    // As Wait, until no later than inDeadline. False if the time ran out.
    bool WaitUntil(RecursiveMutex& ioMutex, std::chrono::steady_clock::time_point inDeadline) REQUIRES(ioMutex)
    {
        return mCondition.wait_until(ioMutex.mMutex, inDeadline) == std::cv_status::no_timeout;
    }

    void NotifyOne() { mCondition.notify_one(); }
    void NotifyAll() { mCondition.notify_all(); }

private:
    std::condition_variable_any mCondition;
};

} // namespace System
