// Levels of a timeline as text: a line for each chunk, "3: " and what it holds.
//
//     work!zone@0 1..2<>                     a bar: its name, its context, its parent in the row above, its carry
//     main 0..5 / work@0 1..2, leaf@0 2..3   rows, the root's first
//     sleep 2..9 of 2..12 stack main ready 0 a span that was cut, with what is known of the wait
//     [1..2 run 0.25 sleep 0.75]             a bucket and its shares
//     < run 0..5, sleep 5..9 ends 12         a chunk that goes on with the span before, and where its last span ends
#pragma once

#include "Tests/Support/SessionFixture.h"
#include "ThreadsModel/Chunks/BarChunk.h"
#include "ThreadsModel/Chunks/OverviewChunk.h"
#include "ThreadsModel/DetailLODThread.h"
#include "ThreadsModel/ThreadStreamingManager.h"

#include <array>
#include <sstream>
#include <string>
#include <vector>

inline std::vector<std::string> gSplit(const std::string& inText, char inSeparator)
{
    std::vector<std::string> parts;
    std::istringstream stream(inText);
    for (std::string part; std::getline(stream, part, inSeparator);)
        parts.push_back(part);
    return parts;
}

inline std::string gPrintSpan(double inStart, double inEnd)
{
    return gPrintNumber(inStart) + ".." + gPrintNumber(inEnd);
}

inline double gParseEnd(const std::string& inSpan)
{
    return std::stod(inSpan.substr(inSpan.find("..") + 2));
}

// inName gives the name of a bar with its context.
template <class Name>
std::string gPrintChunk(const Profiler::BarChunk& inChunk, const Name& inName)
{
    using Profiler::Bar;
    std::string text;
    for (size_t depth = 0; depth < inChunk.GetRows().size(); ++depth)
    {
        const Profiler::BarChunk::Row& row = inChunk.GetRows()[depth];
        text += depth == 0 ? "" : " / ";
        for (size_t i = 0; i < row.size(); ++i)
        {
            const Bar& bar = *row[i];
            const uint32_t carry = bar.ResolveIndex.Index;
            text += (i == 0 ? "" : ", ") + inName(bar, inChunk.GetInstrumentationContext({static_cast<int32_t>(depth), i})) +
                    (bar.ParentIndex == Bar::sNoParent ? "" : "@" + std::to_string(bar.ParentIndex)) + " " +
                    gPrintSpan(bar.Start, bar.End) + ((carry & Bar::sContinuedFromPrevious) != 0 ? "<" : "") +
                    ((carry & Bar::sContinuesInNext) != 0 ? ">" : "");
        }
    }
    return text;
}

template <class Name>
std::string gPrintEntry(const Profiler::OverviewChunk::EntryReference& inEntry, const Name& inStackName)
{
    using namespace Profiler;
    std::string text = gPrintSpan(inEntry.Entry->Start, inEntry.Entry->End);
    const auto printBucket = [&](const auto& inStates, const auto& inShares)
    {
        for (size_t i = 0; i < inShares.size(); ++i)
            if (inShares[i] != 0.0F)
                text += std::string(" ") + gPrintState(static_cast<size_t>(inStates[i])) + " " + gPrintNumber(inShares[i]);
        return "[" + text + "]";
    };
    if (inEntry.Type == EOverviewEntryType::TwoStates)
        return printBucket(inEntry.As<TwoStatesEntry>().States, inEntry.As<TwoStatesEntry>().Shares);
    if (inEntry.Type == EOverviewEntryType::ThreeStates)
        return printBucket(inEntry.As<ThreeStatesEntry>().States, inEntry.As<ThreeStatesEntry>().Shares);
    if (inEntry.Type == EOverviewEntryType::AllStates)
        return printBucket(std::array{0, 1, 2, 3, 4, 5, 6, 7}, inEntry.As<AllStatesEntry>().Shares);
    const auto& single = inEntry.As<SingleStateEntry>();
    if (single.RealStart != single.Start || single.RealEnd != single.End)
        text += " of " + gPrintSpan(single.RealStart, single.RealEnd);
    return gPrintState(static_cast<size_t>(single.State)) + (" " + text) +
           (single.Stack != sNoCallstack ? " stack " + inStackName(single.Stack) : "") +
           (single.ReadyIndex != sNoReadyIndex ? " ready " + std::to_string(single.ReadyIndex) : "");
}

// inStackName gives the name of a stack by its key.
template <class Name>
std::string gPrintChunk(const Profiler::OverviewChunk& inChunk, const Name& inStackName)
{
    std::string text = inChunk.ContinuesFromPrevious() ? "< " : "";
    for (size_t i = 0; i < inChunk.GetEntryCount(); ++i)
        text += (i == 0 ? "" : ", ") + gPrintEntry(inChunk.GetEntry(i), inStackName);
    if (inChunk.GetLastEntryEndTime() != Profiler::OverviewChunk::sNoEndTime)
        text += " ends " + gPrintNumber(inChunk.GetLastEntryEndTime());
    return text;
}

// What is stored of the chunks of class T, from a few before time 0 on.
template <class T, class Name>
std::string gPrintLevel(Profiler::ThreadStreamingManager& ioManager, const Profiler::DetailLODThread& inThread,
                        const Name& inName)
{
    std::string text;
    for (int32_t index = -9; index <= inThread.GetChunkTable().GetLastIndex(); ++index)
    {
        const Profiler::ChunkDescription description = inThread.GetChunkTable().GetChunkByIndex(index);
        if (!description.HasDataTypes(T::sGetChunkType()))
            continue;
        const Profiler::TypedChunkHandle<T> chunk(
            ioManager.BlockingLoad(inThread, description, T::sGetChunkType(), Profiler::EChunkUnloadMode::Immediate));
        text += (text.empty() ? "" : "\n") + std::to_string(index) + ": " + (chunk ? gPrintChunk(*chunk, inName) : "lost");
    }
    return text;
}
