#include "ThreadsModel/Chunks/FunctionIndexChunk.h"

#include "System/Job.h"
#include "ThreadsModel/Chunks/BarTree.h"

namespace Profiler
{
namespace
{

// Grown from one bar on, lists would take an allocation for nearly every bar.
constexpr size_t sFirstListSize = 8;

constexpr size_t sEntrySize = sizeof(uint32_t) + sizeof(uint64_t);

// A function without bars.
constexpr size_t sFunctionSize = 2 * sizeof(uint64_t) + sizeof(uint32_t);

} // namespace

void FunctionIndexChunk::Build(const std::vector<BarChunk::Row>& inRows, const bool& inIsCanceled)
{
    gWalkBarTree(
        inRows, [&] { return System::gIsCanceled(inIsCanceled); },
        [&](size_t inDepth, size_t inIndex)
        {
            const Bar& bar = *inRows[inDepth][inIndex];
            BarList& bars = mFunctions[gGetFunction(bar)];
            if (bars.empty())
                bars.reserve(sFirstListSize);
            bars.push_back({static_cast<uint32_t>(inDepth), inIndex});
        },
        [](size_t, size_t) {});
}

void FunctionIndexChunk::Serialize(Utility::ByteBuffer& ioBuffer)
{
    const size_t start = ioBuffer.GetSize();
    ioBuffer.AppendValue(static_cast<uint64_t>(mFunctions.size()));
    for (const auto& [function, bars] : mFunctions)
    {
        ioBuffer.AppendValue(function.RelativeAddress);
        ioBuffer.AppendValue(function.ResolveIndex.Index);
        ioBuffer.AppendValue(static_cast<uint64_t>(bars.size()));
        for (const FunctionBarEntry& bar : bars)
        {
            ioBuffer.AppendValue(bar.Depth);
            ioBuffer.AppendValue(bar.BarIndex);
        }
    }
    mSerializedSize.store(ioBuffer.GetSize() - start, std::memory_order_relaxed);
}

bool FunctionIndexChunk::Deserialize(Utility::ByteCursor& ioCursor)
{
    mFunctions.clear();
    mSerializedSize.store(ioCursor.GetRemaining(), std::memory_order_relaxed);
    const auto numFunctions = ioCursor.Read<uint64_t>();
    if (numFunctions > ioCursor.GetRemaining() / sFunctionSize)
        return false;
    mFunctions.reserve(numFunctions);
    for (uint64_t i = 0; i < numFunctions; ++i)
    {
        ResolvedAddress function;
        function.RelativeAddress = ioCursor.Read<uint64_t>();
        function.ResolveIndex.Index = ioCursor.Read<uint32_t>();
        const auto numBars = ioCursor.Read<uint64_t>();
        const auto [added, isNew] = mFunctions.try_emplace(function);
        if (!isNew || numBars > ioCursor.GetRemaining() / sEntrySize)
            return false;
        added->second.resize(numBars);
        for (FunctionBarEntry& bar : added->second)
        {
            bar.Depth = ioCursor.Read<uint32_t>();
            bar.BarIndex = ioCursor.Read<uint64_t>();
        }
    }
    return !ioCursor.HasFailed() && ioCursor.GetRemaining() == 0;
}

} // namespace Profiler
