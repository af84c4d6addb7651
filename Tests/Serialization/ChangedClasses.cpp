#include "ChangedClasses.h"

#include "Tests/Serialization/PropertyList.h"

RTTI_BEGIN(Part::Inner, 1)
    RTTI_PROPERTIES(Number, Text)
RTTI_END()

RTTI_BEGIN(Part::Child, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("Number", Number)
RTTI_END()

RTTI_BEGIN(Part::GrandChild, 1)
    RTTI_BASE(Part::Child)
RTTI_END()

RTTI_ENUM_BEGIN(Old::EState)
    RTTI_VALUE("Idle", Old::EState::Idle)
    RTTI_VALUE("Busy", Old::EState::Busy)
    RTTI_VALUE("Gone", Old::EState::Gone)
RTTI_ENUM_END()

RTTI_BEGIN(Old::Thing, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTIES(First, Compound, Primitive, Text, Enum, Array, Plain, Map, Set, Pointer, Null, Number, Last)
RTTI_END()

RTTI_ENUM_BEGIN(New::EState)
    RTTI_VALUE("Gone", New::EState::Gone)
    RTTI_VALUE("Busy", New::EState::Busy)
    RTTI_VALUE("Idle", New::EState::Idle)
RTTI_ENUM_END()

RTTI_ENUM_BEGIN(New::ESmallState)
    RTTI_VALUE("Idle", New::ESmallState::Idle)
RTTI_ENUM_END()

RTTI_BEGIN(New::Bare, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTIES(First, Last)
RTTI_END()

RTTI_BEGIN(New::Shuffled, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTIES(Last, Added, Number, Null, Pointer, Set, Map, Plain, Array, Enum, Text, Primitive, AddedArray, Compound,
                    First)
RTTI_END()

RTTI_BEGIN(New::Retyped<int64_t>, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("Last", Changed)
RTTI_END()

RTTI_BEGIN(New::Retyped<std::vector<int32_t>>, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("Plain", Changed)
RTTI_END()

RTTI_BEGIN(New::WithFewerValues, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("Enum", Enum)
RTTI_END()

RTTI_BEGIN(New::Raised, 4)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTIES(First, Last)
RTTI_END()

RTTI_BEGIN(New::Renamed, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_ALIAS("Test::Thing")
    RTTI_PROPERTIES(First, Last)
RTTI_END()

RTTI_BEGIN(Old::Leaf, 1)
    RTTI_PROPERTY("Number", Number)
RTTI_END()

RTTI_BEGIN(Old::Tree, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTIES(Embedded, Array, Map, Pointer, Object, Last)
RTTI_END()

RTTI_BEGIN(New::Leaf, 1)
    RTTI_ALIAS("Test::Leaf")
    RTTI_PROPERTIES(Added, Number)
RTTI_END()

RTTI_BEGIN(New::Tree, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTIES(Embedded, Array, Map, Pointer, Object, Last)
RTTI_END()
