// What the commands do with a stored session, sound or damaged, here or elsewhere.
#include "FileSystem/File.h"
#include "Host/Linux/SymbolCache.h"
#include "Tests/Host/ElfFixture.h"
#include "Tests/Host/SessionCommandFixture.h"
#include "Tests/Host/TerminalWatcher.h"
#include "Tests/System/VariableScope.h"

#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <set>

namespace Host
{
namespace
{

using namespace testing;

class SessionCommandsTest : public SessionCommandTest
{
protected:
    // Which stores a file of the session belongs to. Without all of its files, a timeline isn't looked into.
    using Stores = std::vector<std::string>;
    static const std::map<std::string, Stores>& GetStores()
    {
        static const std::map<std::string, Stores> sStores = {{"CallstackDatabase.dat", {"stacks"}},
                                                              {"Shared/Model.dat", {"shared model"}},
                                                              {"Threads/Find.dat", {"find index", "models"}},
                                                              {"Threads/Model.dat", {"models"}},
                                                              {"Threads/ReadyThreads.dat", {"wake-ups", "models"}},
                                                              {"Threads/Threads.dat", {"timeline", "models"}},
                                                              {"events.dat", {"events"}},
                                                              {"events.index", {"events"}},
                                                              {"import.json", {"import report"}},
                                                              {"shop.session", {"session"}},
                                                              {"stacks.dat", {"broken stacks"}},
                                                              {"stacks.index", {"broken stacks"}}};
        return sStores;
    }

    SessionCommandsTest()
    {
        EXPECT_FALSE(IsFailure(Import(WriteCapture())));
        mFiles = ReadFiles("shop");
        mStores = ReadStores("shop");
    }

    [[nodiscard]] std::string GetSession() const { return At("shop"); }

    // The session as it was imported.
    void Restore() const
    {
        std::filesystem::remove_all(GetSession());
        for (const auto& [name, content] : mFiles)
            if (!name.ends_with('/'))
                WriteFile("shop/" + name, content);
    }

    // Those that come from the capture, which nothing but a new import could replace.
    [[nodiscard]] Files ReadCaptured() const
    {
        Files files;
        for (const char* name : {"CallstackDatabase.dat", "events.dat", "events.index", "import.json", "shop.session"})
            files[name] = ReadFile(std::string("shop/") + name);
        return files;
    }

    // What isn't as it was imported, but for the broken stacks: a search leaves their data of the last one in the file, and goes
    // on behind.
    [[nodiscard]] std::vector<std::string> FindChanges() const
    {
        std::vector<std::string> names = FindDifferences(ReadStores("shop"), mStores);
        std::erase_if(names, [](const std::string& inName) { return inName.starts_with("stacks."); });
        return names;
    }

    // What info says about a session with one file replaced by other content. It never changes a file.
    [[nodiscard]] Info GetInfoWith(const std::string& inName, const std::string& inContent) const
    {
        WriteFile("shop/" + inName, inContent);
        const Files before = ReadFiles("shop");
        Info info = GetInfo(GetSession());
        EXPECT_EQ(ReadFiles("shop"), before);
        WriteFile("shop/" + inName, mFiles.at(inName));
        return info;
    }

    Files mFiles;
    Files mStores;
};

// --- Info ---

TEST_F(SessionCommandsTest, InfoSaysWhichFileIsMissing)
{
    for (const auto& [name, stores] : GetStores())
    {
        SCOPED_TRACE(name);
        std::filesystem::remove(At("shop/" + name));
        const Files before = ReadFiles("shop");
        const Info info = GetInfo(GetSession());
        EXPECT_EQ(ReadFiles("shop"), before);
        if (name == "shop.session")
            EXPECT_THAT(info.Failure, StartsWith("There is no session at " + At("shop/shop.session")));
        else
        {
            EXPECT_THAT(info.GetFaultyStores(), Contains(stores.back()));
            EXPECT_EQ(info.Failure.empty(), stores.front() != "events") << info.Failure;
        }
        Restore();
    }
}

TEST_F(SessionCommandsTest, InfoSaysWhichFileIsCut)
{
    for (const auto& [name, stores] : GetStores())
    {
        const std::string& content = mFiles.at(name);
        for (const size_t size : {size_t{0}, content.size() / 3, content.size() - 1})
        {
            SCOPED_TRACE(name + " of " + std::to_string(size) + " bytes");
            const Info info = GetInfoWith(name, content.substr(0, size));
            // The newline behind the report is no part of it.
            if (name == "import.json" && size == content.size() - 1)
                EXPECT_THAT(info.GetFaultyStores(), IsEmpty());
            else
                EXPECT_THAT(info.GetFaultyStores(), Contains(AnyOfArray(stores)));
            EXPECT_EQ(info.Failure.empty(), info.GetFault("session").empty());
        }
    }
}

// A change that leaves a file readable, as that of a letter in a name, can't be told. Any other is told of the right store.
TEST_F(SessionCommandsTest, InfoSaysWhichFileIsChanged)
{
    for (const auto& [name, stores] : GetStores())
    {
        const std::string& content = mFiles.at(name);
        const size_t step = content.size() / 60 + 1;
        size_t numTold = 0;
        for (size_t i = 0; i < content.size(); i += step)
        {
            SCOPED_TRACE(name + " at " + std::to_string(i));
            std::string changed = content;
            changed[i] = static_cast<char>(changed[i] ^ 0x55);
            const Info info = GetInfoWith(name, changed);
            const std::vector<std::string> faulty = info.GetFaultyStores();
            numTold += faulty.empty() ? 0 : 1;
            std::set<std::string> others(faulty.begin(), faulty.end());
            for (const std::string& store : stores)
                others.erase(store);
            // Without sound events or stacks the session can't be opened, and without what it was built with no timeline is used.
            others.erase("session");
            others.erase("models");
            EXPECT_THAT(others, IsEmpty());
            EXPECT_EQ(info.Failure.empty(), info.GetFault("session").empty());
        }
        EXPECT_GT(numTold, 0U) << name;
    }
}

// Bars are counted without being read.
TEST_F(SessionCommandsTest, InfoCountsWhatTheTimelineHolds)
{
    const auto getNumber = [](const std::string& inBytes, size_t inOffset)
    {
        uint64_t number = 0;
        std::memcpy(&number, inBytes.data() + inOffset, sizeof(number));
        return number;
    };
    std::vector<uint64_t> bars(9);
    std::vector<uint64_t> entries(9);
    std::set<std::string> functions;
    for (const auto& [name, content] : mStores)
    {
        const size_t level = name.find("level ");
        if (name.ends_with(" bars"))
            bars[name[level + 6] - '0'] += getNumber(content, 0) / 32;
        else if (name.ends_with(" overview"))
            entries[name[level + 6] - '0'] += getNumber(content, 9);
        else if (const size_t function = name.find("function "); function != std::string::npos)
            functions.insert(name.substr(function));
    }

    const Info info = GetInfo(GetSession());
    const auto& timeline = info.JSON["timeline"];
    uint64_t bytes = 0;
    uint64_t records = 0;
    ASSERT_EQ(timeline["levels"].Size(), 9U);
    for (size_t i = 0; i < 9; ++i)
    {
        SCOPED_TRACE(i);
        const auto& level = timeline["levels"][static_cast<rapidjson::SizeType>(i)];
        EXPECT_EQ(level["threads"].GetUint64(), 3U);
        EXPECT_EQ(level["bars"].GetUint64(), bars[i]);
        EXPECT_EQ(level["entries"].GetUint64(), entries[i]);
        bytes += level["bytes"].GetUint64();
        records += level["ready_records"].GetUint64();
    }
    EXPECT_GT(bars[0], 0U);
    EXPECT_EQ(bytes, mFiles.at("Threads/Threads.dat").size());
    EXPECT_EQ(records, 3U);
    EXPECT_EQ(timeline["ready_indices"].GetUint64(), 3U);
    EXPECT_EQ(timeline["find_functions"].GetUint64(), functions.size());

    std::filesystem::remove(At("shop/Threads/Model.dat"));
    EXPECT_FALSE(GetInfo(GetSession()).JSON.HasMember("timeline"));
}

// --- Process ---

TEST_F(SessionCommandsTest, ProcessMakesWhatIsMissing)
{
    EXPECT_THAT(Process(GetSession()), Not(HasSubstr("broken stacks")));
    EXPECT_EQ(ReadFiles("shop"), mFiles);
    for (const char* name :
         {"stacks.dat", "stacks.index", "Shared/Model.dat", "Threads/Model.dat", "Threads/Find.dat", "Threads/ReadyThreads.dat"})
        for (const std::string& content : {std::string(), mFiles.at(name).substr(0, mFiles.at(name).size() / 2)})
        {
            SCOPED_TRACE(name);
            WriteFile(std::string("shop/") + name, content);
            const bool isOfStacks = std::string(name).starts_with("stacks");
            EXPECT_EQ(Process(GetSession()),
                      isOfStacks ? "Found the broken stacks\nBuilt the timeline\n" : "Built the timeline\n");
            EXPECT_THAT(FindChanges(), IsEmpty());
            EXPECT_THAT(GetInfo(GetSession()).GetFaultyStores(), IsEmpty());
        }
}

TEST_F(SessionCommandsTest, RebuildMakesAllThatIsDerivedAnewAndTouchesNothingElse)
{
    WriteFile("shop/ViewState/deep/view", "of a viewer");
    WriteFile("shop/notes", "of somebody");
    const Files expected = ReadStores("shop");
    WriteFile("shop/Threads/level0", "of an older build");
    WriteFile("shop/Shared/other", "of an older build");
    WriteFile("shop/stacks.index", "damaged");
    EXPECT_EQ(Process(GetSession(), true), "Found the broken stacks\nBuilt the timeline\n");
    EXPECT_THAT(FindDifferences(ReadStores("shop"), expected), IsEmpty());
    EXPECT_THAT(List("shop/Threads"), ElementsAre("Find.dat", "Model.dat", "ReadyThreads.dat", "Threads.dat"));
}

TEST_F(SessionCommandsTest, ASessionThatCanNotBeOpenedKeepsAllItHas)
{
    WriteFile("shop/Threads/level0", "that could still be read");
    for (const char* name : {"events.index", "CallstackDatabase.dat", "shop.session"})
    {
        WriteFile(std::string("shop/") + name, "damaged");
        const Files before = ReadFiles("shop");
        for (const bool rebuilds : {false, true})
        {
            EXPECT_THAT(Process(GetSession(), rebuilds), AllOf(StartsWith("FAILED: "), HasSubstr(At("shop/"))));
            EXPECT_EQ(ReadFiles("shop"), before);
        }
        WriteFile(std::string("shop/") + name, mFiles.at(name));
    }
}

TEST_F(SessionCommandsTest, DamagedEventsEndARebuildAndStayAsTheyAre)
{
    std::string events = mFiles.at("events.dat");
    events[events.size() / 2] = static_cast<char>(events[events.size() / 2] ^ 0x55);
    WriteFile("shop/events.dat", events);
    const Files captured = ReadCaptured();
    EXPECT_THAT(Process(GetSession(), true), StartsWith("FAILED: "));
    EXPECT_EQ(ReadCaptured(), captured);
    WriteFile("shop/events.dat", mFiles.at("events.dat"));
    EXPECT_FALSE(IsFailure(Process(GetSession())));
    EXPECT_THAT(FindChanges(), IsEmpty());
}

TEST_F(SessionCommandsTest, AnInterruptedRebuildIsMadeGoodByTheNext)
{
    const Files captured = ReadCaptured();
    size_t line = 0;
    size_t numLines = 0;
    do
    {
        SCOPED_TRACE(line);
        numLines = 0;
        std::string text;
        {
            const TerminalWatcher watcher(
                [&](const std::string&)
                {
                    if (numLines++ == line)
                        std::raise(SIGINT);
                });
            text = Process(GetSession(), true);
        }
        EXPECT_EQ(text, line < numLines ? "FAILED: Interrupted" : "Found the broken stacks\nBuilt the timeline\n");
        EXPECT_EQ(ReadCaptured(), captured);
        EXPECT_EQ(FileSystem::gExists(At("shop/Threads/Model.dat")), line >= numLines) << "it is saved at the very end";
        EXPECT_FALSE(IsFailure(Process(GetSession())));
        ASSERT_THAT(FindChanges(), IsEmpty());
        ASSERT_THAT(GetInfo(GetSession()).GetFaultyStores(), IsEmpty());
    } while (line++ < numLines);
    EXPECT_GT(numLines, 20U);
}

// Written once and read by every later build.
TEST_F(SessionCommandsTest, TheSampleSessionIsReadable)
{
    std::filesystem::copy(SAMPLE_SESSION, At("workload"), std::filesystem::copy_options::recursive);
    const Info info = GetInfo(At("workload"));
    EXPECT_EQ(info.Failure, "");
    EXPECT_THAT(info.GetFaultyStores(), ElementsAre("models")) << "to be built";
    const std::string summary = Summarize(At("workload"));
    for (const char* name : {"lock-a", "token-ping", "sleeper", "compute", "__futex_abstimed_wait_common"})
        EXPECT_THAT(summary, HasSubstr(name));
}

TEST_F(SessionCommandsTest, CommandsSayWhereThereIsNoSession)
{
    MakeDirectory("empty");
    for (const char* name : {"empty", "missing", "missing.session", "missing.data"})
    {
        EXPECT_THAT(Process(At(name), true), StartsWith("FAILED: There is no session at " + At(""))) << name;
        EXPECT_THAT(GetInfo(At(name)).Failure, StartsWith("There is no session at " + At(""))) << name;
    }
    WriteFile("text/text.session", "no session at all");
    EXPECT_THAT(Process(At("text")), AllOf(StartsWith("FAILED: "), HasSubstr(At("text/text.session"))));
    EXPECT_THAT(Summarize(At("text")), AllOf(StartsWith("FAILED: "), HasSubstr(At("text/text.session"))));
}

TEST_F(SessionCommandsTest, SummarizeAsksForWhatItNeeds)
{
    const std::string text = Summarize(GetSession());
    EXPECT_FALSE(IsFailure(text));
    std::filesystem::remove(At("shop/stacks.index"));
    EXPECT_THAT(Summarize(GetSession()), AllOf(StartsWith("FAILED: "), HasSubstr("brenvaldoris process")));
    EXPECT_FALSE(IsFailure(Process(GetSession())));
    EXPECT_EQ(Summarize(GetSession()), text);
}

TEST_F(SessionCommandsTest, AnInterruptedSummaryLeavesNothing)
{
    MakeDirectory("temporary");
    const VariableScope variable("TMPDIR", At("temporary").c_str());
    for (const char* name : {"shop.data", "shop"})
    {
        bool isShown = false;
        const TerminalWatcher watcher(
            [&](const std::string&)
            {
                if (!std::exchange(isShown, true))
                    std::raise(SIGINT);
            });
        EXPECT_EQ(Summarize(At(name)), "FAILED: Interrupted") << name;
        EXPECT_THAT(List("temporary"), IsEmpty());
    }
    EXPECT_EQ(ReadFiles("shop"), mFiles);
}

// --- The program ---

TEST_F(SessionCommandsTest, TheProgramTellsItsOutcome)
{
    const auto run = [this](const std::string& inArguments)
    {
        const std::string command = PROGRAM " " + inArguments + " > " + At("output") + " 2>&1";
        return WEXITSTATUS(std::system(command.c_str())); // NOLINT(cert-env33-c)
    };
    EXPECT_EQ(run("--help"), 0);
    EXPECT_EQ(run("paint it"), 2);
    const std::string capture = " " + At("shop.data");
    EXPECT_EQ(run("import" + capture), 1) << "it exists";
    EXPECT_EQ(run("import --force" + capture), 0);
    EXPECT_EQ(run("import --force --process server --process 20 --time-range 0,1" + capture), 0);
    EXPECT_EQ(run("import --force --process nobody" + capture), 1);
    EXPECT_EQ(run("import --force --time-range 1," + capture), 1) << "behind the end";
    for (const char* range : {"5", "2,1", "1,1", "a,b", "nan,1", "0,nan", "-1,1", "1,2,3", "1:2"})
        EXPECT_EQ(run("import --force --time-range=" + std::string(range) + capture), 2) << range;
    for (const char* command : {"info", "process", "summarize"})
    {
        EXPECT_EQ(run(command + capture), 0) << command;
        EXPECT_EQ(run(command + (" " + GetSession())), 0) << command;
        EXPECT_EQ(run(command + (" " + At("missing"))), 1) << command;
        EXPECT_THAT(ReadFile("output"), testing::ContainsRegex("^[^\n]+\n$")) << "one line";
        EXPECT_EQ(run(command), 2) << command;
    }
    EXPECT_EQ(run("summarize --json" + capture), 0);
    EXPECT_THAT(ReadFile("output"), StartsWith("{"));
    WriteFile("shop/events.index", "damaged");
    for (const char* command : {"info", "process", "summarize"})
        EXPECT_EQ(run(command + (" " + GetSession())), 1) << command;
}

// --- Elsewhere ---

// The session of a program with one module that tells its build, one that doesn't, and one whose file isn't there.
class MovedSessionTest : public SessionCommandTest
{
protected:
    MovedSessionTest()
    {
        const std::string known = CopyModule("libfull.so", "bin/known.so");
        const std::string plain = CopyModule("linked/libplain.so", "bin/plain.so");
        const LoadedSymbols symbols = SymbolCache().Load(known, sFixtureID);
        const uint64_t function = symbols.Table != nullptr ? gFindByName(*symbols.Table, "FixtureExported")->Start : 0;
        EXPECT_NE(function, 0U);

        PerfFileBuilder builder;
        builder.AddBuildID(10, sFixtureID.GetBytes(), known, false);
        builder.AddRecords("0 comm 10/10 program\n0 mmap 10/10 0x400000 0x10000 /opt/program\n"
                           "0 mmap 10/10 0x10000000 0x100000 " +
                           known + "\n0 mmap 10/10 0x20000000 0x100000 " + plain + "\n0 mmap 10/10 0x30000000 0x100000 " +
                           At("bin/later.so") + "\n");
        std::string stack;
        for (const uint64_t base : {0x10000000, 0x20000000, 0x30000000, 0x400000})
            stack += (stack.empty() ? "" : ";") + std::to_string(base + function);
        for (int time = 1000; time < 5000; time += 1000)
            builder.AddRecords(std::to_string(time) + " cpu0 clock 10/10 " + stack + "\n");
        builder.AddRecords("5000 cpu0 clock 10/10 0x400010\n");
        EXPECT_FALSE(IsFailure(Import(WriteCapture(builder))));
    }

    std::string CopyModule(const std::string& inFixture, const std::string& inName) const
    {
        MakeDirectory("bin");
        std::filesystem::copy_file(sFixtureFolder + "/" + inFixture, At(inName),
                                   std::filesystem::copy_options::overwrite_existing);
        return At(inName);
    }
};

TEST_F(MovedSessionTest, FunctionNamesNeedNothingButTheSession)
{
    const std::string before = Summarize(At("shop"));
    EXPECT_THAT(before, HasSubstr("FixtureExported"));
    std::filesystem::create_directory(At("elsewhere"));
    std::filesystem::rename(At("shop"), At("elsewhere/shop"));
    std::filesystem::remove_all(At("bin"));
    std::filesystem::remove(At("shop.data"));
    EXPECT_EQ(Summarize(At("elsewhere/shop")), before);

    // All that is derived can be made there as well, and the names stay.
    const std::string session = ReadFile("elsewhere/shop/shop.session");
    EXPECT_FALSE(IsFailure(Process(At("elsewhere/shop"), true)));
    EXPECT_EQ(ReadFile("elsewhere/shop/shop.session"), session);
    EXPECT_EQ(Summarize(At("elsewhere/shop")), before);
}

TEST_F(MovedSessionTest, AFolderMayBeRenamed)
{
    const std::string before = Summarize(At("shop"));
    std::filesystem::rename(At("shop"), At("before"));
    EXPECT_EQ(Summarize(At("before")), before);
    EXPECT_EQ(Summarize(At("before/.")), before);
    EXPECT_FALSE(IsFailure(Process(At("before"), true)));
    EXPECT_EQ(GetInfo(At("before")).Failure, "");
    WriteFile("before/another.session");
    EXPECT_THAT(GetInfo(At("before")).Failure, StartsWith("There is no session at " + At("before/before.session")))
        << "nothing tells which of two is meant";
}

TEST_F(MovedSessionTest, OtherFilesUnderTheNamesOfTheModulesAreNotTakenForThem)
{
    const std::string before = Summarize(At("shop"));
    CopyModule("linked/libplain.so", "bin/known.so");
    CopyModule("libfull.so", "bin/plain.so");
    CopyModule("libfull.so", "bin/later.so");
    EXPECT_EQ(Summarize(At("shop")), before);
    EXPECT_THAT(before, HasSubstr(At("bin/later.so"))) << "listed as one without names";
}

} // namespace
} // namespace Host
