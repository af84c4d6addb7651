// Counts what a stored timeline holds, and looks whether it is sound. A large one is looked over in a moment, since bars are
// counted by their boundaries, which stand beside them uncompressed: neither they nor the function indices are read themselves.
//
// Threads: the main thread. Ownership: plain values.
#pragma once

#include "Session/Session.h"
#include "ThreadsModel/ThreadsModel.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Host
{

struct TimelineLevel
{
    size_t Threads = 0; // with data
    uint64_t BarChunks = 0;
    uint64_t Bars = 0; // one that spans several chunks counts in each
    uint64_t OverviewChunks = 0;
    uint64_t Entries = 0; // of overviews
    uint64_t Bytes = 0;   // in Threads.dat
    uint64_t ReadyRecords = 0;
};

struct TimelineInspection
{
    std::vector<TimelineLevel> Levels;
    size_t FindThreads = 0;
    size_t FindFunctions = 0; // different ones
    size_t ReadyIndices = 0;

    // What is wrong with Threads.dat, Find.dat and ReadyThreads.dat; empty for a sound one. The counts are those of the rest.
    std::string ThreadsFault;
    std::string FindFault;
    std::string ReadyFault;
};

// Null if the session has none that is stored, or one of a library that was built of other sources.
[[nodiscard]] Profiler::ThreadsModel* gFindStoredTimeline(const Profiler::Session& inSession);

[[nodiscard]] TimelineInspection gInspectTimeline(Profiler::ThreadsModel& ioModel);

} // namespace Host
