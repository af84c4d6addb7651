// Damaged files give a result or a refusal, and never read where they may not: these tests say most under the sanitizers.
#include "Tests/Host/PerfCaptureReader.h"
#include "Tests/Support/PerfFileBuilder.h"

#include <gmock/gmock.h>

#include <random>

namespace Host
{
namespace
{

std::vector<uint8_t> gMakeVariedCapture(size_t inCompressedPartSize)
{
    PerfFileBuilder builder;
    builder.CompressedPartSize = inCompressedPartSize;
    const uint8_t buildID[20] = {1, 2, 3};
    builder.AddBuildID(-1, buildID, "/bin/main", false);
    builder.AddRecords("0 comm 10/10 main\n0 mmap 10/10 0x400000 0x1000 /bin/main\n"
                       "5 cpu0 clock 10/11 0x401000;0x402000\n7 cpu0 switch 10/11 S 20/20\n"
                       "6 cpu1 wakeup 20/20 11\n8 cpu1 exit 20/20\n9 cpu1 process_exit 20/20\nround\n"
                       "12 cpu0 fork 10/12 from 10/11\n13 cpu0 lost 3\n14 cpu0 switch_out 10/11\n"
                       "10 cpu1 waking 0/0 10\nround\n");
    return builder.Build();
}

TEST(PerfFileDamage, EveryPrefixGivesAResultOrARefusal)
{
    for (const size_t partSize : {size_t{0}, size_t{100}})
    {
        const std::vector<uint8_t> image = gMakeVariedCapture(partSize);
        const std::vector<std::string> whole = PerfCaptureReader(image).Lines;
        ASSERT_EQ(whole.size(), 11u);
        size_t recordsBefore = 0;
        for (size_t size = 0; size != image.size(); ++size)
        {
            SCOPED_TRACE(size);
            // A copy of its own, so that a read behind its end is noticed.
            const PerfCaptureReader capture(std::vector<uint8_t>(image.begin(), image.begin() + static_cast<ptrdiff_t>(size)));
            ASSERT_EQ(capture.IsOpen, capture.GetError().empty());
            ASSERT_EQ(capture.GetError().find('\n'), std::string::npos);
            // More of the file never gives fewer records, and what is missing is told.
            ASSERT_GE(capture.Ordered.size(), recordsBefore);
            recordsBefore = capture.Ordered.size();
            ASSERT_TRUE(!capture.IsOpen || recordsBefore == whole.size() || !capture.Health.TruncatedReason.empty());
        }
        EXPECT_EQ(recordsBefore, whole.size());
    }
}

TEST(PerfFileDamage, TenThousandChangedBytesGiveAResultOrARefusal)
{
    constexpr uint32_t seed = 20;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    size_t opened = 0;
    for (const size_t partSize : {size_t{0}, size_t{100}})
    {
        const std::vector<uint8_t> image = gMakeVariedCapture(partSize);
        for (int round = 0; round != 5000; ++round)
        {
            std::vector<uint8_t> changed = image;
            const size_t place = random() % changed.size();
            changed[place] = static_cast<uint8_t>(changed[place] ^ (1 + random() % 255));
            const PerfCaptureReader capture(std::move(changed));
            ASSERT_EQ(capture.IsOpen, capture.GetError().empty());
            opened += capture.IsOpen ? 1 : 0;
            // What the scan promised is what the merge delivers.
            ASSERT_TRUE(!capture.IsOpen || capture.Ordered.size() == capture.Stream->GetRecordCount());
        }
    }
    EXPECT_GT(opened, 5000u);
}

} // namespace
} // namespace Host
