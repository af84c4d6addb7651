// The passes over a session's events.
#include "Session/Events/TraceEventStreamReader.h"
#include "Session/Host/PluginManagers.h"
#include "Session/Pass/EventDispatcher.h"
#include "Session/Pass/Model.h"
#include "Session/Pass/ModelPlugin.h"
#include "Session/Session.h"
#include "Session/SharedModel.h"
#include "System/Job.h"
#include "Utility/Clock.h"
#include "Utility/Log.h"

namespace Profiler
{

// Both here and not in Session.cpp, which mustn't know the dispatcher: that one knows the session.
Session::Session(std::unique_ptr<SessionInfo> inInfo, std::string inPath, System::JobScheduler& inScheduler,
                 PluginManagerCommon& inPluginManager, PluginManagerFrontEnd& inFrontEnd)
    : mScheduler(inScheduler),
      mPluginManager(inPluginManager),
      mFrontEnd(inFrontEnd),
      mPath(std::move(inPath)),
      mInfo(std::move(inInfo)),
      mEventStream(std::make_unique<TraceEventStream>(GetDirectory(), TraceEventStream::sColumnarVersion)),
      mBrokenStacks(GetDirectory())
{
}

Session::~Session() = default;

bool Session::CreateModels(Utility::ErrorState& ioErrors)
{
    mDispatcher.reset(); // of a pass that failed
    mModelsToReprocess.clear();
    mModelsOfPass.clear();
    mModelsToSave.clear();
    mUnbuiltModels = {nullptr}; // whatever isn't made below is never built
    mModels.clear();
    mOwnedModels.clear();
    mSharedModel = std::make_unique<SharedModel>(*this);
    mIsSharedModelSound = false;
    if (!ResetSharedModel(ioErrors))
        return false;
    for (ModelPlugin* plugin : mPluginManager.ModelPlugins)
    {
        std::unique_ptr<Model> model = plugin->CreateModel(*this);
        if (!model->PrepareReprocess(ioErrors))
            return false;
        mModels.push_back(model.get());
        mOwnedModels.push_back(std::move(model));
    }
    mUnbuiltModels = mModels;
    return true;
}

bool Session::BeginProcessing(Utility::ErrorState& ioErrors)
{
    return BeginProcessing(mModels, ioErrors);
}

// A pass for no model of several leaves the shared model of the pass before, and all that it has to save: what it sees of fibers
// mustn't be added to what is known of them already.
bool Session::BeginProcessing(const std::vector<Model*>& inModels, Utility::ErrorState& ioErrors)
{
    return BeginPass(inModels, !inModels.empty() || mModels.empty(), ioErrors);
}

bool Session::BeginPass(const std::vector<Model*>& inModels, bool inFillsSharedModel, Utility::ErrorState& ioErrors)
{
    mDispatcher.reset(); // of a pass that failed
    if (mSharedModel == nullptr)
        mSharedModel = std::make_unique<SharedModel>(*this);
    mFillsSharedModel = inFillsSharedModel;
    mUnkeptFibers = std::make_unique<OpenBarProcessorFiberState>();
    OpenBarProcessorFiberState& fibers = inFillsSharedModel ? mSharedModel->GetFiberState() : *mUnkeptFibers;
    fibers = OpenBarProcessorFiberState();
    mIsSharedModelSound = mIsSharedModelSound && !inFillsSharedModel;
    MarkUnbuilt(inModels);
    mModelsOfPass = inModels;
    mDispatcher = std::make_unique<EventDispatcher>(*this, fibers, mBrokenStacks, inModels);
    return mDispatcher->BeginProcessing(ioErrors);
}

void Session::MarkUnbuilt(const std::vector<Model*>& inModels)
{
    mIsSharedModelSound = mIsSharedModelSound && inModels.empty();
    for (Model* model : inModels)
    {
        std::erase(mModelsToSave, model);
        std::erase(mUnbuiltModels, model);
        mUnbuiltModels.push_back(model);
    }
}

bool Session::ProcessEvents(Utility::ErrorState& ioErrors, const bool& inIsCanceled, const Utility::ProgressFunction& inProgress)
{
    TraceEventStreamReader reader = mEventStream->CreateReader(0.0);
    Utility::ProgressReporter progress(inProgress, mEventStream->GetNumEvents());
    TraceEvent event;
    while (reader.NextEvent(event))
    {
        if (System::gIsCanceled(inIsCanceled))
            return false;
        progress.Report(reader.GetEventsRead());
        UpdateThreadFromEvent(event);
        if (!mDispatcher->Dispatch(event, ioErrors))
            return false;
    }
    return reader.CheckSound(ioErrors);
}

// Unlike ProcessEvents, which brings every event to the models: what is known of the processes is complete by now, so events of
// others are none of theirs.
bool Session::DispatchCapturedEvents(TraceEventStreamReader& ioReader, Utility::ErrorState& ioErrors, const bool& inIsCanceled,
                                     const Utility::ProgressFunction& inProgress)
{
    Utility::ProgressReporter progress(inProgress, mEventStream->GetNumEvents());
    TraceEvent event;
    while (ioReader.NextEvent(event))
    {
        if (System::gIsCanceled(inIsCanceled))
            return false;
        progress.Report(ioReader.GetEventsRead());
        if (GetProcess(event.ProcessID) == nullptr)
            continue;
        if (!mDispatcher->Dispatch(event, ioErrors))
            return false;
    }
    return ioReader.CheckSound(ioErrors);
}

bool Session::Reprocess(bool inKeepsSymbolHash, Utility::ErrorState& ioErrors, const bool& inIsCanceled,
                        const Utility::ProgressFunction& inProgress)
{
    if (!ResetSharedModel(ioErrors))
        return false;
    MarkUnbuilt(mModelsToReprocess);
    for (Model* model : mModelsToReprocess)
    {
        if (!model->PrepareReprocess(ioErrors))
            return false;
    }
    // Without a model to rebuild it reads no event, so it can't fill anything.
    if (!BeginPass(mModelsToReprocess, !mModelsToReprocess.empty(), ioErrors))
        return false;

    const double start = Utility::gGetMonotonicSeconds();
    double ioTime = 0.0;
    double finishingTime = 0.0;
    bool isProcessed = true;
    if (!mModelsToReprocess.empty())
    {
        TraceEventStreamReader reader = mEventStream->CreateReader(0.0);
        isProcessed = DispatchCapturedEvents(reader, ioErrors, inIsCanceled, inProgress);
        ioTime = reader.GetIOTimeSeconds();
    }
    if (isProcessed)
    {
        const double finishingStart = Utility::gGetMonotonicSeconds();
        isProcessed = FinishPass(inKeepsSymbolHash, ioErrors, inIsCanceled);
        finishingTime = Utility::gGetMonotonicSeconds() - finishingStart;
    }
    const double total = Utility::gGetMonotonicSeconds() - start;
    Utility::gLog("Reprocessing finished after %f seconds (processing time: %f, IO time: %f, finishing time: %f)", total,
                  total - ioTime - finishingTime, ioTime, finishingTime);
    mModelsToReprocess.clear();
    return isProcessed;
}

bool Session::FinishPass(bool inKeepsSymbolHash, Utility::ErrorState& ioErrors, const bool& inIsCanceled)
{
    if (!inKeepsSymbolHash && mPlatformSession != nullptr)
        mInfo->SymbolSettingsHash = mPlatformSession->GetSymbolSettingsHash(*this);
    CompleteThreads();
    if (!mDispatcher->FinishProcessing(ioErrors, inIsCanceled))
        return false;
    mDispatcher.reset();
    mCallstackTrie.FinishCallstacks();
    if (System::gIsCanceled(inIsCanceled))
        return true;
    for (Model* model : mModelsOfPass)
    {
        std::erase(mUnbuiltModels, model);
        std::erase(mModelsToReprocess, model);
    }
    mModelsToSave.insert(mModelsToSave.end(), mModelsOfPass.begin(), mModelsOfPass.end());
    if (mFillsSharedModel)
        mIsSharedModelSound = mUnbuiltModels.empty();
    return SaveSession(ioErrors);
}

void Session::CompleteThreads()
{
    for (Thread& thread : mThreadList)
    {
        if (thread.EndTimeMs == 0.0)
            thread.EndTimeMs = mInfo->SessionEndTimeMs;
        if (thread.ThreadName.empty())
            thread.ThreadName = "Unnamed";
    }
}

void Session::StopProcessing()
{
    StopProcessing(mModels);
}

void Session::StopProcessing(const std::vector<Model*>& inModels)
{
    for (Model* model : inModels)
        model->StopProcessing();
}

} // namespace Profiler
