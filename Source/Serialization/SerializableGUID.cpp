#include "Serialization/SerializableGUID.h"

RTTI_BEGIN(Serialization::SerializableGUID, 1)
    RTTI_ALIAS("Profiler::SerializableGUID")
    RTTI_PROPERTY("Data1", Data1)
    RTTI_PROPERTY("Data2", Data2)
RTTI_END()
