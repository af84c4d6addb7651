#include "Session/Settings/CaptureMethod.h"

RTTI_BEGIN(Profiler::CaptureMethodConfiguration, 1)
    RTTI_PROPERTY("DisplayName", DisplayName)
RTTI_END()

RTTI_BEGIN(Profiler::CaptureInitProgress, 1)
    RTTI_BASE(RTTI::Object)
RTTI_END()

namespace Profiler
{

const RTTI::Type& CaptureInitProgress::GetType() const
{
    return RTTI::gTypeOf<CaptureInitProgress>();
}

} // namespace Profiler
