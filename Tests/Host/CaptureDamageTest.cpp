// Damage at every place of a small capture, for the reader alone and through the whole pass: a result or one clear error, never a
// crash, nor a read where none may be, which shows under the sanitizers.
#include "Tests/Host/PerfCaptureReader.h"
#include "Tests/Support/PerfFileBuilder.h"
#include "Tests/Support/SummaryPass.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>

namespace Host
{
namespace
{

// Records of every kind that the importer acts on, plain or compressed.
std::vector<uint8_t> gMakeCapture(size_t inCompressedPartSize)
{
    PerfFileBuilder builder("0 comm 10/10 main\n0 comm 10/11 worker\n0 mmap 10/10 0x400000 0x2000 /bin/main\n"
                            "1000 cpu0 clock 10/10 0x400010;0x400020;0x401000\n1500 cpu1 clock 10/11 0x400010;0x400030\n"
                            "2000 cpu0 switch 10/10 S 10/11\nround\n"
                            "1800 cpu1 fork 20/20 from 10/10\n1900 cpu1 exec 20/20 tool\n"
                            "1950 cpu1 mmap 20/20 0x400000 0x1000 /bin/tool\n"
                            "2500 cpu1 waking 20/20 10\n2600 cpu1 wakeup 20/20 10\n3000 cpu1 switch 20/20 D 10/10\n"
                            "3500 cpu0 switch_out 10/11\n3600 cpu0 switch_in 10/11\n"
                            "4000 cpu0 process_exit 10/11\n4100 cpu0 exit 10/11\n4200 cpu0 switch 10/11 X 0/0\n"
                            "4300 cpu1 wakeup_new 10/10 30\n4400 cpu1 clock 10/10 0x400010;0x400040\n5000 cpu1 lost 3\nround\n");
    builder.CompressedPartSize = inCompressedPartSize;
    const uint8_t buildID[20] = {1, 2, 3};
    builder.AddBuildID(-1, buildID, "/bin/main", false);
    return builder.Build();
}

class CaptureDamageTest : public testing::TestWithParam<size_t>
{
protected:
    // What a pass over the image gives; its counts must fit one another.
    void CheckPass(const std::vector<uint8_t>& inImage)
    {
        Summary summary;
        Utility::ErrorState errors;
        if (!SummaryPass(mScheduler).Run(inImage, summary, errors))
        {
            ++mNumRefused;
            ASSERT_FALSE(errors.GetEntries().empty());
            ASSERT_FALSE(errors.GetEntries().front().Message.empty());
            return;
        }
        ++mNumShown;
        uint64_t samples = 0;
        for (const ThreadRow& row : summary.Threads)
            samples += row.Totals.Samples;
        const auto counted = std::find_if(summary.Report.Events.begin(), summary.Report.Events.end(),
                                          [](const NamedCount& inCount) { return inCount.Name == "Sample"; });
        ASSERT_LE(samples, counted != summary.Report.Events.end() ? counted->Count : 0);
    }

    const std::vector<uint8_t> mWhole = gMakeCapture(GetParam());
    System::JobScheduler mScheduler{1};
    int mNumRefused = 0;
    int mNumShown = 0;
};

TEST_P(CaptureDamageTest, AnyPrefixGivesAResultOrAnError)
{
    const size_t numRecords = PerfCaptureReader(mWhole).Ordered.size();
    ASSERT_EQ(numRecords, 20U);
    size_t recordsBefore = 0;
    for (size_t size = 0; size <= mWhole.size(); ++size)
    {
        SCOPED_TRACE(size);
        // A copy of its own, so that a read behind its end is noticed.
        const std::vector<uint8_t> prefix(mWhole.begin(), mWhole.begin() + static_cast<ptrdiff_t>(size));
        const PerfCaptureReader capture(prefix);
        ASSERT_EQ(capture.IsOpen, capture.GetError().empty());
        ASSERT_EQ(capture.GetError().find('\n'), std::string::npos);
        // More of the file never gives fewer records, and what is missing is told.
        ASSERT_GE(capture.Ordered.size(), recordsBefore);
        recordsBefore = capture.Ordered.size();
        ASSERT_TRUE(!capture.IsOpen || recordsBefore == numRecords || !capture.Health.TruncatedReason.empty());
        ASSERT_NO_FATAL_FAILURE(CheckPass(prefix));
    }
    EXPECT_EQ(recordsBefore, numRecords);
    EXPECT_GT(mNumRefused, 0);
    EXPECT_GT(mNumShown, 0);
}

TEST_P(CaptureDamageTest, AnyChangedByteGivesAResultOrAnError)
{
    constexpr uint32_t seed = 20;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    constexpr int numChanges = 5000;
    int numOpened = 0;
    for (int change = 0; change < numChanges; ++change)
    {
        std::vector<uint8_t> image = mWhole;
        const size_t place = random() % image.size();
        image[place] = static_cast<uint8_t>(image[place] ^ (1 + random() % 255));
        SCOPED_TRACE(place);
        const PerfCaptureReader capture(image);
        ASSERT_EQ(capture.IsOpen, capture.GetError().empty());
        numOpened += capture.IsOpen ? 1 : 0;
        // What the scan promised is what the merge delivers.
        ASSERT_TRUE(!capture.IsOpen || capture.Ordered.size() == capture.Stream->GetRecordCount());
        ASSERT_NO_FATAL_FAILURE(CheckPass(image));
    }
    EXPECT_GT(numOpened, numChanges / 2);
    EXPECT_GT(mNumShown, 0);
}

// As it is, and in compressed parts of so many bytes.
INSTANTIATE_TEST_SUITE_P(PlainAndCompressed, CaptureDamageTest, testing::Values(0, 100));

} // namespace
} // namespace Host
