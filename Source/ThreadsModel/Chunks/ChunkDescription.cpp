#include "ThreadsModel/Chunks/ChunkDescription.h"

RTTI_BEGIN(Profiler::ChunkLayout, 1)
    RTTI_PROPERTY("BarDataOffset", BarDataOffset)
    RTTI_PROPERTY("BarDataSize", BarDataSize)
    RTTI_PROPERTY("FunctionIndexOffset", FunctionIndexOffset)
    RTTI_PROPERTY("FunctionIndexSize", FunctionIndexSize)
    RTTI_PROPERTY("OverviewDataOffset", OverviewDataOffset)
    RTTI_PROPERTY("OverviewDataSize", OverviewDataSize)
    RTTI_PROPERTY("BoundaryDataOffset", BoundaryDataOffset)
    RTTI_PROPERTY("BoundaryDataSize", BoundaryDataSize)
RTTI_END()

RTTI_BEGIN(Profiler::ChunkDescription, 1)
    RTTI_PROPERTY("Index", mIndex)
    RTTI_PROPERTY("Layout", mLayout)
    RTTI_PROPERTY("AvailableDataTypes", mAvailableDataTypes)
RTTI_END()
