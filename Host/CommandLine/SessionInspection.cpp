#include "Host/CommandLine/SessionInspection.h"

#include "FileSystem/File.h"
#include "FileSystem/Path.h"
#include "Host/CommandLine/FailureText.h"
#include "Session/Events/TraceEventStreamReader.h"
#include "Session/Pass/Model.h"
#include "Session/SessionPaths.h"
#include "Session/SharedModel.h"
#include "Utility/Format.h"

#include <algorithm>
#include <filesystem>
#include <limits>

namespace Host
{
namespace
{

using Utility::gFormat;

unsigned long long gToPrinted(uint64_t inCount)
{
    return inCount;
}

std::vector<StoredFile> gListFiles(const std::string& inFolder)
{
    std::vector<StoredFile> files;
    std::error_code error;
    std::filesystem::recursive_directory_iterator entries(inFolder, error);
    for (; !error && entries != std::filesystem::recursive_directory_iterator(); entries.increment(error))
    {
        std::error_code entryError;
        if (entries->is_regular_file(entryError))
            files.push_back({entries->path().lexically_relative(inFolder).string(), entries->file_size(entryError)});
    }
    std::sort(files.begin(), files.end(),
              [](const StoredFile& inFirst, const StoredFile& inSecond) { return inFirst.Name < inSecond.Name; });
    return files;
}

StoreState gInspectEvents(const std::string& inFolder, const RTTI::Registry& inRegistry)
{
    Serialization::ReaderErrorState errors;
    const std::unique_ptr<Profiler::TraceEventStream> stream = Profiler::TraceEventStream::sLoad(inFolder, inRegistry, errors);
    if (stream == nullptr)
        return {"events", false, gGetFailureText(errors)};
    const uint64_t count = stream->GetNumEvents();
    if (stream->NeedsUpgrade())
        return {"events", true, gFormat("%llu events in an old layout, to be upgraded", gToPrinted(count))};
    // From the very first, also those at negative times.
    Profiler::TraceEventStreamReader reader = stream->CreateReader(std::numeric_limits<double>::lowest());
    Profiler::TraceEvent event;
    while (reader.NextEvent(event))
    {
    }
    if (!reader.GetFailure().empty())
        return {"events", false, reader.GetFailure()};
    return {"events", reader.GetEventsRead() == count,
            gFormat("%llu of %llu events in %zu chunks", gToPrinted(reader.GetEventsRead()), gToPrinted(count),
                    stream->GetChunks().size())};
}

StoreState gInspectStacks(const std::string& inFolder, Profiler::Session* inSession)
{
    const std::string path = Profiler::gGetCallstackTriePath(inFolder);
    if (!FileSystem::gExists(path))
    {
        const size_t count = inSession != nullptr ? inSession->GetCallstackDatabase().StacksByID.size() : 0;
        return {"stacks", count != 0, count != 0 ? gFormat("%zu in the session file", count) : "there are none"};
    }
    Serialization::ReaderErrorState errors;
    Profiler::CallstackTrie trie;
    if (!trie.LoadCallstacks(path, errors))
        return {"stacks", false, gGetFailureText(errors)};
    return {"stacks", true, gFormat("%llu nodes", gToPrinted(trie.GetNodeCount()))};
}

StoreState gInspectBrokenStacks(const std::string& inFolder, const RTTI::Registry& inRegistry)
{
    Utility::ErrorState errors;
    Profiler::BrokenStackHolder holder(inFolder);
    if (!holder.Load(inRegistry, errors))
        return {"broken stacks", false, gGetFailureText(errors) + "; to be found again"};
    return {"broken stacks", true, gFormat("in %zu threads", holder.GetIndex()->ChunksByThread.size())};
}

StoreState gInspectSharedModel(Profiler::Session& ioSession, const RTTI::Registry& inRegistry)
{
    Serialization::ReaderErrorState errors;
    if (ioSession.LoadSharedModel(inRegistry, errors) == nullptr)
        return {"shared model", false, gGetFailureText(errors) + "; to be built again"};
    return {"shared model", true, "stored"};
}

StoreState gInspectModels(const Profiler::Session& inSession)
{
    const size_t toBuild = inSession.GetModelsToReprocess().size();
    const size_t count = inSession.GetModels().size();
    return {"models", toBuild == 0,
            toBuild == 0 ? gFormat("%zu stored", count) : gFormat("%zu of %zu to be built", toBuild, count)};
}

void gInspectStoredTimeline(const Profiler::Session& inSession, SessionInspection& ioInspection)
{
    Profiler::ThreadsModel* model = gFindStoredTimeline(inSession);
    if (model == nullptr)
        return;
    const TimelineInspection& timeline = ioInspection.Timeline.emplace(gInspectTimeline(*model));
    const auto add = [&](const char* inName, const std::string& inFault, const std::string& inContent)
    {
        ioInspection.Stores.push_back(
            {inName, inFault.empty(), inFault.empty() ? inContent : inFault + "; process --rebuild makes it anew"});
    };
    add("timeline", timeline.ThreadsFault, gFormat("%zu levels", timeline.Levels.size()));
    add("find index", timeline.FindFault, gFormat("%zu functions in %zu threads", timeline.FindFunctions, timeline.FindThreads));
    add("wake-ups", timeline.ReadyFault, gFormat("%zu told of", timeline.ReadyIndices));
}

StoreState gInspectReport(const std::string& inFolder, const ImportReport* inReport)
{
    if (inReport != nullptr)
        return {"import report", true, "stored"};
    const bool isThere = FileSystem::gExists(gGetImportReportPath(inFolder));
    return {"import report", false, isThere ? gGetImportReportPath(inFolder) + " can't be read" : "there is none"};
}

void gInspectContents(Profiler::Session& ioSession, const RTTI::Registry& inRegistry, SessionInspection& ioInspection)
{
    const Profiler::SessionInfo& info = ioSession.GetSessionInfo();
    ioInspection.LengthMs = info.SessionEndTimeMs - info.SessionStartTimeMs;
    ioInspection.Processes = ioSession.GetProcessList().size();
    ioInspection.NonCapturedProcesses = ioSession.GetNonCapturedProcesses().size();
    ioInspection.Threads = ioSession.GetThreadList().size();
    ioInspection.Modules = ioSession.GetModuleDatabase().GetNativeModules().size();
    ioInspection.Stores.push_back(gInspectSharedModel(ioSession, inRegistry));
    ioInspection.Stores.push_back(gInspectModels(ioSession));
    gInspectStoredTimeline(ioSession, ioInspection);
}

} // namespace

SessionInspection gInspectSession(const std::string& inSessionPath, Workspace& ioWorkspace)
{
    const std::string folder = Profiler::gGetSessionFolder(inSessionPath);
    const RTTI::Registry& registry = ioWorkspace.GetRegistry();
    SessionInspection inspection;
    inspection.SessionPath = inSessionPath;
    inspection.Files = gListFiles(folder);
    inspection.Report = gReadImportReport(folder, registry);

    uint32_t flags = Profiler::NothingToReprocess;
    Utility::ErrorState errors;
    const std::unique_ptr<Profiler::Session> session = ioWorkspace.LoadSession(inSessionPath, flags, errors);
    inspection.CanBeOpened = session != nullptr;
    inspection.Failure = session == nullptr ? gGetFailureText(errors) : std::string();
    inspection.Stores.push_back(
        {"session", inspection.CanBeOpened, inspection.CanBeOpened ? "can be opened" : inspection.Failure});
    inspection.Stores.push_back(gInspectEvents(folder, registry));
    inspection.Stores.push_back(gInspectStacks(folder, session.get()));
    inspection.Stores.push_back(gInspectBrokenStacks(folder, registry));
    if (session != nullptr)
        gInspectContents(*session, registry, inspection);
    inspection.Stores.push_back(gInspectReport(folder, inspection.Report.get()));
    return inspection;
}

} // namespace Host
