#include "Host/CommandLine/Summary.h"

#include "Session/Session.h"

#include <algorithm>
#include <map>

namespace Host
{

using namespace Profiler;

namespace
{

constexpr const char* sNoModuleReason =
    "no mapping covers the address: run-time generated code, or a stack without frame pointers";
constexpr const char* sNoFunctionReason = "no symbol covers the address";

ThreadRow gMakeThreadRow(const Session& inSession, const Thread& inThread)
{
    ThreadRow row;
    row.Thread = inThread.DisplayThreadID;
    row.ThreadKey = inThread.ThreadID;
    row.ProcessKey = inThread.ProcessID;
    row.ThreadName = inThread.ThreadName;
    if (const Process* process = inSession.GetProcess(inThread.ProcessID))
    {
        row.Process = process->DisplayID;
        row.ProcessName = process->Name;
    }
    return row;
}

void gAddThreads(const Session& inSession, const SummaryModel& inModel, Summary& outSummary)
{
    for (const Process& process : inSession.GetProcessList())
        for (const ThreadID id : process.ThreadOrder)
        {
            const ThreadSummary* totals = inModel.FindThread(id);
            if (totals == nullptr)
                continue;
            ThreadRow row = gMakeThreadRow(inSession, inSession.GetValidThread(id));
            row.Totals = *totals;
            outSummary.Threads.push_back(std::move(row));
        }
}

std::string gGetFunctionText(const ResolvedFunctionInfo& inInfo)
{
    if (inInfo.FunctionRelativeAddress != sNoAddress || inInfo.ResolveIndex.IsUnknownClass())
        return inInfo.FunctionName;
    return Utility::gFormat("0x%llx", static_cast<unsigned long long>(inInfo.RelativeAddress));
}

void gAddLongestBars(const Session& inSession, const ModuleDatabase& inModules, const SummaryModel& inModel, Summary& outSummary)
{
    for (const LongBar& bar : inModel.GetLongestBars())
    {
        const ResolvedFunctionInfo info = inModules.GetResolvedFunction(bar.Frame.RelativeAddress, bar.Frame.ResolveIndex);
        BarRow row;
        row.Function = gGetFunctionText(info);
        row.Module = info.Module != nullptr ? info.Module->Name : std::string();
        if (const Thread* thread = inSession.GetThread(bar.Thread))
            row.Thread = gMakeThreadRow(inSession, *thread);
        row.StartMs = bar.Start;
        row.LengthMs = bar.GetLength();
        row.Depth = bar.Depth;
        outSummary.LongestBars.push_back(std::move(row));
    }
}

// Why a frame of the module has no function.
std::string gGetReason(const ResolvedFunctionInfo& inInfo)
{
    if (inInfo.ResolveIndex.GetClass() != ResolveIndex::sNativeClass)
        return sNoModuleReason;
    // Class 0 is a native module by definition.
    const std::string failure = static_cast<const NativeModule&>(*inInfo.Module).GetSymbolFailure();
    return failure.empty() ? sNoFunctionReason : failure;
}

void gAddUnresolved(const ModuleDatabase& inModules, const SummaryModel& inModel, Summary& outSummary)
{
    std::map<std::string, UnresolvedRow> rows; // by path: modules of one name can lie in several places
    for (const auto& [frame, count] : inModel.GetFrameCounts())
    {
        const ResolvedFunctionInfo info = inModules.GetResolvedFunction(frame.RelativeAddress, frame.ResolveIndex);
        if (info.Module == nullptr || info.FunctionRelativeAddress != sNoAddress || info.ResolveIndex.IsUnknownClass())
            continue;
        const bool isNative = info.ResolveIndex.GetClass() == ResolveIndex::sNativeClass;
        const std::string name = isNative ? static_cast<const NativeModule*>(info.Module)->Path : info.Module->Name;
        UnresolvedRow& row = rows[name];
        row.Module = name;
        row.Reason = gGetReason(info);
        row.Bars += count;
    }
    for (auto& [name, row] : rows)
        outSummary.Unresolved.push_back(std::move(row));
    std::stable_sort(outSummary.Unresolved.begin(), outSummary.Unresolved.end(),
                     [](const UnresolvedRow& inFirst, const UnresolvedRow& inSecond) { return inFirst.Bars > inSecond.Bars; });
}

} // namespace

Summary gMakeSummary(const SummaryModel& inModel, ImportReport inReport, uint64_t inDroppedEvents)
{
    Session& session = inModel.GetSession();
    Summary summary;
    summary.LengthMs = session.GetSessionInfo().SessionEndTimeMs - session.GetSessionInfo().SessionStartTimeMs;
    summary.Processes = session.GetProcessList().size();
    gAddThreads(session, inModel, summary);
    gAddLongestBars(session, session.GetModuleDatabase(), inModel, summary);
    gAddUnresolved(session.GetModuleDatabase(), inModel, summary);
    summary.Report = std::move(inReport);
    summary.Report.SymbolFailures.clear();
    gAddCount(summary.Report.Notes, "events at impossible times", inDroppedEvents);
    return summary;
}

} // namespace Host
