#include "FileSystem/DirectoryEntries.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>

namespace FileSystem
{
namespace
{

struct CloseDirectory
{
    void operator()(DIR* inDirectory) const { closedir(inDirectory); }
};
using DirectoryStream = std::unique_ptr<DIR, CloseDirectory>;

// Null on failure, with errno set.
DirectoryStream gOpenDirectory(const std::string& inPath, ELinkPolicy inLinks)
{
    const int linkFlag = inLinks == ELinkPolicy::Refuse ? O_NOFOLLOW : 0;
    const int descriptor = open(inPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | linkFlag);
    if (descriptor < 0)
        return nullptr;
    DirectoryStream stream(fdopendir(descriptor));
    if (stream == nullptr)
    {
        const int error = errno;
        close(descriptor);
        errno = error;
    }
    return stream;
}

// For file systems that don't tell the kind with the entry.
EEntryKind gAskKind(const std::string& inPath)
{
    struct stat status
    {
    };
    if (lstat(inPath.c_str(), &status) != 0)
        return EEntryKind::Other;
    if (S_ISDIR(status.st_mode))
        return EEntryKind::Directory;
    return S_ISLNK(status.st_mode) ? EEntryKind::Link : EEntryKind::Other;
}

EEntryKind gGetKind(const std::string& inDirectory, const dirent& inEntry)
{
    switch (inEntry.d_type)
    {
    case DT_DIR:
        return EEntryKind::Directory;
    case DT_LNK:
        return EEntryKind::Link;
    case DT_UNKNOWN:
        return gAskKind(inDirectory + '/' + inEntry.d_name);
    default:
        return EEntryKind::Other;
    }
}

} // namespace

int gReadDirectoryEntries(const std::string& inPath, ELinkPolicy inLinks, std::vector<DirectoryEntry>& outEntries)
{
    outEntries.clear();
    const DirectoryStream stream = gOpenDirectory(inPath, inLinks);
    if (stream == nullptr)
        return errno;

    std::vector<DirectoryEntry> entries;
    // readdir tells its end and a failure apart by errno only.
    for (errno = 0; const dirent* entry = readdir(stream.get()); errno = 0)
    {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            entries.push_back({std::string(name), gGetKind(inPath, *entry)});
    }
    if (errno != 0)
        return errno;
    outEntries = std::move(entries);
    return 0;
}

} // namespace FileSystem
