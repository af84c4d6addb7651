// The state lane of one thread during a pass, as the timeline makes it out: what the thread is doing, and since when.
//
// An OpenBarProcessor keeps a state as well. Both are driven by the same events with different rules, and neither looks at the
// other. Threads: the pass's thread. Ownership: the ThreadsModel. Invariant: the chunk and all behind it weren't handed over.
#pragma once

#include "Session/Processes/ThreadState.h"
#include "ThreadsModel/ChunkHandle.h"
#include "ThreadsModel/Chunks/OverviewChunk.h"
#include "ThreadsModel/Chunks/ReadyThreadChunk.h"

#include <cstdint>
#include <limits>

namespace Profiler
{

class DetailLODThread;
struct ThreadData;

struct OverviewThreadState
{
    static constexpr int32_t sNoChunk = std::numeric_limits<int32_t>::min(); // no time falls in it

    DetailLODThread* LODThread = nullptr;                     // of the finest level, from the first span on
    ThreadData* Totals = nullptr;                             // of the thread, likewise
    TypedChunkHandle<OverviewChunk> Chunk;                    // of the finest level, that is being filled
    int32_t ChunkIndex = sNoChunk;                            // sNoChunk until a span was added
    bool HasSpans = false;                                    // spans were told of, also such as couldn't be added
    double LastStart = std::numeric_limits<double>::lowest(); // of the last span that was added
    double StateTime = -1.0;                                  // when the present state began, in milliseconds
    ThreadState State = ThreadState::NotStarted;
    uint32_t ReadyIndex = sNoReadyIndex; // of the wake-up whose record is in hand
    ReadyRecord Record;                  // isn't reset from wait to wait
};

} // namespace Profiler
