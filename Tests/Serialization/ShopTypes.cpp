#include "ShopTypes.h"

#include "Tests/Serialization/PropertyList.h"

RTTI_ENUM_BEGIN(Shop::EColor)
    RTTI_VALUE("Red", Shop::EColor::Red)
    RTTI_VALUE("Green", Shop::EColor::Green)
    RTTI_VALUE("Blue", Shop::EColor::Blue)
RTTI_ENUM_END()

RTTI_ENUM_BEGIN(Shop::ETemper)
    RTTI_VALUE("Cold", Shop::ETemper::Cold)
    RTTI_VALUE("Warm", Shop::ETemper::Warm)
RTTI_ENUM_END()

RTTI_BEGIN(Shop::Point, 1)
    RTTI_PROPERTIES(X, Y)
RTTI_END()

RTTI_BEGIN(Shop::PointOfSale, 1)
    RTTI_PROPERTIES(X, Owner)
RTTI_END()

RTTI_BEGIN(Shop::Line, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTIES(Start, Width)
RTTI_END()

RTTI_BEGIN(Shop::Item, 2)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTIES(Label, Price)
RTTI_END()

RTTI_BEGIN(Shop::Tool, 1)
    RTTI_BASE(Shop::Item)
    RTTI_PROPERTIES(Color, Spare)
RTTI_END()

RTTI_BEGIN(Shop::Shelf, 3)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTIES(Byte, SignedByte, Word, SignedWord, Number, SignedNumber, Big, SignedBig, IsOpen, Single, Double, Text,
                    Temper, Place, Plain, Texts, Colors, Rows, Places, Items, Keys, Best, Count, Notes)
RTTI_END()
