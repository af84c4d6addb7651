// Enters the processes and modules of a capture in a session.
//
// Threads: one, before the pass. Ownership: refers to the session, the timeline and the symbol cache, which outlive it.
// Invariant: processes with events of their own are captured, all others are non-captured and only entered when they turn up.
#pragma once

#include "Host/Import/ActiveThreads.h"
#include "Host/Import/ImportFilter.h"
#include "Host/Import/PerfFile.h"
#include "Host/Import/ProcessTimeline.h"
#include "Host/Linux/SymbolCache.h"
#include "Session/Session.h"

#include <cstdint>
#include <vector>

namespace Host
{

class SessionBuilder
{
public:
    // inFirstTime and inLastTime: the times of the session in nanoseconds of the capture's clock; session times count from the
    // first, in milliseconds.
    SessionBuilder(Profiler::Session& ioSession, ProcessTimeline& ioTimeline, SymbolCache& ioSymbols, uint64_t inFirstTime,
                   uint64_t inLastTime);

    // Enters the captured processes that the filter takes and that lived in the session's time, in order of their start, and all
    // modules that they mapped.
    void AddProcesses(const ActiveThreads& inActive, const ImportFilter& inFilter);
    void AddModules(const PerfFile& inFile);

    [[nodiscard]] bool IsCaptured(uint32_t inInstance) const
    {
        return inInstance < mProcessIDs.size() && mProcessIDs[inInstance] < 0;
    }

    // The session's ID of an instance of the timeline; a process that isn't captured is entered as a non-captured one.
    [[nodiscard]] Profiler::ProcessID GetProcessID(uint32_t inInstance);

    // The pid of a thread at the time: the one that its event tells, else the one that side-band records tell, else the one that
    // other events of its tell, else its own thread ID. The two told ones are 0 or less if there is none.
    [[nodiscard]] int32_t GetProcessOf(int32_t inThreadID, int32_t inToldProcessID, int32_t inToldElsewhere,
                                       uint64_t inTime) const;

    // Milliseconds of the session for a time of the capture; 0.0 for times before its first.
    [[nodiscard]] double ToMs(uint64_t inTime) const
    {
        constexpr double nanosecondsPerMillisecond = 1e6;
        return inTime > mFirstTime ? static_cast<double>(inTime - mFirstTime) / nanosecondsPerMillisecond : 0.0;
    }

private:
    static constexpr Profiler::ProcessID sNotEntered = INT32_MAX;

    void AddKernel(const PerfFile& inFile, std::vector<Profiler::NativeModuleInstance>& ioInstances);
    [[nodiscard]] double EndToMs(uint64_t inTime) const;

    Profiler::Session& mSession;
    ProcessTimeline& mTimeline;
    SymbolCache& mSymbols;
    uint64_t mFirstTime;
    uint64_t mLastTime;
    std::vector<Profiler::ProcessID> mProcessIDs; // by instance
};

} // namespace Host
