#include "HandMadeTypes.h"
#include "RTTI/Registry.h"
#include "RTTI/TypeQueries.h"
#include "TestTypes.h"
#include "Utility/Hash.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <deque>
#include <numeric>
#include <random>

using testing::Contains;

namespace
{

// One class of a tree as the twin sees it: by index, with no tables.
struct PlainClass
{
    int32_t Version;
    std::vector<size_t> Bases;
};

struct Numbers
{
    uint64_t FullVersion = ~uint64_t{0};
    uint32_t TreeIndex = ~uint32_t{0};
    uint32_t DescendantCount = ~uint32_t{0};

    bool operator==(const Numbers&) const = default;
};

using Tree = std::vector<PlainClass>;

// The slow twin: walks the tree by searching all classes for children, in a given order of the classes.
class NumberingTwin
{
public:
    NumberingTwin(const Tree& inTree, std::vector<size_t> inOrder)
        : mTree(inTree),
          mOrder(std::move(inOrder)),
          mNumbers(inTree.size())
    {
        for (const size_t root : mOrder)
        {
            if (mTree[root].Bases.empty())
                Visit(root, 0);
        }
    }

    const std::vector<Numbers>& GetNumbers() const { return mNumbers; }

private:
    uint32_t Visit(size_t inClass, uint64_t inParentVersion)
    {
        Numbers numbers;
        numbers.TreeIndex = mNext++;
        numbers.FullVersion = Utility::gCRC64(&mTree[inClass].Version, 4, inParentVersion);
        numbers.DescendantCount = 0;
        for (const size_t child : mOrder)
        {
            const std::vector<size_t>& bases = mTree[child].Bases;
            if (std::find(bases.begin(), bases.end(), inClass) != bases.end())
                numbers.DescendantCount += 1 + Visit(child, numbers.FullVersion);
        }
        mNumbers[inClass] = numbers;
        return numbers.DescendantCount;
    }

    const Tree& mTree;
    std::vector<size_t> mOrder;
    std::vector<Numbers> mNumbers;
    uint32_t mNext = 0;
};

// The numbers that each order of the classes in the registry leads to.
std::vector<std::vector<Numbers>> gGetPossibleNumbers(const Tree& inTree)
{
    std::vector<size_t> order(inTree.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::vector<std::vector<Numbers>> possible;
    do
        possible.push_back(NumberingTwin(inTree, order).GetNumbers());
    while (std::next_permutation(order.begin(), order.end()));
    return possible;
}

class FinalizeTest : public testing::Test
{
protected:
    // Makes tables of a tree and registers them in one module.
    std::deque<RTTITest::HandMadeClass>& AddModule(uint64_t inKey, const Tree& inTree)
    {
        std::deque<RTTITest::HandMadeClass>& classes = mModules.emplace_back(inTree.size());
        RTTI::CurrentModuleScope scope(mRegistry, inKey);
        for (size_t i = 0; i < inTree.size(); ++i)
        {
            std::vector<const RTTI::Type*> bases;
            for (const size_t base : inTree[i].Bases)
                bases.push_back(&classes[base].Type);
            RTTITest::gMakeClass(classes[i], i, inTree[i].Version, bases);
            mRegistry.Register(classes[i].Type);
        }
        return classes;
    }

    static std::vector<Numbers> GetNumbers(const std::deque<RTTITest::HandMadeClass>& inClasses)
    {
        std::vector<Numbers> numbers;
        for (const RTTITest::HandMadeClass& entry : inClasses)
            numbers.push_back({entry.Info.FullVersion, entry.Info.TreeIndex, entry.Info.DescendantCount});
        return numbers;
    }

    std::deque<std::deque<RTTITest::HandMadeClass>> mModules;
    RTTI::Registry mRegistry;
};

TEST_F(FinalizeTest, TablesAreOpenUntilThenAndThoseNeverRegisteredStayOpen)
{
    RTTITest::HandMadeClass left;
    RTTITest::gMakeClass(left, 7, 1);
    const auto& classes = AddModule(1, {{1, {}}, {1, {0}}});
    EXPECT_EQ(GetNumbers(classes), (std::vector<Numbers>(2)));
    EXPECT_EQ(classes[0].Type.GetHash(), ~uint64_t{0});
    EXPECT_EQ(classes[0].Descriptor.ModuleKey, ~uint64_t{0});
    EXPECT_TRUE(RTTI::gIsDerivedFrom(classes[1].Type, classes[1].Type));
    EXPECT_FALSE(RTTI::gIsDerivedFrom(classes[1].Type, classes[0].Type));
    mRegistry.Finalize();
    EXPECT_EQ(left.Info.TreeIndex, RTTI::sNotRegistered);
    EXPECT_FALSE(RTTI::gIsDerivedFrom(left.Type, classes[0].Type));
    EXPECT_FALSE(RTTI::gIsDerivedFrom(classes[0].Type, left.Type));
}

TEST_F(FinalizeTest, SignaturesTakeInBasesAndWhatLiesInside)
{
    RTTI::CurrentModuleScope scope(mRegistry, 5);
    mRegistry.Register(RTTI::gTypeOf<Zoo::Lion>());
    mRegistry.Finalize();

    EXPECT_EQ(RTTI::gTypeOf<Zoo::Place>().GetHash(), Utility::gHash64("Zoo::Place162X:doubleY:float0"));
    EXPECT_EQ(RTTI::gTypeOf<Zoo::EMood>().GetHash(), Utility::gHash64("Zoo::EMood1"));
    EXPECT_EQ(RTTI::gTypeOf<std::string>().GetHash(), Utility::gHash64("std::string32"));
    EXPECT_EQ(RTTI::gTypeOf<std::vector<std::unique_ptr<Zoo::Lion>>>().GetHash(), Utility::gHash64("A#P#Zoo::Lion24"));
    EXPECT_EQ(RTTI::gTypeOf<RTTI::Object>().GetHash(), Utility::gHash64("RTTI::Object800"));
    EXPECT_EQ(RTTI::gTypeOf<Zoo::Animal>().GetHash(), Utility::gHash64("Zoo::Animal401Name:std::string1RTTI::Object"));
    EXPECT_EQ(RTTI::gTypeOf<Zoo::Lion>().GetHash(), Utility::gHash64("Zoo::Lion" + std::to_string(sizeof(Zoo::Lion)) +
                                                                     "5Name:std::stringCubs:A#P#Zoo::LionPlace:Zoo::Place"
                                                                     "Zoo::Place162X:doubleY:float0"
                                                                     "Mood:Zoo::EMoodHungry:bool1Zoo::Animal"));
    EXPECT_EQ(RTTI::gTypeOf<Zoo::Lion>().Descriptor->ModuleKey, 5U);

    EXPECT_TRUE(RTTI::gIsDerivedFrom(RTTI::gTypeOf<bool>(), RTTI::gTypeOf<bool>()));
    EXPECT_FALSE(RTTI::gIsDerivedFrom(RTTI::gTypeOf<bool>(), RTTI::gTypeOf<std::string>())) << "only classes derive";
    EXPECT_FALSE(RTTI::gIsDerivedFrom(RTTI::gTypeOf<Zoo::Lion>(), RTTI::gTypeOf<bool>()));
}

TEST_F(FinalizeTest, NumbersFollowTheTree)
{
    // Two roots, three levels, a class with several children.
    const Tree tree{{3, {}}, {1, {0}}, {7, {0}}, {2, {2}}, {1, {2}}, {3, {}}, {9, {5}}};
    const auto& classes = AddModule(1, tree);
    mRegistry.Finalize();
    EXPECT_THAT(gGetPossibleNumbers(tree), Contains(GetNumbers(classes)));
    EXPECT_TRUE(RTTI::gIsDerivedFrom(classes[4].Type, classes[0].Type));
    EXPECT_TRUE(RTTI::gIsDerivedFrom(classes[4].Type, classes[4].Type));
    EXPECT_FALSE(RTTI::gIsDerivedFrom(classes[0].Type, classes[4].Type));
    EXPECT_FALSE(RTTI::gIsDerivedFrom(classes[3].Type, classes[4].Type));
    EXPECT_FALSE(RTTI::gIsDerivedFrom(classes[5].Type, classes[0].Type));
    EXPECT_FALSE(RTTI::gIsDerivedFrom(classes[0].Type, classes[5].Type));
}

TEST_F(FinalizeTest, RandomTreesAgreeWithTheTwin)
{
    for (uint32_t seed = 1; seed <= 60; ++seed)
    {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        Tree tree(1 + random() % 6);
        for (size_t i = 0; i < tree.size(); ++i)
        {
            tree[i].Version = static_cast<int32_t>(random() % 50);
            for (size_t base = 0; base < i; ++base)
            {
                if (random() % 3 == 0)
                    tree[i].Bases.push_back(base);
            }
        }
        mRegistry = {};
        const auto& classes = AddModule(1, tree);
        mRegistry.Finalize();
        EXPECT_THAT(gGetPossibleNumbers(tree), Contains(GetNumbers(classes)));
    }
}

TEST_F(FinalizeTest, EqualTablesOfTwoModulesAreOneClass)
{
    const Tree tree{{3, {}}, {1, {0}}, {7, {0}}, {2, {2}}};
    const auto& first = AddModule(1, tree);
    const auto& second = AddModule(2, tree);
    mRegistry.Finalize();
    EXPECT_EQ(GetNumbers(first), GetNumbers(second));
    EXPECT_THAT(gGetPossibleNumbers(tree), Contains(GetNumbers(first)));
    EXPECT_TRUE(RTTI::gIsSameType(first[3].Type, second[3].Type));
    EXPECT_TRUE(RTTI::gIsDerivedFrom(first[3].Type, second[0].Type));
    EXPECT_EQ(first[3].Descriptor.ModuleKey, 1U);
    EXPECT_EQ(second[3].Descriptor.ModuleKey, 2U);
}

TEST_F(FinalizeTest, ClassesOfOneNameThatDifferStayApart)
{
    const auto& first = AddModule(1, {{1, {}}});
    auto& second = AddModule(2, {{1, {}}});
    second[0].Properties = {{"Added", &RTTI::gTypeOf<int32_t>(), 0}};
    second[0].Connect();
    mRegistry.Finalize();
    EXPECT_FALSE(RTTI::gIsSameType(first[0].Type, second[0].Type));
    EXPECT_FALSE(RTTI::gIsDerivedFrom(first[0].Type, second[0].Type));
    EXPECT_FALSE(RTTI::gIsDerivedFrom(second[0].Type, first[0].Type));
}

TEST_F(FinalizeTest, MayRunAgainWhenAnotherModuleHasRegistered)
{
    const Tree tree{{1, {}}, {1, {0}}};
    const auto& first = AddModule(1, tree);
    mRegistry.Finalize();
    const Tree larger{{1, {}}, {1, {0}}, {1, {0}}, {4, {1}}};
    AddModule(2, larger);
    mRegistry.Finalize();
    EXPECT_EQ(first[0].Info.DescendantCount, 3U);
    EXPECT_EQ(first[1].Info.DescendantCount, 1U);
}

TEST_F(FinalizeTest, AReplacedTableThatIsStillInUseIsFilledToo)
{
    // The field's own table of the array and the common one have the same full name, so only one of them is in the registry.
    RTTI::CurrentModuleScope scope(mRegistry, 1);
    mRegistry.Register(RTTI::gTypeOf<Zoo::Cage>());
    mRegistry.Register(RTTI::gTypeOf<std::vector<int32_t>>());
    mRegistry.Finalize();
    const RTTI::Type& ofField = *RTTI::gFindProperty(RTTI::gTypeOf<Zoo::Cage>(), "Neighbours")->Type;
    ASSERT_NE(&ofField, &RTTI::gTypeOf<std::vector<int32_t>>());
    EXPECT_EQ(ofField.GetHash(), Utility::gHash64("A#int32_t24"));
    EXPECT_TRUE(RTTI::gIsSameType(ofField, RTTI::gTypeOf<std::vector<int32_t>>()));
    EXPECT_TRUE(RTTI::gIsSameType(*ofField.Descriptor->Create().GetType(), ofField));
}

TEST_F(FinalizeTest, ManyNestedLevelsTakeNoMoreThanTheirText)
{
    // Each class holds the one before twice, so a walk without memory would write each of the lower signatures many times.
    std::deque<RTTITest::HandMadeClass>& classes = AddModule(1, Tree(RTTITest::sSlotCount, PlainClass{1, {}}));
    std::string signature = "HandMade::Class080"
                            "0";
    for (size_t i = 1; i < classes.size(); ++i)
    {
        classes[i].Properties = {{"A", &classes[i - 1].Type, 0}, {"B", &classes[i - 1].Type, 0}};
        classes[i].Connect();
        const std::string inner = "HandMade::Class" + std::to_string(i - 1) + signature;
        signature = "HandMade::Class" + std::to_string(i) + "8" + "2A:" + inner + "B:" + inner + "0";
    }
    mRegistry.Finalize();
    EXPECT_EQ(classes.back().Type.GetHash(), Utility::gHash64(signature));
}

} // namespace
