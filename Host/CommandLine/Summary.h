// What `summarize` has found out about a capture, ready to be shown.
//
// Threads: any. Ownership: plain values, copies of everything.
#pragma once

#include "Host/CommandLine/SummaryModel.h"
#include "Host/Import/ImportReport.h"

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

struct Summary
{
    double LengthMs = 0.0;
    uint64_t Processes = 0;
    std::vector<ThreadRow> Threads; // with events, by process, in the order of the session
    std::vector<BarRow> LongestBars;
    std::vector<UnresolvedRow> Unresolved;
    ImportReport Report; // without symbol failures: Unresolved tells more
};

// REQUIRES: the import and its pass are over.
[[nodiscard]] Summary gMakeSummary(const SummaryModel& inModel, ImportReport inReport, uint64_t inDroppedEvents);

} // namespace Host
