// The unit in which the timeline is loaded, saved and dropped: the data of one kind for one stretch of time.
//
// Threads: a chunk has no lock. It has one writer until it is handed over for saving, and any number of readers from then on,
// when nothing changes it any more; GetSize may be called from any thread at any time. Ownership: the ThreadStreamingManager.
#pragma once

#include "ThreadsModel/Chunks/ChunkType.h"
#include "Utility/ByteBuffer.h"

#include <memory>

namespace Profiler
{

class Chunk
{
public:
    virtual ~Chunk() = default;

    Chunk(const Chunk&) = delete;
    Chunk& operator=(const Chunk&) = delete;

    // Appends the content to a buffer that may hold other chunks already.
    virtual void Serialize(Utility::ByteBuffer& ioBuffer) = 0;

    // Replaces the content by what Serialize wrote, which must be all that is left. False for bytes that contradict themselves;
    // the chunk is then good for nothing but its end.
    [[nodiscard]] virtual bool Deserialize(Utility::ByteCursor& ioCursor) = 0;

    [[nodiscard]] virtual EChunkType GetChunkType() const = 0;

    // Bytes of the records that the chunk holds now.
    [[nodiscard]] virtual uint64_t GetSize() const = 0;

protected:
    Chunk() = default;
};

// A new, empty chunk. Null for a value that is no kind.
[[nodiscard]] std::unique_ptr<Chunk> gCreateChunk(EChunkType inType);

} // namespace Profiler
