// One of the nine levels of detail of a timeline. Level 0 holds the bars as they were recorded; each further one the same span of
// time with short bars merged away and coarser buckets of states, so that a view of long spans reads few records.
//
// Threads: any thread may ask for a DetailLODThread; only the one of the pass makes them. Ownership: the model, in order of the
// levels. Invariant: a DetailLODThread never moves, and lives as long as its level.
#pragma once

#include "RTTI/Declare.h"
#include "Session/Events/TraceEvent.h"
#include "System/Mutex.h"
#include "ThreadsModel/DetailLODThread.h"
#include "ThreadsModel/LODThresholds.h"

#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

namespace Profiler
{

class Session;

class DetailLOD
{
    RTTI_FRIEND()

public:
    static constexpr int32_t sNoLevel = -1;

    // How a level came about: with bars as recorded, or with merged ones. It has nothing to do with the compression of files.
    enum class EMode : uint8_t
    {
        Uncompressed = 0,
        Compressed = 1,
    };

    // inThreshold and inChunkLength in milliseconds.
    DetailLOD(Session& inSession, EMode inMode, int32_t inLevel, float inThreshold, float inChunkLength);
    // One that is about to be read from a file.
    explicit DetailLOD(Session& inSession);

    DetailLOD(const DetailLOD&) = delete;
    DetailLOD& operator=(const DetailLOD&) = delete;

    [[nodiscard]] Session& GetSession() const { return mSession; }
    [[nodiscard]] int32_t GetLevel() const { return mLevel; }
    [[nodiscard]] EMode GetMode() const { return mMode; }

    // Width of a bucket of states, and the base of the rules by which bars are merged, in milliseconds.
    [[nodiscard]] float GetThreshold() const { return mThreshold; }
    // In milliseconds.
    [[nodiscard]] float GetChunkLength() const { return mChunkLength; }

    // Makes the thread on first use.
    DetailLODThread& GetOrCreateThread(ThreadID inThreadID, ThreadStreamingManager& ioManager);
    // Null for a thread that was never seen.
    [[nodiscard]] DetailLODThread* GetThread(ThreadID inThreadID) const;

    // Whether what was read makes sense: a length that times can be divided by, and chunks in order.
    [[nodiscard]] bool IsSound() const;

    // To be called once after a level was read, before anything else.
    void BindThreads(ThreadStreamingManager& ioManager);

private:
    Session& mSession;
    int32_t mLevel = sNoLevel;
    float mThreshold = 0.0F;
    float mChunkLength = 0.0F;
    mutable System::Mutex mMutex;
    std::unordered_map<ThreadID, std::unique_ptr<DetailLODThread>> mThreads GUARDED_BY(mMutex);
    EMode mMode = EMode::Uncompressed;
};

using DetailLODList = std::vector<std::unique_ptr<DetailLOD>>; // by level

// The levels of a new model.
[[nodiscard]] DetailLODList gMakeDetailLODs(Session& inSession);

// The coarsest level whose buckets aren't wider than the span, in milliseconds. REQUIRES: there is a level.
[[nodiscard]] const DetailLOD& gFindDetailLODForWidth(std::span<const std::unique_ptr<DetailLOD>> inLevels, double inStart,
                                                      double inEnd);

} // namespace Profiler

RTTI_DECLARE_ENUM(Profiler::DetailLOD::EMode);
RTTI_DECLARE(Profiler::DetailLOD);
