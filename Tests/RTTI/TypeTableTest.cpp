#include "RTTI/TypeQueries.h"
#include "TestTypes.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using Zoo::Cage;
using Zoo::EMood;
using Zoo::Lion;
using Zoo::Place;

template <class T>
std::string gFullName()
{
    return RTTI::gTypeOf<T>().GetName();
}

template <class T>
std::string gDeclaredName()
{
    return RTTI::gTypeOf<T>().Descriptor->Name;
}

std::vector<std::string> gPropertyNames(const RTTI::Type& inType)
{
    std::vector<std::string> names;
    for (const RTTI::Property* property : RTTI::gGetAllProperties(inType))
        names.emplace_back(property->Name);
    return names;
}

// How much of the text the type's name takes, or -1 if the text doesn't begin with it.
template <class T>
std::ptrdiff_t gMatchLength(const char* inText)
{
    const char* end = nullptr;
    return RTTI::gTypeOf<T>().MatchName(inText, end) ? end - inText : -1;
}

TEST(TypeTableTest, PrimitivesHaveTheirNamesAndSizes)
{
    const auto describe = [](const RTTI::Type& inType)
    {
        EXPECT_EQ(inType.GetKind(), RTTI::EKind::Primitive);
        EXPECT_EQ(inType.GetName(), inType.AsPrimitive()->Name);
        return inType.GetName() + " " + std::to_string(inType.GetSize()) + (inType.AsPrimitive()->IsPlainBytes ? " plain" : "");
    };
    EXPECT_EQ(describe(RTTI::gTypeOf<unsigned char>()), "uint8_t 1 plain");
    EXPECT_EQ(describe(RTTI::gTypeOf<short>()), "int16_t 2 plain");
    EXPECT_EQ(describe(RTTI::gTypeOf<const size_t>()), "uint64_t 8 plain");
    EXPECT_EQ(describe(RTTI::gTypeOf<bool>()), "bool 1 plain");
    EXPECT_EQ(describe(RTTI::gTypeOf<float>()), "float 4 plain");
    EXPECT_EQ(describe(RTTI::gTypeOf<std::string>()), "std::string 32");
}

TEST(TypeTableTest, FullNamesCompose)
{
    EXPECT_EQ(gFullName<Lion>(), "Zoo::Lion");
    EXPECT_EQ((gFullName<std::unordered_map<Zoo::CageID, Place>>()), "M#int32_t#Zoo::Place");
    EXPECT_EQ((gFullName<std::vector<std::unordered_map<uint64_t, std::unique_ptr<Lion>>>>()), "A#M#uint64_t#P#Zoo::Lion");
    EXPECT_EQ((gFullName<std::unordered_map<std::string, std::unordered_set<EMood>, Zoo::CageHasher>>()),
              "M#std::string#S#Zoo::EMood");
}

TEST(TypeTableTest, DeclaredNamesSpellTheirPartsAsTheSourceDoes)
{
    EXPECT_EQ(gDeclaredName<std::vector<int32_t>>(), "Array_int32_t");
    EXPECT_EQ((gDeclaredName<std::unordered_map<uint64_t, std::string>>()), "Map_uint64_t_To_std::string");
    EXPECT_EQ(gDeclaredName<std::unique_ptr<Lion>>(), "UniquePtr_Zoo::Lion");
    EXPECT_EQ(gDeclaredName<std::unordered_set<EMood>>(), "Set_Zoo::EMood");
    EXPECT_EQ(gDeclaredName<std::vector<std::unique_ptr<Lion>>>(), "Array_std::unique_ptr<Zoo::Lion>");
    EXPECT_EQ((gDeclaredName<std::vector<std::unordered_map<int8_t, std::vector<std::unordered_set<float>>>>>()),
              "Array_std::unordered_map<int8_t, std::vector<std::unordered_set<float>>>");

    const RTTI::Property* neighbours = RTTI::gFindProperty(RTTI::gTypeOf<Cage>(), "Neighbours");
    ASSERT_NE(neighbours, nullptr);
    EXPECT_STREQ(neighbours->Type->Descriptor->Name, "Array_Zoo::CageID");
    EXPECT_EQ(neighbours->Type->GetName(), "A#int32_t");
    EXPECT_EQ(neighbours->Type->AsArray(), RTTI::gTypeOf<std::vector<int32_t>>().AsArray());
}

TEST(TypeTableTest, MatchNameTakesTheBeginningOfAText)
{
    EXPECT_EQ(gMatchLength<Lion>("Zoo::Lion"), 9);
    EXPECT_EQ(gMatchLength<Lion>("Zoo::Lioness"), 9);
    EXPECT_EQ(gMatchLength<Lion>("Zoo::Lio"), -1);
    using Map = std::unordered_map<int32_t, std::vector<std::unique_ptr<Lion>>>;
    EXPECT_EQ(gMatchLength<Map>("M#int32_t#A#P#Zoo::Lion#rest"), 23);
    EXPECT_EQ(gMatchLength<Map>("M#int32_tA#P#Zoo::Lion"), -1);
    EXPECT_EQ(gMatchLength<Map>("M#int32_t#A#S#Zoo::Lion"), -1);
    EXPECT_EQ(gMatchLength<Map>("M#int32_t"), -1);
    EXPECT_EQ(gMatchLength<Map>(""), -1);
}

TEST(TypeTableTest, PropertiesOfBasesComeFirstAndThenTheTablesOrder)
{
    EXPECT_THAT(gPropertyNames(RTTI::gTypeOf<Lion>()), ElementsAre("Name", "Cubs", "Place", "Mood", "Hungry"));
    EXPECT_THAT(gPropertyNames(RTTI::gTypeOf<Zoo::FamilyTicket>()), ElementsAre("Number", "Children"));
    EXPECT_THAT(gPropertyNames(RTTI::gTypeOf<Zoo::Empty>()), IsEmpty());
    EXPECT_THAT(gPropertyNames(RTTI::gTypeOf<std::string>()), IsEmpty());
}

TEST(TypeTableTest, PropertiesReachPrivateAndInheritedMembers)
{
    Lion lion;
    const auto find = [&](const char* inName) { return RTTI::gFindProperty(RTTI::gTypeOf<Lion>(), inName)->GetData(&lion); };
    *static_cast<std::string*>(find("Name")) = "Nala";
    *static_cast<bool*>(find("Hungry")) = false;
    EXPECT_EQ(lion.GetName(), "Nala");
    EXPECT_FALSE(lion.IsHungry());
    EXPECT_EQ(*static_cast<EMood*>(find("Mood")), EMood::Angry);
    EXPECT_EQ(static_cast<Place*>(find("Place"))->Y, 2.5F);
    EXPECT_EQ(RTTI::gFindProperty(RTTI::gTypeOf<Lion>(), "Wings"), nullptr);
}

TEST(TypeTableTest, ClassRecordsHoldWhatTheClassDeclares)
{
    const RTTI::CompoundInfo& animal = *RTTI::gTypeOf<Zoo::Animal>().AsCompound();
    EXPECT_STREQ(animal.Name, "Zoo::Animal");
    EXPECT_EQ(animal.Version, 2);
    EXPECT_THAT(std::vector<std::string>(animal.Aliases, animal.Aliases + animal.AliasCount),
                ElementsAre("Zoo::Beast", "Zoo::Creature"));
    const RTTI::CompoundInfo& ticket = *RTTI::gTypeOf<Zoo::FamilyTicket>().AsCompound();
    EXPECT_THAT(std::vector<const RTTI::Type*>(ticket.Bases, ticket.Bases + ticket.BaseCount),
                ElementsAre(&RTTI::gTypeOf<Zoo::Ticket>(), &RTTI::gTypeOf<Zoo::Discount>()));
    EXPECT_EQ(RTTI::gTypeOf<Lion>().GetSize(), sizeof(Lion));
    EXPECT_EQ(RTTI::gTypeOf<Lion>().AsEnum(), nullptr);
}

class EnumTest : public testing::Test
{
protected:
    template <class Enum>
    static std::string GetName(Enum inValue)
    {
        const RTTI::Type& type = RTTI::gTypeOf<Enum>();
        return RTTI::gGetValueName(type, RTTI::gReadEnumValue(type, &inValue));
    }

    template <class Enum>
    static Enum SetName(Enum inValue, const char* inName)
    {
        RTTI::gSetValueByName(RTTI::gTypeOf<Enum>(), &inValue, inName);
        return inValue;
    }

    template <class Enum>
    static std::string GetSizeType()
    {
        return RTTI::gTypeOf<Enum>().AsEnum()->SizeType->GetName();
    }
};

TEST_F(EnumTest, ValuesAreNamedByTheFirstEqualEntry)
{
    EXPECT_EQ(GetName(Zoo::EDiet::Plants), "Plants");
    EXPECT_EQ(GetName(EMood::Angry), "Angry");
    EXPECT_EQ(GetName(Zoo::OldStyleLowest), "Lowest");
    EXPECT_EQ(GetName(static_cast<Zoo::EDiet>(4)), "<invalid enum value>");
    EXPECT_EQ(RTTI::gFindValueByName(RTTI::gTypeOf<Zoo::EDiet>(), "Leaves"), 2);
    EXPECT_EQ(RTTI::gFindValueByName(RTTI::gTypeOf<Zoo::EDiet>(), "leaves"), -1);
}

TEST_F(EnumTest, WidthAndSignFollowTheUnderlyingType)
{
    EXPECT_EQ(GetSizeType<Zoo::EDiet>(), "uint16_t");
    EXPECT_EQ(GetSizeType<EMood>(), "int8_t");
    EXPECT_EQ(GetSizeType<Zoo::EOldStyle>(), "int64_t");

    const EMood angry = EMood::Angry;
    EXPECT_EQ(RTTI::gReadEnumValue(RTTI::gTypeOf<EMood>(), &angry), static_cast<uint64_t>(int64_t{-2}));
    const Zoo::EDiet plants = Zoo::EDiet::Plants;
    EXPECT_EQ(RTTI::gReadEnumValue(RTTI::gTypeOf<Zoo::EDiet>(), &plants), 0xFFFFU);
}

TEST_F(EnumTest, StoringByNameTouchesTheValueAlone)
{
    EXPECT_EQ(SetName(EMood::Calm, "Angry"), EMood::Angry);
    EXPECT_EQ(SetName(EMood::Happy, "Hungry"), EMood::Happy);
    EXPECT_EQ(SetName(Zoo::OldStyleZero, "Lowest"), Zoo::OldStyleLowest);

    struct
    {
        EMood Before = EMood::Happy;
        EMood Target = EMood::Happy;
        EMood After = EMood::Happy;
    } moods;
    RTTI::gWriteEnumValue(RTTI::gTypeOf<EMood>(), &moods.Target, static_cast<uint64_t>(int64_t{-2}));
    EXPECT_EQ(moods.Before, EMood::Happy);
    EXPECT_EQ(moods.Target, EMood::Angry);
    EXPECT_EQ(moods.After, EMood::Happy);
}

} // namespace
