#include "TestTypes.h"

RTTI_BEGIN(Zoo::Place, 1)
    RTTI_PROPERTY("X", X)
    RTTI_PROPERTY("Y", Y)
RTTI_END()

RTTI_BEGIN(Zoo::Counted, 1)
    RTTI_PROPERTY("Number", Number)
RTTI_END()

RTTI_BEGIN(Zoo::Animal, 2)
    RTTI_BASE(RTTI::Object)
    RTTI_ALIAS("Zoo::Beast")
    RTTI_ALIAS("Zoo::Creature")
    RTTI_PROPERTY("Name", mName)
RTTI_END()

RTTI_BEGIN(Zoo::Lion, 3)
    RTTI_BASE(Zoo::Animal)
    RTTI_PROPERTY("Cubs", mCubs)
    RTTI_PROPERTY("Place", mPlace)
    RTTI_PROPERTY("Mood", mMood)
    RTTI_PROPERTY("Hungry", mIsHungry)
RTTI_END()

RTTI_BEGIN(Zoo::Parrot, 1)
    RTTI_BASE(Zoo::Animal)
    RTTI_PROPERTY("WordCount", WordCount)
RTTI_END()

RTTI_BEGIN(Zoo::Cage, 1)
    RTTI_PROPERTY("ID", ID)
    RTTI_PROPERTY("Inhabitants", Inhabitants)
    RTTI_PROPERTY("Visitors", Visitors)
    RTTI_PROPERTY("Diets", Diets)
    RTTI_PROPERTY_AS("Neighbours", Neighbours, "Array_Zoo::CageID")
    RTTI_PROPERTY("Parts", Parts)
    RTTI_PROPERTY("Mood", Mood)
RTTI_END()

RTTI_BEGIN(Zoo::Ticket, 1)
    RTTI_PROPERTY("Number", Number)
RTTI_END()

RTTI_BEGIN(Zoo::Discount, 4)
RTTI_END()

RTTI_BEGIN(Zoo::FamilyTicket, 1)
    RTTI_BASE(Zoo::Ticket)
    RTTI_BASE(Zoo::Discount)
    RTTI_PROPERTY("Children", Children)
RTTI_END()

RTTI_BEGIN(Zoo::Empty, 1)
RTTI_END()

RTTI_ENUM_BEGIN(Zoo::EDiet)
    RTTI_ALIAS("Zoo::EFood")
    RTTI_VALUE("Meat", Zoo::EDiet::Meat)
    RTTI_VALUE("Plants", Zoo::EDiet::Plants)
    RTTI_VALUE("Leaves", Zoo::EDiet::Plants)
RTTI_ENUM_END()

RTTI_ENUM_BEGIN(Zoo::EMood)
    RTTI_VALUE("Angry", Zoo::EMood::Angry)
    RTTI_VALUE("Calm", Zoo::EMood::Calm)
    RTTI_VALUE("Happy", Zoo::EMood::Happy)
RTTI_ENUM_END()

RTTI_ENUM_BEGIN(Zoo::EOldStyle)
    RTTI_VALUE("Lowest", Zoo::OldStyleLowest)
    RTTI_VALUE("Zero", Zoo::OldStyleZero)
RTTI_ENUM_END()
