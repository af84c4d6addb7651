#include "Host/CommandLine/InfoCommand.h"

#include "Host/CommandLine/JSONOutput.h"
#include "Host/CommandLine/ReportText.h"
#include "Host/CommandLine/SessionInspection.h"
#include "Host/CommandLine/SessionPath.h"
#include "Host/CommandLine/TextTable.h"
#include "Utility/Format.h"

namespace Host
{
namespace
{

using EAlign = TextTable::EAlign;

std::string gFormatStores(const SessionInspection& inInspection)
{
    TextTable table({{"STORE"}, {"STATE"}, {"WHAT"}});
    for (const StoreState& store : inInspection.Stores)
        table.AddRow({store.Name, store.IsSound ? "sound" : "not sound", store.Text});
    return table.Format();
}

std::string gFormatFiles(const SessionInspection& inInspection)
{
    TextTable table({{"BYTES", EAlign::Right}, {"FILE"}});
    for (const StoredFile& file : inInspection.Files)
        table.AddRow({std::to_string(file.Size), file.Name});
    return table.Format();
}

// Level 0 has everything as it was recorded; each further one is coarser.
std::string gFormatTimeline(const TimelineInspection& inTimeline)
{
    TextTable table({{"LEVEL", EAlign::Right},
                     {"THREADS", EAlign::Right},
                     {"BAR CHUNKS", EAlign::Right},
                     {"BARS", EAlign::Right},
                     {"OVERVIEW CHUNKS", EAlign::Right},
                     {"ENTRIES", EAlign::Right},
                     {"BYTES", EAlign::Right},
                     {"WAKE-UPS", EAlign::Right}});
    uint64_t readyRecords = 0;
    for (size_t i = 0; i < inTimeline.Levels.size(); ++i)
    {
        const TimelineLevel& level = inTimeline.Levels[i];
        table.AddRow({std::to_string(i), std::to_string(level.Threads), std::to_string(level.BarChunks),
                      std::to_string(level.Bars), std::to_string(level.OverviewChunks), std::to_string(level.Entries),
                      std::to_string(level.Bytes), std::to_string(level.ReadyRecords)});
        readyRecords += level.ReadyRecords;
    }
    return table.Format() +
           Utility::gFormat("%zu functions in %zu threads can be searched for; %llu of %zu wake-ups have a record\n",
                            inTimeline.FindFunctions, inTimeline.FindThreads, static_cast<unsigned long long>(readyRecords),
                            inTimeline.ReadyIndices);
}

std::string gFormatInspection(const SessionInspection& inInspection)
{
    std::string text = inInspection.SessionPath + '\n';
    if (inInspection.CanBeOpened)
        text += Utility::gFormat("%.3f s of %zu processes with %zu threads, %zu modules; %zu processes only turned up\n",
                                 inInspection.LengthMs / 1000.0, inInspection.Processes, inInspection.Threads,
                                 inInspection.Modules, inInspection.NonCapturedProcesses);
    text += '\n' + gFormatStores(inInspection) + '\n' + gFormatFiles(inInspection);
    if (inInspection.Report != nullptr)
        text += "\nHealth of the capture " + inInspection.Report->CapturePath + '\n' + gFormatReport(*inInspection.Report);
    if (inInspection.Timeline.has_value())
        text += "\nTimeline\n" + gFormatTimeline(*inInspection.Timeline);
    return text;
}

void gWriteStores(JSONWriter& ioWriter, const SessionInspection& inInspection)
{
    gWriteArray(ioWriter, "stores", inInspection.Stores,
                [&](const StoreState& inStore)
                {
                    ioWriter.StartObject();
                    gWriteMember(ioWriter, "name", inStore.Name);
                    ioWriter.Key("sound");
                    ioWriter.Bool(inStore.IsSound);
                    gWriteMember(ioWriter, "text", inStore.Text);
                    ioWriter.EndObject();
                });
}

void gWriteFiles(JSONWriter& ioWriter, const SessionInspection& inInspection)
{
    gWriteArray(ioWriter, "files", inInspection.Files,
                [&](const StoredFile& inFile)
                {
                    ioWriter.StartObject();
                    gWriteMember(ioWriter, "name", inFile.Name);
                    gWriteMember(ioWriter, "bytes", inFile.Size);
                    ioWriter.EndObject();
                });
}

void gWriteTimeline(JSONWriter& ioWriter, const TimelineInspection& inTimeline)
{
    ioWriter.Key("timeline");
    ioWriter.StartObject();
    gWriteArray(ioWriter, "levels", inTimeline.Levels,
                [&](const TimelineLevel& inLevel)
                {
                    ioWriter.StartObject();
                    gWriteMember(ioWriter, "threads", uint64_t{inLevel.Threads});
                    gWriteMember(ioWriter, "bar_chunks", inLevel.BarChunks);
                    gWriteMember(ioWriter, "bars", inLevel.Bars);
                    gWriteMember(ioWriter, "overview_chunks", inLevel.OverviewChunks);
                    gWriteMember(ioWriter, "entries", inLevel.Entries);
                    gWriteMember(ioWriter, "bytes", inLevel.Bytes);
                    gWriteMember(ioWriter, "ready_records", inLevel.ReadyRecords);
                    ioWriter.EndObject();
                });
    gWriteMember(ioWriter, "find_threads", uint64_t{inTimeline.FindThreads});
    gWriteMember(ioWriter, "find_functions", uint64_t{inTimeline.FindFunctions});
    gWriteMember(ioWriter, "ready_indices", uint64_t{inTimeline.ReadyIndices});
    ioWriter.EndObject();
}

std::string gFormatInspectionAsJSON(const SessionInspection& inInspection)
{
    return gFormatJSON(
        [&inInspection](JSONWriter& ioWriter)
        {
            gWriteMember(ioWriter, "session", inInspection.SessionPath);
            gWriteMember(ioWriter, "length_ms", inInspection.LengthMs);
            gWriteMember(ioWriter, "processes", uint64_t{inInspection.Processes});
            gWriteMember(ioWriter, "non_captured_processes", uint64_t{inInspection.NonCapturedProcesses});
            gWriteMember(ioWriter, "threads", uint64_t{inInspection.Threads});
            gWriteMember(ioWriter, "modules", uint64_t{inInspection.Modules});
            gWriteStores(ioWriter, inInspection);
            gWriteFiles(ioWriter, inInspection);
            if (inInspection.Timeline.has_value())
                gWriteTimeline(ioWriter, *inInspection.Timeline);
            if (inInspection.Report == nullptr)
                return;
            ioWriter.Key("health");
            ioWriter.StartObject();
            gWriteMember(ioWriter, "capture", inInspection.Report->CapturePath);
            gWriteReport(ioWriter, *inInspection.Report);
            ioWriter.EndObject();
        });
}

} // namespace

bool gShowInfo(const InfoOptions& inOptions, std::string& outText, Utility::ErrorState& ioErrors)
{
    std::string path;
    if (!gFindSessionFile(inOptions.Session, path, ioErrors))
        return false;
    const std::unique_ptr<Workspace> workspace = Workspace::sMake(inOptions.PluginPath, ioErrors);
    if (workspace == nullptr)
        return false;
    const SessionInspection inspection = gInspectSession(path, *workspace);
    outText = inOptions.AsJSON ? gFormatInspectionAsJSON(inspection) : gFormatInspection(inspection);
    return Utility::Check(ioErrors, inspection.CanBeOpened, 0, "%s", inspection.Failure);
}

} // namespace Host
