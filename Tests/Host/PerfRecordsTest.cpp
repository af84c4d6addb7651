#include "Tests/Host/PerfCaptureReader.h"
#include "Tests/Support/ByteWriter.h"
#include "Tests/Support/PerfFileBuilder.h"

#include <gmock/gmock.h>
#include <linux/perf_event.h>

#include <random>

namespace Host
{
namespace
{

using testing::ElementsAre;
using testing::ElementsAreArray;

const BuilderSample sTrailer{.Time = 5, .ProcessID = 10, .ThreadID = 11, .Cpu = 1};

ByteWriter gMakeMmap2Front(int32_t inProcess)
{
    ByteWriter body;
    body.Add(inProcess).Add(inProcess).Add(uint64_t{0x400000}).Add(uint64_t{0x1000}).Add(uint64_t{0x2000});
    return body;
}

// Reads the only record of the capture, a MMAP2 with the given body and flags.
PerfMmap gReadMmap2(std::unique_ptr<PerfCaptureReader>& outCapture, const ByteWriter& inBody, uint32_t inMisc)
{
    PerfFileBuilder builder;
    builder.AddSideBand(EPerfRecordType::Mmap2, static_cast<uint16_t>(inMisc), inBody.Bytes, sTrailer);
    outCapture = std::make_unique<PerfCaptureReader>(builder.Build());
    PerfMmap mmap;
    EXPECT_EQ(outCapture->Ordered.size(), 1u);
    EXPECT_EQ(gDecodeMmap(outCapture->Ordered.at(0), mmap), EPerfSkip::None);
    return mmap;
}

// A sample of the capture's first event, whose callchain and raw sizes are replaced.
EPerfSkip gDecodeChanged(uint64_t inSampleType, size_t inOffset, uint64_t inValue, size_t inValueSize)
{
    PerfFileBuilder builder;
    builder.Events[0].SampleType = inSampleType;
    builder.Events[0].ReadFormat = PERF_FORMAT_GROUP;
    builder.AddSample(0, {.Time = 1, .Callchain = {1, 2, 3}, .Raw = {1, 2, 3, 4}});
    std::vector<uint8_t> image = builder.Build();
    std::memcpy(image.data() + builder.GetRecordsOffset() + inOffset, &inValue, inValueSize);
    const PerfCaptureReader capture(image);
    PerfSample sample;
    return gDecodeSample(capture.Ordered.at(0), sample);
}

TEST(PerfRecords, DecodesMappingsWithInodeOrBuildID)
{
    std::unique_ptr<PerfCaptureReader> capture;
    ByteWriter inode = gMakeMmap2Front(10);
    inode.Add(uint32_t{8}).Add(uint32_t{1}).Add(uint64_t{1234}).Add(uint64_t{9});
    inode.Add(uint32_t{5}).Add(uint32_t{2}).AddAligned("/bin/a");
    PerfMmap mmap = gReadMmap2(capture, inode, PERF_RECORD_MISC_USER);
    EXPECT_EQ(mmap.Path, "/bin/a");
    EXPECT_EQ(mmap.FileOffset, 0x2000u);
    EXPECT_EQ(mmap.DeviceMajor, 8u);
    EXPECT_EQ(mmap.Inode, 1234u);
    EXPECT_EQ(mmap.Protection, 5u);
    EXPECT_TRUE(mmap.IsExecutable);
    EXPECT_FALSE(mmap.IsKernel);
    EXPECT_TRUE(mmap.BuildID.empty());

    for (const uint8_t size : {uint8_t{20}, uint8_t{3}, uint8_t{21}})
    {
        ByteWriter buildID = gMakeMmap2Front(-1);
        buildID.Add(size).Add(uint8_t{0}).Add(uint16_t{0}).AddBytes(std::vector<uint8_t>(20, 0xAB));
        buildID.Add(uint32_t{1}).Add(uint32_t{2});
        mmap = gReadMmap2(capture, buildID.AddAligned("[kernel]"), PERF_RECORD_MISC_KERNEL | PERF_RECORD_MISC_MMAP_BUILD_ID);
        // More bytes than there is room for are no build id.
        EXPECT_THAT(mmap.BuildID, ElementsAreArray(std::vector<uint8_t>(size <= 20 ? size : 0, 0xAB)));
        EXPECT_TRUE(mmap.IsKernel);
        EXPECT_FALSE(mmap.IsExecutable);
        EXPECT_EQ(mmap.Inode, 0u);
    }
}

TEST(PerfRecords, DecodesSwitchesInBothForms)
{
    PerfFileBuilder builder;
    builder.AddSideBand(EPerfRecordType::Switch, PERF_RECORD_MISC_SWITCH_OUT, {}, sTrailer);
    builder.AddSideBand(EPerfRecordType::Switch, 0, {}, sTrailer);
    builder.AddSideBand(EPerfRecordType::SwitchCpuWide, PERF_RECORD_MISC_SWITCH_OUT | PERF_RECORD_MISC_SWITCH_OUT_PREEMPT,
                        ByteWriter().Add(20).Add(21).Bytes, sTrailer);
    builder.AddSideBand(EPerfRecordType::SwitchCpuWide, 0, {}, sTrailer);
    EXPECT_THAT(PerfCaptureReader(builder.Build()).Lines,
                ElementsAre("5 out 10/11 cpu1 other 0/0", "5 in 10/11 cpu1 other 0/0", "5 preempt 10/11 cpu1 other 20/21",
                            "5 skip: record ends before its fields do"));
}

TEST(PerfRecords, SkipsTextsWithoutAnEnd)
{
    PerfFileBuilder builder;
    ByteWriter unterminated;
    unterminated.Add(10).Add(11).AddText("abcdefgh");
    builder.AddSideBand(EPerfRecordType::Comm, 0, unterminated.Bytes, sTrailer);
    builder.AddSideBand(EPerfRecordType::Comm, 0, std::vector<uint8_t>(7), sTrailer);
    ByteWriter mapping;
    mapping.Add(10).Add(11).Add(uint64_t{0}).Add(uint64_t{0}).Add(uint64_t{0});
    builder.AddSideBand(EPerfRecordType::Mmap, 0, mapping.Bytes, sTrailer);
    EXPECT_THAT(
        PerfCaptureReader(builder.Build()).Lines,
        ElementsAre("5 skip: text without an end", "5 skip: record ends before its fields do", "5 skip: text without an end"));
}

TEST(PerfRecords, SkipsSamplesThatClaimMoreThanTheyHold)
{
    constexpr uint64_t base = PERF_SAMPLE_IDENTIFIER | PERF_SAMPLE_TID | PERF_SAMPLE_TIME | PERF_SAMPLE_CPU;
    constexpr size_t tail = 8 + 4 * 8;
    EXPECT_EQ(gDecodeChanged(base | PERF_SAMPLE_CALLCHAIN, tail, 3, 8), EPerfSkip::None);
    EXPECT_EQ(gDecodeChanged(base | PERF_SAMPLE_CALLCHAIN, tail, 4, 8), EPerfSkip::CallchainTooLong);
    // Times eight, this wraps around to a small size.
    EXPECT_EQ(gDecodeChanged(base | PERF_SAMPLE_CALLCHAIN, tail, (uint64_t{1} << 61) + 1, 8), EPerfSkip::CallchainTooLong);
    EXPECT_EQ(gDecodeChanged(base | PERF_SAMPLE_RAW, tail, 5, 4), EPerfSkip::RawTooLong);
    EXPECT_EQ(gDecodeChanged(base | PERF_SAMPLE_RAW, tail, UINT32_MAX, 4), EPerfSkip::RawTooLong);
    EXPECT_EQ(gDecodeChanged(base | PERF_SAMPLE_READ, tail, 3, 8), EPerfSkip::ReadTooLong);
    EXPECT_EQ(gDecodeChanged(base | PERF_SAMPLE_READ, tail, uint64_t{1} << 61, 8), EPerfSkip::ReadTooLong);
}

// Every combination of fields in front of the raw data must be stepped over correctly.
TEST(PerfRecords, FindsEveryFieldWhateverIsRecorded)
{
    std::mt19937_64 random(7);
    constexpr uint64_t optional = PERF_SAMPLE_IP | PERF_SAMPLE_ADDR | PERF_SAMPLE_ID | PERF_SAMPLE_STREAM_ID | PERF_SAMPLE_CPU |
                                  PERF_SAMPLE_PERIOD | PERF_SAMPLE_READ | PERF_SAMPLE_CALLCHAIN | PERF_SAMPLE_RAW;
    for (int round = 0; round != 500; ++round)
    {
        PerfFileBuilder builder;
        BuilderEvent& event = builder.Events[0];
        event.SampleType = (random() & optional) | PERF_SAMPLE_IDENTIFIER | PERF_SAMPLE_TID | PERF_SAMPLE_TIME;
        event.ReadFormat = random() % PERF_FORMAT_MAX;
        event.Period = random();
        SCOPED_TRACE(Utility::gFormat("sample type %zx read format %zx", event.SampleType, event.ReadFormat));
        const BuilderSample given{.Time = random(),
                                  .ProcessID = 12,
                                  .ThreadID = 13,
                                  .Cpu = 1,
                                  .InstructionPointer = random(),
                                  .Callchain = {random(), random()},
                                  .Raw = {1, 2, 3, 4}};
        builder.AddSample(0, given);
        const PerfCaptureReader capture(builder.Build());
        const auto has = [&event](uint64_t inBit) { return (event.SampleType & inBit) != 0; };

        PerfSample sample;
        ASSERT_EQ(capture.Ordered.size(), 1u);
        ASSERT_EQ(gDecodeSample(capture.Ordered[0], sample), EPerfSkip::None);
        EXPECT_EQ(sample.Time, given.Time);
        EXPECT_EQ(sample.ProcessID, given.ProcessID);
        EXPECT_EQ(sample.ThreadID, given.ThreadID);
        EXPECT_EQ(sample.Cpu, has(PERF_SAMPLE_CPU) ? 1 : sNoCpu);
        EXPECT_EQ(sample.Period, event.Period);
        EXPECT_EQ(sample.InstructionPointer, has(PERF_SAMPLE_IP) ? given.InstructionPointer : 0);
        ASSERT_EQ(sample.Callchain.GetCount(), has(PERF_SAMPLE_CALLCHAIN) ? 2u : 0u);
        if (has(PERF_SAMPLE_CALLCHAIN))
        {
            EXPECT_EQ(sample.Callchain[1], given.Callchain[1]);
        }
        EXPECT_THAT(sample.Raw, ElementsAreArray(has(PERF_SAMPLE_RAW) ? given.Raw : std::vector<uint8_t>{}));
    }
}

} // namespace
} // namespace Host
