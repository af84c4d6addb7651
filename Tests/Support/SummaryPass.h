// One whole pass of `summarize` over a capture in memory, without a plugin library: for tests and fuzz targets that run it
// thousands of times.
#pragma once

#include "Host/CommandLine/Summary.h"
#include "Host/Plugins/PluginManager.h"
#include "Session/Pass/EventDispatcher.h"
#include "Session/Pass/FiberState.h"
#include "Session/Pass/ModelPlugin.h"
#include "Session/Session.h"
#include "System/JobScheduler.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace Host
{

// Makes no models; it only stands where a model asks for its plugin.
class NoModelPlugin final : public Profiler::ModelPlugin
{
public:
    NoModelPlugin() : ModelPlugin("", "", nullptr, nullptr, {}) {}
    std::unique_ptr<Profiler::Model> CreateModel(Profiler::Session&) override { return nullptr; }
    std::unique_ptr<Profiler::Model> LoadModel(Profiler::Session&) override { return nullptr; }
    std::unique_ptr<Profiler::ILLMModel> CreateLLMModel(std::string&) override { return nullptr; }
    void RegisterLLMTools(Profiler::IToolRegistry&) override {}
};

class SummaryPass final : public ITraceEventSink
{
public:
    // inScheduler may serve many passes; it has nothing to do in one.
    explicit SummaryPass(System::JobScheduler& inScheduler)
        : mSession(std::make_unique<Profiler::SessionInfo>(), "", inScheduler, mPlugins, mFrontEnd),
          mModel(mPlugin, mSession),
          mDispatcher(mSession, mFibers, mSession.GetBrokenStacks(), {&mModel})
    {
    }

    // True with outSummary, or false with an entry in ioErrors.
    [[nodiscard]] bool Run(std::span<const uint8_t> inImage, Summary& outSummary, Utility::ErrorState& ioErrors)
    {
        if (!mFile.OpenImage(inImage, "image", ioErrors))
            return false;
        CaptureImporter importer(mFile, mSession, mSymbols);
        if (!importer.Prepare(ioErrors) || !importer.Run(*this, {}, ioErrors) || !mDispatcher.FinishProcessing(ioErrors, false))
            return false;
        outSummary = gMakeSummary(mModel, gMakeImportReport(mFile, importer), mDispatcher.GetNumDroppedEvents());
        return true;
    }

    [[nodiscard]] bool OnEvent(const Profiler::TraceEvent& inEvent, Utility::ErrorState& ioErrors) override
    {
        mSession.UpdateThreadFromEvent(inEvent);
        return mDispatcher.Dispatch(inEvent, ioErrors);
    }

private:
    PerfFile mFile;
    Profiler::PluginManagerCommon mPlugins;
    SymbolCache mSymbols;
    PluginManager mFrontEnd{mSymbols};
    NoModelPlugin mPlugin;
    Profiler::Session mSession;
    Profiler::OpenBarProcessorFiberState mFibers;
    SummaryModel mModel;
    Profiler::EventDispatcher mDispatcher;
};

} // namespace Host
