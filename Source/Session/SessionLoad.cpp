// Opening a stored session.
#include "FileSystem/File.h"
#include "FileSystem/Path.h"
#include "Serialization/BinaryFileReader.h"
#include "Session/Host/PluginManagers.h"
#include "Session/Modules/ModuleCompatibility.h"
#include "Session/Pass/Model.h"
#include "Session/Pass/ModelPlugin.h"
#include "Session/Session.h"
#include "Session/SessionPaths.h"
#include "Session/SharedModel.h"
#include "Utility/Log.h"

namespace Profiler
{
namespace
{

using Serialization::EReaderError;

ModuleUpgradeTarget gFindModules(RTTI::Object& inRoot)
{
    if (!RTTI::gIsDerivedFrom(inRoot.GetType(), RTTI::gTypeOf<Session>()))
        return {};
    auto& session = static_cast<Session&>(inRoot);
    ModuleUpgradeTarget target{&session.GetModuleDatabase(), {}};
    if (!session.GetProcessList().empty())
        target.FirstProcessID = session.GetProcessList().front().ID;
    return target;
}

// Those of the platform's own module classes come from the platform.
void gAddCompatibilityHandlers(Serialization::CompatibilityHandlers& ioHandlers)
{
    ioHandlers.AddCompatibilityHandler(RTTI::gTypeOf<ModuleDatabase>(), std::make_unique<ModuleDatabaseCompatibilityHandler>());
    ioHandlers.AddCompatibilityHandler(RTTI::gTypeOf<Function>(), std::make_unique<FunctionCompatibilityHandler>(gFindModules));
}

// The info of a file that was opened, or the defaults if it holds none. Null, with a reason, if it can't be read.
std::unique_ptr<SessionInfo> gReadSessionInfo(Serialization::BinaryFileReader& ioReader,
                                              Serialization::ReaderErrorState& ioErrors)
{
    const RTTI::Type& type = RTTI::gTypeOf<SessionInfo>();
    if (!ioReader.ContainsObject(type))
        return std::make_unique<SessionInfo>();
    std::unique_ptr<RTTI::Object> info = ioReader.ReadObject(type, ioErrors);
    if (!Serialization::Check(ioErrors, info != nullptr, EReaderError::Corrupt,
                              "The file does not appear to be a session file (missing SessionHeader object)"))
        return nullptr;
    return std::unique_ptr<SessionInfo>(static_cast<SessionInfo*>(info.release()));
}

std::unique_ptr<Session> gTakeSession(std::vector<std::unique_ptr<RTTI::Object>>& ioObjects)
{
    for (std::unique_ptr<RTTI::Object>& object : ioObjects)
    {
        if (RTTI::gIsDerivedFrom(object->GetType(), RTTI::gTypeOf<Session>()))
            return std::unique_ptr<Session>(static_cast<Session*>(object.release()));
    }
    return nullptr;
}

} // namespace

bool Session::sLoad(const std::string& inPath, const RTTI::Registry& inRegistry, System::JobScheduler& inScheduler,
                    PluginManagerCommon& inPluginManager, PluginManagerFrontEnd& inFrontEnd, std::unique_ptr<Session>& outSession,
                    uint32_t& outFlags, PlatformPlugin*& outPlatform, Serialization::ReaderErrorState& ioErrors)
{
    const Utility::ErrorContextScope context(&ioErrors, inPath);
    Serialization::TypeCreators creators;
    Serialization::CompatibilityHandlers handlers;
    gAddCompatibilityHandlers(handlers);

    Serialization::BinaryFileReader reader(inRegistry, creators, handlers, Serialization::ReadObjectMode::Strict);
    if (!reader.Open(inPath, ioErrors))
        return false;
    const std::unique_ptr<SessionInfo> info = gReadSessionInfo(reader, ioErrors);
    if (info == nullptr)
        return false;
    outPlatform = inFrontEnd.GetPlatformPlugin(info->PlatformID);
    if (!Serialization::Check(
            ioErrors, outPlatform != nullptr, EReaderError::Unspecified,
            "This session was created for a platform for which the plugin can no longer be found. Please ensure "
            "the platform plugin is installed before opening the file."))
        return false;

    creators.AddTypeCreator(RTTI::gTypeOf<Session>(),
                            [&]
                            {
                                auto* session = new Session(std::make_unique<SessionInfo>(*info), inPath, inScheduler,
                                                            inPluginManager, inFrontEnd);
                                return RTTI::OwnedValue(RTTI::gTypeOf<Session>(), session);
                            });
    for (ISessionTypes* plugin : inPluginManager.SessionTypePlugins)
        plugin->AddSessionTypes(creators, handlers);
    for (ISessionTypes* plugin : inFrontEnd.GetSessionPlugins())
        plugin->AddSessionTypes(creators, handlers);

    std::vector<std::unique_ptr<RTTI::Object>> objects;
    if (!reader.ReadObjects(objects, ioErrors))
        return false;
    std::unique_ptr<Session> session = gTakeSession(objects);
    if (!Serialization::Check(ioErrors, session != nullptr, EReaderError::Unspecified,
                              "The file does not appear to be a session file (missing Session object)"))
        return false;
    if (!session->FinishLoad(inRegistry, *outPlatform, outFlags, ioErrors))
        return false;
    outSession = std::move(session);
    return true;
}

bool Session::sLoad(const std::string& inPath, const RTTI::Registry& inRegistry, System::JobScheduler& inScheduler,
                    PluginManagerCommon& inPluginManager, PluginManagerFrontEnd& inFrontEnd,
                    Serialization::ReaderErrorState& ioErrors)
{
    std::unique_ptr<Session> session;
    uint32_t flags = NothingToReprocess;
    PlatformPlugin* platform = nullptr;
    return sLoad(inPath, inRegistry, inScheduler, inPluginManager, inFrontEnd, session, flags, platform, ioErrors);
}

bool Session::FinishLoad(const RTTI::Registry& inRegistry, PlatformPlugin& inPlatform, uint32_t& outFlags,
                         Serialization::ReaderErrorState& ioErrors)
{
    outFlags = NothingToReprocess;
    const std::string triePath = gGetCallstackTriePath(GetDirectory());
    if (FileSystem::gExists(triePath) && !mCallstackTrie.LoadCallstacks(triePath, ioErrors))
        return false;
    GiveThreadsAProcess();
    std::unique_ptr<TraceEventStream> stream = TraceEventStream::sLoad(GetDirectory(), inRegistry, ioErrors);
    if (stream == nullptr)
        return false;
    mEventStream = std::move(stream);
    SetPerformanceAPIVersion(mInfo->PerformanceAPIVersion);
    if (!mCallstackTrie.IsInitialized() && mCallstackDatabase.StacksByID.empty() && mEventStream->GetNumEvents() != 0)
        Utility::gLog("The session %s has no stacks: neither %s nor any of its own", mPath.c_str(), triePath.c_str());
    mModuleDatabase.OnLoaded(*this);

    if (mPlatformSession == nullptr)
        inPlatform.CreatePlatformSession(mPlatformSession);
    if (mPlatformSession != nullptr)
    {
        mPlatformSession->AttachSession(*this, mScheduler);
        mPlatformSession->OnModuleDataFinished(mModuleDatabase);
    }

    // Stored models are only trusted with the broken ranges and the shared model that they were built with.
    Utility::ErrorState brokenStackErrors;
    const bool hasBrokenStacks = mBrokenStacks.Load(inRegistry, brokenStackErrors);
    if (hasBrokenStacks)
        mSharedModel = LoadSharedModel(inRegistry, ioErrors);
    LoadModels();

    if (mEventStream->NeedsUpgrade())
        outFlags |= UpgradeEventStream;
    if (!hasBrokenStacks)
        outFlags |= RebuildBrokenStacks;
    if (!mModelsToReprocess.empty())
        outFlags |= mModelsToReprocess.size() == mModels.size() ? ReprocessAllModels : ReprocessSomeModels;
    mUnbuiltModels = mModelsToReprocess;
    mIsSharedModelSound = mModelsToReprocess.empty() && mSharedModel != nullptr;
    if (!mIsSharedModelSound)
        mSharedModel = std::make_unique<SharedModel>(*this);
    if (mInfo->SymbolSettingsHash == PlatformSession::sUnknownSymbolSettings && mPlatformSession != nullptr)
        mInfo->SymbolSettingsHash = mPlatformSession->GetSymbolSettingsHash(*this);
    return true;
}

void Session::GiveThreadsAProcess()
{
    for (Thread& thread : mThreadList)
    {
        if (thread.ProcessID == -1 && !mProcessList.empty())
            thread.ProcessID = mProcessList.front().ID;
    }
}

void Session::LoadModels()
{
    for (ModelPlugin* plugin : mPluginManager.ModelPlugins)
    {
        std::unique_ptr<Model> model = mSharedModel != nullptr ? plugin->LoadModel(*this) : nullptr;
        if (model == nullptr)
        {
            model = plugin->CreateModel(*this);
            mModelsToReprocess.push_back(model.get());
        }
        mModels.push_back(model.get());
        mOwnedModels.push_back(std::move(model));
    }
}

std::unique_ptr<SessionInfo> Session::LoadSessionInfo(const std::string& inPath, const RTTI::Registry& inRegistry)
{
    const Serialization::TypeCreators creators;
    const Serialization::CompatibilityHandlers handlers;
    Serialization::BinaryFileReader reader(inRegistry, creators, handlers, Serialization::ReadObjectMode::Strict);
    Serialization::ReaderErrorState errors;
    if (!reader.Open(gGetSessionFilePath(inPath), errors))
        return nullptr;
    return gReadSessionInfo(reader, errors);
}

PlatformPlugin* Session::FindPlatformPlugin(const PluginManagerFrontEnd& inFrontEnd, const std::string& inPath,
                                            const RTTI::Registry& inRegistry)
{
    std::vector<PlatformPlugin*> plugins;
    if (inFrontEnd.FindPluginsForExtension(inPath, plugins) && plugins.size() == 1)
        return plugins.front();
    const std::unique_ptr<SessionInfo> info = LoadSessionInfo(inPath, inRegistry);
    return info != nullptr ? inFrontEnd.GetPlatformPluginForFile(info->PlatformID) : nullptr;
}

} // namespace Profiler
