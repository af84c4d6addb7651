// The file of a CallstackTrie. Writer and reader stand side by side; Docs/StackStore.md describes the format.
#include "FileSystem/File.h"
#include "FileSystem/Path.h"
#include "FileSystem/ReplacingFile.h"
#include "Session/Callstacks/CallstackTrie.h"
#include "Session/Callstacks/TrieBlock.h"
#include "Utility/ByteBuffer.h"
#include "Utility/Hash.h"

#include <utility>
#include <vector>

namespace Profiler
{
namespace
{

constexpr uint32_t sFileVersion = 1;
constexpr size_t sHeaderSize = 24;
constexpr uint32_t sWriteError = 0;

struct Header
{
    uint64_t Checksum; // of all bytes behind the header
    uint64_t NodeCount;
    uint32_t BlockCount;
};

void gAppendHeader(const Header& inHeader, Utility::ByteBuffer& ioBuffer)
{
    ioBuffer.AppendValue(sFileVersion);
    ioBuffer.AppendValue(inHeader.Checksum);
    ioBuffer.AppendValue(inHeader.NodeCount);
    ioBuffer.AppendValue(inHeader.BlockCount);
}

Header gReadHeader(Utility::ByteCursor& ioCursor)
{
    // Readers of all ages take any version.
    static_cast<void>(ioCursor.Read<uint32_t>());
    Header header{};
    header.Checksum = ioCursor.Read<uint64_t>();
    header.NodeCount = ioCursor.Read<uint64_t>();
    header.BlockCount = ioCursor.Read<uint32_t>();
    return header;
}

// Calls back with each piece of a block in the order of the file.
template <class Function>
void gForEachPiece(const TrieBlock& inBlock, Function inFunction)
{
    const auto count = static_cast<uint32_t>(inBlock.Count);
    const auto width = static_cast<uint32_t>(inBlock.ParentWidth);
    inFunction(&count, sizeof(count));
    inFunction(&width, sizeof(width));
    inFunction(inBlock.Addresses.get(), count * sizeof(uint64_t));
    inFunction(inBlock.Parents.get(), size_t{count} * width);
}

// Whether lookups end: each node's parent has a lower ID, or is the root's own.
bool gHasLowerParents(const TrieBlock& inBlock, CallstackKey inFirstNode)
{
    for (uint64_t slot = 0; slot < static_cast<uint64_t>(inBlock.Count); ++slot)
    {
        const CallstackKey node = inFirstNode + slot;
        const CallstackKey parent = inBlock.GetParent(slot);
        if (parent >= node && (node != CallstackTrie::sRoot || parent != CallstackTrie::sRoot))
            return false;
    }
    return true;
}

bool gReadBlock(Utility::ByteCursor& ioCursor, std::vector<TrieBlock>& ioBlocks)
{
    const auto count = ioCursor.Read<uint32_t>();
    const auto width = ioCursor.Read<uint32_t>();
    if (count > TrieBlock::sNodesPerBlock ||
        (width != sizeof(uint16_t) && width != sizeof(uint32_t) && width != sizeof(uint64_t)))
        return false;
    const uint8_t* addresses = ioCursor.Take(count * sizeof(uint64_t));
    const uint8_t* parents = ioCursor.Take(uint64_t{count} * width);
    if (ioCursor.HasFailed())
        return false;
    TrieBlock block(static_cast<int32_t>(width));
    std::memcpy(block.Addresses.get(), addresses, count * sizeof(uint64_t));
    std::memcpy(block.Parents.get(), parents, size_t{count} * width);
    block.Count = static_cast<int32_t>(count);
    const bool isSound = gHasLowerParents(block, ioBlocks.size() * TrieBlock::sNodesPerBlock);
    ioBlocks.push_back(std::move(block));
    return isSound;
}

// A node's block and slot follow from its ID, so that all blocks but the last must be full.
bool gReadBlocks(Utility::ByteCursor& ioCursor, const Header& inHeader, std::vector<TrieBlock>& outBlocks)
{
    uint64_t nodeCount = 0;
    for (uint32_t i = 0; i < inHeader.BlockCount; ++i)
    {
        if (nodeCount != i * TrieBlock::sNodesPerBlock || !gReadBlock(ioCursor, outBlocks))
            return false;
        nodeCount += static_cast<uint64_t>(outBlocks.back().Count);
    }
    return nodeCount == inHeader.NodeCount && ioCursor.GetRemaining() == 0;
}

} // namespace

bool CallstackTrie::SaveCallstacks(const std::string& inPath, Utility::ErrorState& ioErrors) const
{
    // Twice over the blocks, as a copy of them could be larger than all the rest of the process.
    Utility::Hash64Stream checksum;
    for (const TrieBlock& block : mBlocks)
        gForEachPiece(block, [&](const void* inData, size_t inSize) { checksum.Add(inData, inSize); });
    Utility::ByteBuffer header;
    gAppendHeader({checksum.Get(), GetNodeCount(), static_cast<uint32_t>(mBlocks.size())}, header);

    FileSystem::ReplacingFile file(inPath);
    if (!Utility::Check(ioErrors, file.IsOpen(), sWriteError, "Could not open %s for writing", inPath))
        return false;
    file.Write(header.GetData(), header.GetSize());
    for (const TrieBlock& block : mBlocks)
        gForEachPiece(block, [&](const void* inData, size_t inSize) { file.Write(inData, inSize); });
    return Utility::Check(ioErrors, file.Commit(), sWriteError, "Could not write to %s", inPath);
}

bool CallstackTrie::LoadCallstacks(const std::string& inPath, Serialization::ReaderErrorState& ioErrors)
{
    using Serialization::EReaderError;
    const Utility::ErrorContextScope context(&ioErrors, inPath);
    std::vector<uint8_t> bytes;
    if (!Serialization::Check(ioErrors, FileSystem::gReadFile(inPath, bytes), EReaderError::FileNotAccessible,
                              "Could not read file to memory") ||
        !Serialization::Check(ioErrors, bytes.size() >= sHeaderSize, EReaderError::Corrupt, "Not enough data in file"))
        return false;
    Utility::ByteCursor cursor(bytes.data(), bytes.size());
    const Header header = gReadHeader(cursor);
    const uint64_t checksum = Utility::gHash64(cursor.GetPosition(), cursor.GetRemaining());
    std::vector<TrieBlock> blocks;
    if (!Serialization::Check(ioErrors, checksum == header.Checksum, EReaderError::Corrupt, "Checksum mismatch") ||
        !Serialization::Check(ioErrors, gReadBlocks(cursor, header, blocks), EReaderError::Corrupt, "The stacks are damaged"))
        return false;
    mBlocks = std::move(blocks);
    mNodeCount.store(header.NodeCount, std::memory_order_release);
    mIsInitialized = true;
    return true;
}

std::string gGetCallstackTriePath(const std::string& inDirectory)
{
    return FileSystem::gCombinePath(inDirectory, "CallstackDatabase.dat");
}

} // namespace Profiler
