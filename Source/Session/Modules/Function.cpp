#include "Session/Modules/Function.h"

RTTI_BEGIN(Profiler::Function, 1)
    RTTI_ALIAS("Profiler::ResolvedFunction")
    RTTI_ALIAS("Profiler::JITResolvedFunction")
    RTTI_PROPERTY("RelativeAddress", RelativeAddress)
    RTTI_PROPERTY("Size", Size)
    RTTI_PROPERTY("Name", Name)
    RTTI_PROPERTY("ExtraData", ExtraData)
    RTTI_PROPERTY("ModuleIndex", ModuleIndex)
RTTI_END()
