#include "Host/CommandLine/StagedFolder.h"

#include "FileSystem/Delete.h"
#include "FileSystem/File.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

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
    if (mLock != -1)
        close(mLock);
}

bool StagedFolder::Make(Utility::ErrorState& ioErrors)
{
    errno = 0;
    const bool isThere = FileSystem::gCreateDirectories(mStagingPath, FileSystem::sClosedToOthers);
    mLock = isThere ? open(mStagingPath.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC) : -1;
    if (!Utility::Check(ioErrors, mLock != -1, 0, "Unable to make the folder %s: %s", mStagingPath, std::strerror(errno)))
        return false;
    // The system lets go of the lock when a program ends in whatever way, so what it has left isn't locked.
    if (!Utility::Check(ioErrors, flock(mLock, LOCK_EX | LOCK_NB) == 0, 0, "Another program is writing to %s", mStagingPath))
        return false;
    mIsMade = true;
    return FileSystem::gDeleteDirectoryContents(mStagingPath, ioErrors) == FileSystem::EDeleteResult::Success;
}

bool StagedFolder::Commit(bool inReplaces, Utility::ErrorState& ioErrors)
{
    const bool isReplaced = inReplaces && FileSystem::gExists(mPath);
    if (!gMove(mStagingPath, mPath, isReplaced, ioErrors))
        return false;
    mIsMade = false;
    // The old folder now lies beside the new one.
    return !isReplaced || gDelete(mStagingPath, ioErrors);
}

} // namespace Host
