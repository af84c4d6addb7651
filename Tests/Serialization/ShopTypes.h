// A small shop: classes with a property of every kind.
#pragma once

#include "RTTI/Declare.h"
#include "RTTI/Object.h"

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Shop
{

enum class EColor : uint8_t
{
    Red = 1,
    Green = 7,
    Blue = 200,
};

enum class ETemper : int16_t
{
    Cold = -5,
    Warm = 3,
};

struct Point
{
    double X = 1.5;
    float Y = 2.5F;

    bool operator==(const Point&) const = default;
};

// A class whose name begins with that of another.
struct PointOfSale
{
    double X = 0;
    std::string Owner;
};

struct Line final : RTTI::Object
{
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Line>(); }
    Point Start;
    int32_t Width = 0;
};

struct Item : RTTI::Object
{
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Item>(); }
    std::string Label;
    int64_t Price = 0;
};

struct Tool final : Item
{
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Tool>(); }
    EColor Color = EColor::Red;
    std::unique_ptr<Item> Spare;
};

struct Shelf final : RTTI::Object
{
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Shelf>(); }
    uint8_t Byte = 0;
    int8_t SignedByte = 0;
    uint16_t Word = 0;
    int16_t SignedWord = 0;
    uint32_t Number = 0;
    int32_t SignedNumber = 0;
    uint64_t Big = 0;
    int64_t SignedBig = 0;
    bool IsOpen = false;
    float Single = 0;
    double Double = 0;
    std::string Text;
    ETemper Temper = ETemper::Warm;
    Point Place;
    std::vector<uint16_t> Plain;
    std::vector<std::string> Texts;
    std::vector<EColor> Colors;
    std::vector<std::vector<Point>> Rows;
    std::unordered_map<std::string, Point> Places;
    std::unordered_map<int32_t, std::unique_ptr<Item>> Items;
    std::unordered_set<uint64_t> Keys;
    std::unique_ptr<Item> Best;
    std::unique_ptr<int32_t> Count;
    std::unique_ptr<std::vector<std::string>> Notes;
};

} // namespace Shop

RTTI_DECLARE_ENUM(Shop::EColor);
RTTI_DECLARE_ENUM(Shop::ETemper);
RTTI_DECLARE(Shop::Point);
RTTI_DECLARE(Shop::PointOfSale);
RTTI_DECLARE(Shop::Line);
RTTI_DECLARE(Shop::Item);
RTTI_DECLARE(Shop::Tool);
RTTI_DECLARE(Shop::Shelf);
