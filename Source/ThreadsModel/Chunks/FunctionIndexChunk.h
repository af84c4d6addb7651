// Which bars of one chunk belong to which function, beside each BarChunk of the finest level.
//
// Docs/Threads.md describes the form on disk. Threads and ownership: as Chunk says. Invariant: the bars of a function stand in
// the order of their starts, in which searches are made.
#pragma once

#include "Session/Modules/ResolvedAddress.h"
#include "ThreadsModel/Chunks/BarChunk.h"
#include "ThreadsModel/Chunks/Chunk.h"

#include <atomic>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace Profiler
{

// A bar of the BarChunk with the same index.
struct FunctionBarEntry
{
    uint32_t Depth = 0;
    uint64_t BarIndex = 0; // within the row

    bool operator==(const FunctionBarEntry&) const = default;
};

// Unlike the common hash of functions, which is the same for many that differ in both parts alike; a file could be full of those.
struct FunctionHash
{
    size_t operator()(const ResolvedAddress& inFunction) const
    {
        constexpr uint64_t factor = 0x9E3779B97F4A7C15;
        const uint64_t mixed = (inFunction.RelativeAddress ^ (inFunction.RelativeAddress >> 32)) * factor;
        return (mixed ^ (mixed >> 29)) + (inFunction.ResolveIndex.Index & ResolveIndex::sComparedMask) * (factor >> 1);
    }
};

class FunctionIndexChunk final : public Chunk
{
public:
    using BarList = std::vector<FunctionBarEntry>;
    using FunctionTable = std::unordered_map<ResolvedAddress, BarList, FunctionHash>;

    [[nodiscard]] static constexpr EChunkType sGetChunkType() { return EChunkType::FunctionIndex; }

    void Serialize(Utility::ByteBuffer& ioBuffer) override;
    [[nodiscard]] bool Deserialize(Utility::ByteCursor& ioCursor) override;
    [[nodiscard]] EChunkType GetChunkType() const override { return sGetChunkType(); }

    // Bytes of the form on disk, 0 until the chunk was written or read.
    [[nodiscard]] uint64_t GetSize() const override { return mSerializedSize.load(std::memory_order_relaxed); }

    // Enters every bar of a BarChunk with these rows; ends early when inIsCanceled becomes true.
    void Build(const std::vector<BarChunk::Row>& inRows, const bool& inIsCanceled);

    [[nodiscard]] FunctionTable& GetFunctions() { return mFunctions; }
    [[nodiscard]] const FunctionTable& GetFunctions() const { return mFunctions; }

private:
    FunctionTable mFunctions;
    std::atomic<uint64_t> mSerializedSize = 0;
};

} // namespace Profiler
