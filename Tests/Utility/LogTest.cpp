#include "Utility/Log.h"

#include "Tests/Utility/LogCapture.h"
#include "Utility/Assert.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>

using testing::ElementsAre;
using testing::MatchesRegex;

namespace
{

std::string gGetLocalTime()
{
    const std::time_t now = std::time(nullptr);
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), "[%H:%M:%S]: ", std::localtime(&now));
    return text.data();
}

TEST(Log, LineIsLocalTimeMessageAndNewline)
{
    std::string before;
    std::string after;
    std::string line;
    do
    {
        const LogCapture log;
        before = gGetLocalTime();
        Utility::gLog("%d of %s", 3, "four");
        after = gGetLocalTime();
        line = log.GetTexts().at(0);
    } while (before != after);
    EXPECT_EQ(line, before + "3 of four\n");
}

TEST(Log, TextGoesOutUnchangedWithoutPrefixAndAsALineWithIt)
{
    const LogCapture log;
    Utility::gLogText("100%s raw", false);
    Utility::gLogText("", false);
    Utility::gLogText("100%s line", true);
    EXPECT_THAT(log.GetTexts(),
                ElementsAre("100%s raw", "", MatchesRegex("\\[[0-9][0-9]:[0-9][0-9]:[0-9][0-9]\\]: 100%s line\n")));
}

TEST(Log, LinesOfEveryLengthArriveWhole)
{
    for (const size_t length : {0, 1, 245, 256, 258, 20000, 7, 20001})
    {
        const LogCapture log;
        const std::string message(length, 'x');
        Utility::gLog("%s", message.c_str());
        Utility::gLogText(message, true);
        EXPECT_THAT(log.GetMessages(), ElementsAre(message, message));
        Utility::gLogText(message, false);
        EXPECT_EQ(log.GetTexts().back(), message);
    }
}

TEST(Log, LineBufferStaysAfterTheLongestLineAndBelongsToOneThread)
{
    const LogCapture log;
    Utility::gLogText(std::string(100000, 'x'), true);
    const void* longest = log.GetLastAddress();
    Utility::gLog("short");
    EXPECT_EQ(log.GetLastAddress(), longest);
    std::thread([] { Utility::gLog("from another thread"); }).join();
    EXPECT_NE(log.GetLastAddress(), longest);
}

TEST(Log, EverySinkReceivesInOrderAndAListCanBeSetToItself)
{
    const LogCapture log;
    std::string second;
    Utility::gAddLogSink([](const char* inText, void* ioText) { *static_cast<std::string*>(ioText) += inText; }, &second);
    Utility::gSetLogSinks(Utility::gGetLogSinks());
    Utility::gLogText("text", false);
    EXPECT_THAT(log.GetTexts(), ElementsAre("text"));
    EXPECT_EQ(second, "text");

    Utility::gSetLogSinks({});
    Utility::gLogText("to nobody", false);
    EXPECT_EQ(second, "text");
}

struct LogsWhenDestroyed
{
    const char* Message;
    ~LogsWhenDestroyed() { Utility::gLog("%s", Message); }
};

// Made before the first sink, so it is destroyed after the last one.
const LogsWhenDestroyed sOutlivesSinks{"to nobody"};

TEST(Log, DestructorsOfStaticsMayLog)
{
    const auto exitAfterLogging = []
    {
        Utility::gAddLogSink([](const char* inText, void*) { std::fputs(inText, stderr); }, nullptr);
        static const LogsWhenDestroyed sOutlivesLineBuffer{"a late line"};
        Utility::gLog("a line before");
        std::exit(0);
    };
    EXPECT_EXIT(exitAfterLogging(), testing::ExitedWithCode(0), "a line before\n.*a late line\n$");
}

TEST(Assert, WritesTwoLinesAndGoesOn)
{
    const LogCapture log;
    const int number = 3;
    PROFILER_ASSERT_AT("Folder/File", number == 3, "never shown");
    const int line = __LINE__ + 1;
    PROFILER_ASSERT_AT("Folder/File", number == 4 && "a % sign", "It was %d", number);
    EXPECT_THAT(log.GetMessages(),
                ElementsAre("\"number == 4 && \"a % sign\"\" assertion failed at Folder/File (" + std::to_string(line) + "):",
                            "It was 3"));
}

} // namespace
