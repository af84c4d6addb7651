// What was on a stack at a time.
#include "Session/Session.h"
#include "ThreadsModel/ThreadsModel.h"

#include <algorithm>
#include <limits>

namespace Profiler
{
namespace
{

using BlockingStackFrame = ThreadsModel::BlockingStackFrame;

// What two sides of a comparison must have in common, beside the index: the function, or the address where nobody knows it.
uint64_t gGetKey(const ResolvedFunctionInfo& inInfo)
{
    return inInfo.FunctionRelativeAddress != sNoAddress ? inInfo.FunctionRelativeAddress : inInfo.RelativeAddress;
}

bool gAreSameFunction(const ResolvedFunctionInfo& inOne, const ResolvedFunctionInfo& inOther)
{
    return gGetKey(inOne) == gGetKey(inOther) && inOne.ResolveIndex == inOther.ResolveIndex;
}

// The frames of bars that agree with a stack, both root first; none if they don't. Zones that were instrumented have no address,
// nor has a bar that stands for unknown frames; behind one of these, the stack needn't reach the root.
std::vector<BlockingStackFrame> gMatchStack(const ModuleDatabase& inModules, const std::vector<Bar>& inBars,
                                            const Callstack& inAddresses, int32_t inProcessID, double inTime)
{
    std::vector<BlockingStackFrame> frames; // leaf first
    frames.reserve(inBars.size());
    size_t numLeft = inAddresses.size();
    bool sawUnknown = false;
    for (auto bar = inBars.rbegin(); bar != inBars.rend(); ++bar)
    {
        const ResolvedFunctionInfo function = inModules.GetResolvedFunction(bar->Address, bar->ResolveIndex);
        const bool isUnknown = bar->ResolveIndex.IsUnknownClass();
        sawUnknown |= isUnknown;
        if (isUnknown || bar->ResolveIndex.IsInstrumented() || (numLeft == 0 && sawUnknown))
        {
            frames.push_back({*bar, function});
            continue;
        }
        if (numLeft == 0)
            return {};
        const ResolvedFunctionInfo ofStack = inModules.FindKnownFunction(inAddresses[numLeft - 1], inProcessID, inTime);
        if (!gAreSameFunction(function, ofStack))
            return {};
        frames.push_back({*bar, ofStack});
        --numLeft;
    }
    if (numLeft != 0)
        return {};
    std::reverse(frames.begin(), frames.end());
    return frames;
}

} // namespace

System::JobHandle ThreadsModel::FindStack(ThreadID inThread, double inTime, System::JobHandle inPrevious,
                                          const std::function<void(std::vector<Bar>)>& inCallback) const
{
    System::JobScheduler& scheduler = GetSession().GetJobScheduler();
    if (inPrevious.IsValid())
        scheduler.CancelJobs(inPrevious);
    System::JobDescription description;
    description.Group = inPrevious.Group;
    description.Priority = 1;
    description.Work = [this, inThread, inTime, callback = inCallback](System::Job&, const bool& inIsCanceled)
    {
        std::vector<Bar> stack;
        if (ReadStack(inThread, inTime, inIsCanceled, stack))
            callback(std::move(stack));
    };
    return scheduler.ScheduleJob(std::move(description));
}

// False if it was cancelled. What doesn't exist, or can't be loaded, has no bars.
bool ThreadsModel::ReadStack(ThreadID inThread, double inTime, const bool& inIsCanceled, std::vector<Bar>& outStack) const
{
    const DetailLOD& level = GetDetailLOD(0);
    const DetailLODThread* thread = level.GetThread(inThread);
    if (thread == nullptr)
        return true;
    if (System::gIsCanceled(inIsCanceled))
        return false;
    ChunkDescription description;
    if (!thread->GetChunkTable().GetChunk(level.GetChunkLength(), inTime, description) ||
        !description.HasDataTypes(EChunkType::Bar))
        return true;
    if (System::gIsCanceled(inIsCanceled))
        return false;
    const TypedChunkHandle<BarChunk> chunk(
        mStreamingManager->BlockingLoad(*thread, description, EChunkType::Bar, EChunkUnloadMode::Immediate));
    std::vector<const Bar*> bars;
    if (chunk)
        chunk->GetStackAtTime(inTime, bars);
    if (System::gIsCanceled(inIsCanceled))
        return false;
    outStack.reserve(bars.size());
    for (const Bar* bar : bars)
        outStack.push_back(*bar);
    return true;
}

System::JobHandle
ThreadsModel::GetBlockingCallstackAsync(ThreadID inThread, CallstackKey inStack, double inTime, System::JobHandle inPrevious,
                                        const std::function<void(std::vector<BlockingStackFrame>, double)>& inCallback) const
{
    const Callstack* stack = inStack != sNoCallstack ? GetSession().GetCallstack(inStack) : nullptr;
    const Thread* thread = GetSession().GetThread(inThread);
    if (stack == nullptr || stack->empty() || thread == nullptr)
    {
        inCallback({}, 0.0);
        return {};
    }
    // A copy, since the stack is good for this thread and until the next look-up alone.
    const auto match =
        [this, inTime, process = thread->ProcessID, callback = inCallback, addresses = *stack](const std::vector<Bar>& inBars)
    {
        std::vector<BlockingStackFrame> frames =
            gMatchStack(GetSession().GetModuleDatabase(), inBars, addresses, process, inTime);
        const double length = frames.empty() ? 0.0 : inBars.back().End - inBars.back().Start;
        callback(std::move(frames), length);
    };
    return FindStack(inThread, inTime, inPrevious, match);
}

void ThreadsModel::CancelStackJobs(System::JobHandle inJob) const
{
    GetSession().GetJobScheduler().CancelMatchingJobsAndWait(System::ECancelMatch::Group, inJob);
}

void ThreadsModel::GetTimeRange(double& outStart, double& outEnd) const
{
    constexpr double highest = std::numeric_limits<double>::max();
    constexpr double lowest = std::numeric_limits<double>::min(); // above zero: a thread that ends there has no length
    outStart = highest;
    outEnd = lowest;
    for (const Thread& thread : GetSession().GetThreadList())
    {
        outStart = std::min(outStart, thread.StartTimeMs);
        outEnd = std::max(outEnd, thread.EndTimeMs);
    }
    if (outStart == highest && outEnd == lowest)
    {
        outStart = 0.0;
        outEnd = GetSession().GetSessionInfo().SessionEndTimeMs;
    }
}

} // namespace Profiler
