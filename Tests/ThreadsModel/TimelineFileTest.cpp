// Timelines on disk: what is saved and loaded, and what becomes of passes that fail or are stopped.
#include "RTTI/TypeQueries.h"
#include "Serialization/BinaryWriter.h"
#include "Tests/Serialization/Build.h"
#include "Tests/ThreadsModel/GameTimeline.h"
#include "Tests/Utility/LogCapture.h"

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <thread>

// The timeline of an older build.
class OldTimeline final : public RTTI::Object
{
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<OldTimeline>(); }
};
DECLARE_AS(OldTimeline, "Profiler::ThreadsModel");

RTTI_BEGIN(OldTimeline, 42)
    RTTI_BASE(RTTI::Object)
RTTI_END()

namespace
{

using namespace Profiler;
using Serialization::Build;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* sTrace = "1 begin A main Zone Context, 2 sample A main;work, 300 end A, 400 out A 6, 450 wake B A work\n"
                               "499 sample B main, 700 in A main;work, 701 sample B main;leaf, 702 out A 4, 1400 in A main\n"
                               "1401 sample A main;leaf, 1402 out A 22, 1700 sample B other";

// A property that only its class may see.
template <class Value, class Object>
Value& gGetProperty(Object& inObject, const char* inName)
{
    return *static_cast<Value*>(RTTI::gFindProperty(RTTI::gTypeOf<Object>(), inName)->GetData(&inObject));
}

// Beside the timeline and behind it, an observer takes part in passes, whose OnCall hears what it is told before it returns.
class TimelineFileTest : public GameTimelineTest
{
protected:
    TimelineFileTest() : GameTimelineTest(2)
    {
        GetSession().GetSessionInfo().SessionEndTimeMs = 1800.0;
        mWorld.GetPluginManager().ModelPlugins.push_back(&mObserver);
        mObserver.IsLoadable = true;
    }

    static ThreadsModel& GetModelOf(const Session& inSession)
    {
        return static_cast<ThreadsModel&>(*inSession.GetModels().front());
    }

    void WriteModel(const std::vector<const RTTI::Object*>& inRoots)
    {
        EXPECT_TRUE(Serialization::gWriteObjectsToFile(At("game/Threads/Model.dat"), inRoots, mErrors));
    }

    // "code: message" of a load that fails.
    std::string LoadError()
    {
        const std::unique_ptr<Session> session = Load();
        EXPECT_EQ(mFlags == NothingToReprocess, mPlugin.LoadErrors.GetEntries().empty());
        return Build::GetFirstError(mPlugin.LoadErrors);
    }

    // The first reason of a step that failed.
    [[nodiscard]] std::string GetError() const { return Build::GetFirstError(mErrors).substr(3); }
    [[nodiscard]] bool IsModelStored() const { return std::filesystem::exists(At("game/Threads/Model.dat")); }
    void Rename(const char* inFrom, const char* inTo) const { std::filesystem::rename(At(inFrom), At(inTo)); }

    std::string PrintAll(ThreadsModel& ioModel)
    {
        std::string text = PrintWakeUps(ioModel);
        for (const ThreadID thread : {0, 1})
        {
            const ThreadData& data = *ioModel.FindThreadData(thread);
            text += Utility::gFormat("\n\nthread %d depth %d total %g", thread, data.MaxStackDepth, data.TotalTime);
            for (const double time : data.StateTimes)
                text += " " + gPrintNumber(time);
            text += "\n" + PrintInvocations(ioModel, thread);
            for (int32_t level = 0; level < 9; ++level)
                text += Utility::gFormat("\nlevel %d\n", level) + PrintBars(ioModel, thread, level) + "\n" +
                        PrintStates(ioModel, thread, level);
        }
        return text;
    }

    CallList mCalls;
    FakeModelPlugin mObserver{"observer", mCalls};
};

TEST_F(TimelineFileTest, ALoadedTimelineIsTheOneThatWasBuilt)
{
    ASSERT_EQ(RunPass(sTrace), "") << Utility::GetErrorText(mErrors);
    const std::string built = PrintAll(GetModel());
    EXPECT_THAT(built, HasSubstr("main!Context"));
    std::unique_ptr<Session> loaded = Load();
    ASSERT_EQ(mFlags, NothingToReprocess) << Utility::GetErrorText(mPlugin.LoadErrors);
    const LogCapture log;
    EXPECT_EQ(PrintAll(GetModelOf(*loaded)), built);
    EXPECT_THAT(log.GetMessages(), IsEmpty());

    loaded.reset();
    std::filesystem::remove(At("game/Threads/Find.dat"));
    WriteFile("game/Threads/stray");
    loaded = Load();
    EXPECT_EQ(mFlags, ReprocessSomeModels);
    EXPECT_TRUE(loaded->Reprocess(true, mErrors, mIsCanceled, {})) << Utility::GetErrorText(mErrors);
    EXPECT_EQ(PrintAll(GetModelOf(*loaded)), built) << "rebuilt";
    EXPECT_THAT(List("game/Threads"), ElementsAre("Find.dat", "Model.dat", "ReadyThreads.dat", "Threads.dat"));
}

TEST_F(TimelineFileTest, EveryFileIsNeeded)
{
    ASSERT_EQ(RunPass(sTrace), "") << Utility::GetErrorText(mErrors);
    const std::pair<const char*, const char*> files[] = {{"game/Threads/Model.dat", "1: Unable to open file"},
                                                         {"game/Threads/Find.dat", "1: Unable to open find data file"},
                                                         {"game/Threads/ReadyThreads.dat", "1: Unable to open ready thread file"},
                                                         {"game/Threads/Threads.dat", "1: Unable to open thread data file"}};
    for (const auto& [name, message] : files)
    {
        Rename(name, "kept");
        EXPECT_EQ(LoadError(), message);
        EXPECT_EQ(mPlugin.LoadErrors.GetEntries().front().Context, At("game/Threads/Model.dat"));
        Rename("kept", name);
    }
    EXPECT_EQ(LoadError(), "no error");
}

TEST_F(TimelineFileTest, AModelFileMayHoldOtherObjectsButNeedsTheTimeline)
{
    ASSERT_EQ(RunPass(sTrace), "") << Utility::GetErrorText(mErrors);
    const OldTimeline old;
    const SessionInfo info;
    const std::string missing = "6: The file does not appear to be a ThreadsModel file (missing ThreadsModel object)";
    const std::pair<std::vector<const RTTI::Object*>, std::string> files[] = {
        {{&info}, missing},
        {{&info, &GetModel(), &info}, "no error"},
        {{&old}, "4: Compatibility issue: Version number of object of type Profiler::ThreadsModel has changed from 2A to 2B"}};
    for (const auto& [roots, error] : files)
    {
        // Of a program that knows other classes.
        const auto registry = roots.front() == &old ? gMakeRegistry<OldTimeline>() : gMakeRegistry<SessionInfo, ThreadsModel>();
        WriteModel(roots);
        gGetTimelineRegistry();
        EXPECT_EQ(LoadError(), error);
    }
}

// Each change is its own undoing.
TEST_F(TimelineFileTest, ATimelineThatContradictsItselfIsRefused)
{
    ASSERT_EQ(RunPass(sTrace), "") << Utility::GetErrorText(mErrors);
    auto& levels = gGetProperty<DetailLODList>(GetModel(), "ThreadDetailLODs");
    ChunkTable& table = GetModel().GetDetailLOD(0).GetThread(0)->GetChunkTable();
    auto& chunks = gGetProperty<ChunkTable::DescriptionList>(table, "Chunks");
    std::vector<double> stateTimes(7);
    float length = 0.0F;
    const std::pair<const char*, std::function<void()>> changes[] = {
        {"a state too few", [&] { stateTimes.swap(GetModel().GetOrCreateThreadData(1).StateTimes); }},
        {"a level too many", [&] { levels.resize(levels.size() == 9 ? 10 : 9); }},
        {"levels in another order", [&] { levels[1].swap(levels[2]); }},
        {"chunks without a length", [&] { std::swap(length, gGetProperty<float>(*levels[3], "ChunkLength")); }},
        {"chunks in another order", [&] { std::swap(chunks[0], chunks[1]); }},
    };
    for (const auto& [name, change] : changes)
    {
        change();
        WriteModel({&GetModel()});
        change();
        EXPECT_EQ(LoadError(), "6: The timeline contradicts itself") << name;
    }
    WriteModel({&GetModel()});
    EXPECT_EQ(LoadError(), "no error");
}

TEST_F(TimelineFileTest, SavingGoesOnWhereItFailed)
{
    mObserver.OnCall = [&](const std::string& inCall)
    {
        if (inCall == "finish")
            MakeDirectory("game/Threads/Model.dat");
    };
    EXPECT_EQ(RunPass(sTrace), "finish");
    EXPECT_FALSE(GetSession().SaveSession(mErrors));
    // Now the timeline can be written, but what is found then isn't what was.
    std::filesystem::remove(At("game/Threads/Model.dat"));
    Rename("game/Threads/Find.dat", "kept");
    WriteFile("game/Threads/Find.dat", std::string(100, '?'));
    mErrors = Utility::ErrorState();
    EXPECT_FALSE(GetSession().SaveSession(mErrors));
    EXPECT_EQ(GetError(), "Unable to read find index: file is corrupt");
    Rename("kept", "game/Threads/Find.dat");
    EXPECT_TRUE(GetSession().SaveSession(mErrors));
    EXPECT_EQ(LoadError(), "no error");
    EXPECT_EQ(PrintAll(GetModelOf(*Load())), PrintAll(GetModel()));
}

TEST_F(TimelineFileTest, ACanceledPassSavesNothing)
{
    // The thread B ends with the pass, ahead of the timeline.
    for (const std::string call : {"event 0 at 1401", "finish thread 1"})
    {
        mIsCanceled = false;
        mObserver.OnCall = [&](const std::string& inCall) { mIsCanceled = mIsCanceled || inCall == call; };
        const bool isEarly = call == "event 0 at 1401";
        EXPECT_EQ(RunPass(isEarly ? sTrace : ""), isEarly ? "process" : "");
        EXPECT_TRUE(GetSession().SaveSession(mErrors));
        EXPECT_FALSE(IsModelStored());
        std::unique_ptr<Model> model;
        Serialization::ReaderErrorState errors;
        EXPECT_FALSE(ThreadsModel::sLoad(mPlugin, GetSession(), model, errors));
        EXPECT_EQ(Build::GetFirstError(errors), "1: Unable to open file");
    }
    EXPECT_THAT(mErrors.GetEntries(), IsEmpty());
}

TEST_F(TimelineFileTest, AChunkThatCantBeWrittenEndsThePass)
{
    mObserver.OnCall = [&](const std::string& inCall)
    {
        ThreadStreamingManager& manager = GetModel().GetStreamingManager();
        if (inCall == "prepare")
        {
            manager.CloseChunkFile();
            std::filesystem::remove(At("game/Threads/Threads.dat"));
            std::filesystem::create_symlink("/dev/full", At("game/Threads/Threads.dat"));
            EXPECT_TRUE(manager.OpenChunkFile(true, mErrors));
        }
        for (int i = 0; i < 10000 && inCall == "event 0 at 1400" && !manager.HasSaveErrors(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    EXPECT_EQ(RunPass(sTrace), "process");
    EXPECT_EQ(GetError(), "Error during write of file " + At("game/Threads/Threads.dat") + ": No space left on device");
    EXPECT_THAT(mCalls, Not(Contains("observer: event 0 at 1401")));
    EXPECT_FALSE(IsModelStored());
}

// By a host that stops a pass, and cancels it or forgets to.
TEST_F(TimelineFileTest, APassThatIsStoppedFromAnotherThreadSavesNothing)
{
    std::string trace;
    for (int time = 0; time < 80000; time += 400)
        trace += Utility::gFormat("%d out A 4, %d wake B A work, %d in A main, %d sample A main;work\n", time, time + 100,
                                  time + 200, time + 300);
    const LogCapture log;
    for (const bool isCanceled : {true, false})
    {
        mIsCanceled = false;
        std::thread stopper;
        const auto stop = [&]
        {
            __atomic_store_n(&mIsCanceled, isCanceled, __ATOMIC_RELEASE);
            Session::StopProcessing({&GetModel()});
        };
        mObserver.OnCall = [&](const std::string& inCall)
        {
            if (inCall == "event 0 at 20000")
                stopper = std::thread(stop);
            else if (inCall == "event 0 at 60000")
                stopper.join();
        };
        EXPECT_EQ(RunPass(std::exchange(trace, "")), isCanceled ? "process" : "finish");
        if (stopper.joinable())
            stopper.join();
        EXPECT_FALSE(IsModelStored());
    }
    EXPECT_EQ(GetError(), "The timeline isn't saved, since its pass was stopped");
    EXPECT_THAT(log.GetMessages(), Each(Not(HasSubstr("assertion failed"))));
}

using EmptyTimelineTest = TimelineTest;

TEST_F(EmptyTimelineTest, ACaptureWithoutThreadsIsSavedAndLoaded)
{
    ASSERT_EQ(RunPass(""), "") << Utility::GetErrorText(mErrors);
    const std::unique_ptr<Session> loaded = Load();
    ASSERT_EQ(mFlags, NothingToReprocess) << Utility::GetErrorText(mPlugin.LoadErrors);
    const auto& model = static_cast<const ThreadsModel&>(*loaded->GetModels().front());
    EXPECT_EQ(model.GetNumLevels(), 9U);
    EXPECT_EQ(model.GetDetailLOD(0).GetThread(0), nullptr);
    EXPECT_EQ(model.FindThreadData(0), nullptr);
}

} // namespace
