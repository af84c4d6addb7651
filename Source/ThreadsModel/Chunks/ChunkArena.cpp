#include "ThreadsModel/Chunks/ChunkArena.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

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

ChunkArena::ChunkArena(size_t inFirstBlockSize, bool inZeroFill, float inGrowth, size_t inFirstPiece)
    : mGrowth(inGrowth),
      mZeroFill(inZeroFill),
      mSecondPiece(inFirstBlockSize - inFirstPiece),
      mLastSize(inFirstBlockSize)
{
    mBlocks.push_back(gMakeBlock(inFirstPiece));
}

// No more than a piece that is larger than the growth allows makes a block larger.
ChunkArena::Block& ChunkArena::AddBlock(size_t inSize)
{
    if (const size_t piece = std::exchange(mSecondPiece, 0); piece >= inSize && piece != 0)
    {
        mBlocks.push_back(gMakeBlock(piece));
        return mBlocks.back();
    }
    const float grown = std::ceil(static_cast<float>(mLastSize) * mGrowth);
    mLastSize = std::max(static_cast<size_t>(grown), inSize);
    mBlocks.push_back(gMakeBlock(mLastSize));
    return mBlocks.back();
}

void ChunkArena::FillWithZero(std::byte* outPiece, size_t inSize)
{
    std::memset(outPiece, 0, inSize);
}

} // namespace Profiler
