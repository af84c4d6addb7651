#include "Session/Callstacks/CallstackDatabase.h"

RTTI_BEGIN(Profiler::CallstackDatabase, 1)
    RTTI_PROPERTY_AS("StacksByID", StacksByID, "Map_Profiler::CallstackKey_To_std::unique_ptr<Profiler::Callstack>")
RTTI_END()
