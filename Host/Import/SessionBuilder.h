// Enters the processes and modules of a capture in a session.
//
// Threads: one, before the pass. Ownership: refers to the session, the timeline and the symbol cache, which outlive it.
// Invariant: processes with events of their own are captured, all others are non-captured and only entered when they turn up.
#pragma once

#include "Host/Import/ActiveThreads.h"
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
    // inFirstTime: the capture's first time, in nanoseconds of its clock; session times count from it, in milliseconds.
    SessionBuilder(Profiler::Session& ioSession, ProcessTimeline& ioTimeline, SymbolCache& ioSymbols, uint64_t inFirstTime);

    // Enters the captured processes in order of their start, and all modules that they mapped.
    void AddProcesses(const ActiveThreads& inActive);
    void AddModules(const PerfFile& inFile);

    // The session's ID of an instance of the timeline; a process that isn't captured is entered as a non-captured one.
    [[nodiscard]] Profiler::ProcessID GetProcessID(uint32_t inInstance);

    // The pid of a thread: the one that its event tells, else the one that side-band records tell, else its own thread ID.
    [[nodiscard]] int32_t GetProcessOf(int32_t inThreadID, int32_t inToldProcessID) const;

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
    std::vector<Profiler::ProcessID> mProcessIDs; // by instance
};

} // namespace Host
