// A host and a plugin, each with static tables of its own, meet in one registry.
#include "RTTI/Registry.h"
#include "RTTI/TypeQueries.h"
#include "SecondCopy.h"
#include "TestTypes.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

namespace
{

constexpr uint64_t sHostKey = 1;

class TwoCopiesTest : public testing::Test
{
protected:
    void SetUp() override
    {
        // Stays loaded, as a plugin does: the registry refers to its tables.
        void* library = dlopen(RTTI_SECOND_COPY_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        const auto registerTypes = reinterpret_cast<RegisterSecondCopyFunction>(dlsym(library, "gRegisterSecondCopy"));
        const auto getLion = reinterpret_cast<GetSecondCopyTypeFunction>(dlsym(library, "gGetSecondCopyLion"));
        ASSERT_TRUE(registerTypes != nullptr && getLion != nullptr);

        RTTI::CurrentModuleScope scope(mRegistry, sHostKey);
        mRegistry.Register(RTTI::gTypeOf<Zoo::Lion>());
        mRegistry.Register(RTTI::gTypeOf<Zoo::Parrot>());
        registerTypes(&mRegistry);
        mRegistry.Finalize();
        mPluginsLion = getLion();
    }

    RTTI::Registry mRegistry;
    const RTTI::Type* mPluginsLion = nullptr;
};

TEST_F(TwoCopiesTest, TablesAreApartAndTheirTypesTheSame)
{
    const RTTI::Type& hostsLion = RTTI::gTypeOf<Zoo::Lion>();
    ASSERT_NE(mPluginsLion, &hostsLion);
    EXPECT_NE(mPluginsLion->Descriptor, hostsLion.Descriptor);
    EXPECT_TRUE(RTTI::gIsSameType(*mPluginsLion, hostsLion));
    EXPECT_EQ(hostsLion.Descriptor->ModuleKey, sHostKey);
    EXPECT_EQ(mPluginsLion->Descriptor->ModuleKey, RTTI::gThreadsModelPluginModuleKey());
    EXPECT_EQ(mPluginsLion->AsCompound()->TreeIndex, hostsLion.AsCompound()->TreeIndex);
    EXPECT_EQ(mPluginsLion->AsCompound()->FullVersion, hostsLion.AsCompound()->FullVersion);
}

TEST_F(TwoCopiesTest, LookUpsPreferThePluginAndFallBackOnTheHost)
{
    EXPECT_EQ(mRegistry.FindType("Zoo::Lion"), mPluginsLion);
    EXPECT_EQ(mRegistry.FindType("Zoo::Parrot"), &RTTI::gTypeOf<Zoo::Parrot>());
}

TEST_F(TwoCopiesTest, AClassOfThePluginIsBelowTheHostsTableOfItsBase)
{
    const RTTI::Type* penguin = mRegistry.FindType("Zoo::Penguin");
    ASSERT_NE(penguin, nullptr);
    EXPECT_TRUE(RTTI::gIsDerivedFrom(*penguin, RTTI::gTypeOf<Zoo::Animal>()));
    EXPECT_TRUE(RTTI::gIsDerivedFrom(*penguin, RTTI::gTypeOf<RTTI::Object>()));
    EXPECT_FALSE(RTTI::gIsDerivedFrom(*penguin, RTTI::gTypeOf<Zoo::Lion>()));
    EXPECT_FALSE(RTTI::gIsDerivedFrom(RTTI::gTypeOf<Zoo::Parrot>(), *penguin));
}

TEST_F(TwoCopiesTest, TheHostHoldsObjectsThatThePluginMade)
{
    std::unique_ptr<Zoo::Animal> animal;
    const RTTI::PointerInfo& pointer = *RTTI::gTypeOf<decltype(animal)>().AsPointer();
    pointer.SetFromOwned(&animal, mRegistry.FindType("Zoo::Penguin")->Descriptor->Create());
    EXPECT_EQ(animal->GetName(), "Pingu");
    EXPECT_EQ(pointer.Get(&animal).Type->GetName(), "Zoo::Penguin");

    const RTTI::OwnedValue lion = mPluginsLion->Descriptor->Create();
    EXPECT_EQ(&static_cast<Zoo::Animal*>(lion.GetData())->GetType(), mPluginsLion);
}

} // namespace
