// Uses tables of other translation units while static objects are still being initialized. This file stands first in the program,
// so nothing of the others has run by then.
#include "RTTI/Registry.h"
#include "RTTI/TypeQueries.h"
#include "TestTypes.h"

#include <gtest/gtest.h>

namespace
{

struct EarlyUser
{
    EarlyUser()
    {
        RTTI::CurrentModuleScope scope(Registry, RTTI::gThreadsModelPluginModuleKey());
        Registry.Register(RTTI::gTypeOf<std::vector<Zoo::Cage>>());
        Name = RTTI::gTypeOf<std::vector<std::unique_ptr<Zoo::Lion>>>().GetName();
        PropertyCount = RTTI::gGetAllProperties(RTTI::gTypeOf<Zoo::Lion>()).size();
        MoodName = RTTI::gGetValueName(RTTI::gTypeOf<Zoo::EMood>(), 100);
        Created = RTTI::gTypeOf<Zoo::Lion>().Descriptor->Create();
    }

    RTTI::Registry Registry;
    std::string Name;
    size_t PropertyCount;
    std::string MoodName;
    RTTI::OwnedValue Created;
};

const EarlyUser sEarlyUser;

TEST(StaticInitializationTest, TablesWorkBeforeTheirSourceFilesAreInitialized)
{
    EXPECT_EQ(sEarlyUser.Name, "A#P#Zoo::Lion");
    EXPECT_EQ(sEarlyUser.PropertyCount, 5U);
    EXPECT_EQ(sEarlyUser.MoodName, "Happy");
    EXPECT_EQ(static_cast<const Zoo::Lion*>(sEarlyUser.Created.GetData())->GetName(), "Leo");
    EXPECT_EQ(sEarlyUser.Registry.FindType("Zoo::Animal"), &RTTI::gTypeOf<Zoo::Animal>());
}

} // namespace
