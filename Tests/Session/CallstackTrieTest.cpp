#include "Session/Callstacks/CallstackTrie.h"

#include "Session/Callstacks/TrieBlock.h"
#include "Tests/Utility/LogCapture.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <random>
#include <thread>

namespace
{

using namespace Profiler;

constexpr uint64_t sNarrowNodeBytes = sizeof(uint64_t) + sizeof(uint16_t);
constexpr uint64_t sWideNodeBytes = sizeof(uint64_t) + sizeof(uint32_t);

class CallstackTrieTest : public testing::Test
{
protected:
    CallstackTrieTest() { mTrie.InitializeCallstacks(); }

    CallstackKey Add(ThreadID inThread, const Callstack& inStack) { return mTrie.AddCallstack(inThread, inStack); }

    [[nodiscard]] std::optional<Callstack> Get(CallstackKey inKey) const
    {
        Callstack stack = {1, 2, 3};
        if (mTrie.GetCallstack(inKey, stack))
            return stack;
        EXPECT_TRUE(stack.empty());
        return std::nullopt;
    }

    // Adds stacks of one frame until the store has this many nodes. Their addresses are their keys.
    void FillUpTo(uint64_t inNodeCount)
    {
        for (CallstackKey key = mTrie.GetNodeCount(); key < inNodeCount; ++key)
            ASSERT_EQ(Add(0, {key}), key);
    }

    CallstackTrie mTrie;
};

TEST_F(CallstackTrieTest, NodesAreNumberedFromTheRootAndShared)
{
    EXPECT_EQ(mTrie.GetNodeCount(), 1U);
    EXPECT_EQ(Add(1, {10, 20, 30}), 3U);
    EXPECT_EQ(Add(1, {10, 20, 30}), 3U);
    EXPECT_EQ(Add(2, {10, 20, 30}), 3U) << "another thread";
    EXPECT_EQ(Add(1, {10, 20}), 2U) << "the outer part of a known stack";
    EXPECT_EQ(Add(1, {10, 20, 31}), 4U);
    EXPECT_EQ(Add(2, {20, 30}), 6U) << "the same frames under another parent";
    EXPECT_EQ(mTrie.GetNodeCount(), 7U);
    EXPECT_EQ(Get(3), (Callstack{10, 20, 30}));
    EXPECT_EQ(Get(4), (Callstack{10, 20, 31}));
    EXPECT_EQ(Get(6), (Callstack{20, 30}));
    EXPECT_EQ(Add(1, {}), CallstackTrie::sRoot);
    EXPECT_EQ(Get(CallstackTrie::sRoot), Callstack());
}

TEST_F(CallstackTrieTest, KeysThatWereNeverGivenOutAreUnknown)
{
    Add(1, {10});
    for (const CallstackKey key : {CallstackKey{2}, CallstackKey{65535}, CallstackKey{1} << 63, sNoCallstack})
        EXPECT_EQ(Get(key), std::nullopt) << key;
}

TEST_F(CallstackTrieTest, AnAddressLikeTheRootsIsAFrameLikeAnyOther)
{
    EXPECT_EQ(Add(1, {sMissingFramesMarker}), 1U);
    EXPECT_EQ(Add(1, {sMissingFramesMarker, 0}), 2U);
    EXPECT_EQ(Add(2, {0}), 3U);
    EXPECT_EQ(Get(2), (Callstack{sMissingFramesMarker, 0}));
}

TEST_F(CallstackTrieTest, ABlockHolds65535Nodes)
{
    FillUpTo(65535);
    EXPECT_EQ(mTrie.GetBlockBytes(), 65535 * sNarrowNodeBytes);
    EXPECT_EQ(Get(65534), Callstack{65534});

    EXPECT_EQ(Add(0, {7, 70}), 65535U);
    EXPECT_EQ(mTrie.GetBlockBytes(), 65535 * (sNarrowNodeBytes + sWideNodeBytes)) << "wider parents from the second block on";
    EXPECT_EQ(Add(0, {65534, 71}), 65536U);
    EXPECT_EQ(Add(0, {7, 70, 72}), 65537U);
    EXPECT_EQ(Add(0, {65534, 71, 73}), 65538U);
    EXPECT_EQ(Get(65535), (Callstack{7, 70}));
    EXPECT_EQ(Get(65536), (Callstack{65534, 71}));
    EXPECT_EQ(Get(65537), (Callstack{7, 70, 72})) << "a parent that is the first of the second block";
    EXPECT_EQ(Get(65538), (Callstack{65534, 71, 73})) << "a parent that needs more than two bytes";
}

// The twin knows every prefix that was ever added; new ones get the next number.
TEST_F(CallstackTrieTest, RandomStacksGetTheKeysOfASimpleMap)
{
    const unsigned seed = 77123;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937_64 random(seed);
    std::map<Callstack, CallstackKey> twin = {{{}, 0}};
    std::vector<Callstack> lastStacks(5);

    // More than 65536 nodes let the hash table grow three times and open a second block.
    while (twin.size() < 140000)
    {
        const auto thread = static_cast<ThreadID>(random() % lastStacks.size());
        Callstack& stack = lastStacks[static_cast<size_t>(thread)];
        stack.resize(random() % (stack.size() + 1));
        const size_t depth = stack.size() + random() % 6;
        while (stack.size() < depth)
        {
            // Addresses a multiple of the table's size apart begin at one slot.
            const uint64_t address = random() % 3 == 0 ? (random() % 8) << 20 : random() % 1000;
            stack.push_back(address);
        }
        for (size_t length = 1; length <= stack.size(); ++length)
            twin.try_emplace(Callstack(stack.begin(), stack.begin() + static_cast<ptrdiff_t>(length)), twin.size());
        const CallstackKey key = twin.at(stack);
        ASSERT_EQ(Add(thread, stack), key);
        ASSERT_EQ(Get(key), stack) << "right after it was added";
        ASSERT_TRUE(Get(random() % mTrie.GetNodeCount()).has_value());
    }
    EXPECT_EQ(mTrie.GetNodeCount(), twin.size());
    mTrie.FinishCallstacks();
    for (const auto& [stack, key] : twin)
        ASSERT_EQ(Get(key), stack) << key;
}

TEST_F(CallstackTrieTest, ACursorGivesTheSameStacks)
{
    const unsigned seed = 31337;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937_64 random(seed);
    Callstack stack;
    for (int i = 0; i < 3000; ++i)
    {
        stack.resize(random() % (stack.size() + 1));
        for (uint64_t added = random() % 6; added > 0; --added)
            stack.push_back(random() % 5);
        Add(0, stack);
    }

    CallstackCursor cursor;
    for (int i = 0; i < 20000; ++i)
    {
        // Some keys are the root, some lie behind the last one.
        const CallstackKey key = random() % 20 == 0 ? 0 : random() % (mTrie.GetNodeCount() + mTrie.GetNodeCount() / 20);
        const std::optional<Callstack> expected = Get(key);
        ASSERT_EQ(mTrie.GetCallstack(key, cursor), expected.has_value()) << key;
        ASSERT_EQ(cursor.Addresses, expected.value_or(Callstack())) << key;
        ASSERT_EQ(cursor.Nodes.size(), cursor.Addresses.size());
    }
}

TEST_F(CallstackTrieTest, AfterFinishingItOnlyAnswers)
{
    const CallstackKey key = Add(1, {10, 20});
    mTrie.FinishCallstacks();
    EXPECT_TRUE(mTrie.IsInitialized());
    EXPECT_EQ(Get(key), (Callstack{10, 20}));

    const LogCapture log;
    EXPECT_EQ(Add(1, {10, 20}), sNoCallstack);
    EXPECT_EQ(log.GetMessages().size(), 2U) << "an assertion";
    EXPECT_EQ(mTrie.GetNodeCount(), 3U);
}

// --- Several threads ---

// Node i of a binary heap hangs below node i / 2, so that a node's stack follows from its number.
Callstack gMakeHeapStack(CallstackKey inNode)
{
    Callstack stack;
    for (CallstackKey node = inNode; node != 0; node /= 2)
        stack.insert(stack.begin(), node * 0x1000);
    return stack;
}

TEST(CallstackTrieThreadsTest, StacksAreReadWhileOthersAreAdded)
{
    constexpr CallstackKey nodeCount = 2 * TrieBlock::sNodesPerBlock + 10; // the list of blocks grows twice
    CallstackTrie trie(CallstackTrie::ELookups::WhileAdding);
    trie.InitializeCallstacks();

    const auto read = [&trie](unsigned inSeed)
    {
        std::mt19937_64 random(inSeed);
        Callstack stack;
        CallstackCursor cursor;
        int wrongCount = 0;
        uint64_t known = 0;
        while (known < nodeCount)
        {
            known = trie.GetNodeCount();
            const CallstackKey key = random() % 4 == 0 ? known - 1 : random() % known;
            const Callstack expected = gMakeHeapStack(key);
            wrongCount += !trie.GetCallstack(key, stack) || stack != expected;
            wrongCount += !trie.GetCallstack(key, cursor) || cursor.Addresses != expected;
        }
        EXPECT_EQ(wrongCount, 0);
    };
    std::vector<std::thread> readers;
    for (unsigned seed = 1; seed <= 2; ++seed)
        readers.emplace_back(read, seed);
    bool areKeysInOrder = true;
    for (CallstackKey node = 1; node < nodeCount; ++node)
        areKeysInOrder &= trie.AddCallstack(static_cast<ThreadID>(node % 2), gMakeHeapStack(node)) == node;
    EXPECT_TRUE(areKeysInOrder);
    for (std::thread& reader : readers)
        reader.join();
}

} // namespace
