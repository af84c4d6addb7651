#include "Session/SessionInfo.h"

RTTI_BEGIN(Profiler::SessionInfo, 3)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("SampleIntervalMs", SampleIntervalMs)
    RTTI_PROPERTY("SessionStartTimeMs", SessionStartTimeMs)
    RTTI_PROPERTY("SessionEndTimeMs", SessionEndTimeMs)
    RTTI_PROPERTY("PerformanceAPIVersion", PerformanceAPIVersion)
    RTTI_PROPERTY("PlatformID", PlatformID)
    RTTI_PROPERTY("SymbolSettingsHash", SymbolSettingsHash)
RTTI_END()

namespace Profiler
{

const RTTI::Type& SessionInfo::GetType() const
{
    return RTTI::gTypeOf<SessionInfo>();
}

} // namespace Profiler
