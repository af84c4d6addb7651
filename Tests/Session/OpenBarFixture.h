// Runs events that are told as text through the OpenBarProcessor of thread A, and gives reports and bars as text.
//
// The functions of the world: main, work, leaf, other, idle and stop, which ends a stack, in one module of process 0, shadow in
// its place in process 1, and before, which gives way to after at time 100. Samples stand for one millisecond.
#pragma once

#include "Tests/Support/BrokenStackFiles.h"
#include "Tests/Support/SessionFixture.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

class OpenBarFixture : public testing::Test
{
protected:
    static constexpr float sChunkLength = 500.0F;
    static constexpr uint64_t sGameBase = 0x10000;
    static constexpr int32_t sGameSize = 0x10000;

    OpenBarFixture()
        : mGame(mFixture.AddModule("/bin/game", sGameSize,
                                   {{0x100, 0x80, "main"},
                                    {0x200, 0x80, "work"},
                                    {0x300, 0x80, "leaf"},
                                    {0x400, 0x80, "other"},
                                    {0x500, 0x80, "idle"},
                                    {0x600, 0x80, "stop"}}))
    {
        mFixture.AddProcess("other");
        mFixture.LoadModule(mGame, sGameBase);
        mFixture.LoadModule(mFixture.AddModule("/bin/shadow", sGameSize, {{0x100, 0x180, "shadow"}}), sGameBase, 1);
        mFixture.LoadModule(mFixture.AddModule("/bin/before", 0x1000, {{0x100, 0x40, "before"}}), 0x50000, 0, 0.0, 100.0);
        mFixture.LoadModule(mFixture.AddModule("/bin/after", 0x1000, {{0x100, 0x40, "after"}}), 0x50000, 0, 100.5, 200.0);
        mFixture.AddThread("A");
        mFixture.AddThread("B");
        mFixture.GetPlatform().StopModule = &mGame;
        mFixture.GetPlatform().StopAddresses = {0x600};
    }

    // Makes the processor anew, for what a constructor looks at: ranges and the thread.
    void Start(Profiler::ThreadID inThread = 0, double inTime = 0.0)
    {
        mRecorder.reset();
        mProcessor = std::make_unique<Profiler::OpenBarProcessor>(mFixture.GetSession(), mFibers, mBrokenStacks.GetHolder(),
                                                                  inThread, inTime, sChunkLength);
        mRecorder = std::make_unique<BarRecorder>(mFixture, *mProcessor);
    }

    // Thread A's stacks are cut short in these ranges.
    void AddBrokenRange(double inStart, double inEnd, const std::string& inGoodStack)
    {
        mRanges.push_back({inStart, inEnd, mFixture.Intern(inGoodStack)});
        mBrokenStacks.SetRanges(0, mRanges);
    }

    // Gives the bars that are open at the end.
    std::string Run(const std::string& inTrace)
    {
        if (mProcessor == nullptr)
            Start();
        for (const Profiler::TraceEvent& event : mFixture.BuildTrace(inTrace))
            mProcessor->HandleEvent(event, mMaxTime);
        return PrintBars();
    }

    [[nodiscard]] std::string TakeReports() { return mRecorder->TakeReports(); }
    [[nodiscard]] std::string PrintBars() { return mFixture.PrintBars(mProcessor->GetBars()); }
    [[nodiscard]] Profiler::ThreadState GetState() const { return mProcessor->GetThreadState(); }

    SessionFixture mFixture;
    FakeModule& mGame;
    Profiler::OpenBarProcessorFiberState mFibers;
    BrokenStackFiles mBrokenStacks;
    std::vector<Profiler::BrokenRange> mRanges;
    std::unique_ptr<Profiler::OpenBarProcessor> mProcessor;
    std::unique_ptr<BarRecorder> mRecorder;
    double mMaxTime = Profiler::OpenBarProcessor::sNoTimeLimit;
};
