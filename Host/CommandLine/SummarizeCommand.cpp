#include "Host/CommandLine/SummarizeCommand.h"

#include "Host/CommandLine/ProgressLine.h"
#include "Host/CommandLine/Summary.h"
#include "Host/CommandLine/SummaryText.h"
#include "Host/CommandLine/TemporaryFolder.h"
#include "Host/Plugins/PluginLibrary.h"
#include "Host/Plugins/PluginManager.h"
#include "Plugin/TypeRegistration.h"
#include "RTTI/Registry.h"
#include "Session/Pass/EventDispatcher.h"
#include "Session/Session.h"
#include "Session/SharedModel.h"
#include "System/JobScheduler.h"
#include "Utility/Hash.h"

#include <memory>
#include <string_view>
#include <thread>

namespace Host
{
namespace
{

constexpr std::string_view sHostModuleName = "brenvaldoris";

void gRegisterHostTypes(RTTI::Registry& ioRegistry)
{
    const RTTI::CurrentModuleScope scope(ioRegistry, Utility::gCRC64(sHostModuleName.data(), sHostModuleName.size(), 0));
    Profiler::gRegisterTypes(ioRegistry);
}

// Hands the events of an import to the models of a pass.
class PassSink final : public ITraceEventSink
{
public:
    PassSink(Profiler::Session& ioSession, Profiler::EventDispatcher& ioDispatcher)
        : mSession(ioSession),
          mDispatcher(ioDispatcher)
    {
    }

    [[nodiscard]] bool OnEvent(const Profiler::TraceEvent& inEvent, Utility::ErrorState& ioErrors) override
    {
        mSession.UpdateThreadFromEvent(inEvent);
        return mDispatcher.Dispatch(inEvent, ioErrors);
    }

private:
    Profiler::Session& mSession;
    Profiler::EventDispatcher& mDispatcher;
};

std::unique_ptr<Profiler::Session> gMakeSession(const std::string& inSessionPath, System::JobScheduler& inScheduler,
                                                Profiler::PluginManagerCommon& inPlugins, PluginManager& inFrontEnd)
{
    auto session = std::make_unique<Profiler::Session>(std::make_unique<Profiler::SessionInfo>(), inSessionPath, inScheduler,
                                                       inPlugins, inFrontEnd);
    std::unique_ptr<Profiler::PlatformSession> platform;
    inFrontEnd.GetPlatformPlugin(sLinuxPlatformID)->CreatePlatformSession(platform);
    session->SetPlatformSession(std::move(platform));
    return session;
}

// One pass over the importer's events, for the plugin's models and the one that counts.
bool gRunPass(Profiler::Session& ioSession, CaptureImporter& ioImporter, SummaryModel& ioSummaryModel, uint64_t& outDroppedEvents,
              Utility::ErrorState& ioErrors)
{
    std::vector<Profiler::Model*> models = ioSession.GetModels();
    models.push_back(&ioSummaryModel);
    Profiler::EventDispatcher dispatcher(ioSession, ioSession.GetSharedModel()->GetFiberState(), ioSession.GetBrokenStacks(),
                                         std::move(models));
    PassSink sink(ioSession, dispatcher);
    ProgressLine progress("Reading");
    const bool isCanceled = false;
    if (!dispatcher.BeginProcessing(ioErrors) ||
        !ioImporter.Run(
            sink, [&progress](float inFraction) { progress.Show(inFraction); }, ioErrors) ||
        !dispatcher.FinishProcessing(ioErrors, isCanceled))
        return false;
    ioSession.GetCallstackTrie().FinishCallstacks();
    outDroppedEvents = dispatcher.GetNumDroppedEvents();
    return true;
}

} // namespace

bool gSummarize(const SummarizeOptions& inOptions, std::string& outText, Utility::ErrorState& ioErrors)
{
    PerfFile file;
    if (!file.Open(inOptions.CapturePath, ioErrors))
        return false;

    RTTI::Registry registry;
    gRegisterHostTypes(registry);
    const std::unique_ptr<PluginLibrary> library = PluginLibrary::sLoad(inOptions.PluginPath, registry, ioErrors);
    if (library == nullptr)
        return false;
    registry.Finalize();

    System::JobScheduler scheduler(static_cast<int32_t>(std::max(1U, std::thread::hardware_concurrency())));
    PluginManager frontEnd;
    Profiler::PluginManagerCommon plugins{{&library->GetPlugin()}, {}};
    SymbolCache symbols;
    // The models write files, of which none is to be kept.
    TemporaryFolder folder;
    if (!folder.Make(ioErrors))
        return false;
    const std::unique_ptr<Profiler::Session> session =
        gMakeSession(folder.GetPath() + "/summary.session", scheduler, plugins, frontEnd);
    session->InitializePlatformSession();
    if (!session->CreateModels(ioErrors))
        return false;

    CaptureImporter importer(file, *session, symbols);
    SummaryModel summaryModel(library->GetPlugin(), *session);
    uint64_t droppedEvents = 0;
    if (!importer.Prepare(ioErrors) || !gRunPass(*session, importer, summaryModel, droppedEvents, ioErrors))
        return false;
    const Summary summary = gMakeSummary(file, importer, summaryModel, droppedEvents);
    outText = inOptions.AsJSON ? gFormatSummaryAsJSON(summary) : gFormatSummary(summary);
    return true;
}

} // namespace Host
