// Files of an older build, read by a later one.
#include "ChangedClasses.h"

#include <gmock/gmock.h>

#include <functional>

using testing::ElementsAre;

namespace Serialization
{
namespace
{

std::vector<uint8_t> gWriteOldThing(Old::EState inState = Old::EState::Busy)
{
    const Build old = Build::With<Old::Thing, Part::GrandChild>();
    Old::Thing thing;
    thing.Pointer->Number = 14;
    thing.Enum = inState;
    return Build::Write(thing);
}

std::vector<uint8_t> gWriteOldTree()
{
    const Build old = Build::With<Old::Tree, Part::GrandChild>();
    Old::Tree tree;
    tree.Map.emplace(6, std::make_unique<Old::Leaf>(Old::Leaf{7}));
    return Build::Write(tree);
}

// Written before all tests: finalizing a later build numbers the classes that the builds share anew.
const std::vector<uint8_t> sOldThing = gWriteOldThing();
const std::vector<uint8_t> sOldTree = gWriteOldTree();

template <class Thing>
void gExpectEnds()
{
    const std::unique_ptr<Thing> thing = Build::With<Thing>().template ReadOne<Thing>(sOldThing);
    ASSERT_NE(thing, nullptr);
    EXPECT_EQ(thing->First, 1);
    EXPECT_EQ(thing->Last, 16);
}

TEST(CompatibilityTest, RemovedPropertiesOfEachKindArePassedOverAlsoUnderAFormerName)
{
    gExpectEnds<New::Bare>();
    gExpectEnds<New::Renamed>();
}

TEST(CompatibilityTest, OrderAndNewPropertiesDoNotMatter)
{
    const std::unique_ptr<New::Shuffled> thing = Build::With<New::Shuffled, Part::GrandChild>().ReadOne<New::Shuffled>(sOldThing);
    ASSERT_NE(thing, nullptr);
    EXPECT_EQ(thing->First, 1);
    EXPECT_EQ(thing->Compound, (Part::Inner{11, "inner"}));
    EXPECT_EQ(thing->Primitive, 2.5);
    EXPECT_EQ(thing->Text, "text");
    EXPECT_EQ(thing->Enum, New::EState::Busy) << "by name, whatever its number and width";
    EXPECT_THAT(thing->Array, ElementsAre(Part::Inner{12, "a"}, Part::Inner{13, "b"}));
    EXPECT_THAT(thing->Plain, ElementsAre(1U, 2U, 3U));
    EXPECT_THAT(thing->Map, ElementsAre(std::pair(4, Part::Inner{14, "c"})));
    EXPECT_THAT(thing->Set, ElementsAre("x"));
    ASSERT_NE(dynamic_cast<Part::GrandChild*>(thing->Pointer.get()), nullptr);
    EXPECT_EQ(thing->Pointer->Number, 14);
    ASSERT_NE(thing->Null, nullptr) << "a null in the file leaves what was constructed";
    ASSERT_NE(thing->Number, nullptr);
    EXPECT_EQ(*thing->Number, 15);
    EXPECT_EQ(thing->Last, 16);
    EXPECT_EQ(thing->Added, "constructed");
    EXPECT_THAT(thing->AddedArray, ElementsAre(5));
}

TEST(CompatibilityTest, AChangedTypeEndsTheRead)
{
    EXPECT_EQ(Build::With<New::Retyped<int64_t>>().ReadError(sOldThing),
              "4: Compatibility issue: Property Last has switched from type int32_t to type int64_t. This is not supported.");
    EXPECT_EQ(
        Build::With<New::Retyped<std::vector<int32_t>>>().ReadError(sOldThing),
        "4: Compatibility issue: Property Plain has switched from type A#uint32_t to type A#int32_t. This is not supported.");
}

TEST(CompatibilityTest, AMissingEnumValueEndsTheRead)
{
    EXPECT_EQ(Build::With<New::WithFewerValues>().ReadError(sOldThing),
              "4: Compatibility issue: enum Test::EState does not contain the value Busy anymore.");
    const std::vector<uint8_t> unnamed = gWriteOldThing(static_cast<Old::EState>(100));
    EXPECT_EQ(Build::With<New::Shuffled>().ReadError(unnamed),
              "4: Compatibility issue: enum Test::EState does not contain the value  anymore.");
}

TEST(CompatibilityTest, AFormerNameCountsWhereverItStands)
{
    const std::unique_ptr<New::Tree> tree = Build::With<New::Tree, Part::GrandChild>().ReadOne<New::Tree>(sOldTree);
    ASSERT_NE(tree, nullptr);
    EXPECT_EQ(tree->Embedded, (New::Leaf{1, 77}));
    EXPECT_THAT(tree->Array, ElementsAre(New::Leaf{2, 77}, New::Leaf{3, 77}));
    ASSERT_EQ(tree->Map.count(6), 1U);
    EXPECT_EQ(*tree->Map.at(6), (New::Leaf{7, 77}));
    ASSERT_NE(tree->Pointer, nullptr);
    EXPECT_EQ(*tree->Pointer, (New::Leaf{4, 77}));
    EXPECT_EQ(tree->Last, 5);
}

TEST(CompatibilityTest, ARenameTableReplacesNames)
{
    Build build = Build::With<New::Tree, Part::Child>();
    const RTTI::RenameTable renames{{"Part::GrandChild", "Part::Child"}};
    build.GetRegistry().SetRenameTable(&renames);
    const std::unique_ptr<New::Tree> tree = build.ReadOne<New::Tree>(sOldTree);
    ASSERT_NE(tree, nullptr);
    ASSERT_NE(tree->Object, nullptr);
    EXPECT_EQ(tree->Object->GetType().GetName(), "Part::Child");
}

TEST(CompatibilityTest, AnUnknownClassIsSkippedOrRefused)
{
    Build build = Build::With<New::Tree>();
    EXPECT_EQ(build.ReadError(sOldTree), "4: The type Part::GrandChild was not registered into the system");
    build.SetMode(ReadObjectMode::SkipUnknownTypes);
    const std::unique_ptr<New::Tree> tree = build.ReadOne<New::Tree>(sOldTree);
    ASSERT_NE(tree, nullptr);
    EXPECT_EQ(tree->Object, nullptr);
    EXPECT_EQ(tree->Last, 5);
}

TEST(CompatibilityTest, AnUnknownRootEndsTheReadWithoutAWord)
{
    Build build = Build::With<New::Tree>();
    build.SetMode(ReadObjectMode::SkipUnknownTypes);
    Objects objects;
    ReaderErrorState errors;
    EXPECT_FALSE(build.Read(sOldThing, objects, errors));
    EXPECT_TRUE(objects.empty());
    EXPECT_TRUE(errors.GetEntries().empty());
}

TEST(CompatibilityTest, ARaisedVersionNeedsAHandler)
{
    Build build = Build::With<New::Raised>();
    EXPECT_EQ(build.ReadError(sOldThing),
              "4: Compatibility issue: Version number of object of type Test::Thing has changed from 1 to 4");
    build.GetHandlers().AddCompatibilityHandler(RTTI::gTypeOf<New::Raised>(), std::make_unique<CompatibilityHandler>());
    EXPECT_EQ(build.ReadOne<New::Raised>(sOldThing)->Last, 16);
}

TEST(CompatibilityTest, ANewerFileIsNeverRead)
{
    const Build raised = Build::With<New::Raised>();
    const std::vector<uint8_t> file = Build::Write(New::Raised());
    Build build = Build::With<New::Bare>();
    const std::string message =
        "5: Compatibility issue: File contains object of type Test::Thing that has a newer version number (4) "
        "than the runtime (1)";
    EXPECT_EQ(build.ReadError(file), message);
    build.GetHandlers().AddCompatibilityHandler(RTTI::gTypeOf<New::Bare>(), std::make_unique<CompatibilityHandler>());
    EXPECT_EQ(build.ReadError(file), message);
}

TEST(CompatibilityTest, AnObjectThatLostItsBaseDoesNotFit)
{
    Build build = Build::With<New::Shuffled, New::Tree>();
    // What is behind the pointer is now another class.
    const RTTI::RenameTable renames{{"Part::GrandChild", "Test::Tree"}};
    build.GetRegistry().SetRenameTable(&renames);
    EXPECT_EQ(build.ReadError(sOldThing),
              "4: Compatibility issue: object of type Test::Tree used to be derived from Part::Child but isn't anymore");
}

TEST(CompatibilityTest, CreatorsMakeObjectsThatNeedArguments)
{
    Build build = Build::With<New::Bare>();
    int made = 0;
    build.GetCreators().AddTypeCreator(RTTI::gTypeOf<New::Bare>(),
                                       [&made]
                                       {
                                           ++made;
                                           return RTTI::OwnedValue(RTTI::gTypeOf<New::Bare>(), new New::Bare());
                                       });
    EXPECT_EQ(build.ReadOne<New::Bare>(sOldThing)->Last, 16);
    EXPECT_EQ(made, 1);
    build.GetCreators().AddTypeCreator(RTTI::gTypeOf<New::Bare>(), [] { return RTTI::OwnedValue(); });
    EXPECT_EQ(build.ReadError(sOldThing), "4: Failed to create object of type Test::Thing");
}

// Notes its calls, and does what a test asks for.
class NotingHandler final : public CompatibilityHandler
{
public:
    explicit NotingHandler(std::vector<std::string>& outCalls) : mCalls(outCalls) {}

    std::function<bool(BinaryReader&, MemoryReadStream&, void*, const PropertySchema&, ReaderErrorState&)> OnRemoved;
    std::function<RTTI::OwnedValue()> OnCreate;
    bool CanCreate = true;
    bool CanFinishCompound = true;
    bool CanFinishRoot = true;
    std::string Label;

    bool TryCreateObject(BinaryReader&, MemoryReadStream&, const RTTI::Type&, std::string_view inTypeName, const CompoundSchema&,
                         RTTI::OwnedValue& outObject, ReaderErrorState&) override
    {
        mCalls.push_back("create " + std::string(inTypeName));
        if (OnCreate)
            outObject = OnCreate();
        return CanCreate;
    }

    bool ReadRemovedProperty(BinaryReader& ioReader, MemoryReadStream& ioStream, const RTTI::Type&, void* ioObject,
                             std::string_view, const CompoundSchema&, const PropertySchema& inProperty,
                             ReaderErrorState& ioErrors) override
    {
        mCalls.push_back("removed " + inProperty.Name);
        return !OnRemoved || OnRemoved(ioReader, ioStream, ioObject, inProperty, ioErrors);
    }

    bool OnCompoundRead(const RTTI::Type&, void*, const CompoundSchema& inSchema, ReaderErrorState&) override
    {
        mCalls.push_back("compound of version " + std::to_string(inSchema.Version));
        return CanFinishCompound;
    }

    bool OnRootObjectRead(RTTI::Object&, ReaderErrorState&) override
    {
        mCalls.push_back("root" + Label);
        return CanFinishRoot;
    }

private:
    std::vector<std::string>& mCalls;
};

class HandlerTest : public testing::Test
{
protected:
    template <class T>
    NotingHandler& AddHandler(Build& ioBuild)
    {
        auto handler = std::make_unique<NotingHandler>(mCalls);
        NotingHandler& added = *handler;
        ioBuild.GetHandlers().AddCompatibilityHandler(RTTI::gTypeOf<T>(), std::move(handler));
        return added;
    }

    std::vector<std::string> mCalls;
};

TEST_F(HandlerTest, SeesEveryRemovedPropertyInTheOrderOfTheFile)
{
    Build build = Build::With<New::Bare>();
    AddHandler<New::Bare>(build);
    EXPECT_EQ(build.ReadOne<New::Bare>(sOldThing)->Last, 16);
    EXPECT_THAT(mCalls, ElementsAre("create Test::Thing", "removed Compound", "removed Primitive", "removed Text", "removed Enum",
                                    "removed Array", "removed Plain", "removed Map", "removed Set", "removed Pointer",
                                    "removed Null", "removed Number", "compound of version 1", "root"));
}

TEST_F(HandlerTest, MayReadWhatWasRemovedOrNot)
{
    Build build = Build::With<New::Bare, Part::GrandChild>();
    std::string text;
    std::unique_ptr<Part::Child> pointer;
    AddHandler<New::Bare>(build).OnRemoved = [&](BinaryReader& ioReader, MemoryReadStream& ioStream, void*,
                                                 const PropertySchema& inProperty, ReaderErrorState& ioErrors)
    {
        if (inProperty.Name == "Text")
            return ioReader.ReadValue(ioStream, RTTI::gValueOf(text), inProperty.Type, ioErrors);
        if (inProperty.Name == "Pointer")
            return ioReader.ReadValue(ioStream, RTTI::gValueOf(pointer), inProperty.Type, ioErrors);
        ioStream.Skip(3); // anywhere
        return true;
    };
    EXPECT_EQ(build.ReadOne<New::Bare>(sOldThing)->Last, 16);
    EXPECT_EQ(text, "text");
    ASSERT_NE(pointer, nullptr);
    EXPECT_EQ(pointer->Number, 14);
}

TEST_F(HandlerTest, MayReadTheWholeObjectItself)
{
    Build build = Build::With<New::Tree, Part::GrandChild>();
    AddHandler<Part::GrandChild>(build).OnCreate = []
    {
        auto* child = new Part::GrandChild();
        child->Number = 99;
        return RTTI::OwnedValue(child->GetType(), child);
    };
    const std::unique_ptr<New::Tree> tree = build.ReadOne<New::Tree>(sOldTree);
    ASSERT_NE(tree, nullptr);
    EXPECT_EQ(dynamic_cast<Part::GrandChild&>(*tree->Object).Number, 99);
    EXPECT_EQ(tree->Last, 5) << "reading goes on behind the object";
    EXPECT_THAT(mCalls, ElementsAre("create Part::GrandChild", "root"));
}

TEST_F(HandlerTest, HandlersHearOfTheRootInTheOrderOfTheirFirstPart)
{
    Build build = Build::With<New::Tree, Part::GrandChild>();
    AddHandler<Part::GrandChild>(build).Label = " of the child";
    NotingHandler& leaf = AddHandler<New::Leaf>(build);
    leaf.Label = " of the leaf";
    ASSERT_NE(build.ReadOne<New::Tree>(sOldTree), nullptr);
    ASSERT_GE(mCalls.size(), 2U);
    EXPECT_EQ(*(mCalls.end() - 2), "root of the leaf");
    EXPECT_EQ(mCalls.back(), "root of the child");
    leaf.CanFinishRoot = false;
    EXPECT_EQ(build.ReadError(sOldTree), "no error");
    EXPECT_EQ(mCalls.back(), "root of the leaf");
}

TEST_F(HandlerTest, HearsOnceOfEachRootThatItTookPartIn)
{
    std::vector<uint8_t> file;
    {
        const Build old = Build::With<Old::Tree, Old::Thing, Part::GrandChild>();
        const Old::Tree tree;
        Old::Thing thing;
        thing.Pointer = nullptr;
        file = Build::Write({&tree, &thing, &tree});
    }
    Build build = Build::With<New::Tree, New::Bare, Part::GrandChild>();
    AddHandler<New::Leaf>(build);
    Objects objects;
    ReaderErrorState errors;
    ASSERT_TRUE(build.Read(file, objects, errors)) << Utility::GetErrorText(errors);
    EXPECT_EQ(std::count(mCalls.begin(), mCalls.end(), "compound of version 1"), 8);
    EXPECT_EQ(std::count(mCalls.begin(), mCalls.end(), "root"), 2) << "once, however often it took part";
}

TEST_F(HandlerTest, CanFailEveryStep)
{
    Build build = Build::With<New::Bare>();
    NotingHandler& handler = AddHandler<New::Bare>(build);
    const auto getLastCall = [&]
    {
        EXPECT_EQ(build.ReadError(sOldThing), "no error");
        return mCalls.back();
    };
    handler.CanFinishRoot = false;
    EXPECT_EQ(getLastCall(), "root");
    handler.CanFinishCompound = false;
    EXPECT_EQ(getLastCall(), "compound of version 1");
    handler.OnRemoved = [](BinaryReader&, MemoryReadStream&, void*, const PropertySchema&, ReaderErrorState&) { return false; };
    EXPECT_EQ(getLastCall(), "removed Compound");
    handler.CanCreate = false;
    EXPECT_EQ(getLastCall(), "create Test::Thing");
}

} // namespace
} // namespace Serialization
