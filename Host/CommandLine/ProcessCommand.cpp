#include "Host/CommandLine/ProcessCommand.h"

#include "FileSystem/Delete.h"
#include "FileSystem/File.h"
#include "FileSystem/Path.h"
#include "Host/CommandLine/Interrupt.h"
#include "Host/CommandLine/SessionPath.h"
#include "Host/CommandLine/SessionProcessing.h"
#include "Host/CommandLine/Workspace.h"
#include "Session/Callstacks/BrokenStackIndex.h"
#include "Session/SessionPaths.h"

namespace Host
{
namespace
{

using FileSystem::EDeleteResult;
using Utility::ErrorState;

bool gDeleteFile(const std::string& inPath, ErrorState& ioErrors)
{
    return Utility::Check(ioErrors, FileSystem::gDeleteFile(inPath) == EDeleteResult::Success, 0, "Could not delete file %s",
                          inPath);
}

// What comes from the events can be made of them again: the models' folders and the broken stacks. A viewer's own files stay.
bool gDeleteDerivedData(const std::string& inSessionFolder, ErrorState& ioErrors)
{
    std::vector<std::string> folders;
    if (!Utility::Check(ioErrors, FileSystem::gGetSubdirectories(inSessionFolder, "", folders), 0, "Unable to read the folder %s",
                        inSessionFolder))
        return false;
    const std::string viewState = FileSystem::gCombinePath(inSessionFolder, Profiler::sViewStateFolder);
    for (const std::string& folder : folders)
    {
        if (!FileSystem::gArePathsEqual(folder, viewState) &&
            FileSystem::gDeleteDirectory(folder, ioErrors) != EDeleteResult::Success)
            return false;
    }
    return gDeleteFile(Profiler::gGetBrokenStackIndexPath(inSessionFolder), ioErrors) &&
           gDeleteFile(Profiler::gGetBrokenStackDataPath(inSessionFolder), ioErrors);
}

std::string gDescribeFlags(uint32_t inFlags)
{
    using namespace Profiler;
    std::string text;
    if ((inFlags & UpgradeEventStream) != 0)
        text += "Upgraded the events\n";
    if ((inFlags & RebuildBrokenStacks) != 0)
        text += "Found the broken stacks\n";
    if ((inFlags & ReprocessAllModels) != 0)
        text += "Built the timeline\n";
    if ((inFlags & ReprocessSomeModels) != 0)
        text += "Built a part of the timeline\n";
    return text.empty() ? "Nothing to do\n" : text;
}

} // namespace

bool gProcess(const ProcessOptions& inOptions, std::string& outText, ErrorState& ioErrors)
{
    const InterruptScope interrupt;
    std::string path;
    if (!gFindSessionFile(inOptions.Session, path, ioErrors))
        return false;
    const std::unique_ptr<Workspace> workspace = Workspace::sMake(inOptions.PluginPath, ioErrors);
    if (workspace == nullptr)
        return false;
    uint32_t flags = Profiler::NothingToReprocess;
    // Opened before anything is deleted: a session that can't be opened keeps what it has.
    std::unique_ptr<Profiler::Session> session = workspace->LoadSession(path, flags, ioErrors);
    if (session != nullptr && inOptions.Rebuilds)
    {
        session.reset();
        if (gDeleteDerivedData(Profiler::gGetSessionFolder(path), ioErrors))
            session = workspace->LoadSession(path, flags, ioErrors);
    }
    if (session == nullptr || !gProcessSession(*session, flags, workspace->GetRegistry(), interrupt.GetFlag(), ioErrors))
        return false;
    outText = gDescribeFlags(flags);
    return true;
}

} // namespace Host
