#include "Host/CommandLine/StackCommand.h"

#include "Host/CommandLine/JSONOutput.h"
#include "Host/CommandLine/OpenTimeline.h"
#include "Host/CommandLine/TextTable.h"
#include "Host/CommandLine/ThreadStates.h"
#include "Host/CommandLine/TimelineText.h"
#include "Utility/Format.h"

#include <optional>

namespace Host
{

using namespace Profiler;

namespace
{

using EAlign = TextTable::EAlign;

struct StackAnswer
{
    std::vector<Bar> Bars; // root first
    std::optional<ThreadStateSpan> State;
    std::optional<ReadyRecord> WakeUp; // of a wait
    LeafText WaitedIn;
    LeafText WokenIn;
};

StackAnswer gAsk(const OpenTimeline& inTimeline, const StackOptions& inOptions)
{
    const ThreadsModel& model = inTimeline.GetModel();
    StackAnswer answer;
    const System::JobHandle job = model.FindStack(inOptions.ThreadKey, inOptions.TimeMs, {},
                                                  [&answer](std::vector<Bar> inBars) { answer.Bars = std::move(inBars); });
    inTimeline.GetSession().GetJobScheduler().WaitForJobs(job);

    const ThreadStates states(model);
    answer.State = states.FindAt(inOptions.ThreadKey, inOptions.TimeMs);
    if (!answer.State.has_value() || !answer.State->IsWait())
        return answer;
    answer.WaitedIn = gDescribeLeaf(inTimeline.GetSession(), answer.State->Stack, inOptions.ThreadKey, answer.State->Start);
    answer.WakeUp = states.FindWakeUp(*answer.State);
    if (answer.WakeUp.has_value())
        answer.WokenIn = gDescribeLeaf(inTimeline.GetSession(), answer.WakeUp->ReadyStack, answer.WakeUp->ReadyingThreadID,
                                       answer.WakeUp->ReadyTime);
    return answer;
}

// Bars end at the bounds of their chunk, wherever their function began and ended.
std::string gFormatStart(const Bar& inBar)
{
    return ((inBar.ResolveIndex.Index & Bar::sContinuedFromPrevious) != 0 ? "< " : "") + gFormatMs(inBar.Start);
}
std::string gFormatEnd(const Bar& inBar)
{
    return ((inBar.ResolveIndex.Index & Bar::sContinuesInNext) != 0 ? "> " : "") + gFormatMs(inBar.End);
}

// As find --stack takes it.
std::string gGetPath(const Session& inSession, const std::vector<Bar>& inBars)
{
    std::string path;
    for (const Bar& bar : inBars)
        path += (path.empty() ? "" : ";") + gDescribeFunction(inSession.GetModuleDatabase(), gGetFunction(bar)).GetPathElement();
    return path;
}

std::string gFormatState(const Session& inSession, const StackAnswer& inAnswer)
{
    if (!inAnswer.State.has_value())
        return "Nothing is known of it at that time\n";
    const ThreadStateSpan& state = *inAnswer.State;
    std::string text = Utility::gFormat("%s from %.3f to %.3f ms\n", gDescribeState(state.State).c_str(), state.Start, state.End);
    if (!inAnswer.WaitedIn.Leaf.empty())
        text += "It waited in " + inAnswer.WaitedIn.Format() + '\n';
    if (!inAnswer.WakeUp.has_value())
        return text;
    text += Utility::gFormat("At %.3f ms it was woken by %s", inAnswer.WakeUp->ReadyTime,
                             gDescribeThread(inSession, inAnswer.WakeUp->ReadyingThreadID).c_str());
    if (!inAnswer.WokenIn.Leaf.empty())
        text += " in " + inAnswer.WokenIn.Format();
    return text + '\n';
}

std::string gFormatAnswer(const Session& inSession, const StackOptions& inOptions, const StackAnswer& inAnswer)
{
    std::string text =
        Utility::gFormat("%s at %.3f ms\n", gDescribeThread(inSession, inOptions.ThreadKey).c_str(), inOptions.TimeMs) +
        gFormatState(inSession, inAnswer);
    if (inAnswer.Bars.empty())
        return text + "No function is known to have been on its stack\n";
    TextTable table({{"DEPTH", EAlign::Right}, {"START ms", EAlign::Right}, {"END ms", EAlign::Right}, {"FUNCTION"}, {"MODULE"}});
    for (size_t depth = 0; depth < inAnswer.Bars.size(); ++depth)
    {
        const Bar& bar = inAnswer.Bars[depth];
        const FunctionText function = gDescribeFunction(inSession.GetModuleDatabase(), gGetFunction(bar));
        table.AddRow({std::to_string(depth), gFormatStart(bar), gFormatEnd(bar), function.Function, function.Module});
    }
    return text + table.Format() + "As a stack to search for: " + gGetPath(inSession, inAnswer.Bars) + '\n';
}

void gWriteState(JSONWriter& ioWriter, const Session& inSession, const StackAnswer& inAnswer)
{
    if (!inAnswer.State.has_value())
        return;
    ioWriter.Key("state");
    ioWriter.StartObject();
    gWriteMember(ioWriter, "state", gDescribeState(inAnswer.State->State));
    gWriteMember(ioWriter, "start_ms", inAnswer.State->Start);
    gWriteMember(ioWriter, "end_ms", inAnswer.State->End);
    if (inAnswer.State->IsWait())
        gWriteLeaf(ioWriter, "waited_in", inAnswer.WaitedIn);
    if (inAnswer.WakeUp.has_value())
    {
        ioWriter.Key("woken_by");
        ioWriter.StartObject();
        gWriteThread(ioWriter, inSession, inAnswer.WakeUp->ReadyingThreadID);
        gWriteMember(ioWriter, "time_ms", inAnswer.WakeUp->ReadyTime);
        gWriteLeaf(ioWriter, "woken_in", inAnswer.WokenIn);
        ioWriter.EndObject();
    }
    ioWriter.EndObject();
}

std::string gFormatAnswerAsJSON(const Session& inSession, const StackOptions& inOptions, const StackAnswer& inAnswer)
{
    return gFormatJSON(
        [&](JSONWriter& ioWriter)
        {
            gWriteThread(ioWriter, inSession, inOptions.ThreadKey);
            gWriteMember(ioWriter, "time_ms", inOptions.TimeMs);
            gWriteState(ioWriter, inSession, inAnswer);
            gWriteMember(ioWriter, "path", gGetPath(inSession, inAnswer.Bars));
            gWriteArray(ioWriter, "stack", inAnswer.Bars,
                        [&](const Bar& inBar)
                        {
                            const FunctionText function = gDescribeFunction(inSession.GetModuleDatabase(), gGetFunction(inBar));
                            ioWriter.StartObject();
                            gWriteMember(ioWriter, "function", function.Function);
                            gWriteMember(ioWriter, "module", function.Module);
                            gWriteMember(ioWriter, "start_ms", inBar.Start);
                            gWriteMember(ioWriter, "end_ms", inBar.End);
                            ioWriter.Key("began_before");
                            ioWriter.Bool((inBar.ResolveIndex.Index & Bar::sContinuedFromPrevious) != 0);
                            ioWriter.Key("goes_on");
                            ioWriter.Bool((inBar.ResolveIndex.Index & Bar::sContinuesInNext) != 0);
                            ioWriter.EndObject();
                        });
        });
}

} // namespace

bool gShowStack(const StackOptions& inOptions, std::string& outText, Utility::ErrorState& ioErrors)
{
    const std::unique_ptr<OpenTimeline> timeline = OpenTimeline::sOpen(inOptions.Session, inOptions.PluginPath, ioErrors);
    if (timeline == nullptr || timeline->FindThread(inOptions.ThreadKey, ioErrors) == nullptr)
        return false;
    const StackAnswer answer = gAsk(*timeline, inOptions);
    outText = inOptions.AsJSON ? gFormatAnswerAsJSON(timeline->GetSession(), inOptions, answer)
                               : gFormatAnswer(timeline->GetSession(), inOptions, answer);
    return true;
}

} // namespace Host
