#include "ThreadsModel/Find/FindModel.h"

#include "FileSystem/File.h"
#include "Utility/Hash.h"

#include <algorithm>

namespace Profiler
{
namespace
{

using Serialization::Check;
using Serialization::EReaderError;

constexpr EReaderError sNoCode = EReaderError::Unspecified;
constexpr const char* sCorrupt = "Unable to read find index: file is corrupt";

bool gReadAt(std::ifstream& ioFile, uint64_t inOffset, void* outBytes, size_t inSize)
{
    ioFile.clear();
    ioFile.seekg(static_cast<std::streamoff>(inOffset));
    ioFile.read(static_cast<char*>(outBytes), static_cast<std::streamsize>(inSize));
    return ioFile.good();
}

} // namespace

bool FindModel::LoadIndex(const std::string& inPath, Serialization::ReaderErrorState& ioErrors)
{
    if (Load(inPath, ioErrors))
        return true;
    mSections.clear();
    for (FindSet& set : mSets)
        set.File.close();
    return false;
}

bool FindModel::Load(const std::string& inPath, Serialization::ReaderErrorState& ioErrors)
{
    if (!Check(ioErrors, FileSystem::gGetFileSize(inPath, mFileSize), sNoCode, "Failed to open %s for reading", inPath) ||
        !Check(ioErrors, mFileSize >= sFindIndexTailSize, sNoCode, sCorrupt))
        return false;
    for (FindSet& set : mSets)
    {
        FileSystem::gOpenRead(set.File, inPath, std::ios_base::in | std::ios_base::binary);
        if (!Check(ioErrors, set.File.is_open() && set.File.good(), sNoCode, "Failed to open %s for reading", inPath))
            return false;
    }
    FindIndexFooter footer;
    if (!ReadFooter(inPath, footer, ioErrors))
        return false;
    Utility::ByteBuffer table;
    return Check(ioErrors, ReadBlock(EFindSet::FindResults, footer.TableOffset, footer.TableSize, table), sNoCode,
                 "Failed to read from %s", inPath) &&
           // Bytes that contradict themselves under a right hash were never written by a sound program.
           Check(ioErrors, Utility::gHash64(table.GetData(), table.GetSize()) == footer.TableHash && ParseThreadTable(table),
                 sNoCode, sCorrupt);
}

bool FindModel::ReadFooter(const std::string& inPath, FindIndexFooter& outFooter, Serialization::ReaderErrorState& ioErrors)
{
    std::ifstream& file = mSets[static_cast<size_t>(EFindSet::FindResults)].File;
    uint64_t hash = 0;
    const bool isRead = gReadAt(file, mFileSize - sizeof(hash), &hash, sizeof(hash)) &&
                        gReadAt(file, mFileSize - sFindIndexTailSize, &outFooter, sizeof(outFooter));
    if (!Check(ioErrors, isRead, sNoCode, "Failed to read header from %s", inPath))
        return false;
    const bool isSound = Utility::gHash64(&outFooter, sizeof(outFooter)) == hash && outFooter.Magic == FindIndexFooter::sMagic &&
                         outFooter.TableSize <= mFileSize - sFindIndexTailSize;
    return Check(ioErrors, isSound, sNoCode, sCorrupt);
}

bool FindModel::ParseThreadTable(const Utility::ByteBuffer& inTable)
{
    Utility::ByteCursor cursor(inTable.GetData(), inTable.GetSize());
    const auto count = cursor.Read<uint64_t>();
    if (cursor.HasFailed() || count > cursor.GetRemaining() / sPackedSectionSize)
        return false;
    mSections.resize(count);
    for (FindIndexSection& section : mSections)
    {
        section.ThreadID = cursor.Read<ThreadID>();
        section.Offset = cursor.Read<uint64_t>();
        section.TableSize = cursor.Read<uint32_t>();
    }
    return true;
}

std::vector<FindFunctionEntry> FindModel::ReadThreadFunctions(EFindSet inSet, ThreadID inThread)
{
    const auto section =
        std::lower_bound(mSections.begin(), mSections.end(), inThread,
                         [](const FindIndexSection& inSection, ThreadID inID) { return inSection.ThreadID < inID; });
    if (section == mSections.end() || section->ThreadID != inThread)
        return {};
    Utility::ByteBuffer& content = mSets[static_cast<size_t>(inSet)].Content;
    if (!ReadBlock(inSet, section->Offset, section->TableSize, content))
        return {};

    Utility::ByteCursor cursor(content.GetData(), content.GetSize());
    const auto count = cursor.Read<uint64_t>();
    // Nothing says whether a section is whole: what is there counts.
    std::vector<FindFunctionEntry> functions(std::min<uint64_t>(count, cursor.GetRemaining() / sPackedFunctionSize));
    for (FindFunctionEntry& entry : functions)
    {
        entry.Function.RelativeAddress = cursor.Read<uint64_t>();
        entry.Function.ResolveIndex.Index = cursor.Read<uint32_t>();
        entry.BlockOffset = cursor.Read<uint64_t>() + section->Offset + section->TableSize;
        entry.BlockSize = cursor.Read<uint64_t>();
        entry.NumRanges = cursor.Read<uint32_t>();
        entry.NumChunks = cursor.Read<uint32_t>();
    }
    std::sort(functions.begin(), functions.end(),
              [](const FindFunctionEntry& inOne, const FindFunctionEntry& inOther)
              { return ResolvedAddressOrder()(inOne.Function, inOther.Function); });
    return functions;
}

bool FindModel::ReadBlock(EFindSet inSet, uint64_t inOffset, uint64_t inSize, Utility::ByteBuffer& outContent)
{
    FindSet& set = mSets[static_cast<size_t>(inSet)];
    // Before anything of that size is allocated.
    return inOffset <= mFileSize && inSize <= mFileSize - inOffset && set.Compressed.TryResize(inSize) &&
           gReadAt(set.File, inOffset, set.Compressed.GetData(), inSize) &&
           set.Decompressor.Decompress(set.Compressed.GetData(), inSize, outContent);
}

} // namespace Profiler
