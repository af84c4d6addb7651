#include "Host/Import/ImportReport.h"

#include "FileSystem/Path.h"
#include "Host/Import/PerfRecordingGaps.h"
#include "Serialization/JSON.h"

RTTI_BEGIN(Host::NamedCount, 1)
    RTTI_PROPERTY("Name", Name)
    RTTI_PROPERTY("Count", Count)
RTTI_END()

RTTI_BEGIN(Host::SymbolFailure, 1)
    RTTI_PROPERTY("Module", Module)
    RTTI_PROPERTY("Reason", Reason)
RTTI_END()

RTTI_BEGIN(Host::ImportReport, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("CapturePath", CapturePath)
    RTTI_PROPERTY("Events", Events)
    RTTI_PROPERTY("Records", Records)
    RTTI_PROPERTY("Skipped", Skipped)
    RTTI_PROPERTY("Notes", Notes)
    RTTI_PROPERTY("LostEvents", LostEvents)
    RTTI_PROPERTY("LostSamples", LostSamples)
    RTTI_PROPERTY("Throttles", Throttles)
    RTTI_PROPERTY("TruncatedBytes", TruncatedBytes)
    RTTI_PROPERTY("TruncatedReason", TruncatedReason)
    RTTI_PROPERTY("SymbolFailures", SymbolFailures)
    RTTI_PROPERTY("Gaps", Gaps)
    RTTI_PROPERTY("Warnings", Warnings)
RTTI_END()

namespace Host
{
namespace
{

constexpr const char* sEventNames[Profiler::sNumStoredEventTypes] = {"Sample",
                                                                     "ContextSwitchOut",
                                                                     "ContextSwitchIn",
                                                                     "ReadyThread",
                                                                     "ThreadStart",
                                                                     "ThreadEnd",
                                                                     "ThreadName",
                                                                     "InstrumentationBegin",
                                                                     "InstrumentationEnd",
                                                                     "InstrumentationBeginColored",
                                                                     "ReadyThreadTimed",
                                                                     "ThreadStartDisplay",
                                                                     "ThreadEndDisplay",
                                                                     "Reserved13",
                                                                     "Reserved14",
                                                                     "FiberSwitchOut",
                                                                     "FiberSwitchIn",
                                                                     "StackOnly"};

void gAddRecords(const PerfHealth& inHealth, ImportReport& ioReport)
{
    for (uint32_t type = 0; type < PerfHealth::sCountedTypes; ++type)
        gAddCount(ioReport.Records, gGetRecordTypeName(type), inHealth.RecordsByType[type]);
    gAddCount(ioReport.Records, "of other types", inHealth.RecordsByType[PerfHealth::sCountedTypes]);
    for (size_t reason = 1; reason < inHealth.Skipped.size(); ++reason)
        gAddCount(ioReport.Skipped, gGetSkipName(static_cast<EPerfSkip>(reason)), inHealth.Skipped[reason]);
    ioReport.LostEvents = inHealth.LostEvents;
    ioReport.LostSamples = inHealth.LostSamples;
    ioReport.Throttles = inHealth.Throttles;
    ioReport.TruncatedBytes = inHealth.TruncatedBytes;
    ioReport.TruncatedReason = inHealth.TruncatedReason;
}

void gAddEvents(const ImportHealth& inHealth, ImportReport& ioReport)
{
    for (size_t type = 0; type < inHealth.EventsByType.size(); ++type)
        gAddCount(ioReport.Events, sEventNames[type], inHealth.EventsByType[type]);
    gAddCount(ioReport.Notes, "samples of idle processors", inHealth.IdleSamples);
    gAddCount(ioReport.Notes, "samples of events that aren't a clock or cycles", inHealth.OtherEventSamples);
    gAddCount(ioReport.Notes, "samples of threads that were being taken down", inHealth.SamplesWithoutThread);
    gAddCount(ioReport.Notes, "samples amid a switch", inHealth.SamplesAmidSwitch);
    gAddCount(ioReport.Notes, "switches told twice", inHealth.RepeatedSwitches);
    gAddCount(ioReport.Notes, "switches in that the kernel didn't record", inHealth.MissedSwitchIns);
    gAddCount(ioReport.Notes, "switches out that the kernel didn't record", inHealth.MissedSwitchOuts);
    gAddCount(ioReport.Notes, "wake-ups told twice", inHealth.RepeatedWakeups);
    gAddCount(ioReport.Notes, "wake-ups of unknown threads", inHealth.UnknownWakeups);
    gAddCount(ioReport.Notes, "threads that no record introduced", inHealth.UnnamedThreads);
    gAddCount(ioReport.Notes, "inherited mappings left out", inHealth.MappingsLeftOut);
}

} // namespace

const RTTI::Type& ImportReport::GetType() const
{
    return RTTI::gTypeOf<ImportReport>();
}

std::string gGetImportReportPath(const std::string& inSessionFolder)
{
    return FileSystem::gCombinePath(inSessionFolder, "import.json");
}

void gAddCount(std::vector<NamedCount>& ioCounts, const char* inName, uint64_t inCount)
{
    if (inCount != 0)
        ioCounts.push_back({inName, inCount});
}

ImportReport gMakeImportReport(const PerfFile& inFile, const CaptureImporter& inImporter)
{
    ImportReport report;
    report.CapturePath = inFile.GetPath();
    gAddRecords(inImporter.GetFileHealth(), report);
    gAddEvents(inImporter.GetHealth(), report);
    for (const PerfGap& gap : gFindRecordingGaps(inFile, inImporter.GetTracepoints(), inImporter.GetFileHealth()))
        report.Gaps.push_back(gap.Text);
    report.Warnings = inFile.GetWarnings();
    report.Warnings.insert(report.Warnings.end(), inImporter.GetWarnings().begin(), inImporter.GetWarnings().end());
    return report;
}

std::vector<SymbolFailure> gFindSymbolFailures(const Profiler::ModuleDatabase& inModules)
{
    std::vector<SymbolFailure> failures;
    for (const std::unique_ptr<Profiler::NativeModule>& nativeModule : inModules.GetNativeModules())
    {
        std::string reason = nativeModule != nullptr ? nativeModule->GetSymbolFailure() : std::string();
        if (!reason.empty())
            failures.push_back({nativeModule->Path, std::move(reason)});
    }
    return failures;
}

bool gWriteImportReport(const std::string& inSessionFolder, const ImportReport& inReport, Utility::ErrorState& ioErrors)
{
    const RTTI::Object* report = &inReport;
    return Serialization::gWriteObjectsToJSONFile(gGetImportReportPath(inSessionFolder), {&report, 1}, ioErrors);
}

std::unique_ptr<ImportReport> gReadImportReport(const std::string& inSessionFolder, const RTTI::Registry& inRegistry)
{
    std::vector<std::unique_ptr<RTTI::Object>> objects;
    Serialization::ReaderErrorState errors;
    if (!Serialization::gReadObjectsFromJSONFile(gGetImportReportPath(inSessionFolder), inRegistry, {},
                                                 Serialization::ReadObjectMode::SkipUnknownTypes, objects, errors))
        return nullptr;
    for (std::unique_ptr<RTTI::Object>& object : objects)
    {
        if (RTTI::gIsDerivedFrom(object->GetType(), RTTI::gTypeOf<ImportReport>()))
            return std::unique_ptr<ImportReport>(static_cast<ImportReport*>(object.release()));
    }
    return nullptr;
}

} // namespace Host
