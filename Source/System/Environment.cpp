#include "System/Environment.h"

#include "FileSystem/Path.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace System
{
namespace
{

// What a password record needs where the system doesn't name a size.
constexpr long sDefaultRecordSize = 16384;

std::string gGetHomeOfPasswordRecord()
{
    const long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(static_cast<size_t>(size < 0 ? sDefaultRecordSize : size));
    passwd record{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &record, buffer.data(), buffer.size(), &found) != 0 || found == nullptr || found->pw_dir == nullptr)
        return {};
    return found->pw_dir;
}

} // namespace

std::string gGetEnvironmentVariable(const std::string& inName)
{
    const char* value = std::getenv(inName.c_str());
    return value != nullptr ? value : "";
}

std::string gGetHomeDirectory()
{
    const std::string home = gGetEnvironmentVariable("HOME");
    return home.empty() ? gGetHomeOfPasswordRecord() : home;
}

std::string gGetUserDirectory(const std::string& inVariable, const std::string& inFallback)
{
    const std::string directory = gGetEnvironmentVariable(inVariable);
    return directory.empty() ? FileSystem::gCombinePath(gGetHomeDirectory(), inFallback) : directory;
}

} // namespace System
