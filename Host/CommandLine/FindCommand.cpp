#include "Host/CommandLine/FindCommand.h"

#include "Host/CommandLine/FoundCalls.h"
#include "Host/CommandLine/JSONOutput.h"
#include "Host/CommandLine/OpenTimeline.h"
#include "Host/CommandLine/ProgressLine.h"
#include "Host/CommandLine/TextTable.h"
#include "Host/CommandLine/TimelineText.h"
#include "Utility/Format.h"

#include <algorithm>

namespace Host
{

using namespace Profiler;

namespace
{

using EAlign = TextTable::EAlign;
using Utility::ErrorState;

// One name can be that of several functions, so a stack of names can be that of many stacks.
constexpr size_t sMostStacks = 10000;

std::vector<ThreadID> gGetThreads(const FindOptions& inOptions, const OpenTimeline& inTimeline)
{
    if (inOptions.ThreadKey != -1)
        return {inOptions.ThreadKey};
    std::vector<ThreadID> threads;
    for (const Thread& thread : inTimeline.GetSession().GetThreadList())
        threads.push_back(thread.ThreadID);
    return threads;
}

std::vector<std::string> gSplit(const std::string& inText, char inSeparator)
{
    std::vector<std::string> parts(1);
    for (const char character : inText)
    {
        if (character == inSeparator)
            parts.emplace_back();
        else
            parts.back() += character;
    }
    return parts;
}

// All stacks of functions with these names.
bool gMakeStacks(const ModuleDatabase& inModules, const std::string& inText, std::vector<ResolvedCallstack>& outStacks,
                 ErrorState& ioErrors)
{
    outStacks.assign(1, {});
    for (const std::string& name : gSplit(inText, ';'))
    {
        const std::vector<ResolvedAddress> functions = gFindByPathElement(inModules, name);
        if (!Utility::Check(ioErrors, !functions.empty(), 0, "No function of the session has the name \"%s\"", name) ||
            !Utility::Check(ioErrors, outStacks.size() * functions.size() <= sMostStacks, 0,
                            "Too many functions have these names: more than %zu stacks", sMostStacks))
            return false;
        std::vector<ResolvedCallstack> longer;
        for (const ResolvedCallstack& stack : outStacks)
            for (const ResolvedAddress& function : functions)
            {
                longer.push_back(stack);
                longer.back().push_back(function);
            }
        outStacks = std::move(longer);
    }
    return true;
}

bool gSearch(const FindOptions& inOptions, const OpenTimeline& inTimeline, FoundCalls& ioCalls, ErrorState& ioErrors)
{
    const ModuleDatabase& modules = inTimeline.GetSession().GetModuleDatabase();
    FindModel& model = inTimeline.GetModel().GetFindModel();
    const FindVisitorRegistration registration = model.AddVisitor(ioCalls);
    const std::vector<ThreadID> threads = gGetThreads(inOptions, inTimeline);
    constexpr auto showModules = FindQuery::EShowModuleInfo::Yes;
    if (!inOptions.Stack.empty())
    {
        std::vector<ResolvedCallstack> stacks;
        if (!gMakeStacks(modules, inOptions.Stack, stacks, ioErrors))
            return false;
        model.FindCallstacks({threads,
                              EFindSet::FindResults,
                              EFindSource::ThreadView,
                              std::move(stacks),
                              {},
                              showModules,
                              inOptions.StartMs,
                              inOptions.EndMs});
    }
    else
    {
        std::vector<ResolvedAddress> functions;
        std::vector<FindQuery::SearchItem> items;
        for (const ModuleDatabase::FoundFunction& found : modules.FindFunctions(
                 [&](const std::string& inName) { return inName.find(inOptions.Function) != std::string::npos; }))
        {
            functions.push_back(found.Address);
            items.push_back({found.FunctionName, found.ModuleName});
        }
        if (!Utility::Check(ioErrors, !functions.empty(), 0, "No function of the session has \"%s\" in its name",
                            inOptions.Function))
            return false;
        model.FindFunctions({0,
                             {},
                             threads,
                             EFindSet::FindResults,
                             EFindSource::ThreadView,
                             std::move(functions),
                             std::move(items),
                             showModules,
                             inOptions.StartMs,
                             inOptions.EndMs});
    }
    model.WaitForFind();
    return Utility::Check(ioErrors, ioCalls.IsFinished(), 0, "The search didn't come to its end");
}

std::string gFormatCalls(const FoundCalls& inCalls, const std::vector<FoundCall>& inListed, const Session& inSession)
{
    TextTable table({{"START ms", EAlign::Right},
                     {"LENGTH ms", EAlign::Right},
                     {"KEY", EAlign::Right},
                     {"THREAD"},
                     {"DEPTH", EAlign::Right},
                     {"NESTED"},
                     {"FUNCTION"},
                     {"MODULE"}});
    for (const FoundCall& call : inListed)
    {
        const FunctionText function = gDescribeFunction(inSession.GetModuleDatabase(), gGetFunction(call.Bar));
        table.AddRow({gFormatMs(call.Bar.Start), gFormatMs(call.Bar.End - call.Bar.Start), std::to_string(call.Thread),
                      gDescribeThread(inSession, call.Thread), std::to_string(call.Depth), call.IsNested ? "nested" : "",
                      function.Function, function.Module});
    }
    std::string text = Utility::gFormat("%llu calls in %zu threads: %.3f ms without nested ones, the longest %.3f ms\n",
                                        static_cast<unsigned long long>(inCalls.GetCount()), inCalls.GetThreadCount(),
                                        inCalls.GetTotalMs(), inCalls.GetLongestMs());
    if (inListed.empty())
        return text;
    text += table.Format();
    if (inListed.size() < inCalls.GetCount())
        text += Utility::gFormat("%llu more; --limit 0 lists all\n",
                                 static_cast<unsigned long long>(inCalls.GetCount() - inListed.size()));
    return text;
}

std::string gFormatCallsAsJSON(const FoundCalls& inCalls, const std::vector<FoundCall>& inListed, const Session& inSession)
{
    return gFormatJSON(
        [&](JSONWriter& ioWriter)
        {
            gWriteMember(ioWriter, "count", inCalls.GetCount());
            gWriteMember(ioWriter, "threads", uint64_t{inCalls.GetThreadCount()});
            gWriteMember(ioWriter, "total_ms", inCalls.GetTotalMs());
            gWriteMember(ioWriter, "longest_ms", inCalls.GetLongestMs());
            gWriteArray(ioWriter, "calls", inListed,
                        [&](const FoundCall& inCall)
                        {
                            const FunctionText function =
                                gDescribeFunction(inSession.GetModuleDatabase(), gGetFunction(inCall.Bar));
                            ioWriter.StartObject();
                            gWriteMember(ioWriter, "function", function.Function);
                            gWriteMember(ioWriter, "module", function.Module);
                            gWriteThread(ioWriter, inSession, inCall.Thread);
                            gWriteMember(ioWriter, "start_ms", inCall.Bar.Start);
                            gWriteMember(ioWriter, "length_ms", inCall.Bar.End - inCall.Bar.Start);
                            gWriteMember(ioWriter, "depth", inCall.Depth);
                            ioWriter.Key("nested");
                            ioWriter.Bool(inCall.IsNested);
                            ioWriter.EndObject();
                        });
        });
}

} // namespace

bool gFind(const FindOptions& inOptions, std::string& outText, ErrorState& ioErrors)
{
    const std::unique_ptr<OpenTimeline> timeline = OpenTimeline::sOpen(inOptions.Session, inOptions.PluginPath, ioErrors);
    if (timeline == nullptr || (inOptions.ThreadKey != -1 && timeline->FindThread(inOptions.ThreadKey, ioErrors) == nullptr))
        return false;
    ProgressLine progress("Searching");
    FoundCalls calls(inOptions.Limit, inOptions.SortsByLength, [&progress](float inFraction) { progress.Show(inFraction); });
    if (!gSearch(inOptions, *timeline, calls, ioErrors))
        return false;
    const std::vector<FoundCall> listed = calls.TakeCalls();
    outText = inOptions.AsJSON ? gFormatCallsAsJSON(calls, listed, timeline->GetSession())
                               : gFormatCalls(calls, listed, timeline->GetSession());
    return true;
}

} // namespace Host
