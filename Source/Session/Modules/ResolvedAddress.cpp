#include "Session/Modules/ResolvedAddress.h"

RTTI_BEGIN(Profiler::ResolveIndex, 1)
    RTTI_PROPERTY("Index", Index)
RTTI_END()

RTTI_BEGIN(Profiler::ResolvedAddress, 1)
    RTTI_PROPERTY("RelativeAddress", RelativeAddress)
    RTTI_PROPERTY("ResolveIndex", ResolveIndex)
RTTI_END()
