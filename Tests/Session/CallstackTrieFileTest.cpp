#include "FileSystem/File.h"
#include "Session/Callstacks/CallstackTrie.h"
#include "Session/Callstacks/TrieBlock.h"
#include "Tests/FileSystem/TemporaryDirectory.h"
#include "Tests/Support/ByteWriter.h"
#include "Utility/Hash.h"

#include <gmock/gmock.h>

#include <functional>
#include <random>

using testing::ElementsAre;

namespace Profiler
{
namespace
{

using Bytes = std::vector<uint8_t>;

// A file put together from its description.
struct HandMadeStacks
{
    struct Block
    {
        uint32_t Count;
        uint32_t Width;
        Bytes Content; // addresses, parents
    };

    uint64_t NodeCount = 0;
    uint32_t BlockCount = 0;
    std::vector<Block> Blocks = {};

    [[nodiscard]] Bytes Build() const
    {
        Host::ByteWriter blocks;
        for (const Block& block : Blocks)
            blocks.Add(block.Count).Add(block.Width).AddBytes(block.Content);
        Host::ByteWriter file;
        file.Add(uint32_t{1}).Add(Utility::gHash64(blocks.Bytes.data(), blocks.Bytes.size())).Add(NodeCount).Add(BlockCount);
        return file.AddBytes(blocks.Bytes).Bytes;
    }
};

class CallstackTrieFileTest : public TemporaryDirectoryTest
{
protected:
    // main, main;work, main;idle.
    static HandMadeStacks MakeSmall()
    {
        Host::ByteWriter content;
        content.Add(~uint64_t{0}).Add(uint64_t{0x10}).Add(uint64_t{0x20}).Add(uint64_t{0x30});
        content.Add(uint16_t{0}).Add(uint16_t{0}).Add(uint16_t{1}).Add(uint16_t{1});
        return {.NodeCount = 4, .BlockCount = 1, .Blocks = {{4, 2, content.Bytes}}};
    }

    void Write(const Bytes& inBytes) { WriteFile("file", std::string(inBytes.begin(), inBytes.end())); }
    Bytes Read()
    {
        Bytes bytes;
        EXPECT_TRUE(FileSystem::gReadFile(At("file"), bytes));
        return bytes;
    }

    std::string LoadError(const Bytes& inBytes)
    {
        Write(inBytes);
        CallstackTrie trie;
        Serialization::ReaderErrorState errors;
        EXPECT_FALSE(trie.LoadCallstacks(At("file"), errors));
        EXPECT_FALSE(trie.IsInitialized());
        return errors.GetEntries().empty() ? ""
                                           : std::to_string(errors.GetEntries()[0].Code) + ": " + errors.GetEntries()[0].Message;
    }

    static Callstack Get(const CallstackTrie& inTrie, CallstackKey inKey)
    {
        Callstack stack;
        EXPECT_TRUE(inTrie.GetCallstack(inKey, stack));
        return stack;
    }
};

TEST_F(CallstackTrieFileTest, IsWrittenToTheByte)
{
    CallstackTrie trie;
    trie.InitializeCallstacks();
    trie.AddCallstack(0, Callstack{0x10, 0x20});
    trie.AddCallstack(0, Callstack{0x10, 0x30});
    trie.FinishCallstacks();
    Utility::ErrorState errors;
    ASSERT_TRUE(trie.SaveCallstacks(At("file"), errors));
    EXPECT_EQ(Read(), MakeSmall().Build());
    EXPECT_THAT(List(""), ElementsAre("file"));
}

TEST_F(CallstackTrieFileTest, ALoadedStoreAnswersAsTheSavedOne)
{
    constexpr unsigned seed = 9;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937_64 random(seed);
    CallstackTrie saved;
    saved.InitializeCallstacks();
    while (saved.GetNodeCount() < 2 * TrieBlock::sNodesPerBlock + 100)
    {
        Callstack stack(random() % 20);
        for (uint64_t& address : stack)
            address = random() % 50;
        saved.AddCallstack(static_cast<ThreadID>(random() % 3), stack);
    }
    Utility::ErrorState errors;
    ASSERT_TRUE(saved.SaveCallstacks(At("file"), errors));

    CallstackTrie loaded;
    Serialization::ReaderErrorState readErrors;
    ASSERT_TRUE(loaded.LoadCallstacks(At("file"), readErrors));
    ASSERT_EQ(loaded.GetNodeCount(), saved.GetNodeCount());
    for (CallstackKey key = 0; key < saved.GetNodeCount(); key += 7)
        ASSERT_EQ(Get(loaded, key), Get(saved, key));
    Callstack stack;
    EXPECT_FALSE(loaded.GetCallstack(saved.GetNodeCount(), stack));
}

TEST_F(CallstackTrieFileTest, DamageIsNamed)
{
    const Bytes whole = MakeSmall().Build();
    for (size_t size = 0; size < whole.size(); ++size)
        ASSERT_EQ(LoadError({whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)}),
                  size < 24 ? "6: Not enough data in file" : "6: Checksum mismatch");
    for (size_t place = 4; place < whole.size(); ++place)
    {
        Bytes damaged = whole;
        damaged[place] ^= 0x40;
        // The counts of the header have no checksum, but must fit the blocks.
        ASSERT_EQ(LoadError(damaged), place >= 12 && place < 24 ? "6: The stacks are damaged" : "6: Checksum mismatch");
    }
    CallstackTrie trie;
    Serialization::ReaderErrorState errors;
    EXPECT_FALSE(trie.LoadCallstacks(At("none"), errors));
    EXPECT_EQ(errors.GetEntries()[0].Message, "Could not read file to memory");
    EXPECT_EQ(errors.GetEntries()[0].Context, At("none"));
}

TEST_F(CallstackTrieFileTest, BlocksAreNotTrustedForTheirChecksum)
{
    const std::function<void(HandMadeStacks&)> changes[] = {
        [](HandMadeStacks& ioStacks) { ioStacks.Blocks[0].Count = 65536; },
        [](HandMadeStacks& ioStacks) { ioStacks.Blocks[0].Width = 3; }, [](HandMadeStacks& ioStacks) { ioStacks.BlockCount = 2; },
        // A block before the last that isn't full.
        [](HandMadeStacks& ioStacks) { ioStacks.Blocks.resize(ioStacks.BlockCount = 2, ioStacks.Blocks[0]); },
        // A node that is its own parent.
        [](HandMadeStacks& ioStacks) { ioStacks.Blocks[0].Content[4 * 8 + 2 * 2] = 2; },
        [](HandMadeStacks& ioStacks) { ioStacks.Blocks[0].Content.push_back(0); }};
    for (const auto& change : changes)
    {
        HandMadeStacks stacks = MakeSmall();
        change(stacks);
        EXPECT_EQ(LoadError(stacks.Build()), "6: The stacks are damaged") << &change - changes;
    }
}

TEST_F(CallstackTrieFileTest, WhatCanNotBeWrittenLeavesTheOldFile)
{
    CallstackTrie trie;
    trie.InitializeCallstacks();
    Utility::ErrorState errors;
    EXPECT_FALSE(trie.SaveCallstacks(At("no/folder"), errors));
    EXPECT_EQ(errors.GetEntries()[0].Message, "Could not open " + At("no/folder") + " for writing");
    MakeDirectory("file/below");
    EXPECT_FALSE(trie.SaveCallstacks(At("file"), errors));
    EXPECT_EQ(errors.GetEntries()[1].Message, "Could not write to " + At("file"));
    EXPECT_THAT(List(""), ElementsAre("file"));
}

} // namespace
} // namespace Profiler
