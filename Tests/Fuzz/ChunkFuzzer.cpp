// Any bytes as a chunk of one of the four kinds, or as the block of boundaries beside a chunk of bars. What can be read is used
// as readers use it, where its order is sound also compared with a slow search, and comes back the same when it is written.
#include "Tests/Fuzz/ChunkInputs.h"
#include "Tests/Fuzz/Expect.h"
#include "ThreadsModel/Chunks/BarChunk.h"
#include "ThreadsModel/Chunks/FunctionIndexChunk.h"
#include "ThreadsModel/Chunks/OverviewChunk.h"
#include "ThreadsModel/Chunks/ReadyThreadChunk.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

namespace
{

using namespace Profiler;
using Fuzz::EChunkInput;
using Fuzz::gExpect;
using Utility::ByteBuffer;
using Utility::ByteCursor;

constexpr double sOddTimes[] = {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                                -std::numeric_limits<double>::infinity(), 0.0, -1.0};

// A time may be no number, so content is compared by its bytes.
bool gAreSame(const Bar& inFirst, const Bar& inSecond)
{
    std::array<uint8_t, sPackedBarSize> first;
    std::array<uint8_t, sPackedBarSize> second;
    gPackBar(inFirst, first.data());
    gPackBar(inSecond, second.data());
    return first == second;
}

bool gAreSameBytes(const uint8_t* inFirst, const uint8_t* inSecond, size_t inSize)
{
    return inSize == 0 || std::memcmp(inFirst, inSecond, inSize) == 0;
}

// Writes a chunk behind other bytes, as the chunks of a group are written.
struct WrittenChunk
{
    explicit WrittenChunk(Chunk& ioChunk)
    {
        constexpr char other[] = "other";
        Buffer.Append(other, sizeof(other));
        Start = Buffer.GetSize();
        ioChunk.Serialize(Buffer);
    }

    [[nodiscard]] const uint8_t* GetData() const { return Buffer.GetData() + Start; }
    [[nodiscard]] size_t GetSize() const { return Buffer.GetSize() - Start; }
    [[nodiscard]] ByteCursor GetCursor() const { return {GetData(), GetSize()}; }

    ByteBuffer Buffer;
    size_t Start;
};

// --- Bars ---

// No time is none, and each bar starts where the one before ends or later.
bool gIsInOrder(const BarChunk::Row& inRow)
{
    double last = -std::numeric_limits<double>::infinity();
    for (const Bar* bar : inRow)
    {
        if (!(bar->Start >= last && bar->End >= bar->Start))
            return false;
        last = bar->End;
    }
    return true;
}

void gLookUpStack(const BarChunk& inChunk, size_t inNumRowsInOrder, double inTime)
{
    std::vector<const Bar*> stack;
    inChunk.GetStackAtTime(inTime, stack);
    gExpect(stack.size() <= inChunk.GetRows().size());
    for (const Bar* bar : stack)
        gExpect(inTime >= bar->Start && inTime < bar->End);
    for (size_t depth = 0; depth < std::min(inNumRowsInOrder, stack.size() + 1); ++depth)
    {
        const BarChunk::Row& row = inChunk.GetRows()[depth];
        const auto found =
            std::find_if(row.begin(), row.end(), [=](const Bar* inBar) { return inTime >= inBar->Start && inTime < inBar->End; });
        gExpect(depth < stack.size() ? found != row.end() && *found == stack[depth] : found == row.end());
    }
}

// Gives the number of bars.
size_t gWalkRows(const BarChunk& inChunk)
{
    const std::vector<BarChunk::Row>& rows = inChunk.GetRows();
    size_t numBars = 0;
    for (size_t depth = 0; depth < rows.size(); ++depth)
    {
        numBars += rows[depth].size();
        for (uint64_t i = 0; i < rows[depth].size(); ++i)
        {
            const BarPosition position{static_cast<int32_t>(depth), i};
            const Bar* bar = inChunk.GetBar(position);
            gExpect(bar == rows[depth][i] && bar->GetCarry() < 4);
            // Each way from a bar to the root can be gone.
            for (size_t above = depth; above > 0; --above)
                bar = inChunk.GetBar({static_cast<int32_t>(above) - 1, bar->ParentIndex});
            gExpect(std::find(rows[0].begin(), rows[0].end(), bar) != rows[0].end());
            static_cast<void>(inChunk.GetInstrumentationContext(position));
        }
    }
    return numBars;
}

void gUseBars(const BarChunk& inChunk)
{
    const std::vector<BarChunk::Row>& rows = inChunk.GetRows();
    gExpect(inChunk.GetSize() == gWalkRows(inChunk) * sizeof(Bar));
    const auto outOfOrder = std::find_if_not(rows.begin(), rows.end(), gIsInOrder);
    const auto numRowsInOrder = static_cast<size_t>(outOfOrder - rows.begin());
    for (const double time : sOddTimes)
        gLookUpStack(inChunk, numRowsInOrder, time);
    for (const BarChunk::Row& row : rows)
    {
        for (const Bar* bar : row)
        {
            gLookUpStack(inChunk, numRowsInOrder, bar->Start);
            gLookUpStack(inChunk, numRowsInOrder, bar->End);
            gLookUpStack(inChunk, numRowsInOrder, (bar->Start + bar->End) / 2);
        }
    }
}

void gExpectSame(const BarChunk& inFirst, const BarChunk& inSecond, const WrittenChunk& inWritten)
{
    const auto isSameBar = [](const Bar* inFirstBar, const Bar* inSecondBar) { return gAreSame(*inFirstBar, *inSecondBar); };
    const auto isSameRow = [=](const BarChunk::Row& inFirstRow, const BarChunk::Row& inSecondRow)
    { return std::equal(inFirstRow.begin(), inFirstRow.end(), inSecondRow.begin(), inSecondRow.end(), isSameBar); };
    gExpect(std::equal(inFirst.GetRows().begin(), inFirst.GetRows().end(), inSecond.GetRows().begin(), inSecond.GetRows().end(),
                       isSameRow));

    // The contexts are the last that is written, and nothing else names them all.
    ByteCursor cursor = inWritten.GetCursor();
    cursor.Take((2 + 2 * inFirst.GetRows().size()) * sizeof(uint64_t) + inFirst.GetSize());
    for (auto count = cursor.Read<uint64_t>(); count > 0; --count)
    {
        BarPosition position;
        position.Depth = cursor.Read<int32_t>();
        position.BarIndex = cursor.Read<uint64_t>();
        const auto context = cursor.Read<uint64_t>();
        gExpect(inFirst.GetInstrumentationContext(position) == context);
        gExpect(inSecond.GetInstrumentationContext(position) == context);
    }
    gExpect(!cursor.HasFailed() && cursor.GetRemaining() == 0);
}

void gCheckBoundaries(BarChunk& ioChunk)
{
    ioChunk.BuildBoundaries();
    ByteBuffer block;
    ioChunk.WriteBoundaries(block);
    ByteCursor cursor(block.GetData(), block.GetSize());
    BarChunk::BoundaryList boundaries;
    gExpect(BarChunk::ReadBoundaries(cursor, boundaries) && cursor.GetRemaining() == 0);
    const std::vector<BarChunk::Row>& rows = ioChunk.GetRows();
    gExpect(boundaries.size() == rows.size());
    for (size_t depth = 0; depth < rows.size(); ++depth)
    {
        const BarChunk::Row& row = rows[depth];
        gExpect(boundaries[depth].BarCount == row.size());
        gExpect(gAreSame(boundaries[depth].First, row.empty() ? Bar() : *row.front()));
        gExpect(gAreSame(boundaries[depth].Last, row.empty() ? Bar() : *row.back()));
    }
}

void gTryBars(ByteCursor inInput)
{
    BarChunk chunk;
    const size_t size = inInput.GetRemaining();
    if (!chunk.Deserialize(inInput))
        return;
    gUseBars(chunk);
    gCheckBoundaries(chunk);

    const WrittenChunk written(chunk);
    gExpect(written.GetSize() == size);
    BarChunk copy;
    ByteCursor cursor = written.GetCursor();
    gExpect(copy.Deserialize(cursor));
    gExpect(copy.GetSize() == chunk.GetSize() && copy.GetBoundaries().empty());
    gExpectSame(chunk, copy, written);

    // The same again, in the place of what is there.
    const WrittenChunk rewritten(copy);
    gExpect(rewritten.GetSize() == written.GetSize());
    cursor = rewritten.GetCursor();
    gExpect(chunk.Deserialize(cursor) && chunk.GetSize() == copy.GetSize());
    gExpectSame(chunk, copy, rewritten);
}

// --- Boundaries ---

void gTryBoundaries(ByteCursor inInput)
{
    const std::string block(reinterpret_cast<const char*>(inInput.GetPosition()), inInput.GetRemaining());
    BarChunk::BoundaryList boundaries(1);
    const bool isRead = BarChunk::ReadBoundaries(inInput, boundaries);
    gExpect(isRead || boundaries.empty());

    constexpr size_t offset = 3;
    std::istringstream stream(std::string(offset, 'x') + block);
    const auto lastDepth = static_cast<int32_t>(boundaries.size());
    for (int32_t depth = -1; depth <= lastDepth; ++depth)
    {
        BarBoundary boundary;
        boundary.BarCount = 1;
        boundary.First.Address = 2;
        const BarBoundary before = boundary;
        const bool isThere = BarChunk::ReadBoundary(stream, offset, block.size(), depth, boundary);
        gExpect(isThere == (isRead && depth >= 0 && depth < lastDepth));
        const BarBoundary& expected = isThere ? boundaries[static_cast<size_t>(depth)] : before;
        gExpect(gAreSame(boundary.First, expected.First) && gAreSame(boundary.Last, expected.Last));
        gExpect(boundary.BarCount == expected.BarCount);
        // A block that doesn't lie where it should, or isn't all there.
        gExpect(!BarChunk::ReadBoundary(stream, offset + block.size(), block.size(), depth, boundary));
        gExpect(!BarChunk::ReadBoundary(stream, std::numeric_limits<uint64_t>::max() - offset, block.size(), depth, boundary));
    }
    BarBoundary unused;
    gExpect(!BarChunk::ReadBoundary(stream, offset, std::min(block.size(), sizeof(uint64_t)), 0, unused));
    if (!isRead)
        return;

    ByteBuffer written;
    written.AppendValue(static_cast<uint64_t>(boundaries.size()));
    for (const BarBoundary& boundary : boundaries)
    {
        uint8_t bars[2 * sPackedBarSize];
        gPackBar(boundary.First, bars);
        gPackBar(boundary.Last, bars + sPackedBarSize);
        written.Append(bars, sizeof(bars));
        written.AppendValue(boundary.BarCount);
    }
    gExpect(block.size() >= written.GetSize());
    gExpect(std::memcmp(block.data(), written.GetData(), written.GetSize()) == 0);
}

// --- Overviews ---

// The time of each state.
void gAddEntry(const OverviewChunk::EntryReference& inEntry, StateTimes& ioTimes)
{
    const OverviewEntry& entry = *inEntry.Entry;
    const auto addShares = [&](const auto& inRecord)
    {
        for (size_t i = 0; i < inRecord.States.size(); ++i)
            ioTimes[static_cast<size_t>(inRecord.States[i])] += static_cast<double>(inRecord.Shares[i]);
    };
    switch (inEntry.Type)
    {
    case EOverviewEntryType::SingleState:
        ioTimes[static_cast<size_t>(inEntry.As<SingleStateEntry>().State)] += entry.End - entry.Start;
        return;
    case EOverviewEntryType::TwoStates:
        return addShares(inEntry.As<TwoStatesEntry>());
    case EOverviewEntryType::ThreeStates:
        return addShares(inEntry.As<ThreeStatesEntry>());
    case EOverviewEntryType::AllStates:
        for (size_t state = 0; state < ioTimes.size(); ++state)
            ioTimes[state] += static_cast<double>(inEntry.As<AllStatesEntry>().Shares[state]);
        return;
    }
    gExpect(false);
}

bool gIsInOrder(const OverviewChunk& inChunk)
{
    double last = -std::numeric_limits<double>::infinity();
    for (size_t i = 0; i < inChunk.GetEntryCount(); ++i)
    {
        const OverviewEntry& entry = *inChunk.GetEntry(i).Entry;
        if (!(entry.Start >= last && entry.End >= entry.Start))
            return false;
        last = entry.End;
    }
    return true;
}

// Where entries touch, each of both may be meant.
void gExpectFound(const OverviewChunk& inChunk, double inTime, size_t inFound)
{
    const OverviewEntry& found = *inChunk.GetEntry(inFound).Entry;
    if (inTime >= found.Start && inTime <= found.End)
        return;
    gExpect(inTime < found.Start || inFound + 1 == inChunk.GetEntryCount());
    gExpect(inFound == 0 || inTime > inChunk.GetEntry(inFound - 1).Entry->End);
}

void gFindEntries(const OverviewChunk& inChunk, bool inIsInOrder, double inStart, double inEnd)
{
    const auto find = [&](double inTime)
    {
        const OverviewChunk::EntryRange range = inChunk.FindEntries(inTime, inTime);
        gExpect(range.End == range.First + 1 && range.End <= inChunk.GetEntryCount());
        if (inIsInOrder && !std::isnan(inTime))
            gExpectFound(inChunk, inTime, range.First);
        return range.First;
    };
    const OverviewChunk::EntryRange range = inChunk.FindEntries(inStart, inEnd);
    if (inChunk.GetEntryCount() == 0)
    {
        gExpect(range == OverviewChunk::EntryRange());
        return;
    }
    const size_t first = find(inStart);
    const size_t last = find(inEnd);
    gExpect(range == (first <= last ? OverviewChunk::EntryRange{first, last + 1} : OverviewChunk::EntryRange()));
}

void gTryOverview(ByteCursor inInput)
{
    OverviewChunk chunk;
    const uint8_t* const input = inInput.GetPosition();
    const size_t size = inInput.GetRemaining();
    if (!chunk.Deserialize(inInput))
        return;
    const bool isInOrder = gIsInOrder(chunk);
    StateTimes times{};
    for (const double time : sOddTimes)
        gFindEntries(chunk, isInOrder, time, 1.0);
    uint64_t bytes = 0;
    for (size_t i = 0; i < chunk.GetEntryCount(); ++i)
    {
        const OverviewChunk::EntryReference entry = chunk.GetEntry(i);
        gAddEntry(entry, times);
        gFindEntries(chunk, isInOrder, entry.Entry->Start, entry.Entry->End);
        gFindEntries(chunk, isInOrder, entry.Entry->End, chunk.GetLastEntryEndTime());
        gFindEntries(chunk, isInOrder, chunk.ContinuesFromPrevious() ? 0.0 : 1.0, entry.Entry->Start);
        bytes += sOverviewEntrySizes[static_cast<size_t>(entry.Type)];
    }
    gExpect(chunk.GetSize() == bytes);

    const WrittenChunk written(chunk);
    gExpect(written.GetSize() == size && gAreSameBytes(written.GetData(), input, size));
    ByteCursor cursor = written.GetCursor();
    gExpect(chunk.Deserialize(cursor) && chunk.GetSize() == bytes);
    const WrittenChunk rewritten(chunk);
    gExpect(rewritten.GetSize() == size && gAreSameBytes(rewritten.GetData(), input, size));
}

// --- Function indices ---

void gTryFunctionIndex(ByteCursor inInput)
{
    FunctionIndexChunk chunk;
    const size_t size = inInput.GetRemaining();
    if (!chunk.Deserialize(inInput))
        return;
    gExpect(chunk.GetSize() == size);

    const WrittenChunk written(chunk);
    gExpect(chunk.GetSize() == size && written.GetSize() == size);
    FunctionIndexChunk copy;
    ByteCursor cursor = written.GetCursor();
    gExpect(copy.Deserialize(cursor) && copy.GetFunctions() == chunk.GetFunctions());
    for (const auto& [function, bars] : chunk.GetFunctions())
    {
        const auto found = copy.GetFunctions().find(function);
        gExpect(found != copy.GetFunctions().end());
        // Equality leaves bits out that are stored all the same.
        gExpect(found->first.ResolveIndex.Index == function.ResolveIndex.Index);
    }
    cursor = written.GetCursor();
    gExpect(chunk.Deserialize(cursor) && copy.GetFunctions() == chunk.GetFunctions());
}

// --- Ready-thread records ---

// By ready time, those that arrived first before others of the same time; times that aren't numbers last.
std::vector<uint16_t> gMakeTimeIndex(const std::vector<ReadyRecord>& inRecords)
{
    std::vector<uint16_t> index(inRecords.size());
    std::iota(index.begin(), index.end(), uint16_t{0});
    const auto numbersEnd = std::stable_partition(
        index.begin(), index.end(), [&](uint16_t inPosition) { return !std::isnan(inRecords[inPosition].ReadyTime); });
    std::stable_sort(index.begin(), numbersEnd,
                     [&](uint16_t inFirst, uint16_t inSecond)
                     { return inRecords[inFirst].ReadyTime < inRecords[inSecond].ReadyTime; });
    return index;
}

void gTryReadyThread(ByteCursor inInput)
{
    ReadyThreadChunk chunk;
    const uint8_t* const input = inInput.GetPosition();
    const size_t size = inInput.GetRemaining();
    if (!chunk.Deserialize(inInput))
        return;
    const size_t count = chunk.GetRecords().size();
    gExpect(count <= ReadyThreadChunk::sMaxRecords && chunk.GetTimeIndex().size() == count);
    for (const uint16_t position : chunk.GetTimeIndex())
        gExpect(position < count);

    // All but the time index, which is made anew, is what was read.
    const WrittenChunk written(chunk);
    const size_t prefix = sizeof(uint32_t) + count * sizeof(uint16_t);
    gExpect(written.GetSize() == size && gAreSameBytes(written.GetData(), input, sizeof(uint32_t)) &&
            gAreSameBytes(written.GetData() + prefix, input + prefix, size - prefix));
    ReadyThreadChunk copy;
    ByteCursor cursor = written.GetCursor();
    gExpect(copy.Deserialize(cursor) && copy.GetSize() == chunk.GetSize());
    const std::vector<uint16_t> expected = gMakeTimeIndex(chunk.GetRecords());
    gExpect(copy.GetTimeIndex() == expected);
    const WrittenChunk rewritten(copy);
    gExpect(rewritten.GetSize() == size && gAreSameBytes(rewritten.GetData(), written.GetData(), size));
    cursor = rewritten.GetCursor();
    gExpect(chunk.Deserialize(cursor) && chunk.GetTimeIndex() == expected);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize)
{
    Fuzz::gExpectNoAssertions();
    if (inSize == 0)
        return 0;
    const ByteCursor input(inData + 1, inSize - 1);
    switch (static_cast<EChunkInput>(inData[0] % Fuzz::sNumChunkInputs))
    {
    case EChunkInput::FunctionIndex:
        gTryFunctionIndex(input);
        break;
    case EChunkInput::Bars:
        gTryBars(input);
        break;
    case EChunkInput::Overview:
        gTryOverview(input);
        break;
    case EChunkInput::ReadyThread:
        gTryReadyThread(input);
        break;
    case EChunkInput::Boundaries:
        gTryBoundaries(input);
        break;
    }
    return 0;
}
