// One class of each age: as it was in an older build, and in the ways in which later builds may have changed it. All go by the
// same name in files.
#pragma once

#include "Build.h"
#include "RTTI/Declare.h"

#include <unordered_map>
#include <unordered_set>

// What the class holds in all builds.
namespace Part
{

struct Inner
{
    int32_t Number = -1;
    std::string Text = "constructed";

    bool operator==(const Inner&) const = default;
};

struct Child : RTTI::Object
{
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Child>(); }
    int32_t Number = -1;
};

struct GrandChild final : Child
{
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<GrandChild>(); }
};

} // namespace Part

RTTI_DECLARE(Part::Inner);
RTTI_DECLARE(Part::Child);
RTTI_DECLARE(Part::GrandChild);

namespace Old
{

enum class EState : uint8_t
{
    Idle = 0,
    Busy = 7,
    Gone = 9,
};

// A property of each of the seven kinds, between two numbers.
struct Thing final : RTTI::Object
{
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Thing>(); }
    int32_t First = 1;
    Part::Inner Compound{11, "inner"};
    double Primitive = 2.5;
    std::string Text = "text";
    EState Enum = EState::Busy;
    std::vector<Part::Inner> Array{{12, "a"}, {13, "b"}};
    std::vector<uint32_t> Plain{1, 2, 3};
    std::unordered_map<int32_t, Part::Inner> Map{{4, {14, "c"}}};
    std::unordered_set<std::string> Set{"x"};
    std::unique_ptr<Part::Child> Pointer = std::make_unique<Part::GrandChild>();
    std::unique_ptr<Part::Child> Null;
    std::unique_ptr<int32_t> Number = std::make_unique<int32_t>(15);
    int32_t Last = 16;
};

} // namespace Old

DECLARE_AS(Old::EState, "Test::EState");
DECLARE_AS(Old::Thing, "Test::Thing");

namespace New
{

enum class EState : uint32_t
{
    Gone = 1,
    Busy = 2,
    Idle = 3,
};

enum class ESmallState : uint8_t
{
    Idle = 0,
};

// Nothing but the two numbers is left: of a class that is otherwise the same, whose version is raised, and with a new name in all
// places where the old one may stand.
template <class Change>
struct Ends final : RTTI::Object
{
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Ends>(); }
    int32_t First = -1;
    int32_t Last = -1;
};
using Bare = Ends<struct NoChange>;
using Raised = Ends<struct VersionChange>;
using Renamed = Ends<struct NameChange>;

// The same fields in another order, with new ones between them, and with an enumeration that has other numbers.
struct Shuffled final : RTTI::Object
{
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Shuffled>(); }
    int32_t Last = -1;
    std::string Added = "constructed";
    std::unique_ptr<int32_t> Number;
    std::unique_ptr<Part::Child> Null = std::make_unique<Part::Child>();
    std::unique_ptr<Part::Child> Pointer;
    std::unordered_set<std::string> Set;
    std::unordered_map<int32_t, Part::Inner> Map;
    std::vector<uint32_t> Plain;
    std::vector<Part::Inner> Array;
    EState Enum = EState::Idle;
    std::string Text;
    double Primitive = 0;
    std::vector<int32_t> AddedArray{5};
    Part::Inner Compound;
    int32_t First = -1;
};

// One field has another type.
template <class Field>
struct Retyped final : RTTI::Object
{
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Retyped>(); }
    Field Changed{};
};

struct WithFewerValues final : RTTI::Object
{
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<WithFewerValues>(); }
    ESmallState Enum = ESmallState::Idle;
};

} // namespace New

DECLARE_AS(New::EState, "Test::EState");
DECLARE_AS(New::ESmallState, "Test::EState");
DECLARE_AS(New::Bare, "Test::Thing");
DECLARE_AS(New::Shuffled, "Test::Thing");
DECLARE_AS(New::Retyped<int64_t>, "Test::Thing");
DECLARE_AS(New::Retyped<std::vector<int32_t>>, "Test::Thing");
DECLARE_AS(New::WithFewerValues, "Test::Thing");
DECLARE_AS(New::Raised, "Test::Thing");
DECLARE_AS(New::Renamed, "Test::Renamed");

namespace Old
{

struct Leaf
{
    int32_t Number = 0;

    bool operator==(const Leaf&) const = default;
};

struct Tree final : RTTI::Object
{
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Tree>(); }
    Leaf Embedded{1};
    std::vector<Leaf> Array{{2}, {3}};
    std::unordered_map<int32_t, std::unique_ptr<Leaf>> Map;
    std::unique_ptr<Leaf> Pointer = std::make_unique<Leaf>(Leaf{4});
    std::unique_ptr<RTTI::Object> Object = std::make_unique<Part::GrandChild>();
    int32_t Last = 5;
};

} // namespace Old

namespace New
{

struct Leaf
{
    int32_t Number = 0;
    int32_t Added = 77;

    bool operator==(const Leaf&) const = default;
};

struct Tree final : RTTI::Object
{
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Tree>(); }
    Leaf Embedded;
    std::vector<Leaf> Array;
    std::unordered_map<int32_t, std::unique_ptr<Leaf>> Map;
    std::unique_ptr<Leaf> Pointer;
    std::unique_ptr<RTTI::Object> Object;
    int32_t Last = 0;
};

} // namespace New

DECLARE_AS(Old::Leaf, "Test::Leaf");
DECLARE_AS(Old::Tree, "Test::Tree");
DECLARE_AS(New::Leaf, "Test::RenamedLeaf");
DECLARE_AS(New::Tree, "Test::Tree");
