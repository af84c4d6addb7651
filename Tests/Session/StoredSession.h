// A session in a folder of its own that runs whole passes over stored events and is loaded again.
//
// Two plugins make the models "first" and "second", which write down what they are told. The functions of the world: main and
// work, in one module of process 0, which has the threads A and B.
#pragma once

#include "Tests/FileSystem/TemporaryDirectory.h"
#include "Tests/Support/SessionFixture.h"
#include "Tests/Support/SessionRegistry.h"

#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

class StoredSessionTest : public TemporaryDirectoryTest
{
protected:
    // The content of files by their path below the session's folder.
    using Files = std::map<std::string, std::string>;

    StoredSessionTest()
    {
        MakeDirectory("game");
        GetSession().SetPerformanceAPIVersion(Profiler::Session::CurrentPerformanceAPIVersion);
        mFixture.GetPluginManager().ModelPlugins = {&mFirst, &mSecond};
        mFixture.GetFrontEnd().Platform = &mPlatform;
        mFixture.LoadModule(mFixture.AddModule("/bin/game", 0x1000, {{0x100, 0x80, "main"}, {0x200, 0x80, "work"}}), 0x10000);
        mFixture.AddThread("A");
        mFixture.AddThread("B");
    }

    [[nodiscard]] Profiler::Session& GetSession() { return mFixture.GetSession(); }
    [[nodiscard]] std::string GetPath() const { return At("game/game.session"); }

    void StoreEvent(const Profiler::TraceEvent& inEvent)
    {
        EXPECT_TRUE(GetSession().GetEventStream().AddEvent(inEvent, mErrors)) << Utility::GetErrorText(mErrors);
    }
    void StoreEvents(const std::string& inTrace)
    {
        for (const Profiler::TraceEvent& event : mFixture.BuildTrace(inTrace))
            StoreEvent(event);
        EXPECT_TRUE(GetSession().GetEventStream().FlushStream(mErrors)) << Utility::GetErrorText(mErrors);
    }

    void BuildBrokenStackIndex()
    {
        EXPECT_TRUE(GetSession().BuildBrokenStackIndex(mRegistry, mErrors, mIsCanceled, {})) << Utility::GetErrorText(mErrors);
    }

    // The pass of a new capture. Gives the step that failed, or nothing.
    std::string RunPass()
    {
        Profiler::Session& session = GetSession();
        if (!session.CreateModels(mErrors))
            return "create";
        if (!session.BeginProcessing(mErrors))
            return "begin";
        if (!session.ProcessEvents(mErrors, mIsCanceled, mProgress))
            return "process";
        return session.FinishPass(false, mErrors, mIsCanceled) ? "" : "finish";
    }

    // Null if it can't be opened; mFlags and mLoadErrors tell of this call alone.
    std::unique_ptr<Profiler::Session> Load()
    {
        std::unique_ptr<Profiler::Session> session;
        Profiler::PlatformPlugin* platform = nullptr;
        mLoadErrors = Serialization::ReaderErrorState();
        const bool isLoaded = Profiler::Session::sLoad(GetPath(), mRegistry, mFixture.GetScheduler(), mFixture.GetPluginManager(),
                                                       mFixture.GetFrontEnd(), session, mFlags, platform, mLoadErrors);
        EXPECT_EQ(isLoaded, session != nullptr);
        EXPECT_TRUE(!isLoaded || platform == mFixture.GetFrontEnd().Platform);
        return session;
    }

    // Ends the test if the session can't be loaded.
    std::unique_ptr<Profiler::Session> LoadWhole()
    {
        std::unique_ptr<Profiler::Session> session = Load();
        if (session == nullptr)
            throw std::runtime_error(Utility::GetErrorText(mLoadErrors));
        return session;
    }

    bool Reprocess(Profiler::Session& ioSession, bool inKeepsSymbolHash = false)
    {
        return ioSession.Reprocess(inKeepsSymbolHash, mErrors, mIsCanceled, mProgress);
    }

    CallList TakeCalls() { return std::exchange(mCalls, {}); }

    [[nodiscard]] std::string Read(const std::string& inName) const
    {
        std::ifstream file(At("game/" + inName), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    [[nodiscard]] Files ReadFiles() const
    {
        Files files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(At("game")))
        {
            const std::string name = entry.path().string().substr(At("game/").size());
            if (entry.is_regular_file())
                files[name] = Read(name);
        }
        return files;
    }
    void Write(const std::string& inName, const std::string& inContent) const { WriteFile("game/" + inName, inContent); }
    void Remove(const std::string& inName) const { std::filesystem::remove_all(At("game/" + inName)); }
    [[nodiscard]] bool Exists(const std::string& inName) const { return std::filesystem::exists(At("game/" + inName)); }

    const RTTI::Registry& mRegistry = gGetSessionRegistry();
    CallList mCalls;
    FakeModelPlugin mFirst{"first", mCalls, {{1}}};
    FakeModelPlugin mSecond{"second", mCalls, {{2}}};
    FakePlatformPlugin mPlatform;
    SessionFixture mFixture{At("game/game.session")};
    Utility::ErrorState mErrors;
    Serialization::ReaderErrorState mLoadErrors;
    uint32_t mFlags = 0;
    bool mIsCanceled = false;
    Utility::ProgressFunction mProgress;
};
