// The commands that ask a finished timeline: stack, ready and find.
#include "Host/CommandLine/FindCommand.h"
#include "Host/CommandLine/ReadyCommand.h"
#include "Host/CommandLine/StackCommand.h"
#include "Tests/Host/SessionCommandFixture.h"

#include <cmath>

using namespace ::testing;

namespace Host
{
namespace
{

class QueryCommandTest : public SessionCommandTest
{
protected:
    // c lets b go on, and b lets a go on; c ran all the while. Nanoseconds; the session's times begin at 500.
    static constexpr const char* sChain = "0 comm 10/10 a\n"
                                          "0 comm 10/11 b\n"
                                          "0 comm 10/12 c\n"
                                          "0 mmap 10/10 0x400000 0x10000 /opt/main\n"
                                          "500 cpu0 clock 10/10 0x400010;0x400020\n"
                                          "1000 cpu0 switch 10/10 S 10/11\n"
                                          "1500 cpu0 clock 10/11 0x400030;0x400020\n"
                                          "2000 cpu0 switch 10/11 S 10/12\n"
                                          "2500 cpu0 clock 10/12 0x400040;0x400020\n"
                                          "3000 cpu0 waking 10/12 11\n"
                                          "3500 cpu0 switch 10/12 S 10/11\n"
                                          "4000 cpu0 clock 10/11 0x400030;0x400020\n"
                                          "5000 cpu0 waking 10/11 10\n"
                                          "6000 cpu0 switch 10/11 R 10/10\n"
                                          "7000 cpu0 clock 10/10 0x400010;0x400020\n"
                                          "9000 cpu0 clock 10/10 0x400010;0x400020\n";

    // Gives the keys of a, b and c by their names' order, which is that of their first records.
    std::string ImportChain()
    {
        EXPECT_FALSE(IsFailure(Import(WriteCapture(sChain))));
        return At("shop");
    }

    template <class Options>
    static std::string Ask(bool (*inCommand)(const Options&, std::string&, Utility::ErrorState&), Options inOptions)
    {
        inOptions.PluginPath = PLUGIN_LIBRARY;
        return Call(inCommand, inOptions);
    }

    template <class Options>
    static rapidjson::Document AskJSON(bool (*inCommand)(const Options&, std::string&, Utility::ErrorState&), Options inOptions)
    {
        inOptions.AsJSON = true;
        rapidjson::Document document;
        const std::string text = Ask(inCommand, inOptions);
        document.Parse(text.c_str());
        EXPECT_TRUE(document.IsObject()) << text;
        if (!document.IsObject())
            document.SetObject();
        return document;
    }

    static int32_t GetKey(const std::string& inSession, const std::string& inThread)
    {
        const rapidjson::Document threads = [&]
        {
            rapidjson::Document document;
            document.Parse(Summarize(inSession, true).c_str());
            return document;
        }();
        for (const auto& thread : threads["threads"].GetArray())
            if (thread["name"].GetString() == inThread)
                return thread["thread_key"].GetInt();
        ADD_FAILURE() << "no thread " << inThread;
        return -1;
    }
};

TEST_F(QueryCommandTest, AChainLeadsBackToTheThreadThatRan)
{
    const std::string session = ImportChain();
    const int32_t a = GetKey(session, "a");
    ReadyOptions options{.Session = session};
    options.Chain = ReadyOptions::ChainStart{a, 0.002};
    const rapidjson::Document chain = AskJSON(gShowReady, options);
    std::vector<std::string> names;
    std::vector<std::string> states;
    for (const auto& link : chain["links"].GetArray())
    {
        names.emplace_back(link["name"].GetString());
        states.emplace_back(link["state"].GetString());
    }
    EXPECT_THAT(names, ElementsAre("a", "b", "c"));
    EXPECT_THAT(states, ElementsAre("Synchronization", "Synchronization", "Executing"));
    EXPECT_DOUBLE_EQ(chain["links"][1]["wake_up"]["time_ms"].GetDouble(), 0.0025);
    EXPECT_THAT(Ask(gShowReady, options), HasSubstr("It ran all the while"));

    options.Chain->TimeMs = 0.0002;
    EXPECT_EQ(Ask(gShowReady, options), "The thread ran at that time\n");
    options.Chain->TimeMs = 1e9;
    EXPECT_EQ(Ask(gShowReady, options), "Nothing is known of the thread at that time\n");
    options.Chain->ThreadKey = 77;
    EXPECT_TRUE(IsFailure(Ask(gShowReady, options)));
}

TEST_F(QueryCommandTest, WakeUpsOfASpanComeInOrderWithBothStacks)
{
    const std::string session = ImportChain();
    const auto list = [&](ReadyOptions inOptions)
    {
        inOptions.Session = session;
        std::vector<std::string> lines;
        const rapidjson::Document answer = AskJSON(gShowReady, inOptions);
        for (const auto& wakeUp : answer["wake_ups"].GetArray())
            lines.push_back(std::to_string(std::lround(wakeUp["time_ms"].GetDouble() * 1e6)) + ' ' +
                            wakeUp["woken"]["name"].GetString() + " by " + wakeUp["by"]["name"].GetString() + " after " +
                            std::to_string(std::lround(wakeUp["wait_ms"].GetDouble() * 1e6)));
        EXPECT_GE(answer["count"].GetUint64(), lines.size());
        return lines;
    };
    EXPECT_THAT(list({.StartMs = 0.0, .EndMs = 1.0}), ElementsAre("2500 b by c after 1500", "4500 a by b after 5000"));
    EXPECT_THAT(list({.StartMs = 0.0025, .EndMs = 0.0035}), ElementsAre("2500 b by c after 1500"));
    EXPECT_THAT(list({.StartMs = 0.0035, .EndMs = 0.0041}), IsEmpty()) << "the one before the span isn't of it";
    EXPECT_THAT(list({.StartMs = 0.0, .EndMs = 1.0, .ThreadKey = GetKey(session, "a")}), ElementsAre("4500 a by b after 5000"));
    EXPECT_THAT(list({.StartMs = 0.0, .EndMs = 1.0, .Limit = 1}), SizeIs(1));
    EXPECT_THAT(Ask(gShowReady, ReadyOptions{.Session = session, .StartMs = 0.0, .EndMs = 1.0, .Limit = 1}),
                AllOf(StartsWith("2 wake-ups\n"), HasSubstr("1 more; --limit 0 lists all")));
}

TEST_F(QueryCommandTest, AStackTellsWhatTheThreadDid)
{
    const std::string session = ImportChain();
    const int32_t a = GetKey(session, "a");
    rapidjson::Document answer = AskJSON(gShowStack, StackOptions{.Session = session, .ThreadKey = a, .TimeMs = 0.007});
    EXPECT_STREQ(answer["state"]["state"].GetString(), "Executing");
    EXPECT_EQ(answer["stack"].Size(), 2U);
    answer = AskJSON(gShowStack, StackOptions{.Session = session, .ThreadKey = a, .TimeMs = 0.002});
    EXPECT_STREQ(answer["state"]["woken_by"]["name"].GetString(), "b");
    EXPECT_DOUBLE_EQ(answer["state"]["end_ms"].GetDouble(), 0.0055);
    EXPECT_THAT(Ask(gShowStack, StackOptions{.Session = session, .ThreadKey = a, .TimeMs = -5.0}),
                HasSubstr("No function is known to have been on its stack"));
    EXPECT_TRUE(IsFailure(Ask(gShowStack, StackOptions{.Session = session, .ThreadKey = 77})));
}

TEST_F(QueryCommandTest, CallsAreFoundByNameAndByStack)
{
    std::filesystem::copy(SAMPLE_SESSION, At("workload"), std::filesystem::copy_options::recursive);
    FindOptions options{.Session = At("workload"), .Function = "HashNumbers", .Limit = 0};
    EXPECT_THAT(Ask(gFind, options), HasSubstr("isn't built")) << "the sample has no timeline yet";
    ASSERT_FALSE(IsFailure(Process(At("workload"))));

    const rapidjson::Document all = AskJSON(gFind, options);
    const uint64_t count = all["count"].GetUint64();
    ASSERT_GT(count, 5U);
    EXPECT_EQ(all["calls"].Size(), count);
    double previous = 0.0;
    for (const auto& call : all["calls"].GetArray())
    {
        EXPECT_GE(call["start_ms"].GetDouble(), std::exchange(previous, call["start_ms"].GetDouble()));
        EXPECT_THAT(call["function"].GetString(), HasSubstr("HashNumbers"));
        EXPECT_GT(call["length_ms"].GetDouble(), 0.0);
    }
    const double longest = all["longest_ms"].GetDouble();

    options.Limit = 3;
    options.SortsByLength = true;
    const rapidjson::Document few = AskJSON(gFind, options);
    EXPECT_EQ(few["count"].GetUint64(), count);
    ASSERT_EQ(few["calls"].Size(), 3U);
    EXPECT_DOUBLE_EQ(few["calls"][0]["length_ms"].GetDouble(), longest);
    EXPECT_GE(few["calls"][1]["length_ms"].GetDouble(), few["calls"][2]["length_ms"].GetDouble());

    // The stack of a call leads to it, and names that nobody has to an error.
    const auto& call = few["calls"][0];
    const double middle = call["start_ms"].GetDouble() + longest / 2.0;
    const rapidjson::Document stack =
        AskJSON(gShowStack, StackOptions{.Session = At("workload"), .ThreadKey = call["thread_key"].GetInt(), .TimeMs = middle});
    options.Function.clear();
    options.Stack = stack["path"].GetString();
    options.Limit = 0;
    options.StartMs = middle;
    options.EndMs = middle + 0.0001;
    options.ThreadKey = call["thread_key"].GetInt();
    EXPECT_EQ(AskJSON(gFind, options)["count"].GetUint64(), 1U) << options.Stack;
    options.Stack += ";nobody";
    EXPECT_EQ(Ask(gFind, options), "FAILED: No function of the session has the name \"nobody\"");
}

} // namespace
} // namespace Host
