#include "Host/CommandLine/SessionPath.h"

#include "FileSystem/File.h"
#include "FileSystem/Path.h"
#include "Session/SessionPaths.h"

#include <filesystem>
#include <vector>

namespace Host
{
namespace
{

bool gIsFolder(const std::string& inPath)
{
    std::error_code error;
    return std::filesystem::is_directory(inPath, error);
}

// The session files directly in a folder.
std::vector<std::string> gFindSessionFiles(const std::string& inFolder)
{
    std::vector<std::string> files;
    std::error_code error;
    std::filesystem::directory_iterator entries(inFolder, error);
    for (; !error && entries != std::filesystem::directory_iterator(); entries.increment(error))
        if (FileSystem::gGetExtension(entries->path().string()) == Profiler::sSessionExtension)
            files.push_back(entries->path().string());
    return files;
}

// The folder's name is the session's, unless the path is one like "." that doesn't tell it, or the folder got another name. Then
// it is the only session file in it.
std::string gGetFileOfFolder(const std::string& inFolder)
{
    std::error_code error;
    const std::filesystem::path whole = std::filesystem::weakly_canonical(inFolder, error);
    const std::string folder = error ? inFolder : whole.string();
    std::string file = FileSystem::gCombinePath(folder, FileSystem::gGetFileName(folder) + "." + Profiler::sSessionExtension);
    if (FileSystem::gExists(file))
        return file;
    const std::vector<std::string> others = gFindSessionFiles(folder);
    return others.size() == 1 ? others.front() : file;
}

} // namespace

bool gIsSession(const std::string& inPath)
{
    return FileSystem::gGetExtension(inPath) == Profiler::sSessionExtension ||
           (gIsFolder(inPath) && FileSystem::gExists(gGetFileOfFolder(inPath)));
}

bool gFindSessionFile(const std::string& inPath, std::string& outSessionFile, Utility::ErrorState& ioErrors)
{
    outSessionFile = gIsFolder(inPath) ? gGetFileOfFolder(inPath) : Profiler::gGetSessionFilePath(inPath);
    return Utility::Check(ioErrors, FileSystem::gExists(outSessionFile), 0,
                          "There is no session at %s; make one with: brenvaldoris import CAPTURE", outSessionFile);
}

} // namespace Host
