#include "ThreadsModel/Chunks/ChunkArena.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Profiler
{
namespace
{

// Not initialized: a block is written piece by piece, and the first touch of its pages costs more than that.
ChunkArena::Block gMakeBlock(size_t inSize)
{
    return {std::unique_ptr<std::byte[]>(new std::byte[inSize]), 0, inSize};
}

} // namespace

ChunkArena::ChunkArena(size_t inFirstBlockSize, bool inZeroFill, float inGrowth) : mGrowth(inGrowth), mZeroFill(inZeroFill)
{
    mBlocks.push_back(gMakeBlock(inFirstBlockSize));
}

// No more than a piece that is larger than the growth allows makes a block larger.
ChunkArena::Block& ChunkArena::AddBlock(size_t inSize)
{
    const float grown = std::ceil(static_cast<float>(mBlocks.back().Size) * mGrowth);
    mBlocks.push_back(gMakeBlock(std::max(static_cast<size_t>(grown), inSize)));
    return mBlocks.back();
}

void ChunkArena::FillWithZero(std::byte* outPiece, size_t inSize)
{
    std::memset(outPiece, 0, inSize);
}

} // namespace Profiler
