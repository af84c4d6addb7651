#include "Host/Import/PerfFormat.h"
#include "Host/Import/PerfRecordingGaps.h"
#include "Tests/Host/PerfCaptureReader.h"
#include "Tests/Support/PerfFileBuilder.h"

#include <gmock/gmock.h>
#include <linux/perf_event.h>

#include <cstddef>
#include <cstring>

namespace Host
{
namespace
{

using namespace testing;

PerfFileBuilder gMakeSmallCapture()
{
    PerfFileBuilder builder("0 comm 10/10 main\n"
                            "5 cpu0 clock 10/11 0x401000;0x402000\n"
                            "round\n");
    return builder;
}

// Opens the small capture with its header changed.
template <class Change>
std::string gGetRefusal(Change inChange)
{
    std::vector<uint8_t> image = gMakeSmallCapture().Build();
    PerfFileHeader header;
    std::memcpy(&header, image.data(), sizeof(header));
    inChange(header);
    std::memcpy(image.data(), &header, sizeof(header));
    return PerfCaptureReader(image).GetError();
}

// Opens the small capture with its events changed.
template <class Change>
std::string gGetEventRefusal(Change inChange)
{
    PerfFileBuilder builder;
    inChange(builder.Events);
    return PerfCaptureReader(builder.Build()).GetError();
}

std::vector<EPerfGap> gFindGaps(PerfFileBuilder& inBuilder)
{
    PerfCaptureReader capture(inBuilder.Build());
    EXPECT_TRUE(capture.IsOpen) << capture.GetError();
    std::vector<EPerfGap> kinds;
    for (const PerfGap& gap : gFindRecordingGaps(capture.File, capture.Formats, capture.Health))
        kinds.push_back(gap.Kind);
    return kinds;
}

TEST(PerfFile, TellsWhatTheFileSaysAboutItsRecording)
{
    PerfFileBuilder builder = gMakeSmallCapture();
    const uint8_t buildID[] = {0xAB, 0x01, 0xFF};
    builder.AddBuildID(-1, buildID, "/bin/worker", false);
    builder.AddBuildID(-1, buildID, "[kernel.kallsyms]", true);
    const PerfCaptureReader capture(builder.Build());

    ASSERT_TRUE(capture.IsOpen) << capture.GetError();
    EXPECT_THAT(capture.File.GetWarnings(), IsEmpty());
    EXPECT_EQ(capture.File.GetMachine().HostName, "machine");
    EXPECT_EQ(capture.File.GetMachine().KernelRelease, "6.1.0");
    EXPECT_THAT(capture.File.GetMachine().CommandLine, ElementsAre("perf", "record"));
    ASSERT_EQ(capture.File.GetBuildIDs().size(), 2u);
    EXPECT_EQ(capture.File.GetBuildIDs()[0].BuildID, "ab01ff");
    EXPECT_EQ(capture.File.GetBuildIDs()[0].Path, "/bin/worker");
    EXPECT_TRUE(capture.File.GetBuildIDs()[1].IsKernel);
    const std::vector<PerfEvent>& events = capture.File.GetEvents();
    ASSERT_EQ(events.size(), builder.Events.size());
    EXPECT_EQ(events[0].Kind, EPerfEventKind::Clock);
    EXPECT_EQ(events[1].Name, "sched:sched_switch");
    EXPECT_EQ(capture.File.FindEvent(events[3].IDs[1]), &events[3]);
    EXPECT_EQ(capture.File.FindEvent(0), &events[0]);
    EXPECT_EQ(capture.File.FindEvent(999), nullptr);
}

TEST(PerfFile, RefusesWhatIsNoCaptureAndNamesTheCure)
{
    EXPECT_EQ(PerfCaptureReader(std::vector<uint8_t>{}).GetError(), "test.data, offset 0: not a perf.data file");
    EXPECT_THAT(gGetRefusal([](auto& ioHeader) { ioHeader.Magic = sPerfMagicOtherEndian; }), HasSubstr("big-endian"));
    EXPECT_THAT(gGetRefusal([](auto& ioHeader) { ioHeader.Magic = sPerfMagicOld; }), HasSubstr("record it with a newer one"));
    EXPECT_THAT(gGetRefusal([](auto& ioHeader) { ioHeader.Size = sPerfPipeHeaderSize; }), HasSubstr("perf record -o FILE"));
    std::vector<uint8_t> pipe = gMakeSmallCapture().Build();
    pipe.resize(sPerfPipeHeaderSize); // nothing but magic and size in front of the records
    pipe[8] = sPerfPipeHeaderSize;
    EXPECT_THAT(PerfCaptureReader(pipe).GetError(), HasSubstr("perf inject -i FILE -o NEW"));
    EXPECT_THAT(gGetRefusal([](auto& ioHeader) { ioHeader.Size = 50; }), HasSubstr("header of 50 bytes"));
    EXPECT_THAT(gGetRefusal([](auto& ioHeader) { ioHeader.AttributeSize = 1; }), HasSubstr("attributes of 1 bytes"));
    EXPECT_THAT(gGetRefusal([](auto& ioHeader) { ioHeader.Attributes.Offset = UINT64_MAX; }), HasSubstr("beyond the end"));
    EXPECT_THAT(gGetRefusal([](auto& ioHeader) { ioHeader.Attributes.Size += 1; }), HasSubstr("no whole number"));
    EXPECT_THAT(gGetRefusal([](auto& ioHeader) { ioHeader.Attributes.Size = 0; }), HasSubstr("no whole number"));
    EXPECT_THAT(gGetRefusal([](auto& ioHeader) { ioHeader.Data.Offset = 1u << 30; }), HasSubstr("outside the file"));
    EXPECT_THAT(gGetRefusal([](auto& ioHeader) { ioHeader.Data.Offset = 8; }), HasSubstr("outside the file"));
}

TEST(PerfFile, RefusesEventsWithoutTheFieldsThatAreNeeded)
{
    EXPECT_THAT(gGetEventRefusal([](auto& ioEvents) { ioEvents[2].SampleType &= ~uint64_t{PERF_SAMPLE_TIME}; }),
                HasSubstr("--timestamp"));
    EXPECT_THAT(gGetEventRefusal([](auto& ioEvents) { ioEvents[2].SampleType &= ~uint64_t{PERF_SAMPLE_TID}; }),
                HasSubstr("thread"));
    EXPECT_THAT(gGetEventRefusal([](auto& ioEvents) { ioEvents[1].HasSampleIDAll = false; }), HasSubstr("sample_id_all"));
    EXPECT_THAT(gGetEventRefusal([](auto& ioEvents) { ioEvents[1].SampleType &= ~uint64_t{PERF_SAMPLE_IDENTIFIER}; }),
                HasSubstr("--sample-identifier"));
    EXPECT_THAT(gGetEventRefusal([](auto& ioEvents) { ioEvents[1].IDs = ioEvents[0].IDs; }), HasSubstr("share the id"));
}

TEST(PerfFile, RefusesIDsThatLieOutsideTheFile)
{
    std::vector<uint8_t> image = gMakeSmallCapture().Build();
    PerfFileHeader header;
    std::memcpy(&header, image.data(), sizeof(header));
    const uint64_t size = UINT64_MAX - 7;
    std::memcpy(image.data() + header.Attributes.Offset + header.AttributeSize - sizeof(size), &size, sizeof(size));
    const std::string error = PerfCaptureReader(image).GetError();
    EXPECT_THAT(error, StartsWith("test.data, offset " + std::to_string(header.Attributes.Offset) + ":"));
    EXPECT_THAT(error, HasSubstr("don't lie within the file"));
}

// What is lost with the features are names and formats; the records that are there still count.
TEST(PerfFile, ReadsOnWhenRecordingWasInterrupted)
{
    std::vector<uint8_t> image = gMakeSmallCapture().Build();
    const uint64_t zero = 0;
    std::memcpy(image.data() + offsetof(PerfFileHeader, Data) + sizeof(uint64_t), &zero, sizeof(zero));
    image.resize(gMakeSmallCapture().GetRecordsOffset() + gMakeSmallCapture().GetRecords().size());
    const PerfCaptureReader capture(image);

    ASSERT_TRUE(capture.IsOpen) << capture.GetError();
    EXPECT_THAT(capture.Lines, ElementsAre("0 comm 10/10 main", "5 sample 10/11 cpu0 401000 402000"));
    EXPECT_THAT(capture.Health.TruncatedReason, HasSubstr("interrupted"));

    image.resize(gMakeSmallCapture().GetRecordsOffset());
    EXPECT_THAT(PerfCaptureReader(image).GetError(), HasSubstr("interrupted"));
}

TEST(PerfFile, WarnsAboutDamagedFeaturesAndReadsOn)
{
    PerfFileBuilder builder = gMakeSmallCapture();
    builder.BuildIDs = {1, 2, 3};
    const PerfCaptureReader damaged(builder.Build());
    ASSERT_TRUE(damaged.IsOpen);
    EXPECT_THAT(damaged.File.GetWarnings(), ElementsAre(HasSubstr("feature section 2 is damaged")));
    EXPECT_EQ(damaged.File.GetMachine().HostName, "machine");
    EXPECT_EQ(damaged.Lines.size(), 2u);

    std::vector<uint8_t> image = gMakeSmallCapture().Build();
    image.resize(builder.GetRecordsOffset() + builder.GetRecords().size() + sizeof(PerfFileSection) + 3);
    const PerfCaptureReader cutOff(image);
    ASSERT_TRUE(cutOff.IsOpen);
    EXPECT_THAT(cutOff.File.GetWarnings(), ElementsAre(HasSubstr("beyond the end"), HasSubstr("cut off")));
    EXPECT_EQ(cutOff.Lines.size(), 2u);
}

TEST(PerfFile, MakesUpNamesWhereTheFileHasNone)
{
    PerfFileBuilder builder = gMakeSmallCapture();
    builder.HasEventDescriptions = false;
    const PerfCaptureReader capture(builder.Build());
    EXPECT_EQ(capture.File.GetEvents()[0].Name, "cpu-clock");
    // The formats still tell which tracepoint it is.
    EXPECT_EQ(capture.Formats.GetKind(capture.File.GetEvents()[1]), ETracepoint::SchedSwitch);
}

// The kinds of the builder's events, with one of these in front.
std::vector<EPerfEventKind> gClassify(std::vector<BuilderEvent> inEvents, size_t& outNumWarnings)
{
    PerfFileBuilder builder;
    builder.Events.erase(builder.Events.begin());
    for (BuilderEvent& event : inEvents)
    {
        event.SampleType = builder.Events[0].SampleType;
        event.IDs = {1000 + builder.Events.size()};
        builder.Events.push_back(event);
    }
    builder.AddRound();
    const PerfCaptureReader capture(builder.Build());
    EXPECT_TRUE(capture.IsOpen) << capture.GetError();
    outNumWarnings = capture.File.GetWarnings().size();
    std::vector<EPerfEventKind> kinds;
    for (size_t i = builder.Events.size() - inEvents.size(); i < builder.Events.size(); ++i)
        kinds.push_back(capture.File.GetEvents()[i].Kind);
    return kinds;
}

TEST(PerfFile, OnlyClocksAndCyclesTellWhereThreadsExecute)
{
    const BuilderEvent clock{.Name = "cpu-clock", .Type = PERF_TYPE_SOFTWARE, .Config = PERF_COUNT_SW_CPU_CLOCK};
    constexpr uint32_t coreType = 8; // any number that the kernel gave out
    const std::pair<BuilderEvent, EPerfEventKind> cases[] = {
        {{.Name = "cycles:u", .Type = PERF_TYPE_HARDWARE, .Config = PERF_COUNT_HW_CPU_CYCLES}, EPerfEventKind::Hardware},
        {{.Name = "cpu_core/cycles/", .Type = PERF_TYPE_HARDWARE, .Config = uint64_t{coreType} << 32}, EPerfEventKind::Hardware},
        {{.Name = "ref-cycles", .Type = PERF_TYPE_HARDWARE, .Config = PERF_COUNT_HW_REF_CPU_CYCLES}, EPerfEventKind::Hardware},
        {{.Name = "instructions", .Type = PERF_TYPE_HARDWARE, .Config = PERF_COUNT_HW_INSTRUCTIONS}, EPerfEventKind::Other},
        {{.Name = "bus-cycles", .Type = PERF_TYPE_HARDWARE, .Config = PERF_COUNT_HW_BUS_CYCLES}, EPerfEventKind::Other},
        {{.Name = "LLC-load-misses", .Type = PERF_TYPE_HW_CACHE, .Config = 0x10002}, EPerfEventKind::Other},
        {{.Name = "cycles", .Type = PERF_TYPE_RAW, .Config = 0x3c}, EPerfEventKind::Hardware},
        {{.Name = "cpu/cpu-cycles/p", .Type = PERF_TYPE_RAW, .Config = 0x3c}, EPerfEventKind::Hardware},
        {{.Name = "r1a8", .Type = PERF_TYPE_RAW, .Config = 0x1a8}, EPerfEventKind::Other},
        {{.Name = "cpu/cycle_activity.stalls_total/", .Type = PERF_TYPE_RAW, .Config = 0x4a3}, EPerfEventKind::Other},
        {{.Name = "cpu_atom/cycles/", .Type = coreType}, EPerfEventKind::Hardware},
        {{.Name = "cpu_atom/stalled-cycles/", .Type = coreType}, EPerfEventKind::Other}};
    for (const auto& [event, kind] : cases)
    {
        size_t numWarnings = 0;
        EXPECT_THAT(gClassify({clock, event}, numWarnings), ElementsAre(EPerfEventKind::Clock, kind)) << event.Name;
        EXPECT_EQ(numWarnings, 0u);
    }
}

// Better than nothing, which is what such a capture would show.
TEST(PerfFile, TheOnlyCounterStandsInForAClock)
{
    const BuilderEvent misses{.Name = "cache-misses", .Type = PERF_TYPE_HARDWARE, .Config = PERF_COUNT_HW_CACHE_MISSES};
    const BuilderEvent faults{.Name = "page-faults", .Type = PERF_TYPE_SOFTWARE, .Config = PERF_COUNT_SW_PAGE_FAULTS};
    BuilderEvent counted = misses; // without samples
    counted.Period = 0;
    size_t numWarnings = 0;
    EXPECT_THAT(gClassify({misses, faults, counted}, numWarnings),
                ElementsAre(EPerfEventKind::Hardware, EPerfEventKind::Other, EPerfEventKind::Other));
    EXPECT_EQ(numWarnings, 1u);
    EXPECT_THAT(gClassify({misses, misses}, numWarnings), ElementsAre(EPerfEventKind::Other, EPerfEventKind::Other));
    EXPECT_EQ(numWarnings, 0u) << "which of them isn't known";
}

TEST(PerfRecordingGaps, TellsWhatWasNotRecorded)
{
    PerfFileBuilder whole = gMakeSmallCapture();
    EXPECT_THAT(gFindGaps(whole), IsEmpty());

    PerfFileBuilder thinned = gMakeSmallCapture();
    thinned.Events[1].IsFrequency = true;
    thinned.Events[2].Period = 100;
    EXPECT_THAT(gFindGaps(thinned), ElementsAre(EPerfGap::TracepointsThinnedOut, EPerfGap::TracepointsThinnedOut));

    PerfFileBuilder clockOnly;
    clockOnly.Events.resize(1);
    clockOnly.Events[0].SampleType &= ~uint64_t{PERF_SAMPLE_CALLCHAIN | PERF_SAMPLE_CPU};
    clockOnly.AddRecords("5 lost 3\n");
    EXPECT_THAT(gFindGaps(clockOnly), ElementsAre(EPerfGap::NoCallchains, EPerfGap::NoContextSwitches, EPerfGap::NoWakeups,
                                                  EPerfGap::OnlySomeThreads, EPerfGap::EventsLost));

    PerfFileBuilder switches = gMakeSmallCapture();
    switches.Events.erase(switches.Events.begin());
    switches.HasTracingData = false;
    EXPECT_THAT(gFindGaps(switches), ElementsAre(EPerfGap::NoExecutionSamples, EPerfGap::NoTracepointFormats));
}

// The list of recorded threads outweighs what the events suggest.
TEST(PerfRecordingGaps, KnowsASystemWideCaptureByItsThreads)
{
    for (const int64_t thread : {int64_t{-1}, int64_t{77}})
    {
        PerfFileBuilder builder = gMakeSmallCapture();
        builder.Events[0].IsEnabledOnExec = thread == -1;
        std::vector<uint8_t> body(32);
        body[0] = 1;
        std::memcpy(body.data() + 8, &thread, sizeof(thread));
        builder.AddPlain(EPerfRecordType::ThreadMap, body);
        EXPECT_EQ(gFindGaps(builder).empty(), thread == -1);
    }
}

} // namespace
} // namespace Host
