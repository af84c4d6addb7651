// Counts how often each address was sampled, for one open bar.
//
// Bars open and close thousands of times a second, so clearing keeps the memory, and a bar that is never a sampled leaf has none.
// Threads: one at a time. Ownership: owns its slots. Invariant: the number of slots is zero or a power of two, at most half of it
// used.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Profiler
{

class AddressHits
{
public:
    // Adds one to the address's count. REQUIRES: inAddress isn't all ones, which marks free slots.
    void Add(uint64_t inAddress)
    {
        if (mUsed * 2 >= mSlots.size())
            Grow();
        Slot& slot = FindSlot(inAddress);
        if (slot.Address == sFree)
        {
            slot.Address = inAddress;
            ++mUsed;
        }
        ++slot.Count;
    }

    // The address's count, 0 if it was never added.
    [[nodiscard]] uint32_t GetCount(uint64_t inAddress) const
    {
        return mSlots.empty() ? 0 : const_cast<AddressHits*>(this)->FindSlot(inAddress).Count;
    }

    // The number of different addresses.
    [[nodiscard]] size_t GetSize() const { return mUsed; }

    void Clear()
    {
        if (mUsed == 0)
            return;
        mSlots.assign(mSlots.size(), Slot());
        mUsed = 0;
    }

    // Calls back with each address and its count, in no particular order.
    template <class Callback>
    void ForEach(const Callback& inCallback) const
    {
        for (const Slot& slot : mSlots)
            if (slot.Address != sFree)
                inCallback(slot.Address, slot.Count);
    }

private:
    static constexpr uint64_t sFree = 0xFFFFFFFFFFFFFFFF;
    static constexpr size_t sInitialSlots = 8;

    struct Slot
    {
        uint64_t Address = sFree;
        uint32_t Count = 0;
    };

    Slot& FindSlot(uint64_t inAddress)
    {
        constexpr uint64_t fibonacciMultiplier = 0x9E3779B97F4A7C15;
        const size_t mask = mSlots.size() - 1;
        size_t slot = static_cast<size_t>((inAddress * fibonacciMultiplier) >> 32) & mask;
        while (mSlots[slot].Address != inAddress && mSlots[slot].Address != sFree)
            slot = (slot + 1) & mask;
        return mSlots[slot];
    }

    void Grow()
    {
        std::vector<Slot> old(mSlots.empty() ? sInitialSlots : mSlots.size() * 2);
        old.swap(mSlots);
        for (const Slot& slot : old)
            if (slot.Address != sFree)
                FindSlot(slot.Address) = slot;
    }

    std::vector<Slot> mSlots;
    size_t mUsed = 0;
};

} // namespace Profiler
