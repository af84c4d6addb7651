#include "Session/Callstacks/CallstackTrie.h"

#include "Session/Callstacks/TrieBlock.h"
#include "Utility/Assert.h"

#include <algorithm>

namespace Profiler
{
namespace
{

constexpr size_t sInitialHashTableSize = 0x10000;
constexpr uint64_t sRootAddress = 0xFFFFFFFFFFFFFFFF;
constexpr uint64_t sGoldenRatio64 = 0x9E3779B97F4A7C15;

// Mixes as the well-known hash_combine does, on 64 bits.
uint64_t gHashNode(uint64_t inAddress, CallstackKey inParent)
{
    return (inAddress + sGoldenRatio64 + (inParent << 6) + (inParent >> 2)) ^ inParent;
}

// The smallest width in bytes that holds every ID of a block whose highest ID is inHighestID.
int32_t gGetParentWidth(uint64_t inHighestID)
{
    if (inHighestID < 0x10000)
        return 2;
    return inHighestID < 0x100000000 ? 4 : 8;
}

} // namespace

CallstackTrie::CallstackTrie(ELookups inLookups) : mLookups(inLookups) {}

CallstackTrie::~CallstackTrie() = default;

void CallstackTrie::InitializeCallstacks()
{
    mHashTable.assign(sInitialHashTableSize, sRoot);
    AppendNode(sRootAddress, sRoot);
    mIsInitialized = true;
}

CallstackKey CallstackTrie::AddCallstack(ThreadID inThread, std::span<const uint64_t> inStack)
{
    PROFILER_ASSERT_AT("Session/Callstacks/CallstackTrie", !mHashTable.empty(), "Stacks can no longer be added");
    if (mHashTable.empty())
        return sNoCallstack;

    LastStack& last = GetLastStack(inThread);
    const size_t comparable = std::min(last.size(), inStack.size());
    size_t depth = 0;
    while (depth < comparable && last[depth].Address == inStack[depth])
        ++depth;

    CallstackKey node = depth == 0 ? sRoot : last[depth - 1].Node;
    last.resize(inStack.size());
    for (; depth < inStack.size(); ++depth)
    {
        node = FindOrAddNode(inStack[depth], node);
        last[depth] = {inStack[depth], node};
    }
    return node;
}

bool CallstackTrie::GetCallstack(CallstackKey inKey, Callstack& outStack) const
{
    outStack.clear();
    if (inKey >= GetNodeCount())
        return false;
    if (mLookups == ELookups::AfterAdding)
    {
        CollectStack(inKey, outStack);
        return true;
    }
    const System::MutexLock lock(mMutex);
    CollectStack(inKey, outStack);
    return true;
}

bool CallstackTrie::GetCallstack(CallstackKey inKey, CallstackCursor& ioCursor) const
{
    if (inKey >= GetNodeCount())
    {
        ioCursor.Addresses.clear();
        ioCursor.Nodes.clear();
        return false;
    }
    if (mLookups == ELookups::AfterAdding)
    {
        MoveCursor(inKey, ioCursor);
        return true;
    }
    const System::MutexLock lock(mMutex);
    MoveCursor(inKey, ioCursor);
    return true;
}

void CallstackTrie::FinishCallstacks()
{
    mRecentLastStack = nullptr;
    std::unordered_map<ThreadID, LastStack>().swap(mLastStacks);
    std::vector<CallstackKey>().swap(mHashTable);
    mHashTableUsed = 0;
}

size_t CallstackTrie::GetBlockBytes() const
{
    size_t bytes = 0;
    for (const TrieBlock& block : mBlocks)
        bytes += TrieBlock::sNodesPerBlock * (sizeof(uint64_t) + static_cast<size_t>(block.ParentWidth));
    return bytes;
}

CallstackTrie::LastStack& CallstackTrie::GetLastStack(ThreadID inThread)
{
    if (mRecentLastStack == nullptr || mRecentThread != inThread)
    {
        mRecentLastStack = &mLastStacks[inThread];
        mRecentThread = inThread;
    }
    return *mRecentLastStack;
}

CallstackKey CallstackTrie::FindOrAddNode(uint64_t inAddress, CallstackKey inParent)
{
    if (mHashTableUsed * 2 >= mHashTable.size())
        GrowHashTable();

    const uint64_t mask = mHashTable.size() - 1;
    uint64_t slot = gHashNode(inAddress, inParent) & mask;
    while (mHashTable[slot] != sRoot)
    {
        const CallstackKey candidate = mHashTable[slot];
        const TrieBlock& block = mBlocks[candidate / TrieBlock::sNodesPerBlock];
        const uint64_t blockSlot = candidate % TrieBlock::sNodesPerBlock;
        if (block.GetParent(blockSlot) == inParent && block.Addresses[blockSlot] == inAddress)
            return candidate;
        slot = (slot + 1) & mask;
    }
    ++mHashTableUsed;
    const CallstackKey node = AppendNode(inAddress, inParent);
    mHashTable[slot] = node;
    return node;
}

CallstackKey CallstackTrie::AppendNode(uint64_t inAddress, CallstackKey inParent)
{
    if (mBlocks.empty() || mBlocks.back().Count == static_cast<int32_t>(TrieBlock::sNodesPerBlock))
    {
        TrieBlock block(gGetParentWidth(mBlocks.size() * TrieBlock::sNodesPerBlock + TrieBlock::sNodesPerBlock - 1));
        if (mLookups == ELookups::WhileAdding)
        {
            const System::MutexLock lock(mMutex);
            mBlocks.push_back(std::move(block));
        }
        else
            mBlocks.push_back(std::move(block));
    }

    TrieBlock& block = mBlocks.back();
    const auto slot = static_cast<uint64_t>(block.Count);
    block.Addresses[slot] = inAddress;
    block.SetParent(slot, inParent);
    ++block.Count;
    return mNodeCount.fetch_add(1, std::memory_order_release);
}

void CallstackTrie::GrowHashTable()
{
    const size_t newSize = mHashTable.size() * 2;
    mHashTable.assign(newSize, sRoot);
    CallstackKey node = 0;
    for (const TrieBlock& block : mBlocks)
        for (uint64_t slot = 0; slot < static_cast<uint64_t>(block.Count); ++slot, ++node)
            if (node != sRoot)
                InsertIntoHashTable(block.Addresses[slot], block.GetParent(slot), node);
}

void CallstackTrie::InsertIntoHashTable(uint64_t inAddress, CallstackKey inParent, CallstackKey inNode)
{
    const uint64_t mask = mHashTable.size() - 1;
    uint64_t slot = gHashNode(inAddress, inParent) & mask;
    while (mHashTable[slot] != sRoot)
        slot = (slot + 1) & mask;
    mHashTable[slot] = inNode;
}

void CallstackTrie::CollectStack(CallstackKey inKey, Callstack& outStack) const
{
    for (CallstackKey node = inKey; node != sRoot;)
    {
        const TrieBlock& block = mBlocks[node / TrieBlock::sNodesPerBlock];
        const uint64_t slot = node % TrieBlock::sNodesPerBlock;
        outStack.push_back(block.Addresses[slot]);
        node = block.GetParent(slot);
    }
    std::reverse(outStack.begin(), outStack.end());
}

// Walks up from the key and drops frames of the cursor until both stand at one node. A parent's ID is below its child's, so the
// higher of the two can't be an ancestor of the other.
void CallstackTrie::MoveCursor(CallstackKey inKey, CallstackCursor& ioCursor) const
{
    std::vector<CallstackKey>& nodes = ioCursor.Nodes;
    size_t kept = nodes.size();
    size_t added = 0; // frames of the new stack, innermost first, wait behind the old ones
    for (CallstackKey node = inKey;;)
    {
        while (kept > 0 && nodes[kept - 1] > node)
            --kept;
        if (node == sRoot || (kept > 0 && nodes[kept - 1] == node))
            break;
        const TrieBlock& block = mBlocks[node / TrieBlock::sNodesPerBlock];
        const uint64_t slot = node % TrieBlock::sNodesPerBlock;
        ioCursor.Addresses.push_back(block.Addresses[slot]);
        nodes.push_back(node);
        ++added;
        node = block.GetParent(slot);
    }

    const auto bringForward = [kept, added](std::vector<uint64_t>& ioValues)
    {
        std::reverse(ioValues.end() - static_cast<ptrdiff_t>(added), ioValues.end());
        ioValues.erase(ioValues.begin() + static_cast<ptrdiff_t>(kept), ioValues.end() - static_cast<ptrdiff_t>(added));
    };
    bringForward(ioCursor.Addresses);
    bringForward(nodes);
}

} // namespace Profiler
