// A session in a folder of its own whose timeline is built by whole passes over stored events, and loaded again.
//
// Threads: the test's, and the workers of the session's scheduler. Ownership: sessions that were loaded must go before the
// fixture.
#pragma once

#include "Session/Callstacks/BrokenStackIndex.h"
#include "Session/Events/TraceEventStream.h"
#include "Session/SharedModel.h"
#include "Tests/FileSystem/TemporaryDirectory.h"
#include "Tests/Support/SessionFixture.h"
#include "Tests/Support/TestRegistry.h"
#include "ThreadsModel/ThreadsModel.h"
#include "Utility/Log.h"

#include <memory>
#include <string>
#include <vector>

class TimelinePlugin : public Profiler::ModelPlugin
{
public:
    explicit TimelinePlugin(RTTI::Registry& inRegistry) : ModelPlugin("", "", nullptr, &inRegistry, {{9}}) {}

    [[nodiscard]] std::unique_ptr<Profiler::Model> CreateModel(Profiler::Session& inSession) override
    {
        return std::make_unique<Profiler::ThreadsModel>(*this, inSession);
    }
    // Null where there is none; LoadErrors tell why.
    [[nodiscard]] std::unique_ptr<Profiler::Model> LoadModel(Profiler::Session& inSession) override
    {
        std::unique_ptr<Profiler::Model> model;
        LoadErrors = Serialization::ReaderErrorState();
        return Profiler::ThreadsModel::sLoad(*this, inSession, model, LoadErrors) ? std::move(model) : nullptr;
    }
    [[nodiscard]] std::unique_ptr<Profiler::ILLMModel> CreateLLMModel(std::string&) override { return nullptr; }
    void RegisterLLMTools(Profiler::IToolRegistry&) override {}

    Serialization::ReaderErrorState LoadErrors;
};

// One for the whole program, to be asked for at the start of each test.
inline RTTI::Registry& gGetTimelineRegistry()
{
    using namespace Profiler;
    static const std::unique_ptr<RTTI::Registry> sRegistry =
        gMakeRegistry<Session, SessionInfo, TraceEventStream, BrokenStackIndex, SharedModel, FakeModule, FakePlatformSession,
                      ThreadsModel, ThreadData, DetailLOD, DetailLODThread, ChunkTable, ChunkDescription, ChunkLayout>();
    sRegistry->Finalize();
    return *sRegistry;
}

// The world begins with the captured process "game", without threads and modules.
class TimelineTest : public TemporaryDirectoryTest
{
protected:
    explicit TimelineTest(uint32_t inNumWorkers = 0) : mWorld(At("game/game.session"), inNumWorkers)
    {
        MakeDirectory("game");
        GetSession().SetPerformanceAPIVersion(Profiler::Session::CurrentPerformanceAPIVersion);
        mWorld.GetPluginManager().ModelPlugins = {&mPlugin};
        mWorld.GetFrontEnd().Platform = &mPlatform;
    }

    [[nodiscard]] Profiler::Session& GetSession() { return mWorld.GetSession(); }

    // The timeline of the fixture's own session, once RunPass has made it.
    [[nodiscard]] Profiler::ThreadsModel& GetModel()
    {
        return static_cast<Profiler::ThreadsModel&>(*GetSession().GetModels().front());
    }

    // Stores the events and runs the pass of a new capture over them, saving at its end. Gives the step that failed, or nothing.
    std::string RunPass(const std::vector<Profiler::TraceEvent>& inEvents)
    {
        Profiler::Session& session = GetSession();
        for (const Profiler::TraceEvent& event : inEvents)
        {
            if (!session.GetEventStream().AddEvent(event, mErrors))
                return "store";
        }
        if (!session.GetEventStream().FlushStream(mErrors))
            return "store";
        if (!session.BuildBrokenStackIndex(mRegistry, mErrors, mIsCanceled, {}))
            return "find broken stacks";
        if (!session.CreateModels(mErrors))
            return "create";
        if (!session.BeginProcessing(mErrors))
            return "begin";
        if (!session.ProcessEvents(mErrors, mIsCanceled, mProgress))
            return "process";
        return session.FinishPass(false, mErrors, mIsCanceled) ? "" : "finish";
    }
    // A trace as SessionFixture::BuildTrace reads it.
    std::string RunPass(const std::string& inTrace) { return RunPass(mWorld.BuildTrace(inTrace)); }

    // The stored session; null if it can't be opened. mFlags say what is to be rebuilt.
    std::unique_ptr<Profiler::Session> Load()
    {
        std::unique_ptr<Profiler::Session> session;
        Profiler::PlatformPlugin* platform = nullptr;
        Serialization::ReaderErrorState errors;
        EXPECT_TRUE(Profiler::Session::sLoad(At("game/game.session"), mRegistry, mWorld.GetScheduler(), mWorld.GetPluginManager(),
                                             mWorld.GetFrontEnd(), session, mFlags, platform, errors))
            << Utility::GetErrorText(errors);
        return session;
    }

    RTTI::Registry& mRegistry = gGetTimelineRegistry();
    TimelinePlugin mPlugin{mRegistry};
    FakePlatformPlugin mPlatform;
    SessionFixture mWorld;
    Utility::ErrorState mErrors;
    uint32_t mFlags = 0;
    bool mIsCanceled = false;
    Utility::ProgressFunction mProgress;
};
