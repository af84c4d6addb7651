#include "OpenBarTwin.h"

#include "Session/Pass/OpenBarProcessor.h"
#include "Tests/Support/BrokenStackFiles.h"
#include "Tests/Support/SessionFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <set>

namespace
{

using namespace Profiler;

constexpr float sChunkLength = 500.0F;
constexpr int sNumThreads = 2;
constexpr int sNumProcesses = 2;
constexpr int sEventsPerRun = 60;
constexpr uint64_t sNumFibers = 3;
constexpr CallstackKey sLostKey = 0x7FFFFFFFFFFF; // never given out

// Times are multiples of this, so that sums are exact in whatever order they are made.
constexpr double sTimeUnit = 0.125;

class RandomSource
{
public:
    explicit RandomSource(uint32_t inSeed) : mEngine(inSeed) {}

    // 0 to inCount - 1.
    size_t Pick(size_t inCount) { return std::uniform_int_distribution<size_t>(0, inCount - 1)(mEngine); }
    bool IsLucky(int inPercent) { return Pick(100) < static_cast<size_t>(inPercent); }

    template <class T>
    T PickOne(const std::vector<T>& inChoices)
    {
        return inChoices[Pick(inChoices.size())];
    }

private:
    std::mt19937 mEngine;
};

// One random session, known to both implementations, and one random list of events.
class RandomRun
{
public:
    explicit RandomRun(uint32_t inSeed) : mRandom(inSeed)
    {
        mSession.AddProcess("other");
        MakeModules();
        MakeStopRule();
        MakeThreads();
        MakeStacks();
        MakeEvents();
        MakeBrokenRanges();
    }

    void Check()
    {
        for (int thread = 0; thread < sNumThreads; ++thread)
            MakePair(thread);
        for (size_t i = 0; i < mEvents.size() && !testing::Test::HasFailure(); ++i)
        {
            SCOPED_TRACE("event " + std::to_string(i));
            HandleEvent(mEvents[i]);
        }
        for (Pair& pair : mPairs)
        {
            pair.Real->Flush();
            pair.Twin->Flush();
            Compare(pair);
            EXPECT_TRUE(pair.Real->GetBars().IsEmpty());
        }
        CompareShared();
    }

private:
    struct Pair
    {
        std::unique_ptr<OpenBarProcessor> Real;
        std::unique_ptr<TwinProcessor> Twin;
        std::unique_ptr<std::vector<TwinReport>> Reports = std::make_unique<std::vector<TwinReport>>();
        Utility::SignalRegistration Connection;
    };

    void AddModule(int32_t inImageSize, const std::vector<TwinFunction>& inFunctions, FakeModule::ESymbols inSymbols)
    {
        std::vector<FakeFunction> functions;
        for (const TwinFunction& function : inFunctions)
            functions.push_back({function.Start, function.Size, "f" + std::to_string(mNumFunctions++)});
        mModules.push_back(&mSession.AddModule("module" + std::to_string(mModules.size()), inImageSize, functions, inSymbols));
        TwinModule twin;
        twin.ImageSize = inImageSize;
        (inSymbols == FakeModule::ESymbols::Known ? twin.Known : twin.OnDemand) = inFunctions;
        mWorld.Modules.push_back(twin);
    }

    void LoadModule(uint32_t inModule, uint64_t inBase, size_t inProcess, double inLoadTime, double inUnloadTime)
    {
        mSession.LoadModule(*mModules[inModule], inBase, inProcess, inLoadTime, inUnloadTime);
        mWorld.Instances.push_back({inBase, inLoadTime, inUnloadTime, gMakeCapturedProcessID(inProcess), inModule});
        std::ranges::stable_sort(mWorld.Instances, {}, &NativeModuleInstance::ImageBase);
    }

    // Two modules take turns at one place, one finds its functions late and may have an unknown size, and the processes differ.
    void MakeModules()
    {
        const int32_t size = 0x1000;
        AddModule(size, {{0x100, 0x20}, {0x200, 0x20}, {0x300, 0x20}}, FakeModule::ESymbols::Known);
        AddModule(size, {{0x100, 0x40}, {0x210, 0x20}, {0x300, 0x10}}, FakeModule::ESymbols::Known);
        AddModule(mRandom.IsLucky(30) ? -1 : size, {{0x100, 0}, {0x200, 0x20}, {0x300, 0}}, FakeModule::ESymbols::OnDemand);
        const double change = 300.0;
        LoadModule(0, 0x10000, 0, -1e300, mRandom.IsLucky(50) ? change : 1e300);
        LoadModule(1, 0x10000, 0, change, 1e300);
        LoadModule(2, 0x50000, 0, mRandom.IsLucky(30) ? change : -1e300, 1e300);
        LoadModule(1, 0x10000, 1, -1e300, 1e300);
        for (const uint64_t base : {0x10000, 0x50000})
            for (const uint64_t place : {0x100, 0x108, 0x200, 0x218, 0x300, 0x30c, 0x400})
                mAddresses.push_back(base + place);
        mAddresses.push_back(0x90);
        if (mRandom.IsLucky(20))
            mAddresses.push_back(sMissingFramesMarker);
    }

    void MakeStopRule()
    {
        if (!mRandom.IsLucky(40))
            return;
        const auto module = static_cast<uint32_t>(mRandom.Pick(mModules.size()));
        mWorld.StopModule = module;
        mWorld.StopAddresses = {0x300, 0x400};
        mSession.GetPlatform().StopModule = mModules[module];
        mSession.GetPlatform().StopAddresses = mWorld.StopAddresses;
    }

    void MakeThreads()
    {
        mSession.GetSession().GetSessionInfo().SessionStartTimeMs = mRandom.PickOne<double>({0.0, 4.0, 600.0});
        mWorld.SessionStartTime = mSession.GetSession().GetSessionInfo().SessionStartTimeMs;
        for (int thread = 0; thread < sNumThreads; ++thread)
        {
            // The last one is a thread that events name but nothing created.
            const double start = mRandom.PickOne<double>({0.0, 2.0, 700.0});
            if (thread == sNumThreads - 1 && mRandom.IsLucky(50))
                mThreads.push_back(-1);
            else
            {
                mThreads.push_back(mSession.AddThread("T" + std::to_string(thread), 0, start));
                mWorld.ThreadStartTimes[mThreads.back()] = start;
            }
        }
    }

    CallstackKey Intern(const std::vector<uint64_t>& inStack)
    {
        const CallstackKey key = mSession.GetSession().GetCallstackTrie().AddCallstack(0, inStack);
        mWorld.Stacks[key] = inStack;
        return key;
    }

    // Each stack goes on from an earlier one, so that they share frames and lengths repeat.
    void MakeStacks()
    {
        mKeys = {sNoCallstack, sLostKey, Intern({})};
        std::vector<std::vector<uint64_t>> stacks(1);
        for (int i = 0; i < 14; ++i)
        {
            std::vector<uint64_t> stack = mRandom.PickOne(stacks);
            stack.resize(mRandom.Pick(stack.size() + 1));
            for (size_t more = 1 + mRandom.Pick(3); more > 0; --more)
                stack.push_back(mRandom.PickOne(mAddresses));
            mKeys.push_back(Intern(stack));
            stacks.push_back(std::move(stack));
        }
    }

    void MakeEvents()
    {
        const std::vector<double> steps = {0.0, 0.0, 0.125, 0.5, 0.875, 1.0, 3.0, 20.0, 120.0, 499.875, 500.0, 1700.0};
        const bool isHostile = mRandom.IsLucky(40);
        // Beyond 2^24 the single-precision cuts of waits are no whole chunks any more.
        double time = mRandom.PickOne<double>({0.0, 0.0, 480.0, 2000.0, -3000.0, 16777216.0, 8589934592.0 + sTimeUnit});
        for (int i = 0; i < sEventsPerRun; ++i)
        {
            const double step = mRandom.PickOne(steps);
            time += isHostile && mRandom.IsLucky(15) ? -step : step;
            const ProcessID process = gMakeCapturedProcessID(mRandom.IsLucky(10) ? mRandom.Pick(sNumProcesses) : 0);
            mEvents.emplace_back(time, process, mRandom.PickOne(mThreads), MakePayload());
            mLimits.push_back(OpenBarProcessor::sNoTimeLimit);
        }
        if (mRandom.IsLucky(20))
            std::fill(mLimits.begin(), mLimits.end(), mEvents[mRandom.Pick(mEvents.size())].TimeMs + 0.5);
    }

    TraceEvent::Payload MakePayload()
    {
        static const std::vector<std::string> sNames = {"", "Draw", "Update"};
        static const std::vector<std::string> sContexts = {"", "frame 1", "frame 2"};
        const CallstackKey key = mRandom.PickOne(mKeys);
        const uint64_t fiber = mRandom.Pick(sNumFibers);
        const size_t kind = mRandom.Pick(40); // each kind as often as it has numbers
        if (kind < 10)
            return SampleEvent{key};
        if (kind < 15) // most reasons once in a while; the one that ends the thread is rare
            return ContextSwitchOutEvent{static_cast<uint8_t>(mRandom.IsLucky(2) ? 22 : mRandom.Pick(22))};
        if (kind < 16)
            return ContextSwitchOutEvent{static_cast<uint8_t>(23 + mRandom.Pick(20))};
        if (kind < 22)
            return ContextSwitchInEvent{key};
        if (kind < 25)
            return InstrumentationBeginEvent{key, mRandom.PickOne(sNames), mRandom.PickOne(sContexts)};
        if (kind < 28)
            return InstrumentationBeginColoredEvent{key, mRandom.PickOne(sNames), mRandom.PickOne(sContexts), 7};
        if (kind < 30)
            return InstrumentationEndEvent{};
        if (kind < 32)
            return FiberSwitchOutEvent{fiber, 0};
        if (kind < 34)
            return FiberSwitchInEvent{fiber};
        const std::vector<TraceEvent::Payload> others = {
            ReadyThreadEvent{key, 0, 0},
            StackOnlyEvent{key},
            ReadyThreadTimedEvent{key, 0, 0, 0.0},
            ThreadEndEvent{static_cast<uint8_t>(mRandom.IsLucky(10) ? 1 + mRandom.Pick(2) : 0)},
            ThreadEndDisplayEvent{1, static_cast<uint8_t>(mRandom.IsLucky(10) ? 1 + mRandom.Pick(2) : 3)},
            Reserved13Event{1},
        };
        return others[kind - 34];
    }

    // Ranges begin and end at times of events, as those that a scan finds; some are without length, and the last may have no end.
    void MakeBrokenRanges()
    {
        for (const ThreadID thread : mThreads)
        {
            if (mRandom.IsLucky(30))
                continue;
            std::set<double> times;
            for (const TraceEvent& event : mEvents)
                if (mRandom.IsLucky(25))
                    times.insert(event.TimeMs);
            std::vector<BrokenRange> ranges;
            for (auto time = times.begin(); time != times.end(); ++time)
            {
                BrokenRange range{*time, *time, mRandom.PickOne(mKeys)};
                if (std::next(time) == times.end())
                    range.End = std::numeric_limits<double>::max();
                else if (!mRandom.IsLucky(20))
                    range.End = *++time;
                ranges.push_back(range);
            }
            mBrokenStacks.SetRanges(thread, std::move(ranges));
        }
    }

    void MakePair(int inThread)
    {
        const ThreadID thread = mThreads[static_cast<size_t>(inThread)];
        const double start = mEvents.front().TimeMs;
        Pair& pair = mPairs[static_cast<size_t>(inThread)];
        pair.Real = std::make_unique<OpenBarProcessor>(mSession.GetSession(), mFibers, mBrokenStacks.GetHolder(), thread, start,
                                                       sChunkLength);
        pair.Twin = std::make_unique<TwinProcessor>(mWorld, mBrokenStacks.GetHolder(), thread, start, sChunkLength);
        pair.Connection = pair.Real->BarsChanged.Connect(
            [this, reports = pair.Reports.get()](const OpenBars& inBars, int inKeep, int inChunk, double inChunkTime,
                                                 bool inFinished) {
                reports->push_back({Convert(inBars), inKeep, inChunk, inChunkTime, inFinished});
            });
    }

    void HandleEvent(const TraceEvent& inEvent)
    {
        const double limit = mLimits[static_cast<size_t>(&inEvent - mEvents.data())];
        // Now and then a processor gets an event of the other thread, which must not touch its bars.
        const bool toAll = mRandom.IsLucky(10);
        for (Pair& pair : mPairs)
        {
            if (pair.Real->GetThreadID() != inEvent.ThreadID && !toAll)
                continue;
            pair.Real->HandleEvent(inEvent, limit);
            pair.Twin->HandleEvent(inEvent, limit);
            Compare(pair);
        }
    }

    TwinBars Convert(const OpenBars& inBars)
    {
        const InstrumentationDatabase& zones = mSession.GetSession().GetModuleDatabase().GetInstrumentationDatabase();
        TwinBars bars;
        for (const OpenBar& bar : inBars.GetLive())
        {
            TwinBar twin;
            twin.State = static_cast<int>(bar.State);
            twin.StateTimes = bar.StateTimes;
            twin.Start = bar.Start;
            twin.End = bar.End;
            twin.ReturnAddress = bar.ReturnAddress;
            twin.LastAbsoluteAddress = bar.LastAbsoluteAddress;
            twin.FrameAddress = bar.Frame.RelativeAddress;
            twin.FrameIndex = bar.Frame.ResolveIndex.Index;
            const std::string* context = zones.FindContext(bar.InstrumentationContextID);
            EXPECT_EQ(context == nullptr, bar.InstrumentationContextID == InstrumentationDatabase::sNoContext);
            twin.Context = context != nullptr ? *context : "";
            bar.AddressHits.ForEach([&twin](uint64_t inAddress, uint32_t inCount) { twin.Hits[inAddress] = inCount; });
            bars.push_back(std::move(twin));
        }
        return bars;
    }

    void Compare(const Pair& inPair)
    {
        // The bars that are open now, as one report more.
        inPair.Reports->push_back({Convert(inPair.Real->GetBars())});
        inPair.Twin->Reports.push_back({inPair.Twin->Bars});
        if (*inPair.Reports != inPair.Twin->Reports)
        {
            EXPECT_EQ(gPrintTwinReports(*inPair.Reports), gPrintTwinReports(inPair.Twin->Reports));
        }
        EXPECT_EQ(static_cast<int>(inPair.Real->GetThreadState()), inPair.Twin->State);
        inPair.Reports->clear();
        inPair.Twin->Reports.clear();
    }

    // What processors leave behind for each other and for later readers.
    void CompareShared()
    {
        EXPECT_EQ(mFibers.GetNumStates(), mWorld.GetNumFiberStates());
        for (uint64_t fiber = 0; fiber <= sNumFibers; ++fiber)
            for (const TraceEvent& event : mEvents)
            {
                std::vector<SavedBar> real;
                const std::optional<TwinSavedBars> twin = mWorld.FindFiber(fiber, event.TimeMs);
                ASSERT_EQ(mFibers.FindFiberState(fiber, event.TimeMs, real), twin.has_value());
                ASSERT_EQ(real.size(), twin.value_or(TwinSavedBars()).size());
            }
        for (const auto& [address, zone] : mWorld.Zones)
        {
            const InstrumentationData* data =
                mSession.GetSession().GetModuleDatabase().GetInstrumentationDatabase().FindInstrumentationData(
                    {address.first, {address.second}});
            ASSERT_NE(data, nullptr);
            EXPECT_EQ((TwinWorld::Zone{data->Name, data->Color}), zone);
        }
    }

    RandomSource mRandom;
    SessionFixture mSession;
    TwinWorld mWorld;
    OpenBarProcessorFiberState mFibers;
    BrokenStackFiles mBrokenStacks;
    std::vector<FakeModule*> mModules;
    int mNumFunctions = 0;
    std::vector<uint64_t> mAddresses;
    std::vector<ThreadID> mThreads;
    std::vector<CallstackKey> mKeys;
    std::vector<TraceEvent> mEvents;
    std::vector<double> mLimits;
    std::array<Pair, sNumThreads> mPairs;
};

TEST(OpenBarTwinTest, RandomEventsGiveTheBarsOfTheTwin)
{
    constexpr uint32_t numRuns = 3000;
    for (uint32_t seed = 1; seed <= numRuns && !HasFailure(); ++seed)
    {
        SCOPED_TRACE("seed " + std::to_string(seed));
        RandomRun(seed).Check();
    }
}

} // namespace
