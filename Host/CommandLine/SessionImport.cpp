#include "Host/CommandLine/SessionImport.h"

#include "FileSystem/File.h"
#include "FileSystem/Path.h"
#include "Host/CommandLine/PassStopper.h"
#include "Host/CommandLine/SessionProcessing.h"
#include "Host/CommandLine/StagedFolder.h"
#include "Host/CommandLine/StreamSink.h"
#include "Host/CommandLine/SymbolsAhead.h"
#include "Session/SessionPaths.h"
#include "Utility/Clock.h"

#include <algorithm>
#include <filesystem>

namespace Host
{
namespace
{

using Profiler::Session;
using Utility::ErrorState;

std::string gGetTargetPath(const SessionImportOptions& inOptions)
{
    const std::string name = FileSystem::gGetFileName(inOptions.CapturePath);
    return Profiler::gGetSessionFilePath(inOptions.OutputFolder.empty() ? inOptions.CapturePath
                                                                        : FileSystem::gCombinePath(inOptions.OutputFolder, name));
}

// Whether something lies in a folder, or further below it.
bool gIsBelow(const std::string& inPath, const std::string& inFolder)
{
    std::error_code error;
    const std::filesystem::path path = std::filesystem::weakly_canonical(inPath, error);
    const std::filesystem::path folder = std::filesystem::weakly_canonical(inFolder, error);
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

// Only a session may be replaced, and only on demand; a folder of that name that is none belongs to somebody else.
bool gCheckTarget(const SessionImportOptions& inOptions, const std::string& inSessionPath, ErrorState& ioErrors)
{
    // The file would count as the session, and its folder as that of the session.
    if (!Utility::Check(ioErrors, FileSystem::gGetExtension(inOptions.CapturePath) != Profiler::sSessionExtension, 0,
                        "%s is a capture but named like a session; rename it", inOptions.CapturePath))
        return false;
    const std::string folder = Profiler::gGetSessionFolder(inSessionPath);
    if (!FileSystem::gExists(folder))
        return true;
    if (!Utility::Check(ioErrors, FileSystem::gExists(inSessionPath), 0,
                        "%s exists and is no session; choose another place with --output", folder))
        return false;
    return Utility::Check(ioErrors, inOptions.Replaces, 0, "The session %s exists; --force replaces it", inSessionPath) &&
           Utility::Check(ioErrors, !gIsBelow(inOptions.CapturePath, folder), 0,
                          "The capture %s lies in the folder of the session that it would replace", inOptions.CapturePath);
}

bool gStoreEvents(CaptureImporter& ioImporter, Session& ioSession, const bool& inIsCanceled, ErrorState& ioErrors)
{
    ProgressLine line("Reading");
    StreamSink sink(ioSession.GetEventStream(), ioSession.GetJobScheduler(), inIsCanceled);
    return ioImporter.Run(
               sink, [&line](float inFraction) { line.Show(inFraction); }, ioErrors) &&
           sink.Finish(ioErrors);
}

// The pass of a new capture. What was learned of the symbols goes into the report, which is stored ahead of the session file, so
// that a session that can be opened has one.
bool gRunPass(Session& ioSession, const std::string& inFolder, const RTTI::Registry& inRegistry, const bool& inIsCanceled,
              ImportReport& ioReport, ErrorState& ioErrors)
{
    if (!gProcessSession(ioSession, Profiler::RebuildBrokenStacks, inRegistry, inIsCanceled, ioErrors))
        return false;
    return gRunStep("Building timeline", inIsCanceled, ioErrors,
                    [&](const Utility::ProgressFunction& inProgress, ErrorState& ioStepErrors)
                    {
                        if (!ioSession.CreateModels(ioStepErrors) || !ioSession.BeginProcessing(ioStepErrors))
                            return false;
                        const PassStopper stopper(ioSession, inIsCanceled);
                        if (!ioSession.ProcessEvents(ioStepErrors, inIsCanceled, inProgress))
                            return false;
                        ioReport.SymbolFailures = gFindSymbolFailures(ioSession.GetModuleDatabase());
                        return gWriteImportReport(inFolder, ioReport, ioStepErrors) &&
                               ioSession.FinishPass(false, ioStepErrors, inIsCanceled);
                    });
}

void gCountContents(Session& ioSession, SessionImportResult& outResult)
{
    outResult.Events = ioSession.GetEventStream().GetNumEvents();
    outResult.Stacks = ioSession.GetCallstackTrie().GetNodeCount();
    outResult.Processes = ioSession.GetProcessList().size();
    outResult.Threads = ioSession.GetThreadList().size();
    outResult.BrokenThreads = ioSession.GetBrokenStacks().GetIndex()->ChunksByThread.size();
    outResult.LengthMs = ioSession.GetSessionInfo().SessionEndTimeMs - ioSession.GetSessionInfo().SessionStartTimeMs;
}

} // namespace

bool gImportSession(const SessionImportOptions& inOptions, Workspace& ioWorkspace, const bool& inIsCanceled,
                    SessionImportResult& outResult, ErrorState& ioErrors)
{
    const double start = Utility::gGetMonotonicSeconds();
    outResult.SessionPath = gGetTargetPath(inOptions);
    PerfFile file;
    if (!file.Open(inOptions.CapturePath, ioErrors) || !gCheckTarget(inOptions, outResult.SessionPath, ioErrors))
        return false;
    StagedFolder folder(Profiler::gGetSessionFolder(outResult.SessionPath));
    if (!folder.Make(ioErrors))
        return false;

    const std::string name = FileSystem::gGetFileName(outResult.SessionPath);
    const std::unique_ptr<Session> session = ioWorkspace.MakeSession(FileSystem::gCombinePath(folder.GetStagingPath(), name));
    CaptureImporter importer(file, *session, ioWorkspace.GetSymbols(), inOptions.Filter);
    if (!importer.Prepare(ioErrors))
        return false;
    const SymbolsAhead symbols(*session);
    if (!gStoreEvents(importer, *session, inIsCanceled, ioErrors))
        return false;
    session->FinishModuleData();
    const double read = Utility::gGetMonotonicSeconds();

    outResult.Report = gMakeImportReport(file, importer);
    if (!gRunPass(*session, folder.GetStagingPath(), ioWorkspace.GetRegistry(), inIsCanceled, outResult.Report, ioErrors))
        return false;
    gCountContents(*session, outResult);
    if (!folder.Commit(inOptions.Replaces, ioErrors))
        return false;
    outResult.ReadSeconds = read - start;
    outResult.PassSeconds = Utility::gGetMonotonicSeconds() - read;
    return true;
}

} // namespace Host
