#include "Host/CommandLine/ReportText.h"

#include "Host/CommandLine/TextTable.h"
#include "Utility/Format.h"

namespace Host
{
namespace
{

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

std::string gFormatSymbolFailures(const ImportReport& inReport)
{
    if (inReport.SymbolFailures.empty())
        return {};
    TextTable table({{"MODULE WITHOUT NAMES"}, {"WHY"}});
    for (const SymbolFailure& failure : inReport.SymbolFailures)
        table.AddRow({failure.Module, failure.Reason});
    return '\n' + table.Format();
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
    gWriteArray(ioWriter, inName, inTexts, [&](const std::string& inText) { gWriteText(ioWriter, inText); });
}

} // namespace

std::string gFormatReport(const ImportReport& inReport)
{
    std::string text = gFormatCounts("Events", inReport.Events);
    text += gFormatCounts("Records", inReport.Records);
    text += Utility::gFormat("Lost while recording: %llu events, %llu samples; throttled %llu times\n",
                             static_cast<unsigned long long>(inReport.LostEvents),
                             static_cast<unsigned long long>(inReport.LostSamples),
                             static_cast<unsigned long long>(inReport.Throttles));
    text += gFormatCounts("Skipped records", inReport.Skipped);
    text += gFormatCounts("Notes", inReport.Notes);
    if (!inReport.TruncatedReason.empty())
        text += Utility::gFormat("Truncated: %s (%llu bytes not read)\n", inReport.TruncatedReason.c_str(),
                                 static_cast<unsigned long long>(inReport.TruncatedBytes));
    for (const std::string& gap : inReport.Gaps)
        text += "Not recorded: " + gap + '\n';
    for (const std::string& warning : inReport.Warnings)
        text += "Warning: " + warning + '\n';
    return text + gFormatSymbolFailures(inReport);
}

void gWriteReport(JSONWriter& ioWriter, const ImportReport& inReport)
{
    gWriteCounts(ioWriter, "events", inReport.Events);
    gWriteCounts(ioWriter, "records", inReport.Records);
    gWriteCounts(ioWriter, "skipped_records", inReport.Skipped);
    gWriteCounts(ioWriter, "notes", inReport.Notes);
    gWriteMember(ioWriter, "lost_events", inReport.LostEvents);
    gWriteMember(ioWriter, "lost_samples", inReport.LostSamples);
    gWriteMember(ioWriter, "throttles", inReport.Throttles);
    gWriteMember(ioWriter, "truncated_bytes", inReport.TruncatedBytes);
    gWriteMember(ioWriter, "truncated", inReport.TruncatedReason);
    gWriteArray(ioWriter, "modules_without_names", inReport.SymbolFailures,
                [&](const SymbolFailure& inFailure)
                {
                    ioWriter.StartObject();
                    gWriteMember(ioWriter, "module", inFailure.Module);
                    gWriteMember(ioWriter, "reason", inFailure.Reason);
                    ioWriter.EndObject();
                });
    gWriteTexts(ioWriter, "not_recorded", inReport.Gaps);
    gWriteTexts(ioWriter, "warnings", inReport.Warnings);
}

} // namespace Host
