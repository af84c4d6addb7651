// Opening stored sessions: what comes back, what has to be rebuilt, and why a session can't be opened.
#include "Serialization/BinaryWriter.h"
#include "Serialization/JSON.h"
#include "Session/SharedModel.h"
#include "Tests/Session/StoredSession.h"
#include "Tests/Support/TestRegistry.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>

namespace
{

using namespace Profiler;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr Serialization::SerializableGUID sOtherPlatform = {1, 2};

// All that a session file holds.
std::string gPrint(const Session& inSession)
{
    const std::array<const RTTI::Object*, 2> objects{&inSession.GetSessionInfo(), &inSession};
    std::string text;
    Utility::ErrorState errors;
    EXPECT_TRUE(Serialization::gWriteObjectsToJSON(objects, text, errors)) << Utility::GetErrorText(errors);
    return text;
}

class SessionLoadTest : public StoredSessionTest
{
protected:
    // A pass over a few events, with all files that a session can have.
    void Store(const std::string& inTrace = "1 sample A main\n2 begin A main;work Job ctx\n3 fiber-out A 7\n4 sample B main;work")
    {
        StoreEvents(inTrace);
        if (GetSession().GetPlatformSession() != nullptr)
            mFixture.GetPlatform().IsComplete = [](std::span<const uint64_t> inStack) { return inStack.size() > 1; };
        BuildBrokenStackIndex();
        ASSERT_EQ(RunPass(), "") << Utility::GetErrorText(mErrors);
        TakeCalls();
    }

    void LetModelsLoad() { mFirst.IsLoadable = mSecond.IsLoadable = true; }

    // "code: message" of the last error of a load that must fail.
    std::string LoadError()
    {
        EXPECT_EQ(Load(), nullptr);
        if (mLoadErrors.GetEntries().empty())
            return "";
        const Utility::ErrorEntry& error = mLoadErrors.GetEntries().back();
        return std::to_string(error.Code) + ": " + error.Message;
    }

    void WriteSessionFile(const std::vector<const RTTI::Object*>& inObjects)
    {
        ASSERT_TRUE(Serialization::gWriteObjectsToFile(GetPath(), inObjects, mErrors)) << Utility::GetErrorText(mErrors);
    }
};

// --- What comes back ---

TEST_F(SessionLoadTest, ALoadedSessionIsTheStoredOne)
{
    LetModelsLoad();
    auto details = std::make_unique<OptionalProcessInfo>();
    details->CommandLine = "server --fast";
    details->CPUUsageSamples = {{1.5, 20}, {2.5, 30}};
    GetSession().AddNonCapturedProcess(77, "server", "/bin/server", false, std::move(details), 1.0, 2.0);
    mFixture.AddProcess("tool");
    mFixture.AddThread("T", 1, 0.5);
    mFixture.LoadModule(
        mFixture.AddModule("/lib/found.so", 0x800, {{0x10, 0, "found"}, {0x20, 0, "other"}}, FakeModule::ESymbols::OnDemand),
        0x40000, 0, 0.0, 9.0);
    SessionInfo& info = GetSession().GetSessionInfo();
    info.SampleIntervalMs = 0.25;
    info.SessionStartTimeMs = -3.0;
    info.SessionEndTimeMs = 50.0;
    mFixture.GetPlatform().SymbolSettingsHash = 123;
    Store("1 sample A main;found\n2 begin A main;work Job ctx\n3 name A Renderer\n4 start T 0\n5 sample T main;work;other");

    const std::unique_ptr<Session> session = LoadWhole();
    EXPECT_EQ(mFlags, NothingToReprocess);
    EXPECT_THAT(mLoadErrors.GetEntries(), IsEmpty());
    EXPECT_EQ(gPrint(*session), gPrint(GetSession()));
    EXPECT_TRUE(session->GetEventStream().IncludesInstrumentation());
    EXPECT_EQ(session->GetEventStream().GetNumEvents(), 5U);
    EXPECT_EQ(session->GetPath(), GetPath());

    const ModuleDatabase::FoundFunction found =
        session->GetModuleDatabase().FindFunctions([](const std::string& inName) { return inName == "found"; }).at(0);
    EXPECT_EQ(
        session->GetModuleDatabase().GetResolvedFunction(found.Address.RelativeAddress, found.Address.ResolveIndex).FunctionName,
        "found");
    EXPECT_THAT(TakeCalls(), ElementsAre("first: load", "second: load"));
}

TEST_F(SessionLoadTest, StacksComeFromTheStoreThatTheSessionHas)
{
    GetSession().GetCallstackDatabase().StacksByID[5] = std::make_unique<Callstack>(Callstack{1, 2});
    Store();
    std::unique_ptr<Session> session = LoadWhole();
    for (CallstackKey key = 0; key < 3; ++key)
        EXPECT_EQ(*session->GetCallstack(key), *GetSession().GetCallstack(key));
    EXPECT_EQ(session->GetCallstack(5), nullptr);

    Remove("CallstackDatabase.dat");
    session = LoadWhole();
    EXPECT_THAT(*session->GetCallstack(5), ElementsAre(1, 2));
    EXPECT_EQ(session->GetCallstack(2), nullptr);
}

TEST_F(SessionLoadTest, AFileWithoutInfoIsThatOfAnOldCapture)
{
    Store();
    WriteSessionFile({&GetSession()});
    const std::unique_ptr<Session> session = LoadWhole();
    const SessionInfo& info = session->GetSessionInfo();
    EXPECT_EQ(std::bit_cast<uint64_t>(info.SampleIntervalMs), 0x3F20010010010010U);
    EXPECT_EQ(info.PerformanceAPIVersion, 0x10000U);
    EXPECT_EQ(info.PlatformID, (Serialization::SerializableGUID{0x48AE61F6275DE9B8, 0x78E3FA03648465AD}));
    EXPECT_FALSE(session->GetEventStream().IncludesInstrumentation());
    EXPECT_TRUE(Reprocess(*session));
    EXPECT_THAT(TakeCalls(), testing::Not(testing::Contains("first: event 0 at 2"))) << "the zone is passed over";
}

TEST_F(SessionLoadTest, ThreadsOfNoProcessGoToTheFirst)
{
    GetSession().GetThread(1)->ProcessID = -1;
    Store();
    const std::unique_ptr<Session> session = LoadWhole();
    EXPECT_EQ(session->GetThread(1)->ProcessID, gMakeCapturedProcessID(0));
}

TEST_F(SessionLoadTest, ThePlatformIsToldOnceTheModulesAreThere)
{
    Store();
    std::unique_ptr<Session> session = LoadWhole();
    EXPECT_THAT(static_cast<FakePlatformSession*>(session->GetPlatformSession())->Calls, ElementsAre("attach", "modules 1"));

    // A session of which the platform kept nothing gets a new one.
    GetSession().SetPlatformSession(nullptr);
    ASSERT_TRUE(GetSession().SaveSession(mErrors));
    mPlatform.SymbolSettingsHash = 55;
    session = LoadWhole();
    EXPECT_THAT(static_cast<FakePlatformSession*>(session->GetPlatformSession())->Calls, ElementsAre("attach", "modules 1"));
    EXPECT_EQ(session->GetSessionInfo().SymbolSettingsHash, 55U) << "it was unknown";

    GetSession().GetSessionInfo().SymbolSettingsHash = 11;
    ASSERT_TRUE(GetSession().SaveSession(mErrors));
    session = LoadWhole();
    EXPECT_EQ(session->GetSessionInfo().SymbolSettingsHash, 11U);
}

TEST_F(SessionLoadTest, APlatformMayKeepNothingOfASession)
{
    struct PlatformPluginWithoutSessions : PlatformPlugin
    {
        void CreatePlatformSession(std::unique_ptr<PlatformSession>&) override {}
    } plugin;
    GetSession().SetPlatformSession(nullptr);
    Store();
    mFixture.GetFrontEnd().Platform = &plugin;
    EXPECT_TRUE(Reprocess(*LoadWhole()));
}

// --- What has to be rebuilt ---

TEST_F(SessionLoadTest, AnEventStreamOfTheOldLayoutAsksForAnUpgrade)
{
    LetModelsLoad();
    Store();
    Remove("events.index");
    TraceEventStream plain(At("game"), TraceEventStream::sPlainVersion);
    ASSERT_TRUE(plain.FlushStream(mErrors));
    ASSERT_NE(Load(), nullptr) << Utility::GetErrorText(mLoadErrors);
    EXPECT_EQ(mFlags, UpgradeEventStream);
}

TEST_F(SessionLoadTest, StoredModelsAreNotTrustedWithoutTheirSharedModel)
{
    LetModelsLoad();
    Store();
    Remove("Shared");
    const std::unique_ptr<Session> session = LoadWhole();
    EXPECT_EQ(session->GetModelsToReprocess(), session->GetModels());
    EXPECT_THAT(TakeCalls(), ElementsAre("first: make", "second: make"));
    ASSERT_EQ(mLoadErrors.GetEntries().size(), 1U);
    EXPECT_EQ(mLoadErrors.GetEntries()[0].Context, At("game/Shared/Model.dat"));
    EXPECT_EQ(mLoadErrors.GetEntries()[0].Message, "Unable to open file");
}

TEST_F(SessionLoadTest, ModelsThatCanNotBeLoadedAreMadeAnew)
{
    Store();
    LoadWhole();
    EXPECT_EQ(mFlags, ReprocessAllModels);
    EXPECT_THAT(TakeCalls(), ElementsAre("first: load", "first: make", "second: load", "second: make"));

    mFirst.IsLoadable = true;
    const std::unique_ptr<Session> session = LoadWhole();
    EXPECT_EQ(mFlags, ReprocessSomeModels);
    EXPECT_THAT(TakeCalls(), ElementsAre("first: load", "second: load", "second: make"));
    ASSERT_EQ(session->GetModels().size(), 2U);
    EXPECT_THAT(session->GetModelsToReprocess(), ElementsAre(session->GetModels()[1]));
    EXPECT_EQ(session->GetSharedModel()->GetFiberState().GetNumStates(), 0U);
}

// --- Why it can't be opened ---

TEST_F(SessionLoadTest, WhatIsNoSessionFileIsRefused)
{
    Store();
    WriteSessionFile({&GetSession().GetSessionInfo()});
    EXPECT_EQ(LoadError(), "0: The file does not appear to be a session file (missing Session object)");
    EXPECT_EQ(mLoadErrors.GetEntries().back().Context, GetPath());

    Write("game.session", "no container at all");
    EXPECT_EQ(LoadError(), "3: The file is not a Brenvaldoris file, or it is corrupted");
    Remove("game.session");
    EXPECT_EQ(LoadError(), "1: The file " + GetPath() + " does not exist");
    EXPECT_EQ(mLoadErrors.GetEntries().back().Context, GetPath());
}

TEST_F(SessionLoadTest, InfoThatCanNotBeReadIsToldWithItsReason)
{
    constexpr double mark = 1234.56789;
    GetSession().GetSessionInfo().SessionEndTimeMs = mark;
    Store();
    std::string file = Read("game.session");
    const size_t place = file.find(std::string(reinterpret_cast<const char*>(&mark), sizeof(mark)));
    ASSERT_NE(place, std::string::npos);
    file[place] = static_cast<char>(file[place] ^ 1);
    Write("game.session", file);
    EXPECT_EQ(LoadError(), "6: The file does not appear to be a session file (missing SessionHeader object)");
    EXPECT_EQ(mLoadErrors.GetEntries().size(), 2U);
    EXPECT_EQ(Session::LoadSessionInfo(GetPath(), mRegistry), nullptr);
}

TEST_F(SessionLoadTest, AMissingPlatformIsTold)
{
    GetSession().GetSessionInfo().PlatformID = sOtherPlatform;
    Store();
    EXPECT_EQ(LoadError(),
              "0: This session was created for a platform for which the plugin can no longer be found. Please ensure "
              "the platform plugin is installed before opening the file.");
    mFixture.GetFrontEnd().PlatformID = sOtherPlatform;
    EXPECT_NE(Load(), nullptr);
}

TEST_F(SessionLoadTest, CompanionsThatCanNotBeReadAreTold)
{
    Store();
    const std::string stacks = Read("CallstackDatabase.dat");
    Write("CallstackDatabase.dat", stacks.substr(0, 30));
    EXPECT_EQ(LoadError(), "6: Checksum mismatch");
    EXPECT_EQ(mLoadErrors.GetEntries()[0].Context, At("game/CallstackDatabase.dat"));
    Write("CallstackDatabase.dat", stacks);

    Write("events.index", Read("stacks.index"));
    EXPECT_EQ(LoadError(), "6: The file does not appear to be a TraceEventStream file (missing TraceEventStream object)");
    Remove("events.dat");
    EXPECT_EQ(LoadError(), "1: Unable to open events data file " + At("game/events.dat") + ", the file does not exist");
}

TEST_F(SessionLoadTest, AClassThatNobodyKnowsIsRefused)
{
    Store();
    const auto registry =
        gMakeRegistry<Session, SessionInfo, TraceEventStream, BrokenStackIndex, SharedModel, FakePlatformSession>();
    Serialization::ReaderErrorState errors;
    EXPECT_FALSE(Session::sLoad(GetPath(), *registry, mFixture.GetScheduler(), mFixture.GetPluginManager(),
                                mFixture.GetFrontEnd(), errors));
    EXPECT_THAT(Utility::GetErrorText(errors), HasSubstr("FakeModule"));
    EXPECT_TRUE(Session::sLoad(GetPath(), gGetSessionRegistry(), mFixture.GetScheduler(), mFixture.GetPluginManager(),
                               mFixture.GetFrontEnd(), mLoadErrors));
}

// --- Plugins ---

struct FakeSessionTypes : ISessionTypes
{
    FakeSessionTypes(std::string inName, CallList& ioCalls) : Name(std::move(inName)), Calls(ioCalls) {}

    void AddSessionTypes(Serialization::TypeCreators& ioCreators, Serialization::CompatibilityHandlers&) override
    {
        Calls.push_back(Name);
        const auto create = []
        {
            auto* platform = new FakePlatformSession;
            platform->SymbolSettingsHash = 42;
            return RTTI::OwnedValue(RTTI::gTypeOf<FakePlatformSession>(), platform);
        };
        ioCreators.AddTypeCreator(RTTI::gTypeOf<FakePlatformSession>(), create);
    }

    std::string Name;
    CallList& Calls;
};

TEST_F(SessionLoadTest, PluginsSayHowTheirClassesAreMade)
{
    Store();
    CallList calls;
    FakeSessionTypes one("one", calls);
    FakeSessionTypes two("two", calls);
    FakeSessionTypes three("three", calls);
    mFixture.GetFrontEnd().AddSessionTypes(three);
    mFixture.GetPluginManager().SessionTypePlugins = {&two, &one};
    EXPECT_EQ(LoadWhole()->GetSessionInfo().SymbolSettingsHash, 42U);
    EXPECT_THAT(calls, ElementsAre("two", "one", "three"));
}

TEST_F(SessionLoadTest, TheInfoIsFoundByTheCaptureToo)
{
    Store();
    WriteFile("game.trace", "");
    for (const std::string& path : {GetPath(), At("game.trace"), At("game.other")})
    {
        const std::unique_ptr<SessionInfo> info = Session::LoadSessionInfo(path, mRegistry);
        ASSERT_NE(info, nullptr) << path;
        EXPECT_EQ(info->SampleIntervalMs, 1.0);
    }
    EXPECT_EQ(Session::LoadSessionInfo(At("none.trace"), mRegistry), nullptr);
    WriteSessionFile({&GetSession()});
    Write("game.session", "");
    EXPECT_EQ(Session::LoadSessionInfo(GetPath(), mRegistry), nullptr);
}

TEST_F(SessionLoadTest, ThePlatformOfAFileFollowsFromItsNameOrItsSession)
{
    FakePlatformPlugin other;
    FakePluginManagerFrontEnd& frontEnd = mFixture.GetFrontEnd();
    const auto find = [&](const std::string& inName) { return Session::FindPlatformPlugin(frontEnd, At(inName), mRegistry); };
    frontEnd.AddPlatformForExtension("trace", other);
    EXPECT_EQ(find("none.TRACE"), &other) << "no file is needed";
    frontEnd.AddPlatformForExtension("trace", mPlatform);
    EXPECT_EQ(find("none.trace"), nullptr);

    Store();
    EXPECT_EQ(find("game.trace"), &mPlatform) << "two plugins share the extension";
    EXPECT_EQ(find("game/game.session"), &mPlatform);
    frontEnd.PlatformID = sOtherPlatform;
    EXPECT_EQ(find("game.trace"), nullptr);
}

// --- Damage ---

class SessionDamageTest : public SessionLoadTest
{
protected:
    SessionDamageTest()
    {
        LetModelsLoad();
        Store();
        mStored = gPrint(GetSession());
        mFiles = ReadFiles();
        EXPECT_EQ(mFiles.size(), 7U);
        CheckLoad();
        EXPECT_EQ(mFlags, NothingToReprocess);
    }

    // Loads after some damage. Whatever it was: the session is what it was, or something says that it isn't.
    void CheckLoad()
    {
        const Files before = ReadFiles();
        const std::unique_ptr<Session> session = Load();
        EXPECT_EQ(ReadFiles(), before) << "a load changes no file";
        EXPECT_TRUE(session != nullptr || !mLoadErrors.GetEntries().empty());
        if (session == nullptr)
            return;
        EXPECT_EQ(gPrint(*session), mStored);
        for (CallstackKey key = 0; key < GetSession().GetCallstackTrie().GetNodeCount(); ++key)
            EXPECT_TRUE(session->GetCallstack(key) != nullptr && *session->GetCallstack(key) == *GetSession().GetCallstack(key));
        EXPECT_EQ(mFlags == NothingToReprocess, session->GetModelsToReprocess().empty());
        if (mFlags != NothingToReprocess)
            return;
        EXPECT_EQ(session->GetSharedModel()->GetFiberState().GetNumStates(), 1U);
        EXPECT_EQ(session->GetBrokenStacks().GetIndex()->ChunksByThread.size(), 1U);
    }
    void CheckLoadWith(const std::string& inName, const std::string& inContent)
    {
        const auto place = std::ranges::mismatch(inContent, mFiles[inName]).in1 - inContent.begin();
        SCOPED_TRACE(testing::Message() << inName << " of " << inContent.size() << " bytes, damaged at " << place);
        Write(inName, inContent);
        CheckLoad();
    }

    std::string mStored;
    Files mFiles;
};

TEST_F(SessionDamageTest, EachMissingFileIsTold)
{
    // The flags, -1 if the session can't be opened.
    const std::map<std::string, int> outcomes = {{"game.session", -1},  {"events.dat", -1},      {"events.index", -1},
                                                 {"stacks.dat", 2 | 4}, {"stacks.index", 2 | 4}, {"Shared/Model.dat", 4}};
    for (const auto& [name, outcome] : outcomes)
    {
        SCOPED_TRACE(name);
        Remove(name);
        CheckLoad();
        EXPECT_EQ(Load() == nullptr ? -1 : static_cast<int>(mFlags), outcome);
        Write(name, mFiles[name]);
    }
}

TEST_F(SessionDamageTest, FilesOfAnyLengthAndBytesOfAnyValueAreHarmless)
{
    constexpr size_t numLengths = 24;
    constexpr size_t numPlaces = 64;
    for (const auto& [name, content] : mFiles)
    {
        for (size_t i = 0; i < numLengths; ++i)
            CheckLoadWith(name, content.substr(0, content.size() * i / numLengths));
        const size_t step = std::max<size_t>(content.size() / numPlaces, 1);
        for (size_t place = 0; place < content.size(); place += step)
        {
            std::string damaged = content;
            damaged[place] = static_cast<char>(damaged[place] ^ (1 << place % 8));
            CheckLoadWith(name, damaged);
        }
        Write(name, content);
    }
}

} // namespace
