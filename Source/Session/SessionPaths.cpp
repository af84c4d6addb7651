#include "Session/SessionPaths.h"

#include "FileSystem/Path.h"

namespace Profiler
{
namespace
{

bool gIsSessionFile(const std::string& inPath)
{
    return FileSystem::gGetExtension(inPath) == sSessionExtension;
}

} // namespace

std::string gGetFolderOf(const std::string& inPath)
{
    std::string directory = FileSystem::gGetDirectory(inPath);
    return directory.empty() && FileSystem::gIsAbsolutePath(inPath) ? "/" : directory;
}

std::string gGetSessionFolder(const std::string& inPath)
{
    if (gIsSessionFile(inPath))
        return gGetFolderOf(inPath);
    return FileSystem::gCombinePath(gGetFolderOf(inPath), FileSystem::gGetFileStem(inPath));
}

std::string gGetSessionFilePath(const std::string& inPath)
{
    if (gIsSessionFile(inPath))
        return inPath;
    const std::string name = FileSystem::gGetFileStem(inPath) + "." + sSessionExtension;
    return FileSystem::gCombinePath(gGetSessionFolder(inPath), name);
}

} // namespace Profiler
