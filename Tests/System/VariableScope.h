// Changes an environment variable for the time of a block. No other thread may read the environment meanwhile.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

class VariableScope
{
public:
    // Without a value the variable is removed.
    VariableScope(const char* inName, const char* inValue) : mName(inName)
    {
        if (const char* before = std::getenv(inName))
            mBefore = before;
        Set(inValue);
    }
    ~VariableScope() { Set(mBefore ? mBefore->c_str() : nullptr); }
    VariableScope(const VariableScope&) = delete;
    VariableScope& operator=(const VariableScope&) = delete;

private:
    void Set(const char* inValue) const { inValue != nullptr ? setenv(mName, inValue, 1) : unsetenv(mName); }

    const char* mName;
    std::optional<std::string> mBefore;
};
