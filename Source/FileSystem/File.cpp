#include "FileSystem/File.h"

#include "FileSystem/DirectoryEntries.h"
#include "FileSystem/Path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <utility>

namespace FileSystem
{
namespace
{

constexpr mode_t sNewDirectoryMode = 0775;
constexpr mode_t sOthersReadWrite = 06;
constexpr mode_t sPermissionBits = 07777;
constexpr size_t sReadBlockSize = 64 * 1024;
constexpr uint64_t sMaxSizeHint = 64u << 20;

struct CloseFile
{
    void operator()(std::FILE* inFile) const { std::fclose(inFile); }
};

struct FreeText
{
    void operator()(char* inText) const { std::free(inText); }
};

std::optional<struct stat> gGetStatus(const std::string& inPath)
{
    struct stat status
    {
    };
    if (stat(inPath.c_str(), &status) != 0)
        return std::nullopt;
    return status;
}

bool gIsDirectory(const std::string& inPath)
{
    const auto status = gGetStatus(inPath);
    return status && S_ISDIR(status->st_mode);
}

// A tool that runs as root must not lock the user who looks at its captures out of them.
void gOpenToOthersAsRoot(const std::string& inPath)
{
    if (geteuid() != 0)
        return;
    if (const auto status = gGetStatus(inPath)) [[maybe_unused]]
        const int result = chmod(inPath.c_str(), (status->st_mode & sPermissionBits) | sOthersReadWrite);
}

template <class Stream>
void gReopen(Stream& outStream, const std::string& inPath, std::ios_base::openmode inMode)
{
    if (outStream.is_open())
        outStream.close();
    outStream.open(inPath, inMode);
}

// How much is probably there to be read. Files of the kernel say 0, a file can change while it is read, and one with holes can
// say more than any memory holds.
size_t gGetSizeHint(const std::string& inPath)
{
    uint64_t size = 0;
    return gGetFileSize(inPath, size) && !gIsDirectory(inPath) ? std::min(size, sMaxSizeHint) : 0;
}

bool gReadAll(std::FILE& inFile, size_t inSizeHint, std::vector<uint8_t>& outBytes)
{
    outBytes.reserve(inSizeHint);
    std::vector<uint8_t> block(sReadBlockSize);
    while (const size_t count = std::fread(block.data(), 1, block.size(), &inFile))
        outBytes.insert(outBytes.end(), block.begin(), block.begin() + static_cast<ptrdiff_t>(count));
    return std::ferror(&inFile) == 0;
}

// Empty if the current directory is gone.
std::string gGetCurrentDirectory()
{
    const std::unique_ptr<char, FreeText> path(getcwd(nullptr, 0));
    return path != nullptr ? std::string(path.get()) : std::string();
}

} // namespace

bool gExists(const std::string& inPath)
{
    return gGetStatus(inPath).has_value();
}

bool gGetFileSize(const std::string& inPath, uint64_t& outSize)
{
    const auto status = gGetStatus(inPath);
    if (!status)
        return false;
    outSize = static_cast<uint64_t>(status->st_size);
    return true;
}

bool gCreateDirectories(const std::string& inPath, int inMode)
{
    if (gExists(inPath))
        return true;

    std::vector<std::string> components;
    gSplitPath(gNormalizePath(inPath), components);
    std::string path;
    for (const std::string& component : components)
    {
        if (!path.empty())
            path += '/';
        path += component;
        if (!gExists(path) && mkdir(path.c_str(), sNewDirectoryMode) != 0)
            return false;
    }
    if (inMode == sOpenToOthers)
        gOpenToOthersAsRoot(path);
    return true;
}

bool gRename(const std::string& inFrom, const std::string& inTo)
{
    return std::rename(inFrom.c_str(), inTo.c_str()) == 0;
}

bool gReadFile(const std::string& inPath, std::vector<uint8_t>& outBytes)
{
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(inPath.c_str(), "rbe"));
    if (file == nullptr)
        return false;

    try
    {
        std::vector<uint8_t> bytes;
        if (!gReadAll(*file, gGetSizeHint(inPath), bytes))
            return false;
        outBytes = std::move(bytes);
        return true;
    }
    catch (const std::bad_alloc&)
    {
        return false;
    }
    catch (const std::length_error&)
    {
        return false;
    }
}

void gOpenRead(std::ifstream& outStream, const std::string& inPath, std::ios_base::openmode inMode)
{
    gReopen(outStream, inPath, inMode);
}

void gOpenWrite(std::ofstream& outStream, const std::string& inPath, std::ios_base::openmode inMode)
{
    gReopen(outStream, inPath, inMode);
}

bool gGetSubdirectories(const std::string& inPath, std::string_view /*inFilter*/, std::vector<std::string>& outPaths)
{
    outPaths.clear();
    const bool isRelativeToCurrent = inPath.empty() || inPath.front() == '.';
    std::string start = isRelativeToCurrent ? gCombinePath(gGetCurrentDirectory(), inPath) : inPath;

    std::vector<DirectoryEntry> entries;
    if (gReadDirectoryEntries(start, ELinkPolicy::Follow, entries) != 0)
        return false;
    // Names are appended as they are: in a name of this system a backslash is a letter like any other.
    if (start.back() != '/')
        start += '/';
    for (const DirectoryEntry& entry : entries)
    {
        std::string path = start + entry.Name;
        if (entry.Kind == EEntryKind::Directory || (entry.Kind == EEntryKind::Link && gIsDirectory(path)))
            outPaths.push_back(std::move(path));
    }
    return true;
}

} // namespace FileSystem
