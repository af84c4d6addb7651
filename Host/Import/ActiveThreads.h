// Which threads have events of their own in a capture. Their processes are the captured ones.
//
// Threads: one, while the capture is scanned. Ownership: a value.
#pragma once

#include "Host/Import/PerfRecords.h"

#include <cstdint>
#include <limits>
#include <sparsehash/dense_hash_map>

namespace Host
{

class ActiveThreads
{
public:
    ActiveThreads() { mProcesses.set_empty_key(std::numeric_limits<int64_t>::min()); }

    // Takes note of the threads that a sample or a switch is of.
    void Note(const PerfRecord& inRecord)
    {
        if (inRecord.Type == EPerfRecordType::Sample)
            NoteThread(gLoad<int32_t>(inRecord.Data + inRecord.Event->Layout.Thread),
                       gLoad<int32_t>(inRecord.Data + inRecord.Event->Layout.Thread + sizeof(int32_t)));
        else if (inRecord.Type == EPerfRecordType::Switch || inRecord.Type == EPerfRecordType::SwitchCpuWide)
        {
            PerfSwitch contextSwitch;
            if (gDecodeSwitch(inRecord, contextSwitch) == EPerfSkip::None)
                NoteThread(contextSwitch.Self.ProcessID, contextSwitch.Self.ThreadID);
        }
    }

    // The pid of a thread ID, 0 if no event of its own told it.
    [[nodiscard]] int32_t FindProcess(int32_t inThreadID) const
    {
        const auto found = mProcesses.find(inThreadID);
        return found != mProcesses.end() ? found->second : 0;
    }

    // Calls back with the pid of each thread with events.
    template <class Callback>
    void ForEachProcess(const Callback& inCallback) const
    {
        for (const auto& [threadID, processID] : mProcesses)
            inCallback(processID);
    }

private:
    void NoteThread(int32_t inProcessID, int32_t inThreadID)
    {
        // -1 is a thread that is being taken down, 0 the idle thread of a processor.
        if (inThreadID <= 0 || inProcessID <= 0 || (inThreadID == mRecentThread && inProcessID == mRecentProcess))
            return;
        mRecentThread = inThreadID;
        mRecentProcess = inProcessID;
        mProcesses[inThreadID] = inProcessID;
    }

    google::dense_hash_map<int64_t, int32_t> mProcesses; // by thread ID
    int32_t mRecentThread = -1;
    int32_t mRecentProcess = -1;
};

} // namespace Host
