// Reflected classes to test with: a small zoo.
#pragma once

#include "RTTI/Declare.h"
#include "RTTI/Object.h"

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Zoo
{

using CageID = int32_t;

enum class EDiet : uint16_t
{
    Meat = 3,
    Plants = 0xFFFF,
};

enum class EMood : int8_t
{
    Angry = -2,
    Calm = 0,
    Happy = 100,
};

enum EOldStyle : int64_t
{
    OldStyleLowest = INT64_MIN,
    OldStyleZero = 0,
};

struct Place
{
    double X = 1.5;
    float Y = 2.5F;
};

struct CageHasher
{
    size_t operator()(const std::string& inName) const { return inName.size(); }
};

// Counts its objects, to find values that are lost or destroyed twice.
struct Counted
{
    Counted() { ++sAlive; }
    Counted(const Counted& inOther) : Number(inOther.Number)
    {
        ++sAlive;
        ++sCopies;
    }
    Counted(Counted&& ioOther) noexcept : Number(std::exchange(ioOther.Number, -1)) { ++sAlive; }
    Counted& operator=(const Counted&) = default;
    Counted& operator=(Counted&&) = default;
    ~Counted() { --sAlive; }

    int32_t Number = 0;

    static inline int sAlive = 0;
    static inline int sCopies = 0;
};

class Animal : public RTTI::Object
{
public:
    explicit Animal(std::string inName) : mName(std::move(inName)) {}

    virtual int GetLegCount() const = 0;
    const std::string& GetName() const { return mName; }

private:
    RTTI_FRIEND()

    std::string mName;
};

class Lion : public Animal
{
public:
    Lion() : Animal("Leo") {}

    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Lion>(); }
    int GetLegCount() const override { return 4; }
    bool IsHungry() const { return mIsHungry; }

private:
    RTTI_FRIEND();

    // In another order than on file.
    bool mIsHungry = true;
    EMood mMood = EMood::Angry;
    Place mPlace;
    std::vector<std::unique_ptr<Lion>> mCubs;
};

class Parrot final : public Animal
{
public:
    explicit Parrot(int inWords) : Animal("Polly"), WordCount(inWords) {}

    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Parrot>(); }
    int GetLegCount() const override { return 2; }

    int32_t WordCount;
};

struct Cage
{
    CageID ID = 7;
    std::unordered_map<CageID, std::vector<std::unique_ptr<Animal>>> Inhabitants;
    std::unordered_map<std::string, uint64_t, CageHasher> Visitors;
    std::unordered_set<EDiet> Diets;
    std::vector<CageID> Neighbours;
    std::vector<Cage> Parts;
    std::unique_ptr<EMood> Mood;
};

struct Ticket
{
    uint32_t Number = 0;
};

// Two bases, the first without data.
struct Discount
{
};
struct FamilyTicket : Ticket, Discount
{
    uint32_t Children = 0;
};

struct Empty
{
};

} // namespace Zoo

RTTI_DECLARE_ENUM(Zoo::EDiet);
RTTI_DECLARE_ENUM(Zoo::EMood);
RTTI_DECLARE_ENUM(Zoo::EOldStyle);
RTTI_DECLARE(Zoo::Place);
RTTI_DECLARE(Zoo::Counted);
RTTI_DECLARE(Zoo::Animal);
RTTI_DECLARE(Zoo::Lion);
RTTI_DECLARE(Zoo::Parrot);
RTTI_DECLARE(Zoo::Cage);
RTTI_DECLARE(Zoo::Ticket);
RTTI_DECLARE(Zoo::Discount);
RTTI_DECLARE(Zoo::FamilyTicket);
RTTI_DECLARE(Zoo::Empty);
