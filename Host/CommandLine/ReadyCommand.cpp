#include "Host/CommandLine/ReadyCommand.h"

#include "Host/CommandLine/JSONOutput.h"
#include "Host/CommandLine/OpenTimeline.h"
#include "Host/CommandLine/TextTable.h"
#include "Host/CommandLine/TimelineText.h"
#include "Host/CommandLine/WakeUps.h"
#include "Utility/Format.h"

#include <algorithm>

namespace Host
{

using namespace Profiler;

namespace
{

using EAlign = TextTable::EAlign;

LeafText gDescribeWaitStack(const Session& inSession, const ReadyRecord& inRecord)
{
    return gDescribeLeaf(inSession, inRecord.SwitchInStack, inRecord.ReadiedThreadID, inRecord.WaitStart);
}

LeafText gDescribeReadyStack(const Session& inSession, const ReadyRecord& inRecord)
{
    return gDescribeLeaf(inSession, inRecord.ReadyStack, inRecord.ReadyingThreadID, inRecord.ReadyTime);
}

// A record of a damaged file can have any number.
std::string gDescribeWaitState(uint32_t inState)
{
    return inState < sNumTimedThreadStates ? gDescribeState(static_cast<ThreadState>(inState)) : std::to_string(inState);
}

std::string gFormatWakeUps(const Session& inSession, const std::vector<ReadyRecord>& inRecords, size_t inLimit)
{
    TextTable table({{"WOKEN ms", EAlign::Right},
                     {"KEY", EAlign::Right},
                     {"THREAD"},
                     {"WAIT ms", EAlign::Right},
                     {"STATE"},
                     {"WAITED IN"},
                     {"BY KEY", EAlign::Right},
                     {"BY"},
                     {"WOKEN IN"}});
    const size_t listed = inLimit == 0 ? inRecords.size() : std::min(inLimit, inRecords.size());
    for (size_t i = 0; i < listed; ++i)
    {
        const ReadyRecord& record = inRecords[i];
        table.AddRow({gFormatMs(record.ReadyTime), std::to_string(record.ReadiedThreadID),
                      gDescribeThread(inSession, record.ReadiedThreadID), gFormatMs(record.WaitEnd - record.WaitStart),
                      gDescribeWaitState(record.WaitState), gDescribeWaitStack(inSession, record).Format(),
                      std::to_string(record.ReadyingThreadID), gDescribeThread(inSession, record.ReadyingThreadID),
                      gDescribeReadyStack(inSession, record).Format()});
    }
    std::string text = Utility::gFormat("%zu wake-ups\n", inRecords.size());
    if (listed != 0)
        text += table.Format();
    if (listed < inRecords.size())
        text += Utility::gFormat("%zu more; --limit 0 lists all\n", inRecords.size() - listed);
    return text;
}

void gWriteWakeUp(JSONWriter& ioWriter, const Session& inSession, const ReadyRecord& inRecord)
{
    gWriteMember(ioWriter, "time_ms", inRecord.ReadyTime);
    gWriteMember(ioWriter, "wait_start_ms", inRecord.WaitStart);
    gWriteMember(ioWriter, "wait_ms", inRecord.WaitEnd - inRecord.WaitStart);
    gWriteMember(ioWriter, "state", gDescribeWaitState(inRecord.WaitState));
    ioWriter.Key("woken");
    ioWriter.StartObject();
    gWriteThread(ioWriter, inSession, inRecord.ReadiedThreadID);
    gWriteLeaf(ioWriter, "waited_in", gDescribeWaitStack(inSession, inRecord));
    ioWriter.EndObject();
    ioWriter.Key("by");
    ioWriter.StartObject();
    gWriteThread(ioWriter, inSession, inRecord.ReadyingThreadID);
    gWriteLeaf(ioWriter, "woken_in", gDescribeReadyStack(inSession, inRecord));
    ioWriter.EndObject();
}

std::string gFormatWakeUpsAsJSON(const Session& inSession, std::vector<ReadyRecord> inRecords, size_t inLimit)
{
    return gFormatJSON(
        [&](JSONWriter& ioWriter)
        {
            gWriteMember(ioWriter, "count", uint64_t{inRecords.size()});
            if (inLimit != 0 && inRecords.size() > inLimit)
                inRecords.resize(inLimit);
            gWriteArray(ioWriter, "wake_ups", inRecords,
                        [&](const ReadyRecord& inRecord)
                        {
                            ioWriter.StartObject();
                            gWriteWakeUp(ioWriter, inSession, inRecord);
                            ioWriter.EndObject();
                        });
        });
}

const char* gDescribeEnd(EChainEnd inEnd)
{
    switch (inEnd)
    {
    case EChainEnd::Ran:
        return "It ran all the while: what it did is what the others waited for";
    case EChainEnd::Preempted:
        return "It was ready all the while, and waited for a processor";
    case EChainEnd::Interrupt:
        return "It waited for the clock or a device, which interrupted the other thread";
    case EChainEnd::NoWakeUp:
        return "No thread of the capture ended its wait: it was the clock, a device, or a process that wasn't captured";
    case EChainEnd::Unknown:
        return "Nothing is known of it at that time";
    case EChainEnd::TooLong:
        return "The chain goes on";
    }
    return "";
}

std::string gFormatChain(const Session& inSession, const WaitChain& inChain)
{
    if (inChain.Links.empty())
        return inChain.End == EChainEnd::Ran ? "The thread ran at that time\n" : "Nothing is known of the thread at that time\n";
    TextTable table({{"KEY", EAlign::Right},
                     {"THREAD"},
                     {"STATE"},
                     {"START ms", EAlign::Right},
                     {"END ms", EAlign::Right},
                     {"WAITED IN"},
                     {"WOKEN ms", EAlign::Right},
                     {"BY"},
                     {"WOKEN IN"}});
    for (const ChainLink& link : inChain.Links)
    {
        const ThreadStateSpan& state = link.State;
        const bool isWoken = link.WakeUp.has_value();
        table.AddRow({std::to_string(link.Thread), gDescribeThread(inSession, link.Thread), gDescribeState(state.State),
                      gFormatMs(state.Start), gFormatMs(state.End),
                      state.IsWait() ? gDescribeLeaf(inSession, state.Stack, link.Thread, state.Start).Format() : "",
                      isWoken ? gFormatMs(link.WakeUp->ReadyTime) : "",
                      isWoken ? gDescribeThread(inSession, link.WakeUp->ReadyingThreadID) : "",
                      isWoken ? gDescribeReadyStack(inSession, *link.WakeUp).Format() : ""});
    }
    return table.Format() + gDescribeEnd(inChain.End) + '\n';
}

std::string gFormatChainAsJSON(const Session& inSession, const WaitChain& inChain)
{
    return gFormatJSON(
        [&](JSONWriter& ioWriter)
        {
            gWriteMember(ioWriter, "end", gDescribeEnd(inChain.End));
            gWriteArray(ioWriter, "links", inChain.Links,
                        [&](const ChainLink& inLink)
                        {
                            ioWriter.StartObject();
                            gWriteThread(ioWriter, inSession, inLink.Thread);
                            gWriteMember(ioWriter, "state", gDescribeState(inLink.State.State));
                            gWriteMember(ioWriter, "start_ms", inLink.State.Start);
                            gWriteMember(ioWriter, "end_ms", inLink.State.End);
                            if (inLink.WakeUp.has_value())
                            {
                                ioWriter.Key("wake_up");
                                ioWriter.StartObject();
                                gWriteWakeUp(ioWriter, inSession, *inLink.WakeUp);
                                ioWriter.EndObject();
                            }
                            ioWriter.EndObject();
                        });
        });
}

} // namespace

bool gShowReady(const ReadyOptions& inOptions, std::string& outText, Utility::ErrorState& ioErrors)
{
    const std::unique_ptr<OpenTimeline> timeline = OpenTimeline::sOpen(inOptions.Session, inOptions.PluginPath, ioErrors);
    const int32_t thread = inOptions.Chain.has_value() ? inOptions.Chain->ThreadKey : inOptions.ThreadKey;
    if (timeline == nullptr ||
        ((inOptions.Chain.has_value() || thread != -1) && timeline->FindThread(thread, ioErrors) == nullptr))
        return false;
    const Session& session = timeline->GetSession();
    if (inOptions.Chain.has_value())
    {
        const WaitChain chain = gFollowWaits(timeline->GetModel(), thread, inOptions.Chain->TimeMs);
        outText = inOptions.AsJSON ? gFormatChainAsJSON(session, chain) : gFormatChain(session, chain);
        return true;
    }
    std::vector<ReadyRecord> records = gGetWakeUps(timeline->GetModel(), inOptions.StartMs, inOptions.EndMs);
    if (thread != -1)
        std::erase_if(records, [thread](const ReadyRecord& inRecord)
                      { return inRecord.ReadiedThreadID != thread && inRecord.ReadyingThreadID != thread; });
    outText = inOptions.AsJSON ? gFormatWakeUpsAsJSON(session, std::move(records), inOptions.Limit)
                               : gFormatWakeUps(session, records, inOptions.Limit);
    return true;
}

} // namespace Host
