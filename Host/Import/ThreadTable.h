// The threads of a capture by the operating system's thread ID, with what the importer knows about each.
//
// Threads: one. Ownership: owns the records; references hold until the next thread is added. Invariant: the table's entry of a
// thread ID is the last thread that had it.
#pragma once

#include "Session/Events/TraceEvent.h"

#include <cstdint>
#include <limits>
#include <sparsehash/dense_hash_map>
#include <string>
#include <vector>

namespace Host
{

enum class ERunState : uint8_t
{
    Unknown,
    Running,
    Waiting
};

struct TrackedThread
{
    int32_t ThreadID = 0; // the operating system's
    int32_t ProcessID = 0;
    uint32_t Instance = 0; // of the ProcessTimeline
    int32_t Cpu = -1;      // where it was last seen to run
    ERunState State = ERunState::Unknown;
    uint64_t LastTime = 0; // of its start, its own last event or its last wake-up, in nanoseconds of the capture's clock
    bool HasExited = false;
    bool IsCaptured = false;
    uint64_t StartTime = 0;                  // nanoseconds of the capture's clock, or when it was first seen
    std::string Name;                        // until it is entered in the session
    Profiler::ThreadID SessionThread = -1;   // -1 until it is entered, and if its process isn't captured
    Profiler::ProcessID SessionProcess = -1; // -1 for a process that isn't captured until it turns up in the range
    Profiler::CallstackKey SwitchOutStack = Profiler::sNoCallstack;
};

class ThreadTable
{
public:
    ThreadTable() { mIndices.set_empty_key(std::numeric_limits<int64_t>::min()); }

    // Null if no thread has had the ID.
    [[nodiscard]] TrackedThread* Find(int32_t inThreadID)
    {
        // Events of one thread come in runs.
        if (inThreadID == mRecentID && mRecentIndex < mThreads.size())
            return &mThreads[mRecentIndex];
        const auto found = mIndices.find(inThreadID);
        if (found == mIndices.end())
            return nullptr;
        mRecentID = inThreadID;
        mRecentIndex = found->second;
        return &mThreads[mRecentIndex];
    }

    // Enters a thread; it takes the place of an earlier one of its ID.
    TrackedThread& Add(const TrackedThread& inThread)
    {
        mRecentID = inThread.ThreadID;
        mRecentIndex = mThreads.size();
        mIndices[inThread.ThreadID] = mRecentIndex;
        mThreads.push_back(inThread);
        return mThreads.back();
    }

    // All threads, also those whose ID was reused, in the order in which they were added.
    [[nodiscard]] std::vector<TrackedThread>& GetAll() { return mThreads; }

private:
    google::dense_hash_map<int64_t, size_t> mIndices;
    std::vector<TrackedThread> mThreads;
    int64_t mRecentID = std::numeric_limits<int64_t>::min();
    size_t mRecentIndex = 0;
};

} // namespace Host
