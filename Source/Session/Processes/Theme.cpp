#include "Session/Processes/Theme.h"

RTTI_ENUM_BEGIN(Profiler::EThemeType)
    RTTI_VALUE("Light", Profiler::EThemeType::Light)
    RTTI_VALUE("Dark", Profiler::EThemeType::Dark)
    RTTI_VALUE("FollowWindows", Profiler::EThemeType::FollowWindows)
RTTI_ENUM_END()
