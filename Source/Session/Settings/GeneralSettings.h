// The settings of the profiler that belong to no session.
//
// Threads: one at a time, but for the signal, which has a lock. Ownership: the host's, which also stores the record, decides when
// it is validated and acts on its values.
#pragma once

#include "RTTI/Declare.h"
#include "RTTI/Object.h"
#include "Session/Processes/Theme.h"
#include "System/Mutex.h"
#include "Utility/Signal.h"

#include <cstdint>
#include <string>

namespace Utility
{
class ErrorState;
}

namespace Profiler
{

// Stored; never renumber.
enum class ECrashReportingMode : uint32_t
{
    Disable = 0,
    EnabledNoUpload = 1,
    EnabledWithUpload = 2,
};

// Stored; never renumber.
enum class EUseCaptureService : uint32_t
{
    Default = 0, // no choice of the user's
    Enabled = 1,
    Disabled = 2,
};

class GeneralSettings : public RTTI::Object
{
public:
    // With a directory in the user's home folder, which is made where it is missing. Whether that works, Validate tells.
    GeneralSettings();
    ~GeneralSettings() override = default;
    const RTTI::Type& GetType() const override;

    // Whether the capture target directory is an absolute path, with forward slashes, and exists or can be made; it then exists.
    // False, with an entry, otherwise.
    [[nodiscard]] bool Validate(Utility::ErrorState& ioErrors) const;

    EThemeType Theme = EThemeType::Light;
    ECrashReportingMode CrashReportingMode = ECrashReportingMode::Disable;
    std::string CaptureTargetDirectory; // where new captures go
    EUseCaptureService UseCaptureService = EUseCaptureService::Default;

    // For whoever edits the settings to tell listeners; nothing here fires it. Connections are made, called and ended under the
    // mutex.
    System::Mutex ChangedMutex;
    Utility::Signal<void()> Changed GUARDED_BY(ChangedMutex);
};

} // namespace Profiler

RTTI_DECLARE_ENUM(Profiler::ECrashReportingMode);
RTTI_DECLARE_ENUM(Profiler::EUseCaptureService);
RTTI_DECLARE(Profiler::GeneralSettings);
