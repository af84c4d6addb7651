#include "Host/CommandLine/StagedFolder.h"

#include "FileSystem/Delete.h"
#include "FileSystem/File.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace Host
{
namespace
{

bool gDelete(const std::string& inFolder, Utility::ErrorState& ioErrors)
{
    return FileSystem::gDeleteDirectory(inFolder, ioErrors) == FileSystem::EDeleteResult::Success;
}

// Puts inFrom in the place of inTo, or lets two that are both there change places.
bool gMove(const std::string& inFrom, const std::string& inTo, bool inExchanges, Utility::ErrorState& ioErrors)
{
    const unsigned int mode = inExchanges ? RENAME_EXCHANGE : RENAME_NOREPLACE;
    const bool isMoved = renameat2(AT_FDCWD, inFrom.c_str(), AT_FDCWD, inTo.c_str(), mode) == 0;
    return Utility::Check(ioErrors, isMoved, 0, "Unable to move %s to %s: %s", inFrom, inTo, std::strerror(errno));
}

} // namespace

StagedFolder::StagedFolder(std::string inPath) : mPath(std::move(inPath)), mStagingPath(mPath + ".unfinished") {}

StagedFolder::~StagedFolder()
{
    // Nobody is left to tell.
    Utility::ErrorState errors;
    if (mIsMade)
        static_cast<void>(gDelete(mStagingPath, errors));
}

bool StagedFolder::Make(Utility::ErrorState& ioErrors)
{
    if (!gDelete(mStagingPath, ioErrors))
        return false;
    errno = 0;
    mIsMade = FileSystem::gCreateDirectories(mStagingPath, FileSystem::sClosedToOthers);
    return Utility::Check(ioErrors, mIsMade, 0, "Unable to make the folder %s: %s", mStagingPath, std::strerror(errno));
}

bool StagedFolder::Commit(Utility::ErrorState& ioErrors)
{
    const bool isReplaced = FileSystem::gExists(mPath);
    if (!gMove(mStagingPath, mPath, isReplaced, ioErrors))
        return false;
    mIsMade = false;
    // The old folder now lies beside the new one.
    return !isReplaced || gDelete(mStagingPath, ioErrors);
}

} // namespace Host
