// Timelines of a small game as text, for tests of whole passes.
//
// The process "game" has the functions main, work, leaf and other and the threads A, from 0 on, and B, from 3 on; the capture
// goes from 0 to 20. Threads: the test's, and the workers of the session's scheduler. Ownership: as TimelineTest says.
#pragma once

#include "Session/Modules/InstrumentationDatabase.h"
#include "Tests/ThreadsModel/LevelText.h"
#include "Tests/ThreadsModel/TimelineFixture.h"
#include "Utility/Compression.h"
#include "Utility/Format.h"

#include <string>

class GameTimelineTest : public TimelineTest
{
protected:
    explicit GameTimelineTest(uint32_t inNumWorkers = 0) : TimelineTest(inNumWorkers)
    {
        mWorld.LoadModule(
            mWorld.AddModule("/bin/game", 0x1000,
                             {{0x100, 0x80, "main"}, {0x200, 0x80, "work"}, {0x300, 0x80, "leaf"}, {0x400, 0x80, "other"}}),
            0x10000);
        mWorld.AddThread("A");
        mWorld.AddThread("B", 0, 3.0);
        GetSession().GetSessionInfo().SessionEndTimeMs = 20.0;
    }

    std::string PrintBars(Profiler::ThreadsModel& ioModel, Profiler::ThreadID inThread = 0, int32_t inLevel = 0)
    {
        const auto name = [&](const Profiler::Bar& inBar, uint64_t inContext)
        {
            const std::string* context = GetSession().GetModuleDatabase().GetInstrumentationDatabase().FindContext(inContext);
            return (inBar.Address == Profiler::sNoAddress ? "*" : PrintFunction({inBar.Address, inBar.ResolveIndex})) +
                   (context != nullptr ? "!" + *context : "");
        };
        return PrintLevel<Profiler::BarChunk>(ioModel, inThread, inLevel, name);
    }

    std::string PrintStates(Profiler::ThreadsModel& ioModel, Profiler::ThreadID inThread = 0, int32_t inLevel = 0)
    {
        const auto name = [&](Profiler::CallstackKey inStack) { return PrintStack(inStack); };
        return PrintLevel<Profiler::OverviewChunk>(ioModel, inThread, inLevel, name);
    }

    // "4: sync 2..6 main, 0 by 1 work": when, the wait and its stack, who by whom and from where. A line for each ready index.
    std::string PrintWakeUps(const Profiler::ThreadsModel& inModel)
    {
        std::string text;
        for (uint32_t i = 0; i < inModel.GetReadyThreadData().GetReadyIndexCount(); ++i)
            text += (i == 0 ? "" : "\n") + PrintWakeUp(inModel.GetReadyThreadData(), i);
        return text;
    }

    // "main 0-1 3; work 0": the chunks of the bars of each function, those of bars over several chunks first.
    std::string PrintInvocations(Profiler::ThreadsModel& ioModel, Profiler::ThreadID inThread = 0)
    {
        using namespace Profiler;
        FindModel& find = ioModel.GetFindModel();
        std::string text;
        for (const FindFunctionEntry& entry : find.ReadThreadFunctions(EFindSet::FindResults, inThread))
        {
            Utility::ByteBuffer block;
            EXPECT_TRUE(find.ReadBlock(EFindSet::FindResults, entry.BlockOffset, entry.BlockSize, block));
            Utility::ByteCursor cursor(block.GetData(), block.GetSize());
            text += (text.empty() ? "" : "; ") + PrintFunction(entry.Function);
            for (uint32_t i = 0; i < entry.NumRanges; ++i)
            {
                const auto first = cursor.Read<int32_t>();
                text += Utility::gFormat(" %d-%d", first, cursor.Read<int32_t>());
            }
            for (uint32_t i = 0; i < entry.NumChunks; ++i)
                text += Utility::gFormat(" %d", cursor.Read<int32_t>());
        }
        return text;
    }

private:
    std::string PrintStack(Profiler::CallstackKey inStack)
    {
        const Profiler::Callstack* stack = GetSession().GetCallstack(inStack);
        std::string text = stack == nullptr ? "-" : "";
        for (size_t i = 0; stack != nullptr && i < stack->size(); ++i)
            for (const char* name : {"main", "work", "leaf", "other"})
                if (mWorld.GetAddress(name) == (*stack)[i])
                    text += (i == 0 ? "" : ";") + std::string(name);
        return text;
    }

    // Carry and zones left aside.
    std::string PrintFunction(const Profiler::ResolvedAddress& inFunction)
    {
        using Profiler::ResolveIndex;
        const uint32_t mask = ResolveIndex::sComparedMask & ~ResolveIndex::sInstrumentedFlag;
        return mWorld.PrintAddress(inFunction.RelativeAddress, {inFunction.ResolveIndex.Index & mask});
    }

    std::string PrintWakeUp(const Profiler::ReadyThreadData& inData, uint32_t inReadyIndex)
    {
        using namespace Profiler;
        const uint32_t id = inData.GetRecordID(inReadyIndex);
        if (id == sNoReadyRecord)
            return "none";
        const ReadyThreadChunkHeader& header = inData.GetLevels().at(id >> sReadyIDLevelShift).front();
        const std::string frame = ReadFile("game/Threads/ReadyThreads.dat").substr(header.Offset, header.Size);
        Utility::ByteBuffer content;
        EXPECT_TRUE(Utility::Decompressor().Decompress(frame.data(), frame.size(), content));
        Utility::ByteCursor cursor(content.GetData(), content.GetSize());
        ReadyThreadChunk chunk;
        EXPECT_TRUE(chunk.Deserialize(cursor));
        const ReadyRecord& record = chunk.GetRecords().at(id & sReadyIDNumberMask);
        std::string wait = "no wait";
        if (record.WaitState != static_cast<uint32_t>(ThreadState::NotStarted))
            wait = gPrintState(record.WaitState) + (" " + gPrintSpan(record.WaitStart, record.WaitEnd)) + " " +
                   PrintStack(record.SwitchInStack);
        return Utility::gFormat("%s: %s, %d by %d %s", gPrintNumber(record.ReadyTime).c_str(), wait.c_str(),
                                record.ReadiedThreadID, record.ReadyingThreadID, PrintStack(record.ReadyStack).c_str());
    }

    template <class T, class Name>
    static std::string PrintLevel(Profiler::ThreadsModel& ioModel, Profiler::ThreadID inThread, int32_t inLevel,
                                  const Name& inName)
    {
        const Profiler::DetailLODThread* thread = ioModel.GetDetailLOD(inLevel).GetThread(inThread);
        return thread != nullptr ? gPrintLevel<T>(ioModel.GetStreamingManager(), *thread, inName) : "no thread";
    }
};
