#include "Host/Import/TracingData.h"
#include "Tests/Host/PerfCaptureReader.h"
#include "Tests/Support/PerfFileBuilder.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace Host
{
namespace
{

using namespace testing;

// The capture's file with one text in it replaced by another of the same length.
std::vector<uint8_t> gReplace(std::vector<uint8_t> inImage, std::string_view inOld, std::string_view inNew)
{
    const auto found = std::search(inImage.begin(), inImage.end(), inOld.begin(), inOld.end());
    EXPECT_NE(found, inImage.end());
    EXPECT_EQ(inOld.size(), inNew.size());
    std::copy(inNew.begin(), inNew.end(), found);
    return inImage;
}

PerfFileBuilder gMakeSwitch()
{
    PerfFileBuilder builder("5 cpu0 switch 1/1 P 2/2\n");
    return builder;
}

TEST(Tracepoints, ReadsFieldsWhereTheFormatPutsThem)
{
    EXPECT_THAT(PerfCaptureReader(gMakeSwitch().Build()).Lines,
                ElementsAre(HasSubstr("switch thread1:1 state 256 to thread2:2")));
    // The state's upper half, and the next thread's priority for its id.
    const std::string state = "prev_state;\toffset:32;\tsize:8;";
    EXPECT_THAT(PerfCaptureReader(gReplace(gMakeSwitch().Build(), state, "prev_state;\toffset:33;\tsize:1;")).Lines,
                ElementsAre(HasSubstr("state 1 to")));
    EXPECT_THAT(PerfCaptureReader(gReplace(gMakeSwitch().Build(), "next_pid;\toffset:56;", "next_pid;\toffset:60;")).Lines,
                ElementsAre(HasSubstr("thread2:120")));
}

TEST(Tracepoints, SkipsWhatDoesNotFitItsFormat)
{
    PerfFileBuilder builder;
    BuilderSample sample{.Time = 5, .Raw = gMakeExitRaw(1)};
    const auto event = static_cast<uint32_t>(EBuilderEvent::SchedSwitch);
    builder.AddSample(event, sample);
    sample.Raw.clear();
    builder.AddSample(event, sample);
    sample.Raw = gMakeSwitchRaw(1, 0, 2);
    sample.Raw.resize(58);
    builder.AddSample(event, sample);
    sample.Raw.resize(1);
    builder.AddSample(event, sample);
    EXPECT_THAT(PerfCaptureReader(builder.Build()).Lines,
                ElementsAre(HasSubstr("fields of another tracepoint"), HasSubstr("without its fields"), HasSubstr("too short"),
                            HasSubstr("too short")));
}

TEST(Tracepoints, SaysWhichFormatsTheFileLacks)
{
    PerfFileBuilder builder = gMakeSwitch();
    builder.HasTracingData = false;
    const PerfCaptureReader capture(builder.Build());
    EXPECT_THAT(capture.Lines, ElementsAre(HasSubstr("tracepoint of unknown format")));
    EXPECT_THAT(capture.Warnings, SizeIs(5));
    EXPECT_THAT(capture.Warnings.front(), HasSubstr("sched:sched_switch"));
    EXPECT_TRUE(capture.Formats.Has(ETracepoint::SchedSwitch));
    EXPECT_FALSE(capture.Formats.CanDecode(ETracepoint::SchedSwitch));
}

TEST(Tracepoints, LeavesOutDamagedFormats)
{
    const std::pair<const char*, const char*> changes[] = {{"ID: 371", "ID! 371"},
                                                           {"ID: 371", "ID: 999"},
                                                           {"field:pid_t next_pid;", "field:pid_t nextXpid;"},
                                                           {"field:pid_t next_pid;", "f\x01"
                                                                                     "eld:pid_t next_pid;"},
                                                           {"next_pid;\toffset:56;", "next_pid;\toffset:9x;"},
                                                           {"next_pid;\toffset:56;\tsize:4;", "next_pid;\toffset:56;\tsize:3;"},
                                                           {"name: sched_switch", "name: schedXswitch"}};
    for (const auto& [before, after] : changes)
    {
        SCOPED_TRACE(after);
        const PerfCaptureReader capture(gReplace(gMakeSwitch().Build(), before, after));
        ASSERT_TRUE(capture.IsOpen);
        EXPECT_THAT(capture.Lines, SizeIs(1));
        EXPECT_THAT(capture.Lines, testing::Not(ElementsAre(HasSubstr("to thread2:2"))));
    }
}

TEST(Tracepoints, GoesByTheIDWhereTheEventWasRenamed)
{
    PerfFileBuilder builder = gMakeSwitch();
    builder.Events[1].Name = "switches";
    EXPECT_THAT(PerfCaptureReader(builder.Build()).Lines, ElementsAre(HasSubstr("to thread2:2")));
}

// Newer kernels keep some texts behind the fields and store their place.
TEST(Tracepoints, ReadsTextsThatLieBehindTheFields)
{
    PerfFileBuilder builder;
    std::vector<uint8_t> raw = gMakeExitRaw(1);
    const uint32_t place = static_cast<uint32_t>(raw.size()) | 5u << 16;
    std::memcpy(raw.data() + 8, &place, sizeof(place));
    raw.insert(raw.end(), {'n', 'a', 'm', 'e', 0});
    builder.AddSample(static_cast<uint32_t>(EBuilderEvent::SchedProcessExit), {.Time = 5, .Raw = raw});
    const std::uint32_t beyond = 4000;
    std::memcpy(raw.data() + 8, &beyond, sizeof(beyond));
    builder.AddSample(static_cast<uint32_t>(EBuilderEvent::SchedProcessExit), {.Time = 6, .Raw = raw});

    // Only the last format, that of sched_process_exit, may change.
    std::vector<uint8_t> image = builder.Build();
    constexpr std::string_view old = "field:char comm[16];\toffset:8;\tsize:16;\tsigned:0;";
    constexpr std::string_view dynamic = "field:__data_loc char[] comm;\toffset:8;\tsize:4;; ";
    const auto found = std::find_end(image.begin(), image.end(), old.begin(), old.end());
    ASSERT_NE(found, image.end());
    std::string line(dynamic.substr(0, dynamic.find(";; ")));
    line += ";\tsigned:0;";
    ASSERT_GE(line.size(), old.size());
    // The name of the priority field makes room for the longer line.
    std::string text(found, image.end());
    text.replace(0, old.size(), line);
    const size_t priority = text.find("field:int prio;");
    text.replace(priority, std::string_view("field:int prio;").size(), "field:int p;");
    const size_t print = text.find("\"pid=%d\"");
    text.replace(print, 8, std::string(8 + old.size() + 3 - line.size(), 'x'));
    ASSERT_EQ(text.size(), static_cast<size_t>(image.end() - found));
    std::copy(text.begin(), text.end(), found);

    EXPECT_THAT(PerfCaptureReader(image).Lines, ElementsAre(HasSubstr("exits name:1"), HasSubstr("too short")));
}

// What follows the format is a parser that leaks and worse on texts that the kernel doesn't write.
TEST(TracingData, KeepsOnlyFieldsThatAreWrittenAsUsual)
{
    constexpr const char* end = ";\toffset:8;\tsize:4;\tsigned:0;";
    for (const char* usual :
         {"int a", "unsigned long a", "char a[16]", "char a[LENGTH]", "__data_loc char[] a", "__rel_loc char[] a"})
    {
        CleanFormat clean;
        const std::string line = std::string("\tfield:") + usual + end + "\n";
        ASSERT_TRUE(gCleanFormat("name: x\nID: 7\nformat:\n" + line + "\nprint fmt: \"\", (((\n", clean));
        EXPECT_EQ(clean.ID, 7u);
        EXPECT_EQ(clean.Text, "name: x\nID: 7\nformat:\n" + line + "\n\nprint fmt: \"\"\n");
    }
    for (const char* unusual : {"a", "", "int a[", "int a[]]", "int *a", "__data_loc int[] a", "int 1a", "int  a",
                                "int a[1234567]", "int\ta", "int VIF_PR_FMT"})
    {
        CleanFormat clean;
        ASSERT_TRUE(gCleanFormat(std::string("name: x\nID: 7\nformat:\n\tfield:") + unusual + end + "\n\nprint fmt: \n", clean));
        EXPECT_THAT(clean.Text, testing::Not(HasSubstr("field"))) << unusual;
    }
    CleanFormat clean;
    EXPECT_FALSE(gCleanFormat("name: x y\nID: 7\nformat:\n", clean));
    EXPECT_FALSE(gCleanFormat("name: x\nID: 7x\nformat:\n", clean));
    EXPECT_FALSE(gCleanFormat("name: x\nID: 7\n", clean));
    EXPECT_FALSE(gCleanFormat("name: x", clean));
}

TEST(TracingData, GivesNothingBeyondItsEnd)
{
    const std::vector<uint8_t> whole = gMakeTracingData();
    TracingData data;
    ASSERT_TRUE(gReadTracingData(whole, data));
    ASSERT_THAT(data.Events, SizeIs(5));
    EXPECT_EQ(data.Events[0].System, "sched");
    const size_t formatsEnd =
        static_cast<size_t>(reinterpret_cast<const uint8_t*>(data.Events.back().Format.end()) - whole.data());
    for (size_t size = 0; size != formatsEnd; ++size)
    {
        TracingData cut;
        EXPECT_FALSE(gReadTracingData(std::vector<uint8_t>(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)), cut));
    }
}

} // namespace
} // namespace Host
