#include "Session/Settings/GeneralSettings.h"

#include "FileSystem/File.h"
#include "FileSystem/Path.h"
#include "System/Environment.h"
#include "Utility/ErrorState.h"

RTTI_ENUM_BEGIN(Profiler::ECrashReportingMode)
    RTTI_VALUE("Disable", Profiler::ECrashReportingMode::Disable)
    RTTI_VALUE("EnabledNoUpload", Profiler::ECrashReportingMode::EnabledNoUpload)
    RTTI_VALUE("EnabledWithUpload", Profiler::ECrashReportingMode::EnabledWithUpload)
RTTI_ENUM_END()

RTTI_ENUM_BEGIN(Profiler::EUseCaptureService)
    RTTI_VALUE("Default", Profiler::EUseCaptureService::Default)
    RTTI_VALUE("Enabled", Profiler::EUseCaptureService::Enabled)
    RTTI_VALUE("Disabled", Profiler::EUseCaptureService::Disabled)
RTTI_ENUM_END()

RTTI_BEGIN(Profiler::GeneralSettings, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("Theme", Theme)
    RTTI_PROPERTY("CrashReportingMode", CrashReportingMode)
    RTTI_PROPERTY("CaptureTargetDirectory", CaptureTargetDirectory)
    RTTI_PROPERTY("UseCaptureService", UseCaptureService)
RTTI_END()

namespace Profiler
{
namespace
{

constexpr uint32_t sSettingsError = 0;

} // namespace

GeneralSettings::GeneralSettings()
    : CaptureTargetDirectory(FileSystem::gCombinePath(System::gGetHomeDirectory(), "BrenvaldorisCaptures"))
{
    [[maybe_unused]] const bool isMade = FileSystem::gCreateDirectories(CaptureTargetDirectory);
}

const RTTI::Type& GeneralSettings::GetType() const
{
    return RTTI::gTypeOf<GeneralSettings>();
}

bool GeneralSettings::Validate(Utility::ErrorState& ioErrors) const
{
    const std::string& directory = CaptureTargetDirectory;
    return Utility::Check(ioErrors, !directory.empty(), sSettingsError, "Capture target directory is empty") &&
           Utility::Check(ioErrors, FileSystem::gIsAbsolutePath(directory), sSettingsError,
                          "Capture target directory is not an absolute path") &&
           Utility::Check(ioErrors, FileSystem::gCreateDirectories(directory), sSettingsError,
                          "Unable to create capture target directory %s", directory);
}

} // namespace Profiler
