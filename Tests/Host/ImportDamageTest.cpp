// Damage at every place of a small capture, through the whole pass: a result or one clear error, never a crash.
#include "Tests/Support/PerfFileBuilder.h"
#include "Tests/Support/SummaryPass.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>

namespace Host
{
namespace
{

constexpr int sNumChanges = 10000;

// Records of every kind that the importer acts on.
std::vector<uint8_t> gMakeCapture()
{
    PerfFileBuilder builder;
    builder.AddRecords("0 comm 10/10 main\n"
                       "0 comm 10/11 worker\n"
                       "0 mmap 10/10 0x400000 0x2000 /bin/main\n"
                       "1000 cpu0 clock 10/10 0x400010;0x400020;0x401000\n"
                       "1500 cpu1 clock 10/11 0x400010;0x400030\n"
                       "2000 cpu0 switch 10/10 S 10/11\n"
                       "round\n"
                       "1800 cpu1 fork 20/20 from 10/10\n"
                       "1900 cpu1 exec 20/20 tool\n"
                       "1950 cpu1 mmap 20/20 0x400000 0x1000 /bin/tool\n"
                       "2500 cpu1 waking 20/20 10\n"
                       "2600 cpu1 wakeup 20/20 10\n"
                       "3000 cpu1 switch 20/20 D 10/10\n"
                       "3500 cpu0 switch_out 10/11\n"
                       "3600 cpu0 switch_in 10/11\n"
                       "4000 cpu0 process_exit 10/11\n"
                       "4100 cpu0 exit 10/11\n"
                       "4200 cpu0 switch 10/11 X 0/0\n"
                       "4300 cpu1 wakeup_new 10/10 30\n"
                       "4400 cpu1 clock 10/10 0x400010;0x400040\n"
                       "5000 cpu1 lost 3\n"
                       "round\n");
    return builder.Build();
}

class ImportDamageTest : public testing::Test
{
protected:
    // What a pass over the image gives; its counts must fit one another.
    void Check(const std::vector<uint8_t>& inImage)
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

    System::JobScheduler mScheduler{1};
    int mNumRefused = 0;
    int mNumShown = 0;
};

TEST_F(ImportDamageTest, AnyPrefixGivesAResultOrAnError)
{
    const std::vector<uint8_t> whole = gMakeCapture();
    for (size_t size = 0; size <= whole.size(); ++size)
    {
        SCOPED_TRACE(size);
        ASSERT_NO_FATAL_FAILURE(Check({whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)}));
    }
    EXPECT_GT(mNumRefused, 0);
    EXPECT_GT(mNumShown, 0);
}

TEST_F(ImportDamageTest, AnyChangedByteGivesAResultOrAnError)
{
    const std::vector<uint8_t> whole = gMakeCapture();
    constexpr uint32_t seed = 20;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    for (int change = 0; change < sNumChanges; ++change)
    {
        std::vector<uint8_t> image = whole;
        const size_t place = random() % image.size();
        image[place] = static_cast<uint8_t>(random());
        SCOPED_TRACE(place);
        ASSERT_NO_FATAL_FAILURE(Check(image));
    }
    EXPECT_GT(mNumShown, 0);
}

} // namespace
} // namespace Host
