// Sessions of random events, hostile ones among them, whose timelines are compared with what a twin makes of them.
//
// Threads: the test's, and the workers of the session's scheduler. Ownership: as TimelineTest says.
#pragma once

#include "Tests/ThreadsModel/TimelineFixture.h"

#include <random>
#include <span>
#include <string>
#include <vector>

namespace Profiler
{

// A session of random events, one a seed.
class RandomTimeline : public TimelineTest
{
public:
    // inMoreStacks occur beside the usual ones.
    explicit RandomTimeline(uint32_t inSeed, const std::vector<std::string>& inMoreStacks = {})
        : TimelineTest(sNumWorkers),
          mEngine(inSeed)
    {
        // Now and then where cuts in single precision are far off, and near the last chunk index of all.
        mFirstTime = IsLucky(10) ? PickOne<double>({8589934592.0, 1073741822000.0}) : 0.0;
        mIsCalm = IsLucky(20);
        MakeWorld(inMoreStacks);
        MakeEvents();
    }

    void TestBody() override {}

    // Whether times go back now and then.
    [[nodiscard]] bool IsHostile() const { return mIsHostile; }

protected:
    // 0 to inCount - 1.
    size_t Pick(size_t inCount) { return std::uniform_int_distribution<size_t>(0, inCount - 1)(mEngine); }
    bool IsLucky(int inPercent) { return Pick(100) < static_cast<size_t>(inPercent); }
    template <class T>
    T PickOne(const std::vector<T>& inChoices)
    {
        return inChoices[Pick(inChoices.size())];
    }

    // Gives the step that failed, or nothing.
    std::string Run() { return RunPass(mEvents); }

private:
    void MakeWorld(const std::vector<std::string>& inMoreStacks)
    {
        const FakeModule& game =
            mWorld.AddModule("/bin/game", 0x1000, {{0x100, 0x80, "main"}, {0x200, 0x80, "work"}, {0x300, 0x80, "leaf"}});
        const FakeModule& library = mWorld.AddModule("/lib/library", 0x1000, {{0x100, 0x80, "draw"}, {0x200, 0x80, "wait"}});
        mWorld.AddProcess("other");
        for (const size_t process : {0, 1})
        {
            mWorld.LoadModule(game, 0x10000, process);
            mWorld.LoadModule(library, 0x50000, process);
        }
        for (const char* stack : {"main", "main;work", "main;work;leaf", "main;work;leaf+8", "main;draw", "main;draw;leaf",
                                  "main;work;work;work;leaf", "main;work+4;leaf", "main;wait", "draw;wait", "work;leaf;wait",
                                  "main;0x90;leaf", "main;0x10800", "-", "empty", "lost"})
            mStacks.push_back(mWorld.Intern(stack));
        for (const std::string& stack : inMoreStacks)
            mStacks.push_back(mWorld.Intern(stack));
        // So that those that begin elsewhere are continued from the last whole one.
        if (IsLucky(40))
            mWorld.GetPlatform().IsComplete = [main = mWorld.GetAddress("main")](std::span<const uint64_t> inStack)
            { return inStack.empty() || inStack.front() == main; };

        SessionInfo& info = GetSession().GetSessionInfo();
        info.SampleIntervalMs = PickOne<double>({0.01, 0.125, 1.0, 30.0});
        info.SessionStartTimeMs = mFirstTime + PickOne<double>({0.0, 0.0, 3.5, 700.0});
        for (const char* name : {"A", "B", "C", "Silent"})
            mThreads.push_back(mWorld.AddThread(name, 0, mFirstTime + PickOne<double>({0.0, 0.0, 2.0, 650.0, 20000.0})));
        mThreads.push_back(mWorld.AddThread("D", 1));
        mThreads.erase(mThreads.begin() + 3);
        mThreads.insert(mThreads.end(), {mThreads[0], mThreads[0], mThreads[1], mThreads[1], 77, -1});
        // A life that ends before it begins, and one at times that no chunk has.
        if (IsLucky(10))
            GetSession().GetThread(3)->EndTimeMs = PickOne<double>({-5.0, 1e300, 400.0});
    }

    void MakeEvents()
    {
        // Fine steps for what merges, wide ones for what spans chunks; among them lengths at which a level just begins.
        const std::vector<std::vector<double>> allSteps = {
            {0.0, 0.004, 0.01, 0.03, 0.05, 0.2, 0.3, 1.58, 2.4, 490.0},
            {0.0, 0.5, 1.0, 3.0, 9.0, 15.8, 20.0, 45.0, 50.0, 60.0, 260.0, 499.0},
            {0.0, 1.0, 20.0, 90.0, 500.0, 520.0, 1700.0, 4900.0},
            {0.01, 0.3, 5.0, 70.0, 130.0, 499.9, 1000.0, 9000.0, 40000.0},
        };
        const std::vector<double>& steps = PickOne(allSteps);
        mIsHostile = IsLucky(50);
        // Ahead of the ends of chunks of the several levels.
        double time = mFirstTime + PickOne<double>({0.0, 0.25, 495.0, 656.0, 998.0, 2075.0, 5450.0, 16250.0, 50400.0, -600.0});
        if (IsLucky(20))
            mEvents.emplace_back(time, gMakeCapturedProcessID(0), 3, StackOnlyEvent{mStacks.front()});
        for (size_t numEvents = 60 + Pick(140); numEvents > 0; --numEvents)
        {
            // Mostly small steps, so that long ones meet something open.
            const double step = IsLucky(70) ? steps[Pick(steps.size() / 2)] : PickOne(steps);
            time += mIsHostile && IsLucky(12) ? -PickOne(steps) : step;
            const ThreadID thread = mIsCalm ? mThreads.front() : PickOne(mThreads);
            const Thread* known = GetSession().GetThread(thread);
            ProcessID process = known != nullptr ? known->ProcessID : gMakeCapturedProcessID(0);
            if (IsLucky(4))
                process = 3; // isn't captured
            mEvents.emplace_back(mIsHostile && IsLucky(1) ? 1e300 : time, process, thread, MakePayload(time));
        }
        // Not always behind all events.
        GetSession().GetSessionInfo().SessionEndTimeMs = IsLucky(80) ? time + 10.0 : time / 2.0;
    }

    TraceEvent::Payload MakePayload(double inTime)
    {
        static const std::vector<std::string> sNames = {"Draw", "Update", ""};
        static const std::vector<std::string> sContexts = {"", "frame 1", "frame 2"};
        const CallstackKey stack = PickOne(mStacks);
        const uint64_t fiber = Pick(2);
        const size_t kind = mIsCalm && IsLucky(80) ? 0 : Pick(100);
        if (kind < 34)
            return SampleEvent{stack};
        if (kind < 46)
            return ContextSwitchOutEvent{static_cast<uint8_t>(IsLucky(3) ? 22 : PickOne<int>({0, 1, 4, 6, 13, 30, 40}))};
        if (kind < 62)
            return ContextSwitchInEvent{stack};
        const ProcessID readiedProcess = IsLucky(10) ? 3 : gMakeCapturedProcessID(0);
        if (kind < 70)
            return ReadyThreadEvent{stack, readiedProcess, PickOne(mThreads)};
        if (kind < 74)
            return ReadyThreadTimedEvent{stack, readiedProcess, PickOne(mThreads), inTime - 0.5};
        if (kind < 80)
            return InstrumentationBeginEvent{stack, PickOne(sNames), PickOne(sContexts)};
        if (kind < 83)
            return InstrumentationBeginColoredEvent{stack, PickOne(sNames), PickOne(sContexts), 7};
        if (kind < 90)
            return InstrumentationEndEvent{};
        if (kind < 92)
            return FiberSwitchOutEvent{fiber, 0};
        if (kind < 94)
            return FiberSwitchInEvent{fiber};
        const auto endFlag = static_cast<uint8_t>(IsLucky(15) ? 1 + Pick(2) : 0);
        const std::vector<TraceEvent::Payload> others = {
            StackOnlyEvent{stack},     ThreadStartEvent{static_cast<uint8_t>(Pick(2)), 0},
            ThreadEndEvent{endFlag},   ThreadEndDisplayEvent{1, endFlag},
            ThreadNameEvent{"Worker"}, ThreadStartDisplayEvent{1, 0, 0},
        };
        return others[kind - 94];
    }

    static constexpr uint32_t sNumWorkers = 2;

    std::mt19937 mEngine;
    double mFirstTime = 0.0;
    bool mIsCalm = false; // one thread that mostly runs
    bool mIsHostile = false;
    std::vector<CallstackKey> mStacks;
    std::vector<ThreadID> mThreads; // one as often as its events are wanted
    std::vector<TraceEvent> mEvents;
};

} // namespace Profiler
