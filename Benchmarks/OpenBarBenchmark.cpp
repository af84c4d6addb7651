// How fast events become bars, on stacks that are interned and functions that are known already.
//
// Workloads, each with stacks of depth 24 over three modules, as a server's look:
//   SameStack     one thread sampled over and over in one stack
//   NearStacks    64 stacks that differ in their innermost three frames
//   SwitchedStacks as NearStacks, with a switch out and in around every second sample, on 16 threads
// Items are events.
#include "Session/Host/PluginManagers.h"
#include "Session/Pass/EventDispatcher.h"
#include "Session/Pass/OpenBarProcessor.h"
#include "Session/Session.h"
#include "System/JobScheduler.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

namespace
{

using namespace Profiler;

constexpr int sDepth = 24;
constexpr int sNumStacks = 64;
constexpr int sVaryingFrames = 3;
constexpr int sNumThreads = 16;
constexpr int32_t sModuleSize = 0x100000;
constexpr uint64_t sFunctionSize = 0x100;
constexpr uint64_t sModuleBases[] = {0x400000, 0x7F0000000000, 0xFFFFFFFF81000000};
constexpr double sEventInterval = 0.01; // milliseconds

// A module whose functions lie side by side.
class DenseModule final : public NativeModule
{
public:
    DenseModule() : NativeModule("dense", sModuleSize, ESymbolLookupAddressMode::Relative) {}
    [[nodiscard]] std::string GetSymbolFile() const override { return {}; }
    [[nodiscard]] std::string GetSymbolFailure() const override { return {}; }
    [[nodiscard]] const RTTI::Type& GetType() const override { return RTTI::gTypeOf<NativeModule>(); }
    [[nodiscard]] bool ResolveAddress(uint64_t inRelativeAddress, uint64_t, Function& outFunction) override
    {
        outFunction.RelativeAddress = inRelativeAddress / sFunctionSize * sFunctionSize;
        outFunction.Size = sFunctionSize;
        return true;
    }
};

class NoPlugins final : public PluginManagerFrontEnd
{
public:
    NoPlugins() : PluginManagerFrontEnd(nullptr) {}
    void LoadPlugins() override {}
    void UnloadPlugins() override {}
    [[nodiscard]] const std::vector<ISessionTypes*>& GetSessionPlugins() const override { return mSessionPlugins; }
    [[nodiscard]] const std::vector<CapturePlugin*>& GetCapturePlugins() const override { return mCapturePlugins; }
    [[nodiscard]] PlatformPlugin* GetPlatformPlugin(const Serialization::SerializableGUID&) const override { return nullptr; }
    [[nodiscard]] PlatformPlugin* GetPlatformPluginForFile(const Serialization::SerializableGUID&) const override
    {
        return nullptr;
    }

private:
    std::vector<ISessionTypes*> mSessionPlugins;
    std::vector<CapturePlugin*> mCapturePlugins;
};

class BenchmarkSession
{
public:
    BenchmarkSession() : mSession(std::make_unique<SessionInfo>(), "", mScheduler, mPlugins, mFrontEnd)
    {
        mSession.AddProcess(1, "server", "", true, nullptr, 0.0, 0.0);
        std::vector<NativeModuleInstance> instances;
        for (const uint64_t base : sModuleBases)
        {
            const NativeModule& added = mSession.GetModuleDatabase().AddNativeModule(std::make_unique<DenseModule>());
            instances.push_back({base, 0.0, OpenBarProcessor::sNoTimeLimit, gMakeCapturedProcessID(0), added.GetIndex()});
        }
        mSession.GetModuleDatabase().SetNativeModuleInstances(std::move(instances));
        mSession.GetCallstackTrie().InitializeCallstacks();
        for (int thread = 0; thread < sNumThreads; ++thread)
            mSession.AddThread(gMakeCapturedProcessID(0), thread, "worker", 0.0, 0.0);
        for (int stack = 0; stack < sNumStacks; ++stack)
            mStacks.push_back(mSession.GetCallstackTrie().AddCallstack(0, MakeStack(stack)));
        mSession.GetCallstackTrie().FinishCallstacks();
    }

    [[nodiscard]] Session& GetSession() { return mSession; }
    [[nodiscard]] OpenBarProcessorFiberState& GetFibers() { return mFibers; }
    [[nodiscard]] CallstackKey GetStack(int inIndex) const { return mStacks[static_cast<size_t>(inIndex) % sNumStacks]; }

    // Samples of one thread, over inNumStacks stacks in turn.
    [[nodiscard]] std::vector<TraceEvent> MakeSamples(int inCount, int inNumStacks) const
    {
        std::vector<TraceEvent> events;
        for (int i = 0; i < inCount; ++i)
            events.emplace_back(i * sEventInterval, gMakeCapturedProcessID(0), 0, SampleEvent{GetStack(i % inNumStacks)});
        return events;
    }

    // Per thread: two samples, a switch out, a switch in.
    [[nodiscard]] std::vector<TraceEvent> MakeSwitchedSamples(int inCount) const
    {
        constexpr uint8_t waitForThread = 6;
        constexpr int eventsPerTurn = 4;
        std::vector<TraceEvent> events;
        for (int i = 0; i < inCount; ++i)
        {
            const int thread = i / eventsPerTurn % sNumThreads;
            const CallstackKey stack = GetStack(i / eventsPerTurn + i % 2);
            TraceEvent::Payload payload = SampleEvent{stack};
            if (i % eventsPerTurn == 2)
                payload = ContextSwitchOutEvent{waitForThread};
            else if (i % eventsPerTurn == 3)
                payload = ContextSwitchInEvent{stack};
            events.emplace_back(i * sEventInterval, gMakeCapturedProcessID(0), thread, std::move(payload));
        }
        return events;
    }

private:
    // The outer frames are shared by all stacks, the innermost are the stack's own.
    static Callstack MakeStack(int inStack)
    {
        Callstack stack;
        for (int depth = 0; depth < sDepth; ++depth)
        {
            const int module = depth * static_cast<int>(std::size(sModuleBases)) / sDepth;
            const int function = depth < sDepth - sVaryingFrames ? depth : depth + sDepth * (inStack + 1);
            stack.push_back(sModuleBases[module] + static_cast<uint64_t>(function) * sFunctionSize + 0x10);
        }
        return stack;
    }

    System::JobScheduler mScheduler{1};
    PluginManagerCommon mPlugins;
    NoPlugins mFrontEnd;
    Session mSession;
    OpenBarProcessorFiberState mFibers;
    std::vector<CallstackKey> mStacks;
};

// Repeats the events with times that go on, as a long capture would.
template <class Handle>
void gRun(benchmark::State& ioState, std::vector<TraceEvent>& ioEvents, const Handle& inHandle)
{
    const double length = static_cast<double>(ioEvents.size()) * sEventInterval;
    for (auto _ : ioState)
        for (TraceEvent& event : ioEvents)
        {
            inHandle(event);
            event.TimeMs += length;
        }
    ioState.SetItemsProcessed(static_cast<int64_t>(ioState.iterations() * ioEvents.size()));
}

constexpr int sNumEvents = 10000;

void SameStack(benchmark::State& ioState)
{
    BenchmarkSession session;
    std::vector<TraceEvent> events = session.MakeSamples(sNumEvents, 1);
    OpenBarProcessor processor(session.GetSession(), session.GetFibers(), session.GetSession().GetBrokenStacks(), 0, 0.0, 500.0F);
    gRun(ioState, events, [&](const TraceEvent& inEvent) { processor.HandleEvent(inEvent, OpenBarProcessor::sNoTimeLimit); });
}
BENCHMARK(SameStack);

void NearStacks(benchmark::State& ioState)
{
    BenchmarkSession session;
    std::vector<TraceEvent> events = session.MakeSamples(sNumEvents, sNumStacks);
    OpenBarProcessor processor(session.GetSession(), session.GetFibers(), session.GetSession().GetBrokenStacks(), 0, 0.0, 500.0F);
    gRun(ioState, events, [&](const TraceEvent& inEvent) { processor.HandleEvent(inEvent, OpenBarProcessor::sNoTimeLimit); });
}
BENCHMARK(NearStacks);

void SwitchedStacks(benchmark::State& ioState)
{
    BenchmarkSession session;
    std::vector<TraceEvent> events = session.MakeSwitchedSamples(sNumEvents);
    EventDispatcher dispatcher(session.GetSession(), session.GetFibers(), session.GetSession().GetBrokenStacks(), {});
    Utility::ErrorState errors;
    gRun(ioState, events, [&](const TraceEvent& inEvent) { benchmark::DoNotOptimize(dispatcher.Dispatch(inEvent, errors)); });
}
BENCHMARK(SwitchedStacks);

} // namespace
