// The bound on how deep objects lie in one another, which keeps readers and writers, and the destructors of what they have read,
// within the stack of a thread.
#pragma once

#include <cstdint>

namespace Serialization
{

// Compounds in one another, by value or behind pointers. Writers refuse what readers wouldn't take.
inline constexpr uint32_t sMaxNestedCompounds = 500;

// Counts one level for the time of a block.
class NestingScope
{
public:
    explicit NestingScope(uint32_t& ioDepth) : mDepth(++ioDepth) {}
    ~NestingScope() { --mDepth; }

    NestingScope(const NestingScope&) = delete;
    NestingScope& operator=(const NestingScope&) = delete;

    [[nodiscard]] bool IsTooDeep() const { return mDepth > sMaxNestedCompounds; }

private:
    uint32_t& mDepth;
};

} // namespace Serialization
