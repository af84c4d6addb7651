#include "Host/CommandLine/SummarizeCommand.h"

#include "Host/CommandLine/Interrupt.h"
#include "Host/CommandLine/ProgressLine.h"
#include "Host/CommandLine/SessionPath.h"
#include "Host/CommandLine/SessionProcessing.h"
#include "Host/CommandLine/Summary.h"
#include "Host/CommandLine/SummaryText.h"
#include "Host/CommandLine/Workspace.h"
#include "Session/Events/TraceEventStreamReader.h"
#include "Session/Pass/EventDispatcher.h"
#include "Session/Pass/FiberState.h"
#include "Session/Session.h"
#include "Session/SessionPaths.h"

#include <memory>

namespace Host
{
namespace
{

// Hands the events of an import to the models of a pass.
class PassSink final : public ITraceEventSink
{
public:
    PassSink(Profiler::Session& ioSession, Profiler::EventDispatcher& ioDispatcher, const bool& inIsCanceled)
        : mSession(ioSession),
          mDispatcher(ioDispatcher),
          mIsCanceled(inIsCanceled)
    {
    }

    [[nodiscard]] bool OnEvent(const Profiler::TraceEvent& inEvent, Utility::ErrorState& ioErrors) override
    {
        mSession.UpdateThreadFromEvent(inEvent);
        return gCheckNotCanceled(mIsCanceled, ioErrors) && mDispatcher.Dispatch(inEvent, ioErrors);
    }

private:
    Profiler::Session& mSession;
    Profiler::EventDispatcher& mDispatcher;
    const bool& mIsCanceled;
};

// One pass over the importer's events, for the model that counts.
bool gSummarizeCapture(const SummarizeOptions& inOptions, Workspace& ioWorkspace, const bool& inIsCanceled, Summary& outSummary,
                       Utility::ErrorState& ioErrors)
{
    PerfFile file;
    if (!file.Open(inOptions.Path, ioErrors))
        return false;
    const std::unique_ptr<Profiler::Session> session = ioWorkspace.MakeSession(""); // never stored
    CaptureImporter importer(file, *session, ioWorkspace.GetSymbols());
    SummaryModel summaryModel(ioWorkspace.GetPlugin(), *session);
    Profiler::OpenBarProcessorFiberState fibers;
    Profiler::EventDispatcher dispatcher(*session, fibers, session->GetBrokenStacks(), {&summaryModel});
    PassSink sink(*session, dispatcher, inIsCanceled);
    ProgressLine progress("Reading");
    if (!importer.Prepare(ioErrors) || !dispatcher.BeginProcessing(ioErrors) ||
        !importer.Run(
            sink, [&progress](float inFraction) { progress.Show(inFraction); }, ioErrors) ||
        !dispatcher.FinishProcessing(ioErrors, inIsCanceled))
        return false;
    session->GetCallstackTrie().FinishCallstacks();
    outSummary = gMakeSummary(summaryModel, gMakeImportReport(file, importer), dispatcher.GetNumDroppedEvents());
    return true;
}

// One pass over the stored events, for the model that counts.
bool gSummarizeSession(const SummarizeOptions& inOptions, Workspace& ioWorkspace, const bool& inIsCanceled, Summary& outSummary,
                       Utility::ErrorState& ioErrors)
{
    std::string path;
    uint32_t flags = Profiler::NothingToReprocess;
    if (!gFindSessionFile(inOptions.Path, path, ioErrors))
        return false;
    const std::unique_ptr<Profiler::Session> session = ioWorkspace.LoadSession(path, flags, ioErrors);
    constexpr uint32_t neededFlags = Profiler::UpgradeEventStream | Profiler::RebuildBrokenStacks;
    if (session == nullptr || !Utility::Check(ioErrors, (flags & neededFlags) == 0, 0,
                                              "The session %s is to be processed first; run: brenvaldoris process SESSION", path))
        return false;
    SummaryModel summaryModel(ioWorkspace.GetPlugin(), *session);
    Profiler::OpenBarProcessorFiberState fibers;
    Profiler::EventDispatcher dispatcher(*session, fibers, session->GetBrokenStacks(), {&summaryModel});
    Profiler::TraceEventStreamReader reader = session->GetEventStream().CreateReader(0.0);
    ProgressLine line("Reading");
    const Utility::ProgressFunction show = [&line](float inFraction) { line.Show(inFraction); };
    Utility::ProgressReporter progress(show, session->GetEventStream().GetNumEvents());
    Profiler::TraceEvent event;
    while (reader.NextEvent(event))
    {
        if (!gCheckNotCanceled(inIsCanceled, ioErrors))
            return false;
        progress.Report(reader.GetEventsRead());
        if (session->GetProcess(event.ProcessID) != nullptr && !dispatcher.Dispatch(event, ioErrors))
            return false;
    }
    if (!reader.CheckSound(ioErrors) || !dispatcher.FinishProcessing(ioErrors, inIsCanceled))
        return false;
    const std::unique_ptr<ImportReport> report = gReadImportReport(Profiler::gGetSessionFolder(path), ioWorkspace.GetRegistry());
    outSummary = gMakeSummary(summaryModel, report != nullptr ? *report : ImportReport(), dispatcher.GetNumDroppedEvents());
    return true;
}

} // namespace

bool gSummarize(const SummarizeOptions& inOptions, std::string& outText, Utility::ErrorState& ioErrors)
{
    const std::unique_ptr<Workspace> workspace = Workspace::sMake(inOptions.PluginPath, ioErrors);
    if (workspace == nullptr)
        return false;
    const InterruptScope interrupt;
    Summary summary;
    const bool isDone = gIsSession(inOptions.Path)
                            ? gSummarizeSession(inOptions, *workspace, interrupt.GetFlag(), summary, ioErrors)
                            : gSummarizeCapture(inOptions, *workspace, interrupt.GetFlag(), summary, ioErrors);
    if (isDone)
        outText = inOptions.AsJSON ? gFormatSummaryAsJSON(summary) : gFormatSummary(summary);
    return isDone;
}

} // namespace Host
