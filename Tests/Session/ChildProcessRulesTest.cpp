#include "Session/Settings/ChildProcessRules.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace Profiler;
using testing::ElementsAre;
using testing::IsEmpty;

ChildProcessRules gMakeRules(const std::vector<Rule>& inRules, EAction inDefault = EAction::Include)
{
    ChildProcessRules rules;
    rules.DefaultAction = inDefault;
    for (const Rule& rule : inRules)
        rules.AddRule(rule);
    return rules;
}

// Whether a rule with this name and these words applies to the process.
bool gApplies(const char* inName, const char* inWords, const char* inPath, const char* inCommandLine)
{
    const ChildProcessRules rules = gMakeRules({{inName, inWords, EAction::Exclude}});
    return rules.EvaluateRules(inPath, inCommandLine) == EAction::Exclude;
}

bool gNameMatches(const char* inName, const char* inPath)
{
    return gApplies(inName, "", inPath, "anything");
}

bool gWordsMatch(const char* inWords, const char* inCommandLine)
{
    return gApplies("app", inWords, "/bin/app", inCommandLine);
}

TEST(ChildProcessRules, WithoutARuleTheDefaultDecides)
{
    EXPECT_EQ(ChildProcessRules().EvaluateRules("/bin/app", ""), EAction::Include);
    EXPECT_EQ(gMakeRules({}, EAction::Exclude).EvaluateRules("/bin/app", ""), EAction::Exclude);
    EXPECT_EQ(gMakeRules({{"other", "", EAction::Include}}, EAction::Exclude).EvaluateRules("/bin/app", ""), EAction::Exclude);
}

TEST(ChildProcessRules, NamesAreComparedWithoutCaseFolderAndExtension)
{
    EXPECT_TRUE(gNameMatches("app", "/usr/bin/app"));
    EXPECT_TRUE(gNameMatches("APP", "/usr/bin/aPp"));
    EXPECT_TRUE(gNameMatches("/opt/other/app", "app"));
    EXPECT_TRUE(gNameMatches("app.exe", "/usr/bin/app"));
    EXPECT_TRUE(gNameMatches("app", "C:\\Games\\App.EXE"));
    EXPECT_TRUE(gNameMatches("D:\\x.y\\app.sh", "/a.b/app.py"));
    EXPECT_TRUE(gNameMatches("app.v1.sh", "app.v1.py")) << "only the last extension goes";

    EXPECT_FALSE(gNameMatches("app", "/usr/bin/apps"));
    EXPECT_FALSE(gNameMatches("app", "/app/tool"));
    EXPECT_FALSE(gNameMatches("app.v1", "app.v1.py"));
    EXPECT_FALSE(gNameMatches("app.v1.sh", "app.v2.sh"));
    EXPECT_FALSE(gNameMatches("", "/usr/bin/app"));
}

TEST(ChildProcessRules, EveryWordMustOccur)
{
    EXPECT_TRUE(gWordsMatch("", "app"));
    EXPECT_TRUE(gWordsMatch("   ", ""));
    EXPECT_TRUE(gWordsMatch("--fast --deep", "app --deep=3 --fast"));
    EXPECT_TRUE(gWordsMatch("  --fast   --deep ", "--fast--deep"));
    EXPECT_TRUE(gWordsMatch("--FAST", "app --fAsT"));
    EXPECT_TRUE(gWordsMatch("a\tb", "a\tb")) << "only blanks part words";

    EXPECT_FALSE(gWordsMatch("--fast --deep", "app --fast"));
    EXPECT_FALSE(gWordsMatch("--fast --deep", "app --deep"));
    EXPECT_FALSE(gWordsMatch("a\tb", "a b"));
    EXPECT_FALSE(gWordsMatch("\xC3\x84", "\xC3\xA4")) << "case is a matter of A to Z";
    EXPECT_FALSE(gWordsMatch("x", ""));
}

TEST(ChildProcessRules, TheFirstRuleThatAppliesDecides)
{
    const ChildProcessRules rules = gMakeRules({{"python", "server.py", EAction::Include},
                                                {"python", "client.py", EAction::Exclude},
                                                {"Python.exe", "--quiet", EAction::Include},
                                                {"app", "", EAction::Exclude},
                                                {"App", "", EAction::Include}},
                                               EAction::Exclude);
    EXPECT_EQ(rules.EvaluateRules("/bin/python", "python server.py client.py"), EAction::Include);
    EXPECT_EQ(rules.EvaluateRules("/bin/python", "python client.py --quiet"), EAction::Exclude)
        << "the first rule is passed over";
    EXPECT_EQ(rules.EvaluateRules("/bin/python", "python --quiet"), EAction::Include);
    EXPECT_EQ(rules.EvaluateRules("/bin/python", "python"), EAction::Exclude);
    // Sorted by name, "App" would come before "app".
    EXPECT_EQ(gMakeRules({{"app", "", EAction::Exclude}, {"App", "", EAction::Include}}).EvaluateRules("app", ""),
              EAction::Exclude);
}

TEST(ChildProcessRules, TheIndexFollowsTheBytesOfTheNames)
{
    ChildProcessRules rules = gMakeRules({{"b", "", {}}, {"a", "", {}}, {"ab", "", {}}, {"B", "", {}}, {"\xC3\xA4", "", {}}});
    EXPECT_THAT(rules.GetSortedRuleIndex(), ElementsAre(3, 1, 2, 0, 4));
    rules.AddRule({"a", "second", {}});
    rules.AddRule({"", "", {}});
    EXPECT_THAT(rules.GetSortedRuleIndex(), ElementsAre(6, 3, 1, 5, 2, 0, 4));

    rules.Rules.erase(rules.Rules.begin(), rules.Rules.begin() + 2);
    rules.RebuildRuleIndex();
    EXPECT_THAT(rules.GetSortedRuleIndex(), ElementsAre(4, 1, 3, 0, 2));
    rules.Rules.clear();
    rules.RebuildRuleIndex();
    EXPECT_THAT(rules.GetSortedRuleIndex(), IsEmpty());
}

TEST(ChildProcessRules, AddingAndRebuildingGiveTheSameIndex)
{
    constexpr int sNumRules = 500;
    std::mt19937 random(17); // NOLINT(bugprone-random-generator-seed): the same names every time
    ChildProcessRules rules;
    for (int i = 0; i < sNumRules; ++i)
        rules.AddRule({std::string(random() % 3, static_cast<char>('a' + random() % 4)), "", EAction::Include});
    const std::vector<int32_t> added = rules.GetSortedRuleIndex();
    rules.RebuildRuleIndex();
    EXPECT_EQ(rules.GetSortedRuleIndex(), added);
}

TEST(ChildProcessRules, RulesOfAFileAreIndexedWhenTheFirstIsAdded)
{
    ChildProcessRules rules;
    rules.Rules = {{"b", "", {}}, {"a", "", {}}};
    rules.AddRule({"aa", "", {}});
    EXPECT_THAT(rules.GetSortedRuleIndex(), ElementsAre(1, 2, 0));
}

TEST(ChildProcessRules, EqualityIsIndifferentToTheOrderOfNames)
{
    const Rule a{"a", "x y", EAction::Exclude};
    const Rule otherA{"a", "", EAction::Include};
    const Rule b{"b", "", EAction::Include};
    const ChildProcessRules rules = gMakeRules({a, b});
    EXPECT_TRUE(rules == gMakeRules({b, a}));
    EXPECT_TRUE(rules == gMakeRules({b, {"/bin/A.exe", "x y", EAction::Exclude}})) << "names are compared as in evaluation";
    EXPECT_FALSE(gMakeRules({a, otherA}) == gMakeRules({otherA, a})) << "rules of one name are tried in their order";

    EXPECT_FALSE(rules == gMakeRules({a, b}, EAction::Exclude));
    EXPECT_FALSE(rules == gMakeRules({a}));
    EXPECT_FALSE(rules == gMakeRules({a, b, b}));
    EXPECT_FALSE(rules == gMakeRules({a, {"c", "", EAction::Include}}));
    EXPECT_FALSE(rules == gMakeRules({a, {"b", "", EAction::Exclude}}));
    EXPECT_FALSE(rules == gMakeRules({b, {"a", "X Y", EAction::Exclude}})) << "words are compared as written";
    EXPECT_TRUE(ChildProcessRules() == ChildProcessRules());
}

TEST(ChildProcessRules, NamesAreSortedAsWrittenBeforeTheyAreCompared)
{
    // Upper case sorts before lower case, so the positions pair different programs.
    EXPECT_FALSE(gMakeRules({{"A", "", {}}, {"b", "", {}}}) == gMakeRules({{"a", "", {}}, {"B", "", {}}}));
}

TEST(ChildProcessRules, EqualityHoldsBeforeTheRulesOfAFileAreIndexed)
{
    ChildProcessRules rules;
    rules.Rules = {{"b", "", {}}, {"a", "", {}}};
    const ChildProcessRules copy = rules;
    EXPECT_TRUE(rules == copy);
    EXPECT_TRUE(rules == gMakeRules({{"a", "", {}}, {"b", "", {}}}));
    EXPECT_FALSE(rules == gMakeRules({{"a", "", {}}, {"c", "", {}}}));
}

} // namespace
