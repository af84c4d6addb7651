// The records of the processes and threads of a capture.
//
// A captured process was profiled: its ID is its index in ProcessList with the top bit set, so it is negative. A non-captured one
// only turned up, for instance as the other side of a wake-up: its ID is its index in NonCapturedProcesses. A ThreadID is an
// index in ThreadList, which holds the threads of all captured processes.
#pragma once

#include "RTTI/Declare.h"
#include "Session/Events/TraceEvent.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Profiler
{

struct CPUUsageSample
{
    double Time = 0.0;
    int32_t Percentage = 0;
};

struct OptionalProcessInfo
{
    int32_t ParentProcessID = -1;
    std::string CommandLine;
    int32_t CPUUsagePercentage = 0;
    std::vector<CPUUsageSample> CPUUsageSamples;
};

inline constexpr uint32_t sCapturedProcessBit = 0x80000000;

[[nodiscard]] constexpr ProcessID gMakeCapturedProcessID(size_t inIndex)
{
    return static_cast<ProcessID>(static_cast<uint32_t>(inIndex) | sCapturedProcessBit);
}

// REQUIRES: inProcess is negative, that is, of a captured process.
[[nodiscard]] constexpr size_t gGetCapturedProcessIndex(ProcessID inProcess)
{
    return static_cast<uint32_t>(inProcess) & ~sCapturedProcessBit;
}

struct Process
{
    int32_t ID = 0;         // the session's own
    int32_t DisplayID = -1; // the operating system's, for showing
    std::string Name;
    std::string Path;
    bool Is64Bit = true;
    double StartTimeMs = 0.0;
    double EndTimeMs = 0.0;
    std::vector<int32_t> ThreadOrder; // its threads, in the order of adding
    std::unique_ptr<Profiler::OptionalProcessInfo> OptionalProcessInfo;
};

struct Thread
{
    int32_t ProcessID = -1;
    int32_t ThreadID = -1;
    int32_t DisplayThreadID = -1; // the operating system's, for showing
    std::string ThreadName;
    double StartTimeMs = 0.0;
    double EndTimeMs = 0.0; // 0.0 while it is open
};

} // namespace Profiler

RTTI_DECLARE(Profiler::CPUUsageSample);
RTTI_DECLARE(Profiler::OptionalProcessInfo);
RTTI_DECLARE(Profiler::Process);
RTTI_DECLARE(Profiler::Thread);
