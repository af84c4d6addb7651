#include "ThreadsModel/Chunks/BarChunk.h"
#include "ThreadsModel/Chunks/Chunk.h"
#include "ThreadsModel/Chunks/FunctionIndexChunk.h"
#include "ThreadsModel/Chunks/OverviewChunk.h"
#include "ThreadsModel/Chunks/ReadyThreadChunk.h"

namespace Profiler
{

std::unique_ptr<Chunk> gCreateChunk(EChunkType inType)
{
    switch (inType)
    {
    case EChunkType::FunctionIndex:
        return std::make_unique<FunctionIndexChunk>();
    case EChunkType::Bar:
        return std::make_unique<BarChunk>();
    case EChunkType::Overview:
        return std::make_unique<OverviewChunk>();
    case EChunkType::ReadyThread:
        return std::make_unique<ReadyThreadChunk>();
    }
    return nullptr;
}

} // namespace Profiler
