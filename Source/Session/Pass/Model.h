// The contract between a session and the models that plugins make for it.
//
// The order of the virtual operations is part of the contract.
// Threads: all operations run on the pass's thread, but StopProcessing, which comes from another one.
// Ownership: a session owns its models; a model refers to its session and plugin, which outlive it.
#pragma once

#include "RTTI/Declare.h"
#include "RTTI/Object.h"
#include "Session/Events/TraceEvent.h"
#include "Utility/ErrorState.h"

namespace Profiler
{

class ModelPlugin;
class OpenBarProcessor;
class Session;

// What a model keeps per thread during a pass.
class ThreadProcessingState
{
public:
    virtual ~ThreadProcessingState() = default;
};

class Model : public RTTI::Object
{
public:
    Model(ModelPlugin& inPlugin, Session& inSession) : mPlugin(inPlugin), mSession(inSession) {}
    ~Model() override = default;

    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;

    // Once per thread, at its first event in a pass. The model owns the state; it may connect to the processor's signal.
    virtual ThreadProcessingState* CreateThreadProcessingState(OpenBarProcessor& inProcessor) = 0;

    // When the thread has ended, or at the end of the pass. All its bars have been reported as closed.
    [[nodiscard]] virtual bool FinishThread(OpenBarProcessor& inProcessor, Utility::ErrorState& ioErrors) = 0;

    // Per event of the thread, before its processor sees it. A false fails the pass.
    [[nodiscard]] virtual bool ProcessEvent(const TraceEvent& inEvent, ThreadProcessingState* ioState,
                                            Utility::ErrorState& ioErrors) = 0;

    [[nodiscard]] virtual bool BeginProcessing(Utility::ErrorState& ioErrors) = 0;

    // The host stops a pass.
    virtual void StopProcessing() = 0;

    // At the end of a pass, after all threads are finished.
    [[nodiscard]] virtual bool FinishProcessing(Utility::ErrorState& ioErrors, const bool& inIsCanceled) = 0;

    // Before a pass rebuilds the model, and right after a model was made for a new session.
    [[nodiscard]] virtual bool PrepareReprocess(Utility::ErrorState& ioErrors) = 0;

    [[nodiscard]] virtual bool SaveModel(Utility::ErrorState& ioErrors) = 0;

    [[nodiscard]] ModelPlugin& GetPlugin() const { return mPlugin; }
    [[nodiscard]] Session& GetSession() const { return mSession; }

private:
    ModelPlugin& mPlugin;
    Session& mSession;
};

} // namespace Profiler

RTTI_DECLARE(Profiler::Model);
