// Random objects of the shop, and whether two are alike.
#pragma once

#include "ShopTypes.h"

#include <memory>
#include <random>
#include <string>
#include <tuple>

namespace Shop
{

class RandomShop
{
public:
    explicit RandomShop(uint32_t inSeed) : mRandom(inSeed) {}

    std::unique_ptr<Item> MakeItem(int inDepth = 0)
    {
        const uint32_t choice = Below(inDepth < 5 ? 4 : 2);
        if (choice == 0)
            return nullptr;
        if (choice == 1)
            return Fill(std::make_unique<Item>());
        std::unique_ptr<Tool> tool = Fill(std::make_unique<Tool>());
        tool->Color = MakeColor();
        tool->Spare = MakeItem(inDepth + 1);
        return tool;
    }

    std::unique_ptr<Shelf> MakeShelf()
    {
        auto shelf = std::make_unique<Shelf>();
        shelf->Byte = Bits<uint8_t>();
        shelf->SignedByte = Bits<int8_t>();
        shelf->Word = Bits<uint16_t>();
        shelf->SignedWord = Bits<int16_t>();
        shelf->Number = Bits<uint32_t>();
        shelf->SignedNumber = Bits<int32_t>();
        shelf->Big = Bits<uint64_t>();
        shelf->SignedBig = Bits<int64_t>();
        shelf->IsOpen = Below(2) != 0;
        shelf->Single = static_cast<float>(MakeNumber());
        shelf->Double = MakeNumber();
        shelf->Text = MakeText();
        shelf->Temper = Below(2) != 0 ? ETemper::Cold : ETemper::Warm;
        shelf->Place = MakePoint();
        FillContainers(*shelf);
        shelf->Best = MakeItem();
        if (Below(2) != 0)
            shelf->Count = std::make_unique<int32_t>(Bits<int32_t>());
        if (Below(2) != 0)
            shelf->Notes = std::make_unique<std::vector<std::string>>(Below(4), MakeText());
        return shelf;
    }

    uint32_t Below(uint32_t inLimit) { return std::uniform_int_distribution<uint32_t>(0, inLimit - 1)(mRandom); }

private:
    void FillContainers(Shelf& outShelf)
    {
        outShelf.Plain.resize(Below(5));
        for (uint16_t& number : outShelf.Plain)
            number = Bits<uint16_t>();
        outShelf.Texts.resize(Below(4), MakeText());
        outShelf.Colors.resize(Below(4), MakeColor());
        outShelf.Rows.resize(Below(4));
        for (auto& row : outShelf.Rows)
            row.resize(Below(3), MakePoint());
        for (uint32_t i = Below(4); i > 0; --i)
            outShelf.Places.emplace(MakeText(), MakePoint());
        for (uint32_t i = Below(4); i > 0; --i)
            outShelf.Items.emplace(Bits<int32_t>(), MakeItem());
        for (uint32_t i = Below(4); i > 0; --i)
            outShelf.Keys.insert(Bits<uint64_t>());
    }

    template <class T>
    std::unique_ptr<T> Fill(std::unique_ptr<T> inItem)
    {
        inItem->Label = MakeText();
        inItem->Price = Bits<int64_t>();
        return inItem;
    }

    template <class T>
    T Bits()
    {
        return static_cast<T>(mRandom());
    }

    // Any text, bytes that JSON must escape and no bytes at all included.
    std::string MakeText()
    {
        std::string text(Below(12), '\0');
        for (char& character : text)
            character = static_cast<char>(Below(128));
        return text;
    }

    double MakeNumber() { return std::uniform_real_distribution<double>(-1e9, 1e9)(mRandom); }
    Point MakePoint() { return {MakeNumber(), static_cast<float>(MakeNumber())}; }
    EColor MakeColor() { return Below(2) != 0 ? EColor::Green : EColor::Blue; }

    std::mt19937_64 mRandom;
};

inline bool gIsAlike(const Item* inLeft, const Item* inRight)
{
    if (inLeft == nullptr || inRight == nullptr)
        return inLeft == inRight;
    const auto* left = dynamic_cast<const Tool*>(inLeft);
    const auto* right = dynamic_cast<const Tool*>(inRight);
    if (inLeft->Label != inRight->Label || inLeft->Price != inRight->Price || (left == nullptr) != (right == nullptr))
        return false;
    return left == nullptr || (left->Color == right->Color && gIsAlike(left->Spare.get(), right->Spare.get()));
}

template <class T>
bool gPointsToEqual(const std::unique_ptr<T>& inLeft, const std::unique_ptr<T>& inRight)
{
    return inLeft == nullptr || inRight == nullptr ? inLeft == inRight : *inLeft == *inRight;
}

inline bool gIsAlike(const std::unordered_map<int32_t, std::unique_ptr<Item>>& inLeft,
                     const std::unordered_map<int32_t, std::unique_ptr<Item>>& inRight)
{
    for (const auto& [key, item] : inLeft)
    {
        const auto position = inRight.find(key);
        if (position == inRight.end() || !gIsAlike(item.get(), position->second.get()))
            return false;
    }
    return inLeft.size() == inRight.size();
}

inline bool gIsAlike(const Shelf& inLeft, const Shelf& inRight)
{
    const auto numbers = [](const Shelf& inShelf)
    {
        return std::tie(inShelf.Byte, inShelf.SignedByte, inShelf.Word, inShelf.SignedWord, inShelf.Number, inShelf.SignedNumber,
                        inShelf.Big, inShelf.SignedBig, inShelf.IsOpen, inShelf.Single, inShelf.Double, inShelf.Text,
                        inShelf.Temper, inShelf.Place, inShelf.Plain, inShelf.Texts, inShelf.Colors, inShelf.Rows, inShelf.Places,
                        inShelf.Keys);
    };
    return numbers(inLeft) == numbers(inRight) && gIsAlike(inLeft.Items, inRight.Items) &&
           gIsAlike(inLeft.Best.get(), inRight.Best.get()) && gPointsToEqual(inLeft.Count, inRight.Count) &&
           gPointsToEqual(inLeft.Notes, inRight.Notes);
}

} // namespace Shop
