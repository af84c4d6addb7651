#include "System/Environment.h"

#include "Tests/System/VariableScope.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace
{

TEST(Environment, AbsentAndEmptyVariablesAreEmpty)
{
    const VariableScope set("ENVIRONMENT_TEST_SET", "a value");
    const VariableScope empty("ENVIRONMENT_TEST_EMPTY", "");
    const VariableScope absent("ENVIRONMENT_TEST_ABSENT", nullptr);
    EXPECT_EQ(System::gGetEnvironmentVariable("ENVIRONMENT_TEST_SET"), "a value");
    EXPECT_EQ(System::gGetEnvironmentVariable("ENVIRONMENT_TEST_EMPTY"), "");
    EXPECT_EQ(System::gGetEnvironmentVariable("ENVIRONMENT_TEST_ABSENT"), "");
}

TEST(Environment, HomeIsTheVariableAsItStands)
{
    const VariableScope home("HOME", "/some//where/");
    EXPECT_EQ(System::gGetHomeDirectory(), "/some//where/");
}

TEST(Environment, HomeFallsBackToThePasswordRecord)
{
    const passwd* record = getpwuid(getuid());
    const std::string expected = record != nullptr ? record->pw_dir : "";
    for (const char* value : {"", static_cast<const char*>(nullptr)})
    {
        const VariableScope home("HOME", value);
        EXPECT_EQ(System::gGetHomeDirectory(), expected);
    }
}

TEST(Environment, UserDirectoryIsTheVariableOrLiesBelowHome)
{
    const VariableScope home("HOME", "/home/user/");
    {
        const VariableScope cache("XDG_CACHE_HOME", "/var/my cache/");
        EXPECT_EQ(System::gGetUserDirectory("XDG_CACHE_HOME", ".cache"), "/var/my cache/");
    }
    for (const char* value : {"", static_cast<const char*>(nullptr)})
    {
        const VariableScope cache("XDG_CACHE_HOME", value);
        EXPECT_EQ(System::gGetUserDirectory("XDG_CACHE_HOME", ".cache"), "/home/user/.cache");
    }
}

} // namespace
