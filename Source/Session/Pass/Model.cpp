#include "Session/Pass/Model.h"

RTTI_BEGIN(Profiler::Model, 1)
    RTTI_BASE(RTTI::Object)
RTTI_END()
