#include "ThreadsModel/Chunks/BarChunk.h"

#include "Utility/Assert.h"

#include <algorithm>
#include <array>
#include <limits>
#include <new>
#include <span>

namespace Profiler
{
namespace
{

constexpr size_t sFirstBlockSize = 4096;
// A bar that spans a hundred thousand chunks of a level needs as many, with one bar each.
constexpr size_t sFirstPiece = 256;

// Grown from one bar on, rows would take an allocation for nearly every bar.
constexpr size_t sFirstRowSize = 16;
constexpr float sBlockGrowth = 1.5F;

// A chunk that was read gets all its memory at once.
constexpr float sNoGrowth = 1.0F;

constexpr size_t sContextSize = sizeof(int32_t) + 2 * sizeof(uint64_t);

constexpr uint32_t sCarryMask = 3;

// Shorter rows stay in the processor's cache, and are searched fast as they are.
constexpr size_t sBarsPerMark = 32;
constexpr size_t sFewBars = 2048;

// How far ahead bars are fetched while others are written.
constexpr size_t sBarsAhead = 8;

void gReadBoundary(const uint8_t* inBytes, BarBoundary& outBoundary)
{
    outBoundary.First = gUnpackBar(inBytes);
    outBoundary.Last = gUnpackBar(inBytes + sPackedBarSize);
    std::memcpy(&outBoundary.BarCount, inBytes + 2 * sPackedBarSize, sizeof(uint32_t));
}

bool gReadAt(std::istream& ioStream, uint64_t inOffset, void* outBytes, size_t inSize)
{
    if (inOffset > static_cast<uint64_t>(std::numeric_limits<std::streamoff>::max()))
        return false;
    ioStream.clear();
    ioStream.seekg(static_cast<std::streamoff>(inOffset));
    ioStream.read(static_cast<char*>(outBytes), static_cast<std::streamsize>(inSize));
    return ioStream.good();
}

// The last bar of a row that doesn't start after the time, or the first one. The marks are the row's, or none. REQUIRES: the row
// has bars.
const Bar* gFindLastNotAfter(const BarChunk::Row& inRow, std::span<const double> inMarks, double inTime)
{
    if (inTime >= inRow.back()->Start)
        return inRow.back();
    size_t low = 0;
    size_t high = inRow.size() - 1;
    if (!inMarks.empty())
    {
        const auto above = static_cast<size_t>(std::upper_bound(inMarks.begin(), inMarks.end(), inTime) - inMarks.begin());
        low = (above - std::min<size_t>(above, 1)) * sBarsPerMark;
        high = std::min(high, above * sBarsPerMark);
    }
    while (high - low > 1)
    {
        const size_t middle = low + (high - low) / 2;
        (inRow[middle]->Start <= inTime ? low : high) = middle;
    }
    return inRow[low];
}

} // namespace

BarChunk::BarChunk() : mArena(std::make_unique<ChunkArena>(sFirstBlockSize, false, sBlockGrowth, sFirstPiece)) {}

Bar* BarChunk::AddBar(int32_t inDepth, uint32_t inParentIndex, uint64_t inAddress, ResolveIndex inResolveIndex, uint32_t inCarry,
                      uint64_t& outIndex, double inStart, double inEnd)
{
    const auto depth = static_cast<size_t>(inDepth);
    PROFILER_ASSERT_AT("ThreadsModel/Chunks/BarChunk", depth <= mRows.size(), "A bar at depth %d has no row above it", inDepth);
    if (depth > mRows.size())
        return nullptr;
    if (depth == mRows.size())
        mRows.emplace_back().reserve(sFirstRowSize);

    Bar* bar = new (mArena->Allocate(sizeof(Bar))) Bar;
    bar->Start = inStart;
    bar->End = inEnd;
    bar->Address = inAddress;
    bar->ParentIndex = inParentIndex;
    bar->ResolveIndex.Index = (inResolveIndex.Index & ResolveIndex::sComparedMask) | ((inCarry & sCarryMask) << Bar::sCarryShift);
    Row& row = mRows[depth];
    outIndex = row.size();
    row.push_back(bar);
    return bar;
}

uint64_t BarChunk::GetInstrumentationContext(const BarPosition& inPosition) const
{
    const auto found = mContexts.find(inPosition);
    return found != mContexts.end() ? found->second : sNoContext;
}

void BarChunk::GetStackAtTime(double inTime, std::vector<const Bar*>& ioBars) const
{
    for (size_t depth = 0; depth < mRows.size() && !mRows[depth].empty(); ++depth)
    {
        const std::span<const double> marks = mMarks.empty() ? std::span<const double>() : mMarks[depth];
        const Bar* bar = gFindLastNotAfter(mRows[depth], marks, inTime);
        if (!(inTime >= bar->Start && inTime < bar->End))
            return;
        ioBars.push_back(bar);
    }
}

void BarChunk::BuildBoundaries()
{
    mBoundaries.clear();
    for (const Row& row : mRows)
    {
        BarBoundary& boundary = mBoundaries.emplace_back();
        if (row.empty())
            continue;
        boundary.First = *row.front();
        boundary.Last = *row.back();
        boundary.BarCount = static_cast<uint32_t>(row.size());
    }
}

void BarChunk::WriteBoundaries(Utility::ByteBuffer& ioBuffer) const
{
    ioBuffer.AppendValue(static_cast<uint64_t>(mBoundaries.size()));
    for (const BarBoundary& boundary : mBoundaries)
    {
        std::array<uint8_t, sPackedBoundarySize> bytes;
        gPackBar(boundary.First, bytes.data());
        gPackBar(boundary.Last, bytes.data() + sPackedBarSize);
        std::memcpy(bytes.data() + 2 * sPackedBarSize, &boundary.BarCount, sizeof(uint32_t));
        ioBuffer.Append(bytes.data(), bytes.size());
    }
}

// A deep chunk's block is long, so no more of it is read than is asked for.
bool BarChunk::ReadBoundary(std::istream& ioStream, uint64_t inOffset, uint64_t inSize, int32_t inDepth, BarBoundary& outBoundary)
{
    uint64_t count = 0;
    if (inDepth < 0 || inSize < sizeof(count) || !gReadAt(ioStream, inOffset, &count, sizeof(count)))
        return false;
    const auto depth = static_cast<uint64_t>(inDepth);
    if (depth >= count || count > (inSize - sizeof(count)) / sPackedBoundarySize)
        return false;
    std::array<uint8_t, sPackedBoundarySize> bytes;
    if (!gReadAt(ioStream, inOffset + sizeof(count) + depth * sPackedBoundarySize, bytes.data(), bytes.size()))
        return false;
    gReadBoundary(bytes.data(), outBoundary);
    return true;
}

bool BarChunk::ReadBoundaries(Utility::ByteCursor& ioCursor, BoundaryList& outBoundaries)
{
    outBoundaries.clear();
    const auto count = ioCursor.Read<uint64_t>();
    if (ioCursor.HasFailed() || count > ioCursor.GetRemaining() / sPackedBoundarySize)
        return false;
    outBoundaries.resize(count);
    const uint8_t* packed = ioCursor.Take(count * sPackedBoundarySize);
    for (BarBoundary& boundary : outBoundaries)
    {
        gReadBoundary(packed, boundary);
        packed += sPackedBoundarySize;
    }
    return true;
}

void BarChunk::Serialize(Utility::ByteBuffer& ioBuffer)
{
    ioBuffer.AppendValue(mArena->GetTotal());
    ioBuffer.AppendValue(static_cast<uint64_t>(mRows.size()));
    const size_t table = ioBuffer.GetSize();
    ioBuffer.Resize(table + mRows.size() * sizeof(uint64_t));
    for (size_t depth = 0; depth < mRows.size(); ++depth)
    {
        const Row& row = mRows[depth];
        const uint64_t position = ioBuffer.GetSize();
        std::memcpy(ioBuffer.GetData() + table + depth * sizeof(uint64_t), &position, sizeof(uint64_t));
        ioBuffer.AppendValue(static_cast<uint64_t>(row.size()));
        ioBuffer.Resize(ioBuffer.GetSize() + row.size() * sPackedBarSize);
        uint8_t* packed = ioBuffer.GetData() + position + sizeof(uint64_t);
        for (size_t i = 0; i < row.size(); ++i, packed += sPackedBarSize)
        {
            // Neighbours in a row lie apart in memory, as the rows were filled side by side.
            if (i + sBarsAhead < row.size())
                __builtin_prefetch(row[i + sBarsAhead]);
            gPackBar(*row[i], packed);
        }
    }

    ioBuffer.AppendValue(static_cast<uint64_t>(mContexts.size()));
    for (const auto& [position, context] : mContexts)
    {
        ioBuffer.AppendValue(position.Depth);
        ioBuffer.AppendValue(position.BarIndex);
        ioBuffer.AppendValue(context);
    }
}

bool BarChunk::Deserialize(Utility::ByteCursor& ioCursor)
{
    mBoundaries.clear();
    mContexts.clear();
    const auto total = ioCursor.Read<uint64_t>();
    return ReadRows(ioCursor, total) && ReadContexts(ioCursor) && !ioCursor.HasFailed() && ioCursor.GetRemaining() == 0;
}

bool BarChunk::ReadRows(Utility::ByteCursor& ioCursor, uint64_t inArenaTotal)
{
    const auto numRows = ioCursor.Read<uint64_t>();
    // Each row has an entry in the table, which nobody needs, and a count.
    if (numRows > ioCursor.GetRemaining() / (2 * sizeof(uint64_t)))
        return false;
    mRows.resize(numRows);
    mMarks.clear();
    ioCursor.Take(numRows * sizeof(uint64_t));

    // All that is left can't hold more bars than this, whatever the total claims.
    const uint64_t most = ioCursor.GetRemaining() / sPackedBarSize * sizeof(Bar);
    if (inArenaTotal % sizeof(Bar) != 0 || inArenaTotal > most)
        return false;
    mArena = std::make_unique<ChunkArena>(inArenaTotal, false, sNoGrowth);
    for (size_t depth = 0; depth < numRows; ++depth)
    {
        if (!ReadRow(ioCursor, depth))
            return false;
    }
    return mArena->GetTotal() == inArenaTotal;
}

bool BarChunk::ReadRow(Utility::ByteCursor& ioCursor, size_t inDepth)
{
    const auto count = ioCursor.Read<uint64_t>();
    if (count > ioCursor.GetRemaining() / sPackedBarSize)
        return false;
    const uint8_t* packed = ioCursor.Take(count * sPackedBarSize);
    auto* bars = static_cast<Bar*>(mArena->Allocate(count * sizeof(Bar)));
    const size_t numParents = inDepth == 0 ? 0 : mRows[inDepth - 1].size();
    Row& row = mRows[inDepth];
    row.clear();
    row.reserve(count);
    bool isSound = true;
    for (size_t i = 0; i < count; ++i, packed += sPackedBarSize)
    {
        Bar* bar = new (bars + i) Bar(gUnpackBar(packed));
        isSound &= inDepth == 0 ? bar->ParentIndex == Bar::sNoParent : bar->ParentIndex < numParents;
        row.push_back(bar);
    }
    if (count >= sFewBars)
    {
        mMarks.resize(mRows.size());
        for (size_t i = 0; i < count; i += sBarsPerMark)
            mMarks[inDepth].push_back(row[i]->Start);
    }
    return isSound;
}

bool BarChunk::ReadContexts(Utility::ByteCursor& ioCursor)
{
    const auto count = ioCursor.Read<uint64_t>();
    if (count > ioCursor.GetRemaining() / sContextSize)
        return false;
    mContexts.reserve(count);
    for (uint64_t i = 0; i < count; ++i)
    {
        BarPosition position;
        position.Depth = ioCursor.Read<int32_t>();
        position.BarIndex = ioCursor.Read<uint64_t>();
        const auto context = ioCursor.Read<uint64_t>();
        // Each of a bar that is there, and none twice, also because others could be chosen to have one hash.
        const auto depth = static_cast<uint64_t>(position.Depth);
        if (position.Depth < 0 || depth >= mRows.size() || position.BarIndex >= mRows[depth].size() ||
            !mContexts.emplace(position, context).second)
            return false;
    }
    return true;
}

} // namespace Profiler
