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
