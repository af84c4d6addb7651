// Which child processes a capture takes in: rules by the name of the program and words of its command line.
//
// Threads: one at a time; any number may evaluate rules that nobody changes. Ownership: whoever embeds the record, which is plain
// and can be copied.
#pragma once

#include "RTTI/Declare.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Profiler
{

// Stored; never renumber.
enum class EAction : uint32_t
{
    Include = 0,
    Exclude = 1,
};

struct Rule
{
    std::string ProcessName;         // compared without folder and extension, and without regard to case
    std::string CommandLineContains; // words between blanks, all of which the command line must hold, in any order and case
    EAction Action = EAction::Include;
};

class ChildProcessRules
{
public:
    void AddRule(Rule inRule);

    // Call it after changing the names, number or order of the rules in any other way, reading them from a file included.
    void RebuildRuleIndex();

    // The action of the first rule, in the order of Rules, that applies to the process; DefaultAction if none does.
    [[nodiscard]] EAction EvaluateRules(std::string_view inPath, std::string_view inCommandLine) const;

    // Whether the rules are the same when each list is sorted by ProcessName, so the order of names doesn't count, but the order
    // of rules with one name does. Names are sorted as they are written and compared as EvaluateRules compares them.
    [[nodiscard]] bool operator==(const ChildProcessRules& inOther) const;

    // Positions in Rules by the bytes of ProcessName; rules of one name keep their order. Empty for rules just read from a file.
    [[nodiscard]] const std::vector<int32_t>& GetSortedRuleIndex() const { return mSortedRuleIndex; }

    EAction DefaultAction = EAction::Include;
    std::vector<Rule> Rules;

private:
    bool IsIndexComplete() const { return mSortedRuleIndex.size() == Rules.size(); }

    std::vector<int32_t> mSortedRuleIndex; // a permutation of 0 to size-1
};

} // namespace Profiler

RTTI_DECLARE_ENUM(Profiler::EAction);
RTTI_DECLARE(Profiler::Rule);
RTTI_DECLARE(Profiler::ChildProcessRules);
