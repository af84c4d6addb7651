#include "ThreadsModel/DetailLODThread.h"

RTTI_BEGIN(Profiler::DetailLODThread, 1)
    RTTI_PROPERTY("ThreadID", mThreadID)
    RTTI_PROPERTY("ChunkTable", mChunkTable)
RTTI_END()
