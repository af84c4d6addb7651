// The lines of the streaming manager's debug log.
#include "ThreadsModel/ThreadStreamingManager.h"
#include "Utility/Format.h"
#include "Utility/TextFormat.h"

namespace Profiler
{
namespace
{

constexpr int sToMicroseconds = 4; // precision of a clock time

} // namespace

void ThreadStreamingManager::SetStreamingLog(IStreamingLog* inLog)
{
    mLogStartMs.store(Utility::gGetMonotonicMs());
    mLog.store(inLog);
}

std::string ThreadStreamingManager::FormatLogLine(const ChunkKey& inKey, const std::string& inEvent) const
{
    const std::string time = Utility::gFormatClockTime(sToMicroseconds, Utility::gGetMonotonicMs() - mLogStartMs.load());
    if (inKey.mType == EChunkType::ReadyThread)
    {
        const uint32_t id = inKey.GetReadyThreadID();
        return Utility::gFormat("[%s] [LOD: %01d, Chunk: %03d]: %s", time.c_str(), static_cast<int>(id >> sReadyIDLevelShift),
                                static_cast<int>(id & sReadyIDNumberMask), inEvent.c_str());
    }
    const DetailLODThread& thread = inKey.GetThread();
    return Utility::gFormat("[%s] [LOD: %01d, Thread: %05d, Chunk: %03d]: %s", time.c_str(), thread.GetLevel(),
                            thread.GetThreadID(), inKey.mChunkIndex, inEvent.c_str());
}

void ThreadStreamingManager::LogMemory() const
{
    if (IStreamingLog* log = mLog.load())
        log->MemoryChanged(mLoadedBytes.load());
}

} // namespace Profiler
