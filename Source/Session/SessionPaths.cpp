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

std::string gGetSessionFolder(const std::string& inPath)
{
    if (gIsSessionFile(inPath))
        return FileSystem::gGetDirectory(inPath);
    return FileSystem::gCombinePath(FileSystem::gGetDirectory(inPath), FileSystem::gGetFileStem(inPath));
}

std::string gGetSessionFilePath(const std::string& inPath)
{
    if (gIsSessionFile(inPath))
        return inPath;
    const std::string name = FileSystem::gGetFileStem(inPath) + "." + sSessionExtension;
    return FileSystem::gCombinePath(gGetSessionFolder(inPath), name);
}

} // namespace Profiler
