#include "Benchmarks/CaptureGenerator.h"

#include "Session/Session.h"
#include "Tests/Support/SessionFixture.h"

#include <algorithm>
#include <array>
#include <deque>
#include <vector>

namespace
{

using namespace Profiler;

// --- The machine ---

constexpr size_t sNumProcessors = 8;
constexpr size_t sNumProcesses = 4;
constexpr double sSampleInterval = 0.25;   // milliseconds, of each processor
constexpr double sActionInterval = 0.08;   // the same, from one wake-up or switch of a processor to the next, on average
constexpr double sEventDistance = 0.00005; // milliseconds between events of one moment
constexpr double sWakeUpShare = 0.33;      // of the actions
constexpr uint8_t sExistsFlag = 1;         // StartFlag and EndFlag of a thread at the capture's edges
constexpr uint8_t sEndsFlag = 0;           // EndFlag of one that ends before

// A thread that is switched out waits for one of these: other threads mostly, else input, a while, or a processor.
constexpr std::array<uint8_t, 8> sWaitReasons = {6, 6, 6, 6, 0, 4, 15, 30};
constexpr uint8_t sPreempted = 30;

// --- The program ---

constexpr size_t sNumModules = 8;
constexpr size_t sFunctionsPerModule = 500;
constexpr size_t sNumFunctions = sNumModules * sFunctionsPerModule;
constexpr uint64_t sFunctionDistance = 0x100;
constexpr uint64_t sFunctionSize = 0xF0;
constexpr uint64_t sFirstBase = 0x400000;
constexpr uint64_t sModuleDistance = 0x1000000;
constexpr size_t sNumRoles = 8; // kinds of threads, each with a part of the tree for itself
constexpr size_t sCallsPerRole = 5000;
constexpr size_t sKernelPlaces = 16; // of a role: where it waits or wakes others
constexpr size_t sKernelDepth = 6;
constexpr size_t sMinDepth = 5;
constexpr size_t sMaxDepth = 40;
constexpr size_t sMaxCallees = 6;
constexpr size_t sCallSites = 32;
constexpr size_t sLeafAddresses = 4; // where in a function it is sampled
constexpr size_t sNumZoneTexts = 64;
constexpr size_t sMaxZones = 3; // open at once

// Distributions of the standard library differ from one to the next, and take longer than the rest of an event.
class Random
{
public:
    explicit Random(uint64_t inSeed) : mState(inSeed) {}

    // From 0 up to, not including, inCount.
    size_t Pick(size_t inCount) { return static_cast<size_t>(((Next() >> 32) * inCount) >> 32); }
    // The same, the lower the likelier.
    size_t PickLow(size_t inCount) { return std::min(Pick(inCount), Pick(inCount)); }
    // From 0 up to, not including, 1.
    double PickShare() { return static_cast<double>(Next() >> 11) * 0x1p-53; }
    bool Happens(double inShare) { return PickShare() < inShare; }

    // How often in a row something happens.
    size_t PickCount(double inShare)
    {
        size_t count = 0;
        while (Happens(inShare))
            ++count;
        return count;
    }

    // Mostly short ones, up to four times the mean.
    double PickSpan(double inMean)
    {
        const double share = PickShare();
        return 4.0 * inMean * share * share * share;
    }

private:
    uint64_t Next()
    {
        mState += 0x9E3779B97F4A7C15;
        uint64_t mixed = mState;
        mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
        mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
        return mixed ^ (mixed >> 31);
    }

    uint64_t mState;
};

// Every way in which the program's functions call each other, with the keys of the stacks.
class CallTree
{
public:
    // Adds modules and stacks to the world.
    CallTree(SessionFixture& ioWorld, Random& ioRandom)
    {
        AddModules(ioWorld);
        for (size_t role = 0; role < sNumRoles; ++role)
            AddRole(role, ioRandom);
        for (uint32_t call = 0; call < mCalls.size(); ++call)
            AddStacks(call, ioWorld.GetSession().GetCallstackTrie());
    }

    [[nodiscard]] size_t GetDepth(uint32_t inCall) const { return mCalls[inCall].Depth; }

    [[nodiscard]] CallstackKey PickStack(uint32_t inCall, Random& ioRandom) const
    {
        return mCalls[inCall].Stacks[ioRandom.PickLow(sLeafAddresses)];
    }
    // Of a thread that stands still, in the kernel.
    [[nodiscard]] CallstackKey GetStack(uint32_t inCall) const { return mCalls[inCall].Stacks[0]; }

    // One of the role's few ways into the kernel, most often the one from where it starts.
    [[nodiscard]] uint32_t PickKernelPlace(size_t inRole, Random& ioRandom) const
    {
        const std::vector<uint32_t>& places = mKernelPlaces[inRole % sNumRoles];
        return places[ioRandom.Happens(0.5) ? 0 : ioRandom.PickLow(places.size())];
    }

    // Out of some functions, but no further than to the depth.
    [[nodiscard]] uint32_t Return(uint32_t inCall, size_t inCount, size_t inDepth) const
    {
        for (; inCount > 0 && mCalls[inCall].Depth > inDepth; --inCount)
            inCall = mCalls[inCall].Caller;
        return inCall;
    }

    // Into some functions, as far as there are any.
    [[nodiscard]] uint32_t Call(uint32_t inCall, size_t inCount, Random& ioRandom) const
    {
        for (; inCount > 0 && !mCalls[inCall].Callees.empty(); --inCount)
            inCall = mCalls[inCall].Callees[ioRandom.PickLow(mCalls[inCall].Callees.size())];
        return inCall;
    }

private:
    static constexpr uint32_t sNoCaller = ~0U;

    struct CallNode
    {
        uint32_t Caller;
        size_t Function;
        uint64_t CallSite; // in the caller
        size_t Depth;
        std::vector<uint32_t> Callees;
        std::array<CallstackKey, sLeafAddresses> Stacks{};
    };

    [[nodiscard]] static uint64_t sGetAddress(size_t inFunction)
    {
        return sFirstBase + inFunction / sFunctionsPerModule * sModuleDistance +
               inFunction % sFunctionsPerModule * sFunctionDistance;
    }

    static void AddModules(SessionFixture& ioWorld)
    {
        for (size_t i = 0; i < sNumModules; ++i)
        {
            std::vector<FakeFunction> functions;
            for (size_t j = 0; j < sFunctionsPerModule; ++j)
                functions.push_back(
                    {j * sFunctionDistance, sFunctionSize, "function" + std::to_string(i * sFunctionsPerModule + j)});
            const FakeModule& module = ioWorld.AddModule(
                "/lib/module" + std::to_string(i), static_cast<int32_t>(sFunctionsPerModule * sFunctionDistance), functions);
            for (size_t process = 0; process < sNumProcesses; ++process)
                ioWorld.LoadModule(module, sFirstBase + i * sModuleDistance, process);
        }
    }

    void AddRole(size_t inRole, Random& ioRandom)
    {
        const auto first = static_cast<uint32_t>(mCalls.size());
        mCalls.push_back({sNoCaller, inRole * sFunctionsPerModule / 2, 0, 1, {}, {}});
        while (mCalls.back().Depth < sMinDepth)
            AddCallee(static_cast<uint32_t>(mCalls.size() - 1), PickCallee(mCalls.back().Function, ioRandom));
        const auto start = static_cast<uint32_t>(mCalls.size() - 1);
        while (mCalls.size() - first < sCallsPerRole)
        {
            // Going on from the last call makes deep stacks, any other one many.
            const size_t back = ioRandom.Happens(0.6) ? 0 : ioRandom.Pick(mCalls.size() - start);
            const auto caller = static_cast<uint32_t>(mCalls.size() - 1 - back);
            const bool hasRoom = mCalls[caller].Depth < sMaxDepth && mCalls[caller].Callees.size() < sMaxCallees;
            AddCallee(hasRoom ? caller : start, PickCallee(mCalls[hasRoom ? caller : start].Function, ioRandom));
        }
        AddKernelPlaces(start, ioRandom);
    }

    // The functions of the kernel are the same from wherever it is entered.
    void AddKernelPlaces(uint32_t inStart, Random& ioRandom)
    {
        std::vector<uint32_t>& places = mKernelPlaces.emplace_back();
        const size_t numCalls = mCalls.size() - inStart;
        while (places.size() < sKernelPlaces)
        {
            const auto caller = static_cast<uint32_t>(places.empty() ? inStart : inStart + ioRandom.Pick(numCalls));
            if (mCalls[caller].Depth + sKernelDepth > sMaxDepth)
                continue;
            for (size_t i = 0; i < sKernelDepth; ++i)
                AddCallee(i == 0 ? caller : static_cast<uint32_t>(mCalls.size() - 1), sNumFunctions - 1 - i);
            places.push_back(static_cast<uint32_t>(mCalls.size() - 1));
        }
    }

    // A function calls few others, some of them often, and mostly such of its own module.
    [[nodiscard]] static size_t PickCallee(size_t inFunction, Random& ioRandom)
    {
        const size_t callee = inFunction * 31 + 1 + ioRandom.Pick(6) * ioRandom.Pick(6);
        const size_t module = inFunction / sFunctionsPerModule + (ioRandom.Happens(0.15) ? 1 : 0);
        return module % sNumModules * sFunctionsPerModule + callee % sFunctionsPerModule;
    }

    void AddCallee(uint32_t inCaller, size_t inFunction)
    {
        CallNode& caller = mCalls[inCaller];
        const uint64_t callSite = sGetAddress(caller.Function) + 0x40 + 4 * (caller.Callees.size() % sCallSites);
        caller.Callees.push_back(static_cast<uint32_t>(mCalls.size()));
        mCalls.push_back({inCaller, inFunction, callSite, caller.Depth + 1, {}, {}});
    }

    void AddStacks(uint32_t inCall, CallstackTrie& ioTrie)
    {
        mStack.resize(mCalls[inCall].Depth);
        for (uint32_t call = inCall; mCalls[call].Caller != sNoCaller; call = mCalls[call].Caller)
            mStack[mCalls[call].Depth - 2] = mCalls[call].CallSite;
        for (size_t i = 0; i < sLeafAddresses; ++i)
        {
            mStack.back() = sGetAddress(mCalls[inCall].Function) + 8 * i;
            mCalls[inCall].Stacks[i] = ioTrie.AddCallstack(0, mStack);
        }
    }

    std::vector<CallNode> mCalls;
    std::vector<std::vector<uint32_t>> mKernelPlaces; // by role
    Callstack mStack;                                 // work space
};

class Machine
{
public:
    Machine(SessionFixture& ioWorld, const CaptureSettings& inSettings)
        : mSettings(inSettings),
          mSession(ioWorld.GetSession()),
          mRandom(inSettings.Seed),
          mCalls(ioWorld, mRandom)
    {
        for (size_t i = 0; i < inSettings.NumThreads; ++i)
        {
            const ThreadID id = ioWorld.AddThread("thread" + std::to_string(i), i % sNumProcesses);
            const uint32_t place = mCalls.PickKernelPlace(i, mRandom);
            mThreads.push_back({id, gMakeCapturedProcessID(i % sNumProcesses), EActivity::Waiting, place, place, {}});
        }
    }

    // The whole capture. False if the events couldn't be written.
    [[nodiscard]] bool Run(Utility::ErrorState& ioErrors)
    {
        for (const SimulatedThread& thread : mThreads)
            Emit(thread, ThreadStartEvent{sExistsFlag, 0}, ioErrors);
        for (size_t i = 0; i < sNumProcessors; ++i)
            mProcessors[i].NextSample = sSampleInterval * static_cast<double>(i) / sNumProcessors;
        while (mIsSound && mSession.GetEventStream().GetNumEvents() + mThreads.size() < mSettings.NumEvents)
            Step(ioErrors);
        mSession.GetSessionInfo().SessionEndTimeMs = mTime;
        for (const SimulatedThread& thread : mThreads)
        {
            if (thread.Activity != EActivity::Ended)
                Emit(thread, ThreadEndEvent{sExistsFlag}, ioErrors);
        }
        return mIsSound && mSession.GetEventStream().FlushStream(ioErrors);
    }

private:
    enum class EActivity : uint8_t
    {
        Waiting,
        Ready, // for a processor
        Running,
        Ended,
    };

    struct SimulatedThread
    {
        ThreadID ID;
        ProcessID Process;
        EActivity Activity;
        uint32_t Call;
        uint32_t Place;            // where it enters the kernel
        std::vector<size_t> Zones; // depths of the stacks on which they began
    };

    struct Processor
    {
        SimulatedThread* Thread = nullptr; // null while it is idle
        double NextSample = 0.0;
        double NextAction = 0.0;
    };

    void Emit(const SimulatedThread& inThread, TraceEvent::Payload inPayload, Utility::ErrorState& ioErrors)
    {
        const TraceEvent event(mTime, inThread.Process, inThread.ID, std::move(inPayload));
        mIsSound = mSession.GetEventStream().AddEvent(event, ioErrors) && mIsSound;
        mSession.UpdateThreadFromEvent(event);
        mTime += sEventDistance;
    }

    // What happens next on any processor.
    void Step(Utility::ErrorState& ioErrors)
    {
        const auto getNext = [](const Processor& inProcessor)
        { return std::min(inProcessor.NextSample, inProcessor.NextAction); };
        Processor& processor = *std::min_element(mProcessors.begin(), mProcessors.end(),
                                                 [&](const Processor& inFirst, const Processor& inSecond)
                                                 { return getNext(inFirst) < getNext(inSecond); });
        mTime = std::max(mTime, getNext(processor));
        if (processor.NextSample <= processor.NextAction)
        {
            processor.NextSample += sSampleInterval;
            if (processor.Thread != nullptr)
                Sample(*processor.Thread, ioErrors);
            return;
        }
        processor.NextAction = mTime + mRandom.PickSpan(sActionInterval);
        if (processor.Thread == nullptr)
            SwitchIn(processor, ioErrors);
        else if (mRandom.Happens(sWakeUpShare))
            WakeAnother(*processor.Thread, ioErrors);
        else
        {
            SwitchOut(processor, ioErrors);
            SwitchIn(processor, ioErrors);
        }
    }

    // Out of some functions and into others; not out of one in which a zone that is open began.
    void MoveOn(SimulatedThread& ioThread)
    {
        const size_t floor = ioThread.Zones.empty() ? sMinDepth : ioThread.Zones.back();
        const size_t numLeft = (ioThread.Call == ioThread.Place ? sKernelDepth : 0) + mRandom.PickCount(0.5);
        ioThread.Call = mCalls.Return(ioThread.Call, numLeft, floor);
        ioThread.Call = mCalls.Call(ioThread.Call, mRandom.PickCount(0.6), mRandom);
    }

    void Sample(SimulatedThread& ioThread, Utility::ErrorState& ioErrors)
    {
        MoveOn(ioThread);
        if (mSettings.ZoneShare > 0.0 && mRandom.Happens(mSettings.ZoneShare))
            BeginOrEndZone(ioThread, ioErrors);
        Emit(ioThread, SampleEvent{mCalls.PickStack(ioThread.Call, mRandom)}, ioErrors);
    }

    void BeginOrEndZone(SimulatedThread& ioThread, Utility::ErrorState& ioErrors)
    {
        const bool isEnd = ioThread.Zones.size() == sMaxZones || (!ioThread.Zones.empty() && mRandom.Happens(0.5));
        if (isEnd)
        {
            ioThread.Zones.pop_back();
            Emit(ioThread, InstrumentationEndEvent{}, ioErrors);
            return;
        }
        const std::string number = std::to_string(mRandom.Pick(sNumZoneTexts));
        const std::string context = mRandom.Happens(0.25) ? "context " + number : std::string();
        ioThread.Zones.push_back(mCalls.GetDepth(ioThread.Call));
        Emit(ioThread, InstrumentationBeginEvent{mCalls.PickStack(ioThread.Call, mRandom), "zone " + number, context}, ioErrors);
    }

    // To wait, mostly where it waited before. A thread with zones does so from where it is.
    void EnterKernel(SimulatedThread& ioThread)
    {
        if (mRandom.Happens(0.03))
            ioThread.Place = mCalls.PickKernelPlace(static_cast<size_t>(ioThread.ID), mRandom);
        if (ioThread.Zones.empty())
            ioThread.Call = ioThread.Place;
        else
            MoveOn(ioThread);
    }

    void WakeAnother(const SimulatedThread& inThread, Utility::ErrorState& ioErrors)
    {
        SimulatedThread* woken = FindWaiting();
        if (woken == nullptr)
            return;
        Emit(inThread, ReadyThreadEvent{mCalls.GetStack(inThread.Place), woken->Process, woken->ID}, ioErrors);
        woken->Activity = EActivity::Ready;
        mReady.push_back(woken);
    }

    // The first threads have the most to do. Null if none waits.
    SimulatedThread* FindWaiting()
    {
        const double share = mRandom.PickShare();
        const auto first = static_cast<size_t>(share * share * share * static_cast<double>(mThreads.size()));
        for (size_t i = 0; i < mThreads.size(); ++i)
        {
            SimulatedThread& thread = mThreads[(first + i) % mThreads.size()];
            if (thread.Activity == EActivity::Waiting)
                return &thread;
        }
        return nullptr;
    }

    void SwitchOut(Processor& ioProcessor, Utility::ErrorState& ioErrors)
    {
        SimulatedThread& thread = *ioProcessor.Thread;
        ioProcessor.Thread = nullptr;
        if (IsEndDue())
        {
            ++mNumEnded;
            Emit(thread, ThreadEndEvent{sEndsFlag}, ioErrors);
            Emit(thread, ContextSwitchOutEvent{sWaitReasonTerminated}, ioErrors);
            thread.Activity = EActivity::Ended;
            return;
        }
        const uint8_t reason = sWaitReasons[mRandom.Pick(sWaitReasons.size())];
        if (reason != sPreempted)
            EnterKernel(thread);
        Emit(thread, ContextSwitchOutEvent{reason}, ioErrors);
        thread.Activity = reason == sPreempted ? EActivity::Ready : EActivity::Waiting;
        if (reason == sPreempted)
            mReady.push_back(&thread);
    }

    // Ends are spread evenly over the capture.
    [[nodiscard]] bool IsEndDue() const
    {
        return mNumEnded < mSettings.NumEndingThreads &&
               mSession.GetEventStream().GetNumEvents() * (mSettings.NumEndingThreads + 1) >
                   mSettings.NumEvents * (mNumEnded + 1);
    }

    // A processor without work is interrupted by what one of the threads waits for.
    void SwitchIn(Processor& ioProcessor, Utility::ErrorState& ioErrors)
    {
        if (!mReady.empty())
        {
            ioProcessor.Thread = mReady.front();
            mReady.pop_front();
        }
        else
            ioProcessor.Thread = FindWaiting();
        if (ioProcessor.Thread == nullptr)
            return;
        ioProcessor.Thread->Activity = EActivity::Running;
        Emit(*ioProcessor.Thread, ContextSwitchInEvent{mCalls.GetStack(ioProcessor.Thread->Call)}, ioErrors);
    }

    const CaptureSettings mSettings;
    Session& mSession;
    Random mRandom;
    CallTree mCalls;
    std::vector<SimulatedThread> mThreads;
    std::array<Processor, sNumProcessors> mProcessors;
    std::deque<SimulatedThread*> mReady; // first come, first served
    double mTime = 0.0;                  // milliseconds
    size_t mNumEnded = 0;
    bool mIsSound = true;
};

} // namespace

bool gStoreCapture(const std::string& inSessionPath, const CaptureSettings& inSettings, const RTTI::Registry& inRegistry,
                   Utility::ErrorState& ioErrors)
{
    SessionFixture world(inSessionPath);
    Session& session = world.GetSession();
    session.GetSessionInfo().SampleIntervalMs = sSampleInterval;
    session.SetPerformanceAPIVersion(Session::CurrentPerformanceAPIVersion);
    for (size_t i = 1; i < sNumProcesses; ++i)
        world.AddProcess("process" + std::to_string(i));
    if (!Machine(world, inSettings).Run(ioErrors))
        return false;
    const bool isCanceled = false;
    session.GetCallstackTrie().FinishCallstacks();
    return session.BuildBrokenStackIndex(inRegistry, ioErrors, isCanceled, {}) && session.SaveSession(ioErrors);
}
