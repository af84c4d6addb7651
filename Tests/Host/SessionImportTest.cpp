// What an import leaves on the disk, however it ends.
#include "Tests/Host/SessionCommandFixture.h"
#include "Tests/Host/SmallDisk.h"
#include "Tests/Host/TerminalWatcher.h"

#include <algorithm>
#include <csignal>

namespace Host
{
namespace
{

using namespace testing;

// Changed in one address, so that its session is another one.
std::string gGetOtherRecords(std::string inRecords)
{
    return inRecords.replace(inRecords.find("0x400010"), 8, "0x400444");
}

class SessionImportTest : public SessionCommandTest
{
protected:
    struct Outcome
    {
        std::string Text;
        size_t Lines = 0; // of progress
    };

    // Imports, and does something when progress is shown for the inLine-th time.
    Outcome ImportWhile(const std::string& inCapture, size_t inLine, const std::function<void()>& inAction) const
    {
        Outcome outcome;
        const TerminalWatcher watcher(
            [&](const std::string&)
            {
                if (outcome.Lines++ == inLine)
                    inAction();
            });
        outcome.Text = ImportAnew(inCapture);
        return outcome;
    }

    // With an interrupt at each of the places where progress is shown: at each record, in the search for broken stacks, and
    // throughout the pass. Afterwards inCheck is called.
    void InterruptEverywhere(const std::string& inCapture, const std::function<void()>& inCheck) const
    {
        const auto interrupt = [] { EXPECT_EQ(std::raise(SIGINT), 0); };
        size_t line = 0;
        size_t numLines = 0;
        do
        {
            SCOPED_TRACE(line);
            const Outcome outcome = ImportWhile(inCapture, line, interrupt);
            numLines = outcome.Lines;
            if (line >= numLines)
            {
                EXPECT_FALSE(IsFailure(outcome.Text)) << outcome.Text;
                break;
            }
            ASSERT_EQ(outcome.Text, "FAILED: Interrupted");
            inCheck();
            ++line;
        } while (!HasFailure());
        EXPECT_GT(line, 30U) << "the interrupts were few";
    }
};

TEST_F(SessionImportTest, WritesASessionWithItsCompanionsAndNothingElse)
{
    const std::string text = Import(WriteCapture());
    EXPECT_THAT(text, StartsWith(At("shop/shop.session") + "\n0.000 s of 2 processes with 3 threads: "));
    EXPECT_THAT(GetNames(ReadFiles()),
                ElementsAre("shop.data", "shop/", "shop/CallstackDatabase.dat", "shop/Shared/", "shop/Shared/Model.dat",
                            "shop/Threads/", "shop/Threads/Find.dat", "shop/Threads/Model.dat", "shop/Threads/ReadyThreads.dat",
                            "shop/Threads/Threads.dat", "shop/events.dat", "shop/events.index", "shop/import.json",
                            "shop/shop.session", "shop/stacks.dat", "shop/stacks.index"));
    EXPECT_THAT(GetInfo(At("shop")).GetFaultyStores(), IsEmpty());
}

TEST_F(SessionImportTest, TheHealthOfTheCaptureIsShownAgainByInfo)
{
    PerfFileBuilder builder(std::string(sServerAndClient) + "22000 lost 7\n23000 cpu0 clock -1/-1 0x400010\n");
    builder.AddBytes(std::vector<uint8_t>{9, 0, 0, 0, 0, 0, 4, 0}); // a record shorter than its own header
    ImportOptions options;
    options.AsJSON = true;
    rapidjson::Document imported;
    imported.Parse(Import(WriteCapture(builder), options).c_str());
    ASSERT_FALSE(imported.HasParseError());
    EXPECT_EQ(imported["health"]["lost_events"].GetUint64(), 7U);
    EXPECT_STRNE(imported["health"]["truncated"].GetString(), "");
    EXPECT_GT(imported["health"]["modules_without_names"].Size(), 0U);

    Info info = GetInfo(At("shop"));
    EXPECT_EQ(info.JSON["health"]["capture"].GetString(), At("shop.data"));
    info.JSON["health"].RemoveMember("capture");
    EXPECT_TRUE(info.JSON["health"] == imported["health"]);
    EXPECT_EQ(info.JSON["threads"], imported["threads"]);
    EXPECT_EQ(info.JSON["length_ms"], imported["length_ms"]);
}

TEST_F(SessionImportTest, ASessionThatIsThereIsReplacedOnDemandOnly)
{
    Import(WriteCapture());
    WriteFile("shop/ViewState/view", "of a viewer");
    const Files old = ReadFiles("shop");
    const std::string capture = WriteCapture(gGetOtherRecords(sServerAndClient));
    EXPECT_EQ(Import(capture), "FAILED: The session " + At("shop/shop.session") + " exists; --force replaces it");
    EXPECT_EQ(ReadFiles("shop"), old);
    EXPECT_THAT(List(""), ElementsAre("shop", "shop.data"));

    EXPECT_FALSE(IsFailure(ImportAnew(capture)));
    EXPECT_NE(ReadFile("shop/CallstackDatabase.dat"), old.at("CallstackDatabase.dat"));
    EXPECT_THAT(List(""), ElementsAre("shop", "shop.data"));
    EXPECT_THAT(GetInfo(At("shop")).GetFaultyStores(), IsEmpty());
}

TEST_F(SessionImportTest, WhatIsNoSessionIsNeverTouched)
{
    const std::string capture = WriteCapture();
    WriteFile("shop/notes", "of somebody");
    WriteFile("shop/other.session", "of another name");
    WriteFile("file", "in the way");
    const std::string bare = WriteCapture(sServerAndClient, "bare"); // its session folder would have its own name
    const Files before = ReadFiles();
    const std::string reason = " exists and is no session; choose another place with --output";
    EXPECT_EQ(Import(capture), "FAILED: " + At("shop") + reason);
    EXPECT_EQ(ImportAnew(capture), "FAILED: " + At("shop") + reason);
    EXPECT_EQ(ImportAnew(bare), "FAILED: " + At("bare") + reason);
    const ImportOptions options = MakeOptions(At("file"));
    EXPECT_EQ(Import(capture, options), "FAILED: Unable to make the folder " + At("file/shop.unfinished") + ": Not a directory");
    EXPECT_EQ(ReadFiles(), before);
}

// To replace the session would delete the recording itself.
TEST_F(SessionImportTest, ACaptureIsNeverPartOfWhatIsReplaced)
{
    Import(WriteCapture());
    const std::string moved = At("shop/shop.data");
    std::filesystem::rename(At("shop.data"), moved);
    // Its name makes it the session file, and its folder that of the session.
    const std::string misnamed = WriteCapture(sServerAndClient, "captures/shop.session");
    const Files before = ReadFiles();
    const ImportOptions options = MakeOptions(At(""), true);
    EXPECT_EQ(Import(moved, options),
              "FAILED: The capture " + moved + " lies in the folder of the session that it would replace");
    EXPECT_EQ(Import(misnamed, options), "FAILED: " + misnamed + " is a capture but named like a session; rename it");
    EXPECT_EQ(ImportAnew(misnamed), "FAILED: " + misnamed + " is a capture but named like a session; rename it");
    EXPECT_EQ(ReadFiles(), before);
}

TEST_F(SessionImportTest, TheOutputGoesWhereItIsWanted)
{
    const ImportOptions options = MakeOptions(At("some/where"));
    EXPECT_THAT(Import(WriteCapture(sServerAndClient, "my.shop.data"), options),
                StartsWith(At("some/where/my.shop/my.shop.session") + "\n"));
    EXPECT_THAT(List(""), ElementsAre("my.shop.data", "some"));
    for (const char* name :
         {"some/where/my.shop", "some/where/my.shop/", "some/where/my.shop/my.shop.session", "some/where/my.shop.whatever"})
        EXPECT_EQ(GetInfo(At(name)).Failure, "") << name;
    EXPECT_THAT(GetInfo(At("my.shop.data")).Failure, StartsWith("There is no session at " + At("my.shop/my.shop.session")));
}

TEST_F(SessionImportTest, WhatIsNoCaptureLeavesNothing)
{
    WriteFile("text.data", "no capture at all");
    EXPECT_THAT(Import(At("text.data")), AllOf(StartsWith("FAILED: "), HasSubstr(At("text.data"))));
    EXPECT_THAT(Import(At("missing.data")), AllOf(StartsWith("FAILED: "), HasSubstr(At("missing.data"))));
    WriteCapture("", "nothing.data");
    EXPECT_THAT(Import(At("nothing.data")), AllOf(StartsWith("FAILED: "), HasSubstr("there is nothing to show")));
    EXPECT_THAT(List(""), ElementsAre("nothing.data", "text.data"));
}

// --- Interrupts ---

TEST_F(SessionImportTest, AnInterruptAnywhereLeavesNothingAndKeepsTheOldSession)
{
    const std::string capture = WriteCapture();
    InterruptEverywhere(capture, [this] { ASSERT_THAT(List(""), ElementsAre("shop.data")); });
    WriteCapture(gGetOtherRecords(sServerAndClient));
    const Files before = ReadFiles();
    InterruptEverywhere(capture, [&] { ASSERT_EQ(ReadFiles(), before); });
}

TEST_F(SessionImportTest, ASignalWorksOnceForEachCommand)
{
    const std::string capture = WriteCapture();
    for (const int signal : {SIGTERM, SIGINT})
    {
        EXPECT_EQ(ImportWhile(capture, 0, [&] { std::raise(signal); }).Text, "FAILED: Interrupted");
        // What came before doesn't end the next one, nor does a signal that the program was started to ignore.
        EXPECT_FALSE(IsFailure(ImportAnew(capture)));
        const auto handlerBefore = std::signal(signal, SIG_IGN);
        EXPECT_EQ(handlerBefore, SIG_DFL);
        EXPECT_FALSE(IsFailure(ImportWhile(capture, 0, [&] { std::raise(signal); }).Text));
        EXPECT_EQ(std::signal(signal, handlerBefore), SIG_IGN);
    }
    EXPECT_EXIT(
        {
            ImportWhile(capture, 0,
                        []
                        {
                            std::raise(SIGINT);
                            std::raise(SIGTERM);
                        });
        },
        testing::KilledBySignal(SIGTERM), "");
}

// --- Disks that fail ---

TEST_F(SessionImportTest, AFullDiskGivesOneClearLineAndLeavesNothing)
{
    const std::string capture = WriteCapture();
    const ImportOptions options = MakeOptions(At("disk"));
    constexpr size_t page = 4096;
    size_t numFailures = 0;
    for (size_t size = page; size <= 64 * page; size += page)
    {
        SCOPED_TRACE(size);
        const SmallDisk disk(At("disk"), size);
        const std::string text = Import(capture, options);
        if (!IsFailure(text))
            break;
        ++numFailures;
        EXPECT_THAT(text, testing::AnyOf(HasSubstr(At("disk/shop.unfinished")), HasSubstr("Error: ")));
        EXPECT_EQ(text.find('\n'), std::string::npos) << text;
        EXPECT_THAT(List("disk"), IsEmpty());
    }
    EXPECT_GT(numFailures, 3U);
    EXPECT_LT(numFailures, 64U);
}

// The folder is deleted, or replaced by a file, while the import runs.
TEST_F(SessionImportTest, AFolderThatVanishesGivesOneClearLine)
{
    const std::string capture = WriteCapture();
    const size_t numLines = ImportWhile(capture, SIZE_MAX, {}).Lines;
    const Files before = ReadFiles("shop");
    for (const bool isReplacedByFile : {false, true})
        for (size_t line = 0; line < numLines; line += 7)
        {
            SCOPED_TRACE(testing::Message() << "line " << line << " file " << isReplacedByFile);
            const Outcome outcome = ImportWhile(capture, line,
                                                [&]
                                                {
                                                    std::filesystem::remove_all(At("shop.unfinished"));
                                                    if (isReplacedByFile)
                                                        WriteFile("shop.unfinished");
                                                });
            EXPECT_EQ(std::count(outcome.Text.begin(), outcome.Text.end(), '\n'), 0) << outcome.Text;
            EXPECT_TRUE(IsFailure(outcome.Text));
            std::filesystem::remove_all(At("shop.unfinished"));
            ASSERT_EQ(GetInfo(At("shop")).Failure, "");
            ASSERT_EQ(ReadFiles("shop"), before);
        }
}

// What is lost between two steps is noticed, or written once more.
TEST_F(SessionImportTest, AFileThatVanishesBetweenTwoStepsIsNotMissed)
{
    const std::string capture = WriteCapture();
    for (const char* name : {"events.dat", "events.index"})
    {
        SCOPED_TRACE(name);
        bool isRemoved = false;
        std::string text;
        {
            const TerminalWatcher watcher(
                [&](const std::string& inLine)
                {
                    if (!isRemoved && inLine.find("Finding broken stacks") != std::string::npos)
                        isRemoved = std::filesystem::remove(At(std::string("shop.unfinished/") + name));
                });
            text = ImportAnew(capture);
        }
        EXPECT_TRUE(isRemoved);
        if (IsFailure(text))
        {
            EXPECT_THAT(List(""), ElementsAre("shop.data"));
        }
        else
        {
            EXPECT_THAT(GetInfo(At("shop")).GetFaultyStores(), IsEmpty());
        }
    }
}

} // namespace
} // namespace Host
