#include "ThreadsModel/DetailLOD.h"

#include "Session/Pass/ChunkTime.h"

#include <algorithm>
#include <cmath>

RTTI_ENUM_BEGIN(Profiler::DetailLOD::EMode)
    RTTI_VALUE("Uncompressed", Profiler::DetailLOD::EMode::Uncompressed)
    RTTI_VALUE("Compressed", Profiler::DetailLOD::EMode::Compressed)
RTTI_ENUM_END()

RTTI_BEGIN(Profiler::DetailLOD, 1)
    RTTI_PROPERTY("Level", mLevel)
    RTTI_PROPERTY("Threshold", mThreshold)
    RTTI_PROPERTY("ChunkLength", mChunkLength)
    RTTI_PROPERTY_AS("Threads", mThreads, "Map_Profiler::ThreadID_To_std::unique_ptr<Profiler::DetailLODThread>")
    RTTI_PROPERTY("Mode", mMode)
RTTI_END()

namespace Profiler
{
namespace
{

// A chunk of a level spans this many buckets, and a little more for the finest levels.
constexpr float sBucketsPerChunk = 5000.0F;

} // namespace

DetailLOD::DetailLOD(Session& inSession, EMode inMode, int32_t inLevel, float inThreshold, float inChunkLength)
    : mSession(inSession),
      mLevel(inLevel),
      mThreshold(inThreshold),
      mChunkLength(inChunkLength),
      mMode(inMode)
{
}

DetailLOD::DetailLOD(Session& inSession) : mSession(inSession) {}

DetailLODThread& DetailLOD::GetOrCreateThread(ThreadID inThreadID, ThreadStreamingManager& ioManager)
{
    const System::MutexLock lock(mMutex);
    std::unique_ptr<DetailLODThread>& thread = mThreads[inThreadID];
    if (thread == nullptr)
    {
        thread = std::make_unique<DetailLODThread>(inThreadID);
        thread->Bind(ioManager, *this);
    }
    return *thread;
}

DetailLODThread* DetailLOD::GetThread(ThreadID inThreadID) const
{
    const System::MutexLock lock(mMutex);
    const auto found = mThreads.find(inThreadID);
    return found != mThreads.end() ? found->second.get() : nullptr;
}

bool DetailLOD::IsSound() const
{
    const System::MutexLock lock(mMutex);
    return std::isfinite(mThreshold) && std::isfinite(mChunkLength) && mChunkLength >= 1.0F &&
           std::all_of(mThreads.begin(), mThreads.end(),
                       [](const auto& inEntry)
                       { return inEntry.second == nullptr || inEntry.second->GetChunkTable().IsInOrder(); });
}

void DetailLOD::BindThreads(ThreadStreamingManager& ioManager)
{
    const System::MutexLock lock(mMutex);
    // A damaged file may name threads and not have them, or have others.
    std::erase_if(mThreads, [](const auto& inEntry)
                  { return inEntry.second == nullptr || inEntry.second->GetThreadID() != inEntry.first; });
    for (const auto& [threadID, thread] : mThreads)
        thread->Bind(ioManager, *this);
}

DetailLODList gMakeDetailLODs(Session& inSession)
{
    DetailLODList levels;
    for (const float threshold : sLODThresholds)
    {
        const auto level = static_cast<int32_t>(levels.size());
        const auto mode = level == 0 ? DetailLOD::EMode::Uncompressed : DetailLOD::EMode::Compressed;
        const float length = level == 0 ? sLevel0ChunkLengthMs : threshold * sBucketsPerChunk + sLevel0ChunkLengthMs;
        levels.push_back(std::make_unique<DetailLOD>(inSession, mode, level, threshold, length));
    }
    return levels;
}

const DetailLOD& gFindDetailLODForWidth(std::span<const std::unique_ptr<DetailLOD>> inLevels, double inStart, double inEnd)
{
    size_t level = 0;
    while (level + 1 < inLevels.size() && !(static_cast<double>(inLevels[level + 1]->GetThreshold()) > inEnd - inStart))
        ++level;
    return *inLevels[level];
}

} // namespace Profiler
