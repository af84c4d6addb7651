#include "Host/CommandLine/OpenTimeline.h"

#include "Host/CommandLine/SessionPath.h"
#include "Host/CommandLine/TimelineInspection.h"

namespace Host
{

std::unique_ptr<OpenTimeline> OpenTimeline::sOpen(const std::string& inSession, const std::string& inPluginPath,
                                                  Utility::ErrorState& ioErrors)
{
    std::string path;
    if (!gFindSessionFile(inSession, path, ioErrors))
        return nullptr;
    std::unique_ptr<OpenTimeline> timeline(new OpenTimeline());
    timeline->mWorkspace = Workspace::sMake(inPluginPath, ioErrors);
    if (timeline->mWorkspace == nullptr)
        return nullptr;
    uint32_t flags = Profiler::NothingToReprocess;
    timeline->mSession = timeline->mWorkspace->LoadSession(path, flags, ioErrors);
    if (timeline->mSession == nullptr)
        return nullptr;
    timeline->mModel = gFindStoredTimeline(*timeline->mSession);
    if (!Utility::Check(ioErrors, flags == Profiler::NothingToReprocess && timeline->mModel != nullptr, 0,
                        "The timeline of %s isn't built; build it with: brenvaldoris process SESSION", path))
        return nullptr;
    return timeline;
}

const Profiler::Thread* OpenTimeline::FindThread(Profiler::ThreadID inKey, Utility::ErrorState& ioErrors) const
{
    const Profiler::Thread* thread = mSession->GetThread(inKey);
    static_cast<void>(Utility::Check(ioErrors, thread != nullptr, 0,
                                     "There is no thread with the key %d; find and summarize --json tell keys", inKey));
    return thread;
}

} // namespace Host
