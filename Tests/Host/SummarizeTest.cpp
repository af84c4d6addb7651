#include "Tests/Host/SessionCommandFixture.h"

namespace Host
{
namespace
{

using testing::HasSubstr;

constexpr const char* sCapture = SMALL_CAPTURE;

class SummarizeTest : public SessionCommandTest
{
protected:
    static rapidjson::Document SummarizeAsJSON()
    {
        rapidjson::Document document;
        document.Parse(Summarize(sCapture, true).c_str());
        EXPECT_FALSE(document.HasParseError());
        return document;
    }
};

TEST_F(SummarizeTest, CountsTheSamplesThatPerfShows)
{
    // perf script -i Tests/Data/small.perf.data -F tid,event -G | sort | uniq -c
    const std::map<int, uint64_t> expected = {{22025, 21}, {22027, 27}, {22028, 22}, {22029, 23},
                                              {22030, 20}, {22031, 13}, {22032, 44}, {22033, 45}};
    const rapidjson::Document summary = SummarizeAsJSON();
    std::map<int, uint64_t> samples;
    for (const auto& thread : summary["threads"].GetArray())
        samples[thread["thread"].GetInt()] = thread["samples"].GetUint64();
    EXPECT_EQ(samples, expected);
}

TEST_F(SummarizeTest, TheJSONHoldsWhatItPromises)
{
    const rapidjson::Document summary = SummarizeAsJSON();
    for (const auto& thread : summary["threads"].GetArray())
    {
        EXPECT_EQ(thread["process"].GetInt(), 22025);
        EXPECT_STRNE(thread["name"].GetString(), "");
        EXPECT_GT(thread["executing_ms"].GetDouble(), 0.0);
        double sum = 0.0;
        for (const auto& state : thread["state_ms"].GetObject())
            sum += state.value.GetDouble();
        EXPECT_NEAR(sum, thread["executing_ms"].GetDouble() + thread["waiting_ms"].GetDouble(), 1e-6);
        EXPECT_LE(sum, summary["length_ms"].GetDouble() + 1e-6);
    }
    ASSERT_EQ(summary["longest_bars"].Size(), 10U);
    for (rapidjson::SizeType i = 1; i < 10; ++i)
        EXPECT_GE(summary["longest_bars"][i - 1]["length_ms"].GetDouble(), summary["longest_bars"][i]["length_ms"].GetDouble());
    EXPECT_EQ(summary["health"]["events"]["Sample"].GetUint64(), 215U);
    EXPECT_EQ(summary["health"]["records"]["SAMPLE"].GetUint64(), 615U);
    EXPECT_EQ(summary["health"]["lost_events"].GetUint64(), 0U);
}

TEST_F(SummarizeTest, TheTextHasItsThreeParts)
{
    const std::string text = Summarize(sCapture);
    EXPECT_THAT(text, HasSubstr("EXECUTING ms"));
    EXPECT_THAT(text, HasSubstr("token-ping"));
    EXPECT_THAT(text, HasSubstr("\nLongest bars\n"));
    EXPECT_THAT(text, HasSubstr("\nHealth of the capture\n"));
    EXPECT_THAT(text, HasSubstr("only some processes were recorded"));
}

TEST_F(SummarizeTest, WhatIsNoCaptureIsRefusedInOneLine)
{
    WriteFile("empty", "");
    WriteFile("text", std::string(1000, 'x'));
    EXPECT_THAT(Summarize(At("missing")), HasSubstr(At("missing")));
    EXPECT_THAT(Summarize(At("")), testing::StartsWith("FAILED: "));
    EXPECT_THAT(Summarize(At("empty")), testing::StartsWith("FAILED: "));
    EXPECT_THAT(Summarize(At("text")), HasSubstr("not a perf.data file"));
}

TEST_F(SummarizeTest, ACutCaptureTellsWhereItEnds)
{
    std::filesystem::copy_file(sCapture, At("whole"));
    const std::string bytes = ReadFile("whole");
    WriteFile("cut", bytes.substr(0, 60000));
    EXPECT_THAT(Summarize(At("cut")), HasSubstr("Truncated: "));
    WriteFile("header", bytes.substr(0, 100));
    EXPECT_THAT(Summarize(At("header")), testing::StartsWith("FAILED: "));
}

TEST_F(SummarizeTest, AMissingOrForeignPluginIsRefused)
{
    EXPECT_THAT(Summarize(sCapture, false, At("missing.so").c_str()), HasSubstr("Cannot load the plugin"));
    EXPECT_THAT(Summarize(sCapture, false, "libzstd.so.1"), HasSubstr("is not a plugin"));
}

} // namespace
} // namespace Host
