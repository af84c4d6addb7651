#include "Host/CommandLine/SummaryText.h"

#include "Host/CommandLine/Summary.h"
#include "Host/CommandLine/TextTable.h"
#include "Utility/Format.h"

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <string_view>

namespace Host
{
namespace
{

using EAlign = TextTable::EAlign;
using JSONWriter = rapidjson::PrettyWriter<rapidjson::StringBuffer, rapidjson::UTF8<>, rapidjson::UTF8<>>;

constexpr int sJSONIndent = 2;

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

std::string gFormatCounts(const char* inTitle, const std::vector<NamedCount>& inCounts)
{
    if (inCounts.empty())
        return {};
    std::string text = Utility::gFormat("%s:", inTitle);
    const char* separator = " ";
    for (const NamedCount& count : inCounts)
    {
        text += Utility::gFormat("%s%llu %s", separator, static_cast<unsigned long long>(count.Count), count.Name.c_str());
        separator = ", ";
    }
    return text + '\n';
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

std::string gFormatHealth(const Summary& inSummary)
{
    std::string text = gFormatCounts("Events", inSummary.Events);
    text += gFormatCounts("Records", inSummary.Records);
    text += Utility::gFormat("Lost while recording: %llu events, %llu samples; throttled %llu times\n",
                             static_cast<unsigned long long>(inSummary.LostEvents),
                             static_cast<unsigned long long>(inSummary.LostSamples),
                             static_cast<unsigned long long>(inSummary.Throttles));
    text += gFormatCounts("Skipped records", inSummary.Skipped);
    text += gFormatCounts("Notes", inSummary.Notes);
    if (!inSummary.TruncatedReason.empty())
        text += Utility::gFormat("Truncated: %s (%llu bytes not read)\n", inSummary.TruncatedReason.c_str(),
                                 static_cast<unsigned long long>(inSummary.TruncatedBytes));
    for (const std::string& gap : inSummary.Gaps)
        text += "Not recorded: " + gap + '\n';
    for (const std::string& warning : inSummary.Warnings)
        text += "Warning: " + warning + '\n';
    return text + gFormatUnresolved(inSummary);
}

// --- JSON ---

void gWriteText(JSONWriter& ioWriter, std::string_view inText)
{
    ioWriter.String(inText.data(), static_cast<rapidjson::SizeType>(inText.size()));
}

void gWriteMember(JSONWriter& ioWriter, const char* inName, std::string_view inText)
{
    ioWriter.Key(inName);
    gWriteText(ioWriter, inText);
}

void gWriteMember(JSONWriter& ioWriter, const char* inName, uint64_t inNumber)
{
    ioWriter.Key(inName);
    ioWriter.Uint64(inNumber);
}

void gWriteMember(JSONWriter& ioWriter, const char* inName, int32_t inNumber)
{
    ioWriter.Key(inName);
    ioWriter.Int(inNumber);
}

void gWriteMember(JSONWriter& ioWriter, const char* inName, double inNumber)
{
    ioWriter.Key(inName);
    ioWriter.Double(inNumber);
}

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

void gWriteCounts(JSONWriter& ioWriter, const char* inName, const std::vector<NamedCount>& inCounts)
{
    ioWriter.Key(inName);
    ioWriter.StartObject();
    for (const NamedCount& count : inCounts)
        gWriteMember(ioWriter, count.Name.c_str(), count.Count);
    ioWriter.EndObject();
}

void gWriteTexts(JSONWriter& ioWriter, const char* inName, const std::vector<std::string>& inTexts)
{
    ioWriter.Key(inName);
    ioWriter.StartArray();
    for (const std::string& text : inTexts)
        gWriteText(ioWriter, text);
    ioWriter.EndArray();
}

void gWriteHealth(JSONWriter& ioWriter, const Summary& inSummary)
{
    ioWriter.Key("health");
    ioWriter.StartObject();
    gWriteCounts(ioWriter, "events", inSummary.Events);
    gWriteCounts(ioWriter, "records", inSummary.Records);
    gWriteCounts(ioWriter, "skipped_records", inSummary.Skipped);
    gWriteCounts(ioWriter, "notes", inSummary.Notes);
    gWriteMember(ioWriter, "lost_events", inSummary.LostEvents);
    gWriteMember(ioWriter, "lost_samples", inSummary.LostSamples);
    gWriteMember(ioWriter, "throttles", inSummary.Throttles);
    gWriteMember(ioWriter, "truncated_bytes", inSummary.TruncatedBytes);
    gWriteMember(ioWriter, "truncated", inSummary.TruncatedReason);
    ioWriter.Key("unresolved");
    ioWriter.StartArray();
    for (const UnresolvedRow& row : inSummary.Unresolved)
    {
        ioWriter.StartObject();
        gWriteMember(ioWriter, "module", row.Module);
        gWriteMember(ioWriter, "reason", row.Reason);
        gWriteMember(ioWriter, "bars", row.Bars);
        ioWriter.EndObject();
    }
    ioWriter.EndArray();
    gWriteTexts(ioWriter, "not_recorded", inSummary.Gaps);
    gWriteTexts(ioWriter, "warnings", inSummary.Warnings);
    ioWriter.EndObject();
}

} // namespace

std::string gFormatSummary(const Summary& inSummary)
{
    std::string text = Utility::gFormat("%s: %.3f s, %llu processes, %zu threads with events\n\n", inSummary.CapturePath.c_str(),
                                        inSummary.LengthMs / 1000.0, static_cast<unsigned long long>(inSummary.Processes),
                                        inSummary.Threads.size());
    text += gFormatThreads(inSummary);
    text += "\nLongest bars\n" + gFormatLongestBars(inSummary);
    return text + "\nHealth of the capture\n" + gFormatHealth(inSummary);
}

std::string gFormatSummaryAsJSON(const Summary& inSummary)
{
    rapidjson::StringBuffer buffer;
    JSONWriter writer(buffer);
    writer.SetIndent(' ', sJSONIndent);
    writer.StartObject();
    gWriteMember(writer, "capture", inSummary.CapturePath);
    gWriteMember(writer, "length_ms", inSummary.LengthMs);
    gWriteMember(writer, "processes", inSummary.Processes);
    gWriteThreads(writer, inSummary);
    gWriteLongestBars(writer, inSummary);
    gWriteHealth(writer, inSummary);
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize()) + '\n';
}

} // namespace Host
