// Stops a pass as soon as the user ends the work. The pass looks at the flag between two events, and not while it waits: for
// memory that a slow disk has to free first, or for what is derived from the events.
//
// Threads: the main thread makes it, around the pass; it has one of its own. Ownership: refers to session and flag, which outlive
// it. Invariant: the models don't change while it lives.
#pragma once

#include "Session/Session.h"
#include "System/Mutex.h"

#include <thread>

namespace Host
{

class PassStopper
{
public:
    PassStopper(Profiler::Session& ioSession, const bool& inIsCanceled);
    ~PassStopper();

    PassStopper(const PassStopper&) = delete;
    PassStopper& operator=(const PassStopper&) = delete;

private:
    void Watch();

    Profiler::Session& mSession;
    const bool& mIsCanceled;

    System::Mutex mMutex;
    System::ConditionVariable mEndCondition;
    bool mHasEnded GUARDED_BY(mMutex) = false;

    std::thread mThread; // the last member: it uses all others
};

} // namespace Host
