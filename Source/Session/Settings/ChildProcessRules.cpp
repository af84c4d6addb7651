#include "Session/Settings/ChildProcessRules.h"

#include "FileSystem/Path.h"
#include "Utility/Text.h"

#include <algorithm>
#include <numeric>
#include <utility>

RTTI_ENUM_BEGIN(Profiler::EAction)
    RTTI_VALUE("Include", Profiler::EAction::Include)
    RTTI_VALUE("Exclude", Profiler::EAction::Exclude)
RTTI_ENUM_END()

RTTI_BEGIN(Profiler::Rule, 1)
    RTTI_PROPERTY("ProcessName", ProcessName)
    RTTI_PROPERTY("CommandLineContains", CommandLineContains)
    RTTI_PROPERTY("Action", Action)
RTTI_END()

RTTI_BEGIN(Profiler::ChildProcessRules, 1)
    RTTI_PROPERTY("DefaultAction", DefaultAction)
    RTTI_PROPERTY("Rules", Rules)
RTTI_END()

namespace Profiler
{
namespace
{

constexpr char sWordSeparator = ' ';

auto gNameOf(const std::vector<Rule>& inRules)
{
    return [&inRules](int32_t inPosition) -> const std::string& { return inRules[inPosition].ProcessName; };
}

std::vector<int32_t> gSortByName(const std::vector<Rule>& inRules)
{
    std::vector<int32_t> positions(inRules.size());
    std::iota(positions.begin(), positions.end(), 0);
    std::ranges::stable_sort(positions, {}, gNameOf(inRules));
    return positions;
}

bool gIsSameProgram(std::string_view inFirst, std::string_view inSecond)
{
    return FileSystem::gArePathsEqual(FileSystem::gGetFileStem(inFirst), FileSystem::gGetFileStem(inSecond));
}

bool gIsSameRule(const Rule& inFirst, const Rule& inSecond)
{
    return gIsSameProgram(inFirst.ProcessName, inSecond.ProcessName) &&
           inFirst.CommandLineContains == inSecond.CommandLineContains && inFirst.Action == inSecond.Action;
}

bool gContainsAllWords(std::string_view inText, std::string_view inWords)
{
    for (size_t begin = 0; (begin = inWords.find_first_not_of(sWordSeparator, begin)) != std::string_view::npos;)
    {
        const size_t end = std::min(inWords.find(sWordSeparator, begin), inWords.size());
        if (!Utility::gContainsIgnoringCase(inText, inWords.substr(begin, end - begin)))
            return false;
        begin = end;
    }
    return true;
}

} // namespace

void ChildProcessRules::AddRule(Rule inRule)
{
    if (!IsIndexComplete())
        RebuildRuleIndex();
    const auto place = std::ranges::upper_bound(mSortedRuleIndex, inRule.ProcessName, {}, gNameOf(Rules));
    mSortedRuleIndex.insert(place, static_cast<int32_t>(Rules.size()));
    Rules.push_back(std::move(inRule));
}

void ChildProcessRules::RebuildRuleIndex()
{
    mSortedRuleIndex = gSortByName(Rules);
}

EAction ChildProcessRules::EvaluateRules(std::string_view inPath, std::string_view inCommandLine) const
{
    const auto applies = [&](const Rule& inRule)
    { return gIsSameProgram(inRule.ProcessName, inPath) && gContainsAllWords(inCommandLine, inRule.CommandLineContains); };
    const auto found = std::ranges::find_if(Rules, applies);
    return found != Rules.end() ? found->Action : DefaultAction;
}

bool ChildProcessRules::operator==(const ChildProcessRules& inOther) const
{
    if (DefaultAction != inOther.DefaultAction || Rules.size() != inOther.Rules.size())
        return false;
    const auto getOrder = [](const ChildProcessRules& inRules)
    { return inRules.IsIndexComplete() ? inRules.mSortedRuleIndex : gSortByName(inRules.Rules); };
    const auto isSameAt = [&](int32_t inPosition, int32_t inOtherPosition)
    { return gIsSameRule(Rules[inPosition], inOther.Rules[inOtherPosition]); };
    return std::ranges::equal(getOrder(*this), getOrder(inOther), isSameAt);
}

} // namespace Profiler
