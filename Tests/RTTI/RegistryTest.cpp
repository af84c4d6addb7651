#include "RTTI/Registry.h"

#include "HandMadeTypes.h"
#include "RTTI/Primitives.h"
#include "TestTypes.h"

#include <gmock/gmock.h>

using testing::UnorderedElementsAre;

namespace
{

constexpr uint64_t sHostKey = 1;
constexpr uint64_t sOtherKey = 2;

class RegistryTest : public testing::Test
{
protected:
    void Register(uint64_t inModuleKey, const RTTI::Type& inType)
    {
        RTTI::CurrentModuleScope scope(mRegistry, inModuleKey);
        mRegistry.Register(inType);
    }

    template <class T>
    void RegisterInPlugin()
    {
        RegisterInPlugin(RTTI::gTypeOf<T>());
    }
    void RegisterInPlugin(const RTTI::Type& inType) { Register(RTTI::gThreadsModelPluginModuleKey(), inType); }

    std::vector<std::string> GetNames(const RTTI::TextTable<const RTTI::Type*>& inTable) const
    {
        std::vector<std::string> names;
        for (const auto& [name, type] : inTable)
            names.push_back(name);
        return names;
    }

    const RTTI::Registry::Module& GetPluginModule() const
    {
        return mRegistry.GetModules().at(RTTI::gThreadsModelPluginModuleKey());
    }

    RTTI::Registry mRegistry;
};

TEST_F(RegistryTest, FundamentalTypesAreTheTwelvePrimitives)
{
    RTTI::CurrentModuleScope scope(mRegistry, RTTI::gThreadsModelPluginModuleKey());
    RTTI::gRegisterFundamentalTypes(mRegistry);
    EXPECT_THAT(GetNames(GetPluginModule().Types),
                UnorderedElementsAre("uint8_t", "int8_t", "uint16_t", "int16_t", "uint32_t", "int32_t", "uint64_t", "int64_t",
                                     "bool", "float", "double", "std::string"));
}

TEST_F(RegistryTest, NoModuleRegistersOutsideOfAScope)
{
    EXPECT_EQ(mRegistry.GetCurrentModuleKey(), RTTI::Registry::sNoModule);
    RegisterInPlugin<int32_t>();
    EXPECT_EQ(mRegistry.GetCurrentModuleKey(), ~uint64_t{0});
}

TEST_F(RegistryTest, RegisteringARootReachesEverythingBelowIt)
{
    RegisterInPlugin<std::vector<Zoo::Cage>>();
    EXPECT_THAT(GetNames(GetPluginModule().Types),
                UnorderedElementsAre("A#Zoo::Cage", "Zoo::Cage", "int32_t", "M#int32_t#A#P#Zoo::Animal", "A#P#Zoo::Animal",
                                     "P#Zoo::Animal", "Zoo::Animal", "RTTI::Object", "std::string", "M#std::string#uint64_t",
                                     "uint64_t", "S#Zoo::EDiet", "Zoo::EDiet", "uint16_t", "A#int32_t", "P#Zoo::EMood",
                                     "Zoo::EMood", "int8_t"));
    EXPECT_THAT(GetNames(GetPluginModule().Aliases), UnorderedElementsAre("Zoo::Beast", "Zoo::Creature", "Zoo::EFood"));
}

TEST_F(RegistryTest, NothingIsFoundBeforeThePluginHasRegistered)
{
    Register(sHostKey, RTTI::gTypeOf<Zoo::Lion>());
    EXPECT_EQ(mRegistry.FindType("Zoo::Lion"), nullptr);
    RegisterInPlugin<bool>();
    EXPECT_EQ(mRegistry.FindType("Zoo::Lion"), &RTTI::gTypeOf<Zoo::Lion>());
    EXPECT_EQ(mRegistry.FindType("Zoo::Beast"), &RTTI::gTypeOf<Zoo::Animal>()) << "a former name";
    EXPECT_EQ(mRegistry.FindType("Zoo::Bea"), nullptr);
}

TEST_F(RegistryTest, ThePluginsTypesComeBeforeThoseOfOthers)
{
    RTTITest::HandMadeClass ofPlugin;
    RTTITest::HandMadeClass ofHost;
    RTTITest::HandMadeClass aliasedInPlugin;
    RTTITest::gMakeClass(ofPlugin, 0, 1);
    RTTITest::gMakeClass(ofHost, 0, 1);
    RTTITest::gMakeClass(aliasedInPlugin, 1, 1);
    aliasedInPlugin.Aliases = {"Shared::Name"};
    aliasedInPlugin.Connect();
    Register(sHostKey, ofHost.Type);
    Register(sOtherKey, ofHost.Type);
    RegisterInPlugin(ofPlugin.Type);
    RegisterInPlugin(aliasedInPlugin.Type);
    EXPECT_EQ(mRegistry.FindType("HandMade::Class0"), &ofPlugin.Type);
    EXPECT_EQ(mRegistry.FindType("Shared::Name"), &aliasedInPlugin.Type);
}

TEST_F(RegistryTest, ALaterRegistrationOfANameReplacesTheEarlier)
{
    RTTITest::HandMadeClass first;
    RTTITest::HandMadeClass second;
    RTTITest::gMakeClass(first, 0, 1);
    RTTITest::gMakeClass(second, 0, 2);
    RegisterInPlugin(first.Type);
    RegisterInPlugin(second.Type);
    EXPECT_EQ(mRegistry.FindType("HandMade::Class0"), &second.Type);

    // Also when the name is only reached.
    RTTITest::HandMadeClass derived;
    RTTITest::gMakeClass(derived, 1, 1, {&first.Type});
    RegisterInPlugin(derived.Type);
    EXPECT_EQ(mRegistry.FindType("HandMade::Class0"), &first.Type);
}

TEST_F(RegistryTest, RenamedNamesAreFoundUnderTheirNewName)
{
    RegisterInPlugin<Zoo::Lion>();
    const RTTI::RenameTable renames{
        {"Circus::Cat", "Zoo::Lion"}, {"Zoo::Place", "Circus::Cat"}, {"A#Circus::Cat", "A#Zoo::Lion"}};
    mRegistry.SetRenameTable(&renames);
    EXPECT_EQ(mRegistry.FindType("Circus::Cat"), &RTTI::gTypeOf<Zoo::Lion>());
    EXPECT_EQ(mRegistry.FindType("Zoo::Place"), nullptr) << "a rename goes one step";
    EXPECT_TRUE(mRegistry.TypeMatchesName(RTTI::gTypeOf<Zoo::Lion>(), "Circus::Cat"));
    EXPECT_TRUE(mRegistry.TypeMatchesName(RTTI::gTypeOf<Zoo::Lion>(), "Zoo::LionKing")) << "the name's beginning counts";
    EXPECT_TRUE(mRegistry.TypeMatchesName(RTTI::gTypeOf<std::vector<Zoo::Lion>>(), "A#Circus::Cat"));
    EXPECT_FALSE(mRegistry.TypeMatchesName(RTTI::gTypeOf<Zoo::Place>(), "Zoo::Place"));
    mRegistry.SetRenameTable(nullptr);
    EXPECT_TRUE(mRegistry.TypeMatchesName(RTTI::gTypeOf<Zoo::Place>(), "Zoo::Place"));
    EXPECT_EQ(mRegistry.FindType("Circus::Cat"), nullptr);
}

} // namespace
