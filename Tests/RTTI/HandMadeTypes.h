// Classes whose tables a test fills while it runs, for any shape of class tree. There is no object of such a class.
#pragma once

#include "RTTI/TypeTable.h"

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace RTTITest
{

struct HandMadeClass
{
    std::vector<const RTTI::Type*> Bases;
    std::vector<RTTI::Property> Properties;
    std::vector<const char*> Aliases;
    RTTI::CompoundInfo Info{};
    RTTI::TypeDescriptor Descriptor{};
    RTTI::Type Type{};

    // Lets the tables point at the lists. Called after the lists have changed.
    void Connect()
    {
        Info.Bases = Bases.data();
        Info.BaseCount = static_cast<int32_t>(Bases.size());
        Info.Properties = Properties.data();
        Info.PropertyCount = static_cast<uint32_t>(Properties.size());
        Info.Aliases = Aliases.data();
        Info.AliasCount = static_cast<uint32_t>(Aliases.size());
    }
};

// The functions of a descriptor have no state, so each class needs a name of its own that is known while compiling.
template <size_t Slot>
struct SlotName
{
    static const std::string& GetName()
    {
        static const std::string sName = "HandMade::Class" + std::to_string(Slot);
        return sName;
    }
};

inline constexpr size_t sSlotCount = 8;

template <size_t... Slots>
constexpr auto gMakeSlotNames(std::index_sequence<Slots...> /*inSlots*/)
{
    return std::array{&SlotName<Slots>::GetName...};
}

// Makes the class "HandMade::Class<slot>". Classes of one slot have equal names.
inline void gMakeClass(HandMadeClass& outClass, size_t inSlot, int32_t inVersion, std::vector<const RTTI::Type*> inBases = {},
                       uint64_t inSize = 8)
{
    static constexpr auto sNames = gMakeSlotNames(std::make_index_sequence<sSlotCount>());
    outClass.Bases = std::move(inBases);
    outClass.Info.Name = sNames[inSlot]().c_str();
    outClass.Info.Version = inVersion;
    outClass.Descriptor.Name = outClass.Info.Name;
    outClass.Descriptor.Size = inSize;
    outClass.Descriptor.Kind = RTTI::EKind::Compound;
    outClass.Descriptor.GetName = sNames[inSlot];
    outClass.Type = {&outClass.Descriptor, &outClass.Info};
    outClass.Connect();
}

} // namespace RTTITest
