// What a level's thread asks of its level and of the streaming manager. Not in DetailLODThread.cpp, since both know the thread.
#include "ThreadsModel/DetailLOD.h"
#include "ThreadsModel/DetailLODThread.h"
#include "ThreadsModel/ThreadStreamingManager.h"
#include "Utility/Assert.h"

namespace Profiler
{

void DetailLODThread::Bind(ThreadStreamingManager& ioManager, const DetailLOD& inOwner)
{
    mManager = &ioManager;
    mOwner = &inOwner;
    ioManager.RegisterThread(*this);
}

int32_t DetailLODThread::GetLevel() const
{
    return mOwner != nullptr ? mOwner->GetLevel() : DetailLOD::sNoLevel;
}

void DetailLODThread::MoveDetailCursor(int32_t inChunkIndex)
{
    PROFILER_ASSERT_AT("ThreadsModel/DetailLODThread", inChunkIndex >= mCurrentDetailChunkIndex,
                       "Attempt to move the current detail chunk cursor backwards");
    const int32_t oldIndex = mCurrentDetailChunkIndex.exchange(inChunkIndex);
    if (oldIndex == inChunkIndex)
        return;
    mManager->MarkChunksFinished(*this, oldIndex, inChunkIndex, EChunkType::Bar);
    mManager->MarkChunksFinished(*this, oldIndex, inChunkIndex, EChunkType::FunctionIndex);
}

void DetailLODThread::MoveOverviewCursor(int32_t inChunkIndex)
{
    PROFILER_ASSERT_AT("ThreadsModel/DetailLODThread", inChunkIndex >= mCurrentOverviewChunkIndex,
                       "Attempt to move the current overview chunk cursor backwards");
    const int32_t oldIndex = mCurrentOverviewChunkIndex.exchange(inChunkIndex);
    if (oldIndex != inChunkIndex)
        mManager->MarkChunksFinished(*this, oldIndex, inChunkIndex, EChunkType::Overview);
}

} // namespace Profiler
