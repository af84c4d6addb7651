#include "FindTwin.h"

#include "Session/Pass/ChunkTime.h"
#include "Utility/Format.h"

#include <algorithm>
#include <limits>
#include <map>
#include <set>
#include <tuple>

namespace Profiler
{
namespace
{

constexpr double sFarAway = 1e300;

uint32_t gGetComparedIndex(const Bar& inBar)
{
    return inBar.ResolveIndex.Index & ResolveIndex::sComparedMask;
}

bool gHasCarry(const Bar& inBar, uint32_t inBit)
{
    return (inBar.ResolveIndex.Index & inBit) != 0;
}

bool gIsWanted(const FindQuery& inQuery, ThreadID inThread)
{
    return std::find(inQuery.Threads.begin(), inQuery.Threads.end(), inThread) != inQuery.Threads.end();
}

bool gOverlaps(const FindQuery& inQuery, const FindTwin::Call& inCall)
{
    return inCall.GetEnd() >= inQuery.StartTime && inCall.GetStart() <= inQuery.EndTime;
}

int32_t gGetFirstChunk(const FindQuery& inQuery)
{
    return inQuery.StartTime == FindQuery::sCaptureStart ? 0 : ChunkIndexOfTime(sLevel0ChunkLengthMs, inQuery.StartTime);
}

int32_t gGetLastChunk(const FindQuery& inQuery)
{
    return inQuery.EndTime == FindQuery::sCaptureEnd ? std::numeric_limits<int32_t>::max()
                                                     : ChunkIndexOfTime(sLevel0ChunkLengthMs, inQuery.EndTime);
}

bool gTouchesChunks(const FindQuery& inQuery, const FindTwin::Call& inCall)
{
    return inCall.GetLastChunk() >= gGetFirstChunk(inQuery) && inCall.GetFirstChunk() <= gGetLastChunk(inQuery);
}

bool gIsShorterPrefix(const ResolvedCallstack& inOne, const ResolvedCallstack& inOther)
{
    return inOne.size() < inOther.size() && std::equal(inOne.begin(), inOne.end(), inOther.begin());
}

bool gIsBefore(const ResolvedCallstack& inOne, const ResolvedCallstack& inOther)
{
    return std::lexicographical_compare(inOne.begin(), inOne.end(), inOther.begin(), inOther.end(), ResolvedAddressOrder());
}

// Whether they agree in all that holds for disordered calls too.
bool gAreAlike(const FoundCall& inOne, const FoundCall& inOther)
{
    FoundCall other = inOther;
    other.End = inOne.End;
    other.IsNested = inOne.IsNested;
    return inOne == other;
}

FoundCall gCut(const FindQuery& inQuery, const FindTwin::Call& inCall, const FindTwin::Part& inPart, bool inIsNested)
{
    Bar bar = inPart.Bar;
    bar.Start = std::max(bar.Start, inQuery.StartTime);
    bar.End = std::min(inCall.GetEnd(), inQuery.EndTime);
    return {bar, inCall.Depth, inCall.Thread, inIsNested, inCall.Context};
}

std::string gPrint(const char* inWhat, const FoundCall& inCall)
{
    return Utility::gFormat("%s thread %d depth %d function %llx/%x %.17g..%.17g context %llx%s\n", inWhat, inCall.Thread,
                            inCall.Depth, static_cast<unsigned long long>(inCall.Address), inCall.Index, inCall.Start, inCall.End,
                            static_cast<unsigned long long>(inCall.Context), inCall.IsNested ? " nested" : "");
}

} // namespace

FoundCall::FoundCall(const Bar& inBar, int32_t inDepth, ThreadID inThread, bool inIsNested, uint64_t inContext)
    : Thread(inThread),
      Depth(inDepth),
      Address(inBar.Address),
      Index(gGetComparedIndex(inBar)),
      Context(inContext),
      Start(inBar.Start),
      End(inBar.End),
      IsNested(inIsNested)
{
}

FindTwinCounts& FindTwinCounts::operator+=(const FindTwinCounts& inOther)
{
    for (const auto member :
         {&FindTwinCounts::Expected, &FindTwinCounts::LongCalls, &FindTwinCounts::NestedCalls, &FindTwinCounts::BeyondItsChunks,
          &FindTwinCounts::PartBeforeWindow, &FindTwinCounts::ToldFromLaterPart, &FindTwinCounts::InsideOtherFunction,
          &FindTwinCounts::InsideOtherStack, &FindTwinCounts::Disordered})
        this->*member += inOther.*member;
    return *this;
}

// Makes the calls of one thread, chunk by chunk.
class FindTwin::ThreadReader
{
public:
    ThreadReader(std::vector<Call>& ioCalls, ThreadID inThread) : mCalls(ioCalls), mThread(inThread), mFirstCall(ioCalls.size())
    {
    }

    void ReadChunk(const BarChunk& inChunk, int32_t inIndex)
    {
        const std::vector<BarChunk::Row>& rows = inChunk.GetRows();
        std::vector<std::vector<size_t>> calls(rows.size()); // as the bars stand
        for (size_t depth = 0; depth < rows.size(); ++depth)
        {
            for (size_t i = 0; i < rows[depth].size(); ++i)
            {
                const Bar& bar = *rows[depth][i];
                if (i == 0 && IsRest(depth, bar))
                    calls[depth].push_back(mOpen[depth]);
                else
                {
                    const uint64_t context = inChunk.GetInstrumentationContext({static_cast<int32_t>(depth), i});
                    calls[depth].push_back(
                        AddCall(depth, depth != 0 ? &mCalls[calls[depth - 1].at(bar.ParentIndex)] : nullptr, context));
                    if (gHasCarry(bar, Bar::sContinuedFromPrevious))
                        mBrokenDepths.insert(depth); // where it began wasn't recorded
                }
                AddPart(depth, calls[depth].back(), {inIndex, bar});
            }
        }
        for (const auto& [depth, call] : mOpen)
        {
            if (mCalls[call].GetLastChunk() != inIndex)
                mBrokenDepths.insert(depth);
        }
        CheckOrder(rows, calls, inIndex);
    }

    void Finish()
    {
        for (const auto& [depth, call] : mOpen)
            mBrokenDepths.insert(depth);
        for (size_t i = mFirstCall; i < mCalls.size(); ++i)
        {
            Call& call = mCalls[i];
            const bool hasCarry = call.IsLong() || call.Parts.front().Bar.GetCarry() != 0;
            // Whether a call is nested hangs on the ones around it.
            call.IsDisordered =
                call.IsDisordered || (hasCarry && mBrokenDepths.contains(static_cast<size_t>(call.Depth))) ||
                std::any_of(call.Path.begin(), call.Path.end(),
                            [&](size_t inParent)
                            { return mCalls[inParent].IsDisordered && mCalls[inParent].GetFunction() == call.GetFunction(); });
        }
    }

private:
    [[nodiscard]] bool IsRest(size_t inDepth, const Bar& inBar) const
    {
        const auto open = mOpen.find(inDepth);
        return open != mOpen.end() && gHasCarry(inBar, Bar::sContinuedFromPrevious) &&
               mCalls[open->second].GetFunction() == gGetFunction(inBar);
    }

    // inParent is null for a root.
    size_t AddCall(size_t inDepth, const Call* inParent, uint64_t inContext)
    {
        Call call;
        call.Thread = mThread;
        call.Depth = static_cast<int32_t>(inDepth);
        call.Context = inContext;
        if (inParent != nullptr)
            call.Path = inParent->Path;
        call.Path.push_back(mCalls.size());
        mCalls.push_back(std::move(call));
        return mCalls.size() - 1;
    }

    void AddPart(size_t inDepth, size_t inCall, const Part& inPart)
    {
        Call& call = mCalls[inCall];
        call.IsDisordered = call.IsDisordered || (!call.Parts.empty() && inPart.Bar.End < call.GetEnd());
        call.Parts.push_back(inPart);
        if (const auto open = mOpen.find(inDepth); open != mOpen.end() && open->second != inCall)
            mBrokenDepths.insert(inDepth); // the end of that one wasn't recorded
        mOpen.erase(inDepth);
        if (gHasCarry(inPart.Bar, Bar::sContinuesInNext))
            mOpen[inDepth] = inCall;
    }

    // Bars of a function must stand one behind or inside the other, in the order of the tree.
    void CheckOrder(const std::vector<BarChunk::Row>& inRows, const std::vector<std::vector<size_t>>& inCalls, int32_t inIndex)
    {
        std::map<std::pair<uint64_t, uint32_t>, std::vector<Entry>> functions;
        const std::function<void(size_t, uint32_t)> enter = [&](size_t inDepth, uint32_t inParent)
        {
            for (size_t i = 0; inDepth < inRows.size() && i < inRows[inDepth].size(); ++i)
            {
                const Bar& bar = *inRows[inDepth][i];
                if (bar.ParentIndex != inParent)
                    continue;
                functions[{bar.Address, gGetComparedIndex(bar)}].push_back({&bar, &mCalls[inCalls[inDepth][i]]});
                enter(inDepth + 1, static_cast<uint32_t>(i));
            }
        };
        enter(0, Bar::sNoParent);
        for (const auto& [function, entries] : functions)
        {
            const bool isInOrder = sAreInOrder(entries);
            for (const Entry& entry : entries)
                entry.Owner->IsDisordered = entry.Owner->IsDisordered || (!isInOrder && entry.Owner->GetFirstChunk() == inIndex);
        }
    }

    struct Entry
    {
        const Profiler::Bar* Bar;
        Call* Owner;
    };

    static bool sAreInOrder(const std::vector<Entry>& inEntries)
    {
        for (size_t i = 0; i < inEntries.size(); ++i)
        {
            const auto& [bar, call] = inEntries[i];
            if (bar->Start > bar->End)
                return false;
            for (size_t k = 0; k < i; ++k)
            {
                const auto& [before, callBefore] = inEntries[k];
                const bool isInside = callBefore->Depth < call->Depth && before->Start <= bar->Start && before->End >= bar->End;
                const bool isChild = std::find(call->Path.begin(), call->Path.end(), callBefore->Path.back()) != call->Path.end();
                if (isInside != isChild || (!isInside && before->End > bar->Start))
                    return false;
            }
        }
        return true;
    }

    std::vector<Call>& mCalls;
    const ThreadID mThread;
    const size_t mFirstCall;
    std::map<size_t, size_t> mOpen; // by depth, the call that goes on
    std::set<size_t> mBrokenDepths;
};

FindTwin::FindTwin(ThreadsModel& ioModel, const std::vector<ThreadID>& inThreads)
{
    constexpr auto bars = static_cast<uint8_t>(EChunkType::Bar);
    for (const ThreadID threadID : inThreads)
    {
        const DetailLODThread* thread = ioModel.GetDetailLOD(0).GetThread(threadID);
        ThreadReader reader(mCalls, threadID);
        double time = -sFarAway;
        for (ChunkDescription chunk;
             thread != nullptr && thread->GetChunkTable().FindNextChunk(bars, sLevel0ChunkLengthMs, time, chunk);
             time = ChunkStartOfIndex(chunk.mIndex, sLevel0ChunkLengthMs))
            reader.ReadChunk(*TypedChunkHandle<BarChunk>(ioModel.GetStreamingManager().BlockingLoad(
                                 *thread, chunk, EChunkType::Bar, EChunkUnloadMode::Immediate)),
                             chunk.mIndex);
        reader.Finish();
    }
    if (ioModel.GetLeftOutCounts().Bars != 0)
        CompareWithIndex(ioModel.GetFindModel());
}

// A report that was left out may have ended a call, which then looks as if it went on with the next one of its function. Only the
// index knows.
void FindTwin::CompareWithIndex(FindModel& ioModel)
{
    using Ranges = std::set<std::pair<int32_t, int32_t>>;
    std::map<std::tuple<ThreadID, uint64_t, uint32_t>, Ranges> walked;
    const auto getRanges = [&](const Call& inCall) -> Ranges& {
        return walked[{inCall.Thread, inCall.GetFunction().RelativeAddress, gGetComparedIndex(inCall.Parts.front().Bar)}];
    };
    for (const Call& call : mCalls)
    {
        if (call.IsLong())
            getRanges(call).emplace(call.GetFirstChunk(), call.GetLastChunk());
    }
    for (Call& call : mCalls)
    {
        Ranges indexed;
        for (const FindFunctionEntry& entry : ioModel.ReadThreadFunctions(EFindSet::FindResults, call.Thread))
        {
            Utility::ByteBuffer block;
            if (entry.Function != call.GetFunction() ||
                !ioModel.ReadBlock(EFindSet::FindResults, entry.BlockOffset, entry.BlockSize, block))
                continue;
            Utility::ByteCursor cursor(block.GetData(), block.GetSize());
            for (uint32_t i = 0; i < entry.NumRanges; ++i)
            {
                const auto first = cursor.Read<int32_t>();
                indexed.emplace(first, cursor.Read<int32_t>());
            }
        }
        call.IsDisordered = call.IsDisordered || (call.IsLong() && indexed != getRanges(call));
    }
}

ResolvedCallstack FindTwin::GetStack(const Call& inCall) const
{
    ResolvedCallstack stack;
    for (const size_t call : inCall.Path)
        stack.push_back(mCalls[call].GetFunction());
    return stack;
}

bool FindTwin::HasPath(const Call& inCall, const ResolvedCallstack& inPath) const
{
    return inCall.Path.size() >= inPath.size() && std::equal(inPath.begin(), inPath.end(), inCall.Path.begin(),
                                                             [&](const ResolvedAddress& inFunction, size_t inParent)
                                                             { return mCalls[inParent].GetFunction() == inFunction; });
}

std::string FindTwin::FindDifferences(const FindFunctionsQuery& inQuery, const std::vector<FoundCall>& inFound)
{
    const auto matches = [&](const Call& inCall)
    { return inCall.Depth >= inQuery.MinimumDepth && HasPath(inCall, inQuery.RequiredCallPath); };
    const auto isInside = [&](const Call& inCall, const ResolvedAddress& inFunction)
    {
        return std::any_of(inCall.Path.begin(), inCall.Path.end() - 1,
                           [&](size_t inParent)
                           {
                               const Call& parent = mCalls[inParent];
                               return parent.GetFunction() == inFunction && matches(parent) && gOverlaps(inQuery, parent);
                           });
    };
    std::vector<Wish> wishes;
    for (const ResolvedAddress& function : inQuery.Functions)
    {
        const auto isNested = [&, function](const Call& inCall)
        {
            if (isInside(inCall, function))
                return true;
            for (const ResolvedAddress& other : inQuery.Functions)
                mCounts.InsideOtherFunction += isInside(inCall, other) ? 1 : 0;
            return false;
        };
        wishes.push_back({function, matches, isNested});
    }
    return Compare(inQuery, wishes, inFound);
}

std::string FindTwin::FindDifferences(const FindCallstacksQuery& inQuery, const std::vector<FoundCall>& inFound)
{
    const std::vector<ResolvedCallstack>& stacks = inQuery.Callstacks;
    std::vector<Wish> wishes;
    for (const ResolvedCallstack& stack : stacks)
    {
        const auto matches = [&](const Call& inCall) { return inCall.Path.size() == stack.size() && HasPath(inCall, stack); };
        const auto isNested = [&](const Call&)
        {
            bool isInside = false;
            for (const ResolvedCallstack& outer : stacks)
            {
                const bool isBetween = std::any_of(stacks.begin(), stacks.end(),
                                                   [&](const ResolvedCallstack& inOther)
                                                   { return gIsBefore(outer, inOther) && gIsBefore(inOther, stack); });
                if (gIsShorterPrefix(outer, stack) && !isBetween)
                    return true;
                isInside = isInside || gIsShorterPrefix(outer, stack);
            }
            mCounts.InsideOtherStack += isInside ? 1 : 0;
            return false;
        };
        wishes.push_back({stack.back(), matches, isNested});
    }
    return Compare(inQuery, wishes, inFound);
}

// Whether the chunk of a part takes the call in, as one that goes on. REQUIRES: the call is long and in the window.
bool FindTwin::IsTaken(const FindQuery& inQuery, const Call& inCall, const Part& inPart) const
{
    const auto anyCall = [&](const auto& inCondition)
    {
        return std::any_of(mCalls.begin(), mCalls.end(),
                           [&](const Call& inOther) {
                               return inOther.Thread == inCall.Thread && inOther.GetFunction() == inCall.GetFunction() &&
                                      inCondition(inOther);
                           });
    };
    // Whether the ends of long calls that begin in the chunk are wanted.
    const auto isStart = [&](int32_t inChunk)
    {
        return anyCall([&](const Call& inOther)
                       { return inOther.IsLong() && inOther.GetFirstChunk() == inChunk && gTouchesChunks(inQuery, inOther); });
    };
    if (!isStart(inPart.Chunk) || inPart.Bar.Start > inQuery.EndTime || !gHasCarry(inPart.Bar, Bar::sContinuesInNext))
        return false;
    const auto isWantedHere = [&](const Call& inOther)
    {
        return inOther.GetLastChunk() == inPart.Chunk &&
               (gTouchesChunks(inQuery, inOther) || (inOther.IsLong() && isStart(inOther.GetFirstChunk())));
    };
    return inPart.Bar.End >= inQuery.StartTime || !anyCall(isWantedHere);
}

// The part from which on a search tells of the call; null if it doesn't. REQUIRES: the call is in the window.
const FindTwin::Part* FindTwin::FindToldPart(const FindQuery& inQuery, const Call& inCall)
{
    if (!gTouchesChunks(inQuery, inCall))
    {
        ++mCounts.BeyondItsChunks;
        return nullptr;
    }
    const auto told = std::find_if(inCall.Parts.begin(), inCall.Parts.end(),
                                   [&](const Part& inPart) { return !inCall.IsLong() || IsTaken(inQuery, inCall, inPart); });
    if (told == inCall.Parts.end())
    {
        ++mCounts.PartBeforeWindow;
        return nullptr;
    }
    mCounts.ToldFromLaterPart += told != inCall.Parts.begin() ? 1 : 0;
    return &*told;
}

void FindTwin::Expect(const FindQuery& inQuery, const Wish& inWish, const Call& inCall, std::vector<FoundCall>& ioExpected)
{
    if (!gOverlaps(inQuery, inCall))
        return;
    const Part* told = FindToldPart(inQuery, inCall);
    if (told == nullptr)
        return;
    FoundCall found = gCut(inQuery, inCall, *told, false);
    if (found.Start == found.End)
        return;
    found.IsNested = inWish.IsNested(inCall);
    ioExpected.push_back(found);
    mCounts.LongCalls += inCall.IsLong() ? 1 : 0;
    mCounts.NestedCalls += found.IsNested ? 1 : 0;
}

std::string FindTwin::Compare(const FindQuery& inQuery, const std::vector<Wish>& inWishes, std::vector<FoundCall> inFound)
{
    std::vector<FoundCall> expected;
    std::vector<FoundCall> disordered;
    for (const Wish& wish : inWishes)
    {
        for (const Call& call : mCalls)
        {
            if (!gIsWanted(inQuery, call.Thread) || call.GetFunction() != wish.Function || !wish.Matches(call))
                continue;
            if (!call.IsDisordered)
            {
                Expect(inQuery, wish, call, expected);
                continue;
            }
            for (const Part& part : call.Parts)
                disordered.push_back(gCut(inQuery, call, part, false));
            mCounts.Disordered += gOverlaps(inQuery, call) ? 1 : 0;
        }
    }
    mCounts.Expected += expected.size();

    std::sort(expected.begin(), expected.end());
    std::sort(inFound.begin(), inFound.end());
    std::vector<FoundCall> missing;
    std::vector<FoundCall> extra;
    std::set_difference(expected.begin(), expected.end(), inFound.begin(), inFound.end(), std::back_inserter(missing));
    std::set_difference(inFound.begin(), inFound.end(), expected.begin(), expected.end(), std::back_inserter(extra));
    std::string differences;
    for (const FoundCall& call : missing)
        differences += gPrint("missing:", call);
    for (const FoundCall& call : extra)
    {
        const auto known = std::find_if(disordered.begin(), disordered.end(),
                                        [&](const FoundCall& inOther) { return gAreAlike(call, inOther); });
        if (known == disordered.end())
            differences += gPrint("extra:", call);
        else
            disordered.erase(known);
    }
    return differences;
}

} // namespace Profiler
