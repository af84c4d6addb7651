// The memory of a chunk's records: handed out piece by piece, never moved, and freed as a whole.
//
// Threads: one at a time, but for GetTotal, which any thread may call meanwhile. Ownership: the chunk. Invariant: a piece never
// spans two blocks, so the used parts of the blocks in their order are all pieces without a gap.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Profiler
{

class ChunkArena
{
public:
    struct Block
    {
        std::unique_ptr<std::byte[]> Memory;
        size_t Used = 0;
        size_t Size = 0;
    };

    // inZeroFill: whether what is handed out is zero. inGrowth: the size of a new block over that of the block before.
    ChunkArena(size_t inFirstBlockSize, bool inZeroFill, float inGrowth)
        : ChunkArena(inFirstBlockSize, inZeroFill, inGrowth, inFirstBlockSize)
    {
    }
    // The same, with the first block cut in two, of which the second is only made when it is needed: for many small chunks.
    ChunkArena(size_t inFirstBlockSize, bool inZeroFill, float inGrowth, size_t inFirstPiece);

    // The next inSize bytes, aligned for any record if all sizes are multiples of 8.
    [[nodiscard]] void* Allocate(size_t inSize)
    {
        Block* block = &mBlocks.back();
        if (block->Size - block->Used < inSize)
            block = &AddBlock(inSize);
        std::byte* piece = block->Memory.get() + block->Used;
        block->Used += inSize;
        // There is one writer, so a plain addition does.
        mTotal.store(mTotal.load(std::memory_order_relaxed) + inSize, std::memory_order_relaxed);
        if (mZeroFill)
            FillWithZero(piece, inSize);
        return piece;
    }

    // Bytes handed out, whatever the blocks could hold.
    [[nodiscard]] uint64_t GetTotal() const { return mTotal.load(std::memory_order_relaxed); }

    [[nodiscard]] const std::vector<Block>& GetBlocks() const { return mBlocks; }

private:
    Block& AddBlock(size_t inSize);
    static void FillWithZero(std::byte* outPiece, size_t inSize);

    float mGrowth;
    bool mZeroFill;
    size_t mSecondPiece;        // of the first block, until it is made
    size_t mLastSize;           // of a block, from which the next one's follows
    std::vector<Block> mBlocks; // never empty; the last one is the one in use
    std::atomic<uint64_t> mTotal = 0;
};

} // namespace Profiler
