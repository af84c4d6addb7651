#include "Host/Import/PerfDecompressor.h"

#include "Tests/Host/PerfCaptureReader.h"
#include "Tests/Support/ByteWriter.h"
#include "Tests/Support/PerfFileBuilder.h"

#include <gmock/gmock.h>
#include <zstd.h>

namespace Host
{
namespace
{

using testing::HasSubstr;

PerfFileBuilder gMakeLongCapture()
{
    PerfFileBuilder builder;
    for (int i = 1; i != 200; ++i)
    {
        const std::string time = std::to_string(i * 10);
        builder.AddRecords(time + " cpu0 clock 1/1 0x401000;0x402000\n" + time + " cpu1 switch 1/1 S 2/2\n");
        if (i % 50 == 0)
            builder.AddRound();
    }
    return builder;
}

// A COMPRESSED record with a frame of its own.
std::vector<uint8_t> gMakeCompressedRecord(const std::vector<uint8_t>& inContent)
{
    std::vector<uint8_t> frame(ZSTD_compressBound(inContent.size()));
    frame.resize(ZSTD_compress(frame.data(), frame.size(), inContent.data(), inContent.size(), 1));
    ByteWriter record;
    record.Add(uint32_t{EPerfRecordType::Compressed})
        .Add(uint16_t{0})
        .Add(static_cast<uint16_t>(8 + frame.size()))
        .AddBytes(frame);
    return record.Bytes;
}

TEST(PerfDecompressor, ReadsTheSameRecordsWhereverThePartsAreCut)
{
    PerfFileBuilder builder = gMakeLongCapture();
    const std::vector<std::string> expected = PerfCaptureReader(builder.Build()).Lines;
    for (const size_t partSize : {size_t{1}, size_t{7}, size_t{100}, size_t{1000}, size_t{40000}})
    {
        SCOPED_TRACE(partSize);
        builder.CompressedPartSize = partSize;
        const PerfCaptureReader capture(builder.Build());
        ASSERT_TRUE(capture.IsOpen) << capture.GetError();
        EXPECT_TRUE(capture.File.IsCompressed());
        EXPECT_EQ(capture.Lines, expected);
        EXPECT_EQ(capture.Health.TruncatedReason, "");
    }
}

// Plain records between two parts of one record must not end up within it.
TEST(PerfDecompressor, KeepsPlainRecordsOutOfRecordsThatAreCut)
{
    const std::vector<uint8_t> records = gMakeLongCapture().GetRecords();
    constexpr size_t cut = 13;
    ByteWriter file;
    file.AddBytes(gMakeCompressedRecord({records.begin(), records.begin() + cut}));
    file.Add(uint32_t{EPerfRecordType::FinishedRound}).Add(uint16_t{0}).Add(uint16_t{8});
    file.AddBytes(gMakeCompressedRecord({records.begin() + cut, records.end()}));

    PerfDecompressed result;
    Utility::ErrorState errors;
    ASSERT_TRUE(gDecompressRecords(file.Bytes, 0, "test.data", result, errors));
    const std::span<const uint8_t> bytes = result.Records->GetBytes();
    ASSERT_EQ(bytes.size(), records.size() + 8);
    EXPECT_TRUE(std::equal(records.begin(), records.end(), bytes.begin()));
}

TEST(PerfDecompressor, KeepsWhatCameBeforeADamagedPart)
{
    PerfFileBuilder builder = gMakeLongCapture();
    builder.CompressedPartSize = 5000;
    std::vector<uint8_t> image = builder.Build();
    const size_t firstSize = gLoad<uint16_t>(image.data() + builder.GetRecordsOffset() + 6);
    const uint64_t secondOffset = builder.GetRecordsOffset() + firstSize;
    std::fill_n(image.begin() + static_cast<ptrdiff_t>(secondOffset + 8), 8, uint8_t{0xFF});
    const PerfCaptureReader capture(image);

    ASSERT_TRUE(capture.IsOpen) << capture.GetError();
    EXPECT_GT(capture.Lines.size(), 10u);
    EXPECT_LT(capture.Lines.size(), 100u);
    EXPECT_THAT(capture.Health.TruncatedReason, HasSubstr("offset " + std::to_string(secondOffset)));
    EXPECT_GT(capture.Health.TruncatedBytes, 0u);
}

// A few kilobytes that would fill a disk.
TEST(PerfDecompressor, RefusesToGrowOutOfAllProportion)
{
    std::vector<uint8_t> zeros(80u << 20);
    // Records of the greatest size, so that the content is sound.
    for (size_t i = 0; i + 65528 <= zeros.size(); i += 65528)
    {
        zeros[i] = 99;
        zeros[i + 6] = 0xF8;
        zeros[i + 7] = 0xFF;
    }
    const std::vector<uint8_t> record = gMakeCompressedRecord(zeros);
    ASSERT_LT(record.size(), 65536u);
    PerfDecompressed result;
    Utility::ErrorState errors;
    EXPECT_FALSE(gDecompressRecords(record, 0, "test.data", result, errors));
    EXPECT_THAT(Utility::GetErrorText(errors), HasSubstr("out of all proportion"));
}

} // namespace
} // namespace Host
