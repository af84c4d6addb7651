#include "Tests/Host/PerfCaptureReader.h"
#include "Tests/Support/ByteWriter.h"
#include "Tests/Support/PerfFileBuilder.h"

#include <gmock/gmock.h>
#include <linux/perf_event.h>

#include <algorithm>
#include <random>

namespace Host
{
namespace
{

using testing::ElementsAre;
using testing::HasSubstr;

std::vector<const uint8_t*> gGetPlaces(const std::vector<PerfRecord>& inRecords)
{
    std::vector<const uint8_t*> places;
    for (const PerfRecord& record : inRecords)
        places.push_back(record.Data);
    return places;
}

// The slow twin: all records that have an event, stably sorted by time.
std::vector<const uint8_t*> gSortAll(const PerfCaptureReader& inCapture)
{
    std::vector<PerfRecord> records = inCapture.Scanned;
    std::erase_if(records, [](const PerfRecord& inRecord) { return inRecord.Event == nullptr; });
    std::stable_sort(records.begin(), records.end(),
                     [](const PerfRecord& inLeft, const PerfRecord& inRight) { return inLeft.Time < inRight.Time; });
    return gGetPlaces(records);
}

TEST(PerfRecordStream, MergesTheProcessorsBlocksAcrossRounds)
{
    PerfFileBuilder builder("10 cpu0 clock 1/1 0x1\n"
                            "40 cpu0 clock 1/1 0x4\n"
                            "20 cpu1 clock 2/2 0x2\n"
                            "30 cpu1 exit 2/2\n"
                            "round\n"
                            "50 cpu0 clock 1/1 0x5\n"
                            "35 cpu1 clock 2/2 0x3\n"
                            "round\n"
                            "0 comm 1/1 main\n");
    const PerfCaptureReader capture(builder.Build());
    EXPECT_THAT(capture.Lines,
                ElementsAre("0 comm 1/1 main", "10 sample 1/1 cpu0 1", "20 sample 2/2 cpu1 2", "30 exit 2/2 from 2/2",
                            "35 sample 2/2 cpu1 3", "40 sample 1/1 cpu0 4", "50 sample 1/1 cpu0 5"));
    EXPECT_EQ(capture.Health.Runs, 4u);
    EXPECT_EQ(capture.Health.Records, 9u);
    EXPECT_EQ(capture.Health.FirstTime, 10u);
    EXPECT_EQ(capture.Health.LastTime, 50u);
    EXPECT_EQ(capture.Stream->GetRecordCount(), 7u);
    EXPECT_EQ(capture.Stream->GetPassedBytes(), capture.Stream->GetTotalBytes());
}

TEST(PerfRecordStream, EqualsAStableSortOfEverything)
{
    for (uint32_t seed = 1; seed != 60; ++seed)
    {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        PerfFileBuilder builder;
        const auto blocks = static_cast<uint32_t>(random() % 40);
        for (uint32_t block = 0; block != blocks; ++block)
        {
            uint64_t time = random() % 500;
            const auto cpu = static_cast<uint32_t>(random() % 2);
            for (auto i = random() % 30; i != 0; --i)
            {
                const std::string start = std::to_string(time) + " cpu" + std::to_string(cpu);
                constexpr const char* kinds[] = {" clock 1/1 0x1", " switch 1/1 S 2/2", " comm 1/1 a", " fork 1/2 from 1/1"};
                builder.AddRecords(random() % 16 == 0 ? "round" : start + kinds[random() % 4]);
                time += random() % 20;
                if (random() % 25 == 0)
                    time -= std::min<uint64_t>(time, 10);
            }
        }
        PerfCaptureReader capture(builder.Build());
        EXPECT_EQ(gGetPlaces(capture.Ordered), gSortAll(capture));

        capture.Stream->Rewind();
        std::vector<PerfRecord> again;
        PerfRecord record;
        while (capture.Stream->Next(record))
            again.push_back(record);
        EXPECT_EQ(gGetPlaces(again), gGetPlaces(capture.Ordered));
    }
}

TEST(PerfRecordStream, CountsWhatItCanNotUseAndReadsOn)
{
    PerfFileBuilder builder;
    BuilderSample sample{.Time = 5, .ProcessID = 1, .ThreadID = 1};
    builder.AddRecords("1 cpu0 clock 1/1 0x1\n");
    builder.Events.push_back(builder.Events[0]);
    builder.Events.back().IDs = {0xBAD};
    builder.AddSample(6, sample);
    builder.AddSideBand(EPerfRecordType::Exit, 0, std::vector<uint8_t>(24), sample, 6);
    builder.Events.pop_back();
    builder.AddPlain(EPerfRecordType::Sample, {});
    builder.AddPlain(EPerfRecordType::Sample, ByteWriter().Add(builder.Events[0].IDs[0]).Bytes);
    builder.AddPlain(EPerfRecordType::Exit, {});
    builder.AddPlain(0, std::vector<uint8_t>(8));
    builder.AddPlain(4711, std::vector<uint8_t>(8));
    builder.AddRecords("9 cpu0 clock 1/1 0x1\n");
    const PerfCaptureReader capture(builder.Build());

    EXPECT_THAT(capture.Lines, ElementsAre("1 sample 1/1 cpu0 1", "9 sample 1/1 cpu0 1"));
    EXPECT_EQ(capture.Health.GetSkipCount(EPerfSkip::UnknownEvent), 2u);
    EXPECT_EQ(capture.Health.GetSkipCount(EPerfSkip::RecordTooShort), 2u);
    EXPECT_EQ(capture.Health.GetSkipCount(EPerfSkip::TrailerMissing), 1u);
    EXPECT_EQ(capture.Health.Records, 9u);
    EXPECT_EQ(capture.Health.GetRecordCount(4711), 1u);
    EXPECT_EQ(capture.Health.SamplesByEvent[0], 2u);
}

TEST(PerfRecordStream, CountsLostAndThrottledEvents)
{
    PerfFileBuilder builder("3 lost 20\n4 lost 22\n");
    const BuilderSample trailer{.Time = 5};
    builder.AddSideBand(EPerfRecordType::LostSamples, 0, ByteWriter().Add(uint64_t{7}).Bytes, trailer);
    builder.AddSideBand(EPerfRecordType::Throttle, 0, std::vector<uint8_t>(24), trailer);
    builder.AddSideBand(EPerfRecordType::Unthrottle, 0, std::vector<uint8_t>(24), trailer);
    builder.AddSideBand(EPerfRecordType::Lost, 0, std::vector<uint8_t>(8), trailer);
    const PerfCaptureReader capture(builder.Build());
    EXPECT_EQ(capture.Health.LostEvents, 42u);
    EXPECT_EQ(capture.Health.LostSamples, 7u);
    EXPECT_EQ(capture.Health.LostRecords, 3u);
    EXPECT_EQ(capture.Health.Throttles, 1u);
    EXPECT_EQ(capture.Health.Unthrottles, 1u);
    EXPECT_EQ(capture.Health.GetSkipCount(EPerfSkip::RecordTooShort), 1u);
}

TEST(PerfRecordStream, StopsAtARecordOfImpossibleSize)
{
    for (const uint16_t size : {uint16_t{0}, uint16_t{7}, uint16_t{60000}})
    {
        PerfFileBuilder builder("1 cpu0 clock 1/1 0x1\n");
        const uint64_t place = builder.GetRecordsOffset() + builder.GetRecords().size();
        builder.AddBytes(ByteWriter().Add(uint32_t{9}).Add(uint16_t{0}).Add(size).Bytes);
        builder.AddRecords("9 cpu0 clock 1/1 0x1\n");
        const uint64_t rest = builder.GetRecordsOffset() + builder.GetRecords().size() - place;
        const PerfCaptureReader capture(builder.Build());

        EXPECT_THAT(capture.Lines, ElementsAre("1 sample 1/1 cpu0 1"));
        EXPECT_EQ(capture.Health.TruncatedOffset, place);
        EXPECT_EQ(capture.Health.TruncatedBytes, rest);
        EXPECT_NE(capture.Health.TruncatedReason, "");
    }
}

TEST(PerfRecordStream, StepsOverTraceDataThatRecordsDoNotCount)
{
    PerfFileBuilder builder("1 cpu0 clock 1/1 0x1\n");
    builder.AddPlain(EPerfRecordType::AuxTrace, ByteWriter().Add(uint64_t{24}).AddBytes(std::vector<uint8_t>(32)).Bytes);
    builder.AddBytes(std::vector<uint8_t>(24, 0xFF));
    builder.AddRecords("2 cpu0 clock 1/1 0x2\n");
    PerfCaptureReader capture(builder.Build());
    EXPECT_EQ(capture.Lines.size(), 2u);
    EXPECT_EQ(capture.Health.AuxBytes, 24u);

    builder.AddPlain(EPerfRecordType::AuxTrace, ByteWriter().Add(UINT64_MAX).Bytes);
    EXPECT_THAT(PerfCaptureReader(builder.Build()).Health.TruncatedReason, HasSubstr("trace data"));
}

TEST(PerfRecordStream, DecodesEachEventByItsOwnFields)
{
    // Captures of one process: the clock has no processor, the tracepoints have.
    PerfFileBuilder builder;
    builder.Events[0].SampleType &= ~uint64_t{PERF_SAMPLE_CPU};
    builder.Events[2].SampleType |= PERF_SAMPLE_ADDR | PERF_SAMPLE_STREAM_ID | PERF_SAMPLE_ID;
    builder.AddRecords("5 cpu1 clock 1/1 0x5\n6 cpu1 switch 1/1 D 0/0\n7 cpu1 wakeup 0/0 1\n8 cpu1 process_exit 1/1\n");
    EXPECT_THAT(PerfCaptureReader(builder.Build()).Lines,
                ElementsAre("5 sample 1/1 cpu-1 5", "6 sample 1/1 cpu1 switch thread1:1 state 2 to thread0:0",
                            "7 sample 0/0 cpu1 wakes thread1:1 on cpu1", "8 sample 1/1 cpu1 exits thread1:1"));

    PerfFileBuilder plainIDs;
    for (BuilderEvent& event : plainIDs.Events)
        event.SampleType = (event.SampleType & ~uint64_t{PERF_SAMPLE_IDENTIFIER}) | PERF_SAMPLE_ID;
    plainIDs.AddRecords("6 cpu1 switch 1/1 R 2/2\n5 cpu1 clock 1/1 0x5\n7 cpu0 exit 1/1\n");
    EXPECT_THAT(
        PerfCaptureReader(plainIDs.Build()).Lines,
        ElementsAre("5 sample 1/1 cpu1 5", "6 sample 1/1 cpu1 switch thread1:1 state 0 to thread2:2", "7 exit 1/1 from 1/1"));

    PerfFileBuilder oneEvent;
    oneEvent.Events.resize(1);
    oneEvent.Events[0].SampleType = PERF_SAMPLE_IP | PERF_SAMPLE_TID | PERF_SAMPLE_TIME | PERF_SAMPLE_CALLCHAIN;
    oneEvent.Events[0].IDs.clear();
    oneEvent.AddRecords("5 clock 1/1 0x5\n3 exec 1/1 main\n");
    EXPECT_THAT(PerfCaptureReader(oneEvent.Build()).Lines, ElementsAre("3 exec 1/1 main", "5 sample 1/1 cpu-1 5"));
}

} // namespace
} // namespace Host
