#include "FileSystem/Delete.h"

#include "FileSystem/DirectoryEntries.h"
#include "FileSystem/File.h"

#include <unistd.h>

#include <cerrno>
#include <vector>

namespace FileSystem
{
namespace
{

constexpr uint32_t sErrorCode = 0;

// What the errno value of a call on the path means for deleting it. The path below something that isn't a directory doesn't exist
// either, but that something itself does.
EDeleteResult gJudge(int inError, const std::string& inPath)
{
    if (inError == 0 || inError == ENOENT || (inError == ENOTDIR && !gExists(inPath)))
        return EDeleteResult::Success;
    // Directories with the sticky bit, and immutable files, answer with EPERM.
    return inError == EACCES || inError == EPERM ? EDeleteResult::AccessDenied : EDeleteResult::Error;
}

// Gives inResult back, with an entry in one of two wordings if it is a failure.
EDeleteResult gReport(EDeleteResult inResult, const char* inDeniedFormat, const char* inErrorFormat, const std::string& inPath,
                      Utility::ErrorState& ioErrors)
{
    const char* format = inResult == EDeleteResult::AccessDenied ? inDeniedFormat : inErrorFormat;
    Utility::Check(ioErrors, inResult == EDeleteResult::Success, sErrorCode, format, inPath.c_str());
    return inResult;
}

EDeleteResult gDeleteEntry(const std::string& inPath, EEntryKind inKind, Utility::ErrorState& ioErrors)
{
    if (inKind == EEntryKind::Directory)
        return gDeleteDirectory(inPath, ioErrors);
    return gReport(gDeleteFile(inPath), "Access to %s was denied", "Could not delete file %s", inPath, ioErrors);
}

EDeleteResult gDeleteContents(const std::string& inPath, ELinkPolicy inLinks, Utility::ErrorState& ioErrors)
{
    std::vector<DirectoryEntry> entries;
    const EDeleteResult opened = gJudge(gReadDirectoryEntries(inPath, inLinks, entries), inPath);
    if (opened != EDeleteResult::Success)
        return gReport(opened, "Access to %s was denied", "An unknown error occurred while deleting directory %s", inPath,
                       ioErrors);

    for (const DirectoryEntry& entry : entries)
    {
        const EDeleteResult result = gDeleteEntry(inPath + '/' + entry.Name, entry.Kind, ioErrors);
        if (result != EDeleteResult::Success)
            return result;
    }
    return EDeleteResult::Success;
}

} // namespace

EDeleteResult gDeleteFile(const std::string& inPath)
{
    return gJudge(unlink(inPath.c_str()) == 0 ? 0 : errno, inPath);
}

EDeleteResult gDeleteDirectory(const std::string& inPath, Utility::ErrorState& ioErrors)
{
    // With a separator behind it, the name of a link would stand for the directory that it leads to.
    const size_t end = inPath.find_last_not_of('/');
    const std::string path = end != std::string::npos ? inPath.substr(0, end + 1) : inPath;
    const EDeleteResult contents = gDeleteContents(path, ELinkPolicy::Refuse, ioErrors);
    if (contents != EDeleteResult::Success)
        return contents;
    const EDeleteResult result = gJudge(rmdir(path.c_str()) == 0 ? 0 : errno, path);
    return gReport(result, "Access to directory %s was denied", "Could not delete directory %s", inPath, ioErrors);
}

EDeleteResult gDeleteDirectoryContents(const std::string& inPath, Utility::ErrorState& ioErrors)
{
    return gDeleteContents(inPath, ELinkPolicy::Follow, ioErrors);
}

} // namespace FileSystem
