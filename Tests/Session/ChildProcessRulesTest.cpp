#include "Session/Settings/ChildProcessRules.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace Profiler;
using testing::ElementsAre;

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

TEST(ChildProcessRules, WithoutARuleTheDefaultDecides)
{
    EXPECT_EQ(ChildProcessRules().EvaluateRules("/bin/app", ""), EAction::Include);
    EXPECT_EQ(gMakeRules({{"other", "", EAction::Include}}, EAction::Exclude).EvaluateRules("/bin/app", ""), EAction::Exclude);
}

TEST(ChildProcessRules, NamesAreComparedWithoutCaseFolderAndExtension)
{
    const auto matches = [](const char* inName, const char* inPath) { return gApplies(inName, "", inPath, "anything"); };
    EXPECT_TRUE(matches("APP", "/usr/bin/aPp"));
    EXPECT_TRUE(matches("/opt/other/app", "app"));
    EXPECT_TRUE(matches("app.exe", "/usr/bin/app"));
    EXPECT_TRUE(matches("D:\\x.y\\app.sh", "/a.b/app.py"));
    EXPECT_TRUE(matches("app.v1.sh", "app.v1.py")) << "only the last extension goes";
    for (const auto& [name, path] : {std::pair("app", "/usr/bin/apps"), std::pair("app", "/app/tool"),
                                     std::pair("app.v1", "app.v1.py"), std::pair("", "/usr/bin/app")})
        EXPECT_FALSE(matches(name, path)) << name << " and " << path;
}

TEST(ChildProcessRules, EveryWordMustOccur)
{
    const auto matches = [](const char* inWords, const char* inLine) { return gApplies("app", inWords, "/bin/app", inLine); };
    for (const auto& [words, line] : {std::pair("   ", ""), std::pair("--fast --deep", "app --deep=3 --fast"),
                                      std::pair("  --fast   --deep ", "--fast--deep"), std::pair("--FAST", "app --fAsT")})
        EXPECT_TRUE(matches(words, line)) << words << " in " << line;
    EXPECT_FALSE(matches("--fast --deep", "app --fast"));
    EXPECT_FALSE(matches("--fast --deep", "app --deep"));
    EXPECT_FALSE(matches("a\tb", "a b")) << "only blanks part words";
    EXPECT_FALSE(matches("\xC3\x84", "\xC3\xA4")) << "case is a matter of A to Z";
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
    EXPECT_EQ(rules.EvaluateRules("app", ""), EAction::Exclude) << "sorted by name, the last rule would come before it";
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

    for (const std::vector<Rule>& other : {std::vector{a}, std::vector{a, b, b}, std::vector{a, Rule{"c", "", EAction::Include}},
                                           std::vector{a, Rule{"b", "", EAction::Exclude}},
                                           std::vector{b, Rule{"a", "X Y", EAction::Exclude}}}) // words are compared as written
        EXPECT_FALSE(rules == gMakeRules(other));
    EXPECT_FALSE(rules == gMakeRules({a, b}, EAction::Exclude));
    // Upper case sorts before lower case, so the positions pair different programs.
    EXPECT_FALSE(gMakeRules({{"A", "", {}}, {"b", "", {}}}) == gMakeRules({{"a", "", {}}, {"B", "", {}}}));

    ChildProcessRules ofFile; // not indexed yet
    ofFile.Rules = {b, a};
    EXPECT_TRUE(ofFile == ChildProcessRules(ofFile));
    EXPECT_TRUE(ofFile == rules);
}

} // namespace
