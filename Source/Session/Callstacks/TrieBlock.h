// A run of nodes of a CallstackTrie: the address of each, and the ID of its parent in as many bytes as the block needs.
//
// Threads: as the trie that owns it. Invariant: the arrays hold sNodesPerBlock entries, and don't move when the block does.
#pragma once

#include "Session/Events/TraceEvent.h"

#include <cstdint>
#include <cstring>
#include <memory>

namespace Profiler
{

struct TrieBlock
{
    // 65535, not 65536: the last ID of the first block is then 65534.
    static constexpr uint64_t sNodesPerBlock = 65535;

    explicit TrieBlock(int32_t inParentWidth)
        : Addresses(new uint64_t[sNodesPerBlock]),
          Parents(new uint8_t[sNodesPerBlock * static_cast<uint64_t>(inParentWidth)]),
          ParentWidth(inParentWidth)
    {
    }

    [[nodiscard]] CallstackKey GetParent(uint64_t inSlot) const
    {
        switch (ParentWidth)
        {
        case 2:
            return LoadParent<uint16_t>(inSlot);
        case 4:
            return LoadParent<uint32_t>(inSlot);
        default:
            return LoadParent<uint64_t>(inSlot);
        }
    }

    // Parents are lower than their children, so they fit a width that holds the block's own IDs.
    void SetParent(uint64_t inSlot, CallstackKey inParent)
    {
        std::memcpy(Parents.get() + inSlot * static_cast<uint64_t>(ParentWidth), &inParent, static_cast<size_t>(ParentWidth));
    }

    std::unique_ptr<uint64_t[]> Addresses;
    std::unique_ptr<uint8_t[]> Parents; // little-endian, ParentWidth bytes each
    int32_t ParentWidth;
    int32_t Count = 0;

private:
    template <class T>
    [[nodiscard]] CallstackKey LoadParent(uint64_t inSlot) const
    {
        T parent;
        std::memcpy(&parent, Parents.get() + inSlot * sizeof(T), sizeof(T));
        return parent;
    }
};

} // namespace Profiler
