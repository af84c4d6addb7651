#include "Host/CommandLine/SummaryText.h"

#include "Host/CommandLine/JSONOutput.h"
#include "Host/CommandLine/ReportText.h"
#include "Host/CommandLine/Summary.h"
#include "Host/CommandLine/TextTable.h"
#include "Utility/Format.h"

namespace Host
{
namespace
{

using EAlign = TextTable::EAlign;

std::string gFormatMs(double inMs)
{
    return Utility::gFormat("%.3f", inMs);
}

std::string gFormatCount(uint64_t inCount)
{
    return std::to_string(inCount);
}

std::string gFormatThreads(const Summary& inSummary)
{
    TextTable table({{"PROCESS", EAlign::Right},
                     {"NAME"},
                     {"THREAD", EAlign::Right},
                     {"NAME"},
                     {"EVENTS", EAlign::Right},
                     {"SAMPLES", EAlign::Right},
                     {"BARS", EAlign::Right},
                     {"DEPTH", EAlign::Right},
                     {"EXECUTING ms", EAlign::Right},
                     {"WAITING ms", EAlign::Right}});
    for (const ThreadRow& row : inSummary.Threads)
        table.AddRow({std::to_string(row.Process), row.ProcessName, std::to_string(row.Thread), row.ThreadName,
                      gFormatCount(row.Totals.Events), gFormatCount(row.Totals.Samples), gFormatCount(row.Totals.ClosedBars),
                      gFormatCount(row.Totals.GreatestDepth), gFormatMs(row.Totals.ExecutingMs),
                      gFormatMs(row.Totals.WaitingMs)});
    return table.Format();
}

std::string gFormatLongestBars(const Summary& inSummary)
{
    TextTable table({{"LENGTH ms", EAlign::Right},
                     {"START ms", EAlign::Right},
                     {"THREAD", EAlign::Right},
                     {"NAME"},
                     {"DEPTH", EAlign::Right},
                     {"FUNCTION"},
                     {"MODULE"}});
    for (const BarRow& row : inSummary.LongestBars)
        table.AddRow({gFormatMs(row.LengthMs), gFormatMs(row.StartMs), std::to_string(row.Thread.Thread), row.Thread.ThreadName,
                      gFormatCount(row.Depth), row.Function, row.Module});
    return table.Format();
}

std::string gFormatUnresolved(const Summary& inSummary)
{
    if (inSummary.Unresolved.empty())
        return {};
    TextTable table({{"UNNAMED BARS", EAlign::Right}, {"MODULE"}, {"WHY"}});
    for (const UnresolvedRow& row : inSummary.Unresolved)
        table.AddRow({gFormatCount(row.Bars), row.Module, row.Reason});
    return '\n' + table.Format();
}

// --- JSON ---

void gWriteThreadIdentity(JSONWriter& ioWriter, const ThreadRow& inRow)
{
    gWriteMember(ioWriter, "process", inRow.Process);
    gWriteMember(ioWriter, "process_name", inRow.ProcessName);
    gWriteMember(ioWriter, "thread", inRow.Thread);
    gWriteMember(ioWriter, "name", inRow.ThreadName);
    gWriteMember(ioWriter, "process_key", inRow.ProcessKey);
    gWriteMember(ioWriter, "thread_key", inRow.ThreadKey);
}

void gWriteThreads(JSONWriter& ioWriter, const Summary& inSummary)
{
    ioWriter.Key("threads");
    ioWriter.StartArray();
    for (const ThreadRow& row : inSummary.Threads)
    {
        ioWriter.StartObject();
        gWriteThreadIdentity(ioWriter, row);
        gWriteMember(ioWriter, "events", row.Totals.Events);
        gWriteMember(ioWriter, "samples", row.Totals.Samples);
        gWriteMember(ioWriter, "switches_in", row.Totals.SwitchIns);
        gWriteMember(ioWriter, "switches_out", row.Totals.SwitchOuts);
        gWriteMember(ioWriter, "wakeups_made", row.Totals.Wakeups);
        gWriteMember(ioWriter, "closed_bars", row.Totals.ClosedBars);
        gWriteMember(ioWriter, "greatest_depth", row.Totals.GreatestDepth);
        gWriteMember(ioWriter, "executing_ms", row.Totals.ExecutingMs);
        gWriteMember(ioWriter, "waiting_ms", row.Totals.WaitingMs);
        ioWriter.Key("state_ms");
        ioWriter.StartObject();
        for (int state = 0; state < Profiler::sNumTimedThreadStates; ++state)
            gWriteMember(ioWriter, Profiler::ThreadStateName[state], row.Totals.StateTimes[state]);
        ioWriter.EndObject();
        ioWriter.EndObject();
    }
    ioWriter.EndArray();
}

void gWriteLongestBars(JSONWriter& ioWriter, const Summary& inSummary)
{
    ioWriter.Key("longest_bars");
    ioWriter.StartArray();
    for (const BarRow& row : inSummary.LongestBars)
    {
        ioWriter.StartObject();
        gWriteMember(ioWriter, "function", row.Function);
        gWriteMember(ioWriter, "module", row.Module);
        gWriteThreadIdentity(ioWriter, row.Thread);
        gWriteMember(ioWriter, "start_ms", row.StartMs);
        gWriteMember(ioWriter, "length_ms", row.LengthMs);
        gWriteMember(ioWriter, "depth", row.Depth);
        ioWriter.EndObject();
    }
    ioWriter.EndArray();
}

void gWriteHealth(JSONWriter& ioWriter, const Summary& inSummary)
{
    ioWriter.Key("health");
    ioWriter.StartObject();
    gWriteReport(ioWriter, inSummary.Report);
    gWriteArray(ioWriter, "unresolved", inSummary.Unresolved,
                [&](const UnresolvedRow& inRow)
                {
                    ioWriter.StartObject();
                    gWriteMember(ioWriter, "module", inRow.Module);
                    gWriteMember(ioWriter, "reason", inRow.Reason);
                    gWriteMember(ioWriter, "bars", inRow.Bars);
                    ioWriter.EndObject();
                });
    ioWriter.EndObject();
}

} // namespace

std::string gFormatSummary(const Summary& inSummary)
{
    std::string text = Utility::gFormat("%s: %.3f s, %llu processes, %zu threads with events\n\n",
                                        inSummary.Report.CapturePath.c_str(), inSummary.LengthMs / 1000.0,
                                        static_cast<unsigned long long>(inSummary.Processes), inSummary.Threads.size());
    text += gFormatThreads(inSummary);
    text += "\nLongest bars\n" + gFormatLongestBars(inSummary);
    return text + "\nHealth of the capture\n" + gFormatReport(inSummary.Report) + gFormatUnresolved(inSummary);
}

std::string gFormatSummaryAsJSON(const Summary& inSummary)
{
    return gFormatJSON(
        [&inSummary](JSONWriter& ioWriter)
        {
            gWriteMember(ioWriter, "capture", inSummary.Report.CapturePath);
            gWriteMember(ioWriter, "length_ms", inSummary.LengthMs);
            gWriteMember(ioWriter, "processes", inSummary.Processes);
            gWriteThreads(ioWriter, inSummary);
            gWriteLongestBars(ioWriter, inSummary);
            gWriteHealth(ioWriter, inSummary);
        });
}

} // namespace Host
