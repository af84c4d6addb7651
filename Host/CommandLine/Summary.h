// What `summarize` has found out about a capture, ready to be shown.
//
// Threads: any. Ownership: plain values, copies of everything.
#pragma once

#include "Host/CommandLine/SummaryModel.h"
#include "Host/Import/CaptureImporter.h"
#include "Host/Import/PerfRecordingGaps.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Host
{

struct ThreadRow
{
    int32_t Process = 0; // the operating system's numbers
    int32_t Thread = 0;
    Profiler::ProcessID ProcessKey = 0;
    Profiler::ThreadID ThreadKey = 0;
    std::string ProcessName;
    std::string ThreadName;
    ThreadSummary Totals;
};

struct BarRow
{
    std::string Function;
    std::string Module;
    ThreadRow Thread; // without its totals
    double StartMs = 0.0;
    double LengthMs = 0.0;
    uint64_t Depth = 0;
};

// Bars of one module whose function nobody knows.
struct UnresolvedRow
{
    std::string Module;
    std::string Reason;
    uint64_t Bars = 0;
};

struct NamedCount
{
    std::string Name;
    uint64_t Count = 0;
};

struct Summary
{
    std::string CapturePath;
    double LengthMs = 0.0;
    uint64_t Processes = 0;
    std::vector<ThreadRow> Threads; // with events, by process, in the order of the session
    std::vector<BarRow> LongestBars;

    // Health.
    std::vector<NamedCount> Events;  // trace events by kind
    std::vector<NamedCount> Records; // of the file, by type
    std::vector<NamedCount> Skipped; // records by reason
    std::vector<NamedCount> Notes;   // what the importer did about odd input
    uint64_t LostEvents = 0;
    uint64_t LostSamples = 0;
    uint64_t Throttles = 0;
    uint64_t TruncatedBytes = 0;
    std::string TruncatedReason;
    std::vector<UnresolvedRow> Unresolved;
    std::vector<std::string> Gaps; // what wasn't recorded, with the cure
    std::vector<std::string> Warnings;
};

// REQUIRES: the import and its pass are over.
[[nodiscard]] Summary gMakeSummary(const PerfFile& inFile, const CaptureImporter& inImporter, const SummaryModel& inModel,
                                   uint64_t inDroppedEvents);

} // namespace Host
