#include "RTTI/ContainerIterators.h"
#include "TestTypes.h"

#include <gmock/gmock.h>

#include <algorithm>

using testing::ElementsAre;

namespace
{

using Zoo::Animal;
using Zoo::Counted;
using Zoo::Lion;
using Zoo::Parrot;

// Works on a container through its tables alone.
class ContainerTest : public testing::Test
{
protected:
    ContainerTest()
    {
        Counted::sAlive = 0;
        Counted::sCopies = 0;
    }

    template <class Map, class Key, class Mapped>
    static void Insert(Map& ioMap, Key inKey, Mapped& ioValue)
    {
        RTTI::gTypeOf<Map>().AsMap()->Insert(&ioMap, &inKey, &ioValue);
    }

    template <class Map>
    static auto ReadPairs(Map& inMap)
    {
        std::vector<std::pair<typename Map::key_type, const typename Map::mapped_type*>> pairs;
        RTTI::Value key;
        RTTI::Value value;
        const auto iterator = RTTI::gTypeOf<Map>().AsMap()->CreateIterator(&inMap);
        while (!iterator->IsAtEnd())
        {
            iterator->GetNext(key, value);
            EXPECT_EQ(key.Type, &RTTI::gTypeOf<typename Map::key_type>());
            EXPECT_EQ(value.Type, &RTTI::gTypeOf<typename Map::mapped_type>());
            pairs.emplace_back(*static_cast<typename Map::key_type*>(key.Data),
                               static_cast<typename Map::mapped_type*>(value.Data));
        }
        return pairs;
    }
};

TEST_F(ContainerTest, ArraysResizeAndGiveTheirElements)
{
    std::vector<std::string> texts{"a", "b"};
    const RTTI::ArrayInfo& array = *RTTI::gTypeOf<decltype(texts)>().AsArray();
    EXPECT_EQ(array.ElementType, &RTTI::gTypeOf<std::string>());
    array.Resize(&texts, 4);
    EXPECT_EQ(array.GetCount(&texts), 4U);
    *static_cast<std::string*>(array.GetElement(&texts, 3)) = "d";
    EXPECT_THAT(texts, ElementsAre("a", "b", "", "d"));
    EXPECT_EQ(array.GetData(&texts), texts.data());
    array.Resize(&texts, 0);
    EXPECT_EQ(array.GetCount(&texts), 0U);

    std::vector<std::unique_ptr<Lion>> lions(1);
    const Lion* first = (lions[0] = std::make_unique<Lion>()).get();
    RTTI::gTypeOf<decltype(lions)>().AsArray()->Resize(&lions, 100);
    EXPECT_EQ(lions[0].get(), first);
    EXPECT_EQ(lions[99], nullptr);
}

TEST_F(ContainerTest, MapsCopyWhatIsInserted)
{
    std::unordered_map<std::string, Counted, Zoo::CageHasher> map;
    Counted value;
    value.Number = 5;
    Insert(map, std::string("five"), value);
    value.Number = 6;
    Insert(map, std::string("six"), value);
    EXPECT_EQ(value.Number, 6);
    EXPECT_EQ(map.at("five").Number, 5);
    value.Number = 66;
    Insert(map, std::string("six"), value);
    EXPECT_EQ(map.at("six").Number, 66);
    EXPECT_EQ(RTTI::gTypeOf<decltype(map)>().AsMap()->GetCount(&map), 2U);
}

TEST_F(ContainerTest, MapsMoveWhatCannotBeCopied)
{
    std::unordered_map<int32_t, std::unique_ptr<Lion>> map;
    const RTTI::MapInfo& info = *RTTI::gTypeOf<decltype(map)>().AsMap();
    auto lion = std::make_unique<Lion>();
    const Lion* raw = lion.get();
    const int32_t key = 3;
    void* slot = info.InsertMoving(&map, &key, &lion);
    EXPECT_EQ(slot, &map.at(3));
    EXPECT_EQ(map.at(3).get(), raw);
    EXPECT_EQ(lion, nullptr);

    std::unordered_map<int32_t, std::vector<std::unique_ptr<Lion>>> prides;
    std::vector<std::unique_ptr<Lion>> pride(2);
    Insert(prides, 1, pride);
    EXPECT_EQ(prides.at(1).size(), 2U);

    std::unordered_map<int32_t, Counted> numbers;
    Counted value;
    value.Number = 9;
    RTTI::gTypeOf<decltype(numbers)>().AsMap()->InsertMoving(&numbers, &key, &value);
    EXPECT_EQ(numbers.at(3).Number, 9);
    EXPECT_EQ(Counted::sCopies, 0) << "moved, although it can be copied";
}

TEST_F(ContainerTest, ReservedMapsAndSetsTakeElementsWithoutRehashing)
{
    std::unordered_map<int32_t, float> map;
    RTTI::gTypeOf<decltype(map)>().AsMap()->Reserve(&map, 1000);
    EXPECT_GE(map.bucket_count(), 1000U);
    std::unordered_set<int32_t> set;
    RTTI::gTypeOf<decltype(set)>().AsSet()->Reserve(&set, 1000);
    EXPECT_GE(set.bucket_count(), 1000U);
}

TEST_F(ContainerTest, IteratorsFollowTheContainersOwnOrder)
{
    std::unordered_map<int32_t, std::string> map{{1, "one"}, {2, "two"}, {300, "many"}};
    std::vector<std::pair<int32_t, const std::string*>> expected;
    for (const auto& [key, value] : map)
        expected.emplace_back(key, &value);
    EXPECT_EQ(ReadPairs(map), expected);
    map.clear();
    EXPECT_TRUE(ReadPairs(map).empty());
}

TEST_F(ContainerTest, SetsHoldElementsOnce)
{
    std::unordered_set<std::string> set;
    const RTTI::SetInfo& info = *RTTI::gTypeOf<decltype(set)>().AsSet();
    for (const std::string text : {"x", "y", "x"})
        info.Insert(&set, &text);
    EXPECT_EQ(info.GetCount(&set), 2U);
    EXPECT_EQ(info.ElementType, &RTTI::gTypeOf<std::string>());

    std::vector<std::string> seen;
    RTTI::Value element;
    for (const auto iterator = info.CreateIterator(&set); !iterator->IsAtEnd();)
    {
        iterator->GetNext(element);
        seen.push_back(*static_cast<std::string*>(element.Data));
    }
    EXPECT_TRUE(std::equal(seen.begin(), seen.end(), set.begin(), set.end()));
}

TEST_F(ContainerTest, PointersGiveTheDynamicTypeOfObjects)
{
    std::unique_ptr<Animal> animal;
    const RTTI::PointerInfo& info = *RTTI::gTypeOf<decltype(animal)>().AsPointer();
    EXPECT_TRUE(info.IsOwning);
    EXPECT_EQ(info.PointeeType, &RTTI::gTypeOf<Animal>());
    EXPECT_EQ(info.Get(&animal).Type, nullptr);

    info.Set(&animal, new Parrot(12));
    EXPECT_EQ(info.Get(&animal).Type, &RTTI::gTypeOf<Parrot>());
    EXPECT_EQ(info.Get(&animal).Data, animal.get());

    RTTI::OwnedValue lion = RTTI::gTypeOf<Lion>().Descriptor->Create();
    info.SetFromOwned(&animal, std::move(lion));
    EXPECT_EQ(info.Get(&animal).Type, &RTTI::gTypeOf<Lion>());
    EXPECT_EQ(animal->GetLegCount(), 4);

    info.Set(&animal, nullptr);
    EXPECT_EQ(info.Get(&animal).Data, nullptr);

    std::unique_ptr<int32_t> number;
    const RTTI::PointerInfo& ofNumber = *RTTI::gTypeOf<decltype(number)>().AsPointer();
    ofNumber.SetFromOwned(&number, RTTI::gTypeOf<int32_t>().Descriptor->Create());
    EXPECT_EQ(ofNumber.Get(&number).Type, &RTTI::gTypeOf<int32_t>()) << "the declared one";
    EXPECT_EQ(*number, 0);
}

class OwnedValueTest : public ContainerTest
{
protected:
    static RTTI::OwnedValue Create() { return RTTI::gTypeOf<Counted>().Descriptor->Create(); }
};

TEST_F(OwnedValueTest, DestroysItsDataOnce)
{
    {
        RTTI::OwnedValue value = Create();
        ASSERT_EQ(Counted::sAlive, 1);
        RTTI::OwnedValue moved(std::move(value));
        RTTI::OwnedValue other = Create();
        EXPECT_EQ(Counted::sAlive, 2);
        other = std::move(moved);
        EXPECT_EQ(Counted::sAlive, 1);
        EXPECT_EQ(other.GetType(), &RTTI::gTypeOf<Counted>());
        RTTI::OwnedValue& itself = other;
        other = std::move(itself);
        EXPECT_TRUE(other);
        EXPECT_EQ(Counted::sAlive, 1);
    }
    EXPECT_EQ(Counted::sAlive, 0);
}

TEST_F(OwnedValueTest, ReleasedDataBelongsToTheCaller)
{
    RTTI::OwnedValue value = Create();
    const std::unique_ptr<Counted> data(static_cast<Counted*>(value.Release()));
    EXPECT_FALSE(value);
    EXPECT_EQ(value.GetType(), nullptr);
    value.Reset();
    EXPECT_EQ(Counted::sAlive, 1);
}

TEST_F(OwnedValueTest, IsEmptyWhereNothingCanBeCreated)
{
    EXPECT_FALSE(RTTI::gTypeOf<Animal>().Descriptor->Create());
    EXPECT_FALSE(RTTI::gTypeOf<Parrot>().Descriptor->Create());
    RTTI::gTypeOf<Parrot>().Descriptor->Destroy(nullptr);
    RTTI::gTypeOf<Parrot>().Descriptor->Destroy(new Parrot(1));
}

TEST_F(OwnedValueTest, ContainersAndEnumsAreCreatedEmpty)
{
    const RTTI::OwnedValue array = RTTI::gTypeOf<std::vector<Counted>>().Descriptor->Create();
    array.GetType()->AsArray()->Resize(array.GetData(), 3);
    EXPECT_EQ(Counted::sAlive, 3);
    const RTTI::OwnedValue mood = RTTI::gTypeOf<Zoo::EMood>().Descriptor->Create();
    EXPECT_EQ(*static_cast<Zoo::EMood*>(mood.GetData()), Zoo::EMood::Calm);
}

} // namespace
