#include "Session/Settings/SymbolSettings.h"

#include "FileSystem/File.h"
#include "FileSystem/Path.h"
#include "System/Environment.h"
#include "Utility/ErrorState.h"

RTTI_BEGIN(Profiler::SharedSymbolSettings, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("SymbolCacheDirectory", mSymbolCacheDirectory)
RTTI_END()

namespace Profiler
{
namespace
{

constexpr uint32_t sSettingsError = 0;

} // namespace

SharedSymbolSettings::SharedSymbolSettings()
{
    const std::string cache = System::gGetUserDirectory("XDG_CACHE_HOME", ".cache");
    SetSymbolCacheDirectory(FileSystem::gCombinePath(cache, "Brenvaldoris/SymbolCache"));
    [[maybe_unused]] const bool isMade = FileSystem::gCreateDirectories(mSymbolCacheDirectory);
}

const RTTI::Type& SharedSymbolSettings::GetType() const
{
    return RTTI::gTypeOf<SharedSymbolSettings>();
}

void SharedSymbolSettings::SetSymbolCacheDirectory(std::string_view inDirectory)
{
    mSymbolCacheDirectory = FileSystem::gToForwardSlashes(inDirectory);
}

bool SharedSymbolSettings::Validate(Utility::ErrorState& ioErrors)
{
    // A record that was read from a file didn't pass through the setter.
    SetSymbolCacheDirectory(mSymbolCacheDirectory);

    const std::string& directory = mSymbolCacheDirectory;
    return Utility::Check(ioErrors, !directory.empty(), sSettingsError, "Symbol cache directory is empty") &&
           Utility::Check(ioErrors, FileSystem::gIsAbsolutePath(directory), sSettingsError,
                          "Symbol cache directory is not an absolute path") &&
           Utility::Check(ioErrors, FileSystem::gCreateDirectories(directory), sSettingsError,
                          "Unable to create symbol cache directory %s", directory);
}

} // namespace Profiler
