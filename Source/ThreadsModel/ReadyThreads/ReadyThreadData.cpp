#include "ThreadsModel/ReadyThreads/ReadyThreadData.h"

#include "FileSystem/File.h"
#include "Utility/ByteBuffer.h"
#include "Utility/Hash.h"

#include <cstring>
#include <utility>

namespace Profiler
{
namespace
{

using Serialization::Check;
using Serialization::EReaderError;

bool gReadAt(std::ifstream& ioFile, uint64_t inOffset, void* outBytes, size_t inSize)
{
    ioFile.seekg(static_cast<std::streamoff>(inOffset));
    ioFile.read(static_cast<char*>(outBytes), static_cast<std::streamsize>(inSize));
    return ioFile.good();
}

} // namespace

bool ReadyThreadData::Load(const std::string& inPath, Serialization::ReaderErrorState& ioErrors)
{
    constexpr EReaderError code = EReaderError::Unspecified;
    uint64_t size = 0;
    if (!Check(ioErrors, FileSystem::gGetFileSize(inPath, size), code, "Could not get file size for %s", inPath) ||
        !Check(ioErrors, size >= sReadyThreadTailSize, code, "ReadyThread file %s is corrupt", inPath))
        return false;
    std::ifstream file;
    FileSystem::gOpenRead(file, inPath, std::ios_base::in | std::ios_base::binary);
    if (!Check(ioErrors, file.is_open() && file.good(), code, "Unable to open file %s for reading.", inPath))
        return false;
    uint64_t footerHash = 0;
    ReadyThreadFooter footer;
    const bool isRead = gReadAt(file, size - sizeof(footerHash), &footerHash, sizeof(footerHash)) &&
                        gReadAt(file, size - sReadyThreadTailSize, &footer, sizeof(footer));
    if (!Check(ioErrors, isRead, code, "Unable to read from ready thread file %s", inPath) ||
        !Check(ioErrors, footer.Magic == ReadyThreadFooter::sMagic, code, "ReadyThread file %s is not a Brenvaldoris file",
               inPath))
        return false;
    // Without the sum of both, which could wrap around.
    const bool isInFile = footer.HeaderSize < size && footer.HeaderOffset < size - footer.HeaderSize;
    if (!Check(ioErrors, isInFile, code, "ReadyThread file %s is corrupt", inPath) ||
        !Check(ioErrors, Utility::gHash64(&footer, sizeof(footer)) == footerHash, code,
               "ReadyThread file %s is corrupt: file header checksum mismatch", inPath))
        return false;

    Utility::ByteBuffer header;
    if (!Check(ioErrors,
               header.TryResize(footer.HeaderSize) && gReadAt(file, footer.HeaderOffset, header.GetData(), header.GetSize()),
               code, "Unable to read from ready thread file"))
        return false;
    // Bytes that contradict themselves under a right hash were never written by a sound program.
    return Check(ioErrors,
                 Utility::gHash64(header.GetData(), header.GetSize()) == footer.HeaderHash &&
                     ParseHeader({header.GetData(), header.GetSize()}),
                 code, "ReadyThread file %s is corrupt: header checksum mismatch", inPath);
}

// False for bytes that contradict themselves.
bool ReadyThreadData::ParseHeader(std::span<const uint8_t> inHeader)
{
    Utility::ByteCursor cursor(inHeader.data(), inHeader.size());
    ReadyThreadLevels levels(cursor.Read<uint8_t>());
    for (std::vector<ReadyThreadChunkHeader>& chunks : levels)
    {
        const auto count = cursor.Read<uint32_t>();
        const uint8_t* bytes = cursor.Take(count * sizeof(ReadyThreadChunkHeader));
        if (bytes == nullptr)
            return false;
        chunks.resize(count);
        if (count != 0)
            std::memcpy(chunks.data(), bytes, count * sizeof(ReadyThreadChunkHeader));
    }
    const auto numIndices = cursor.Read<uint64_t>();
    if (cursor.HasFailed() || numIndices > cursor.GetRemaining() / sizeof(uint32_t))
        return false;
    std::vector<uint32_t> recordIDs(numIndices);
    if (numIndices != 0)
        std::memcpy(recordIDs.data(), cursor.Take(numIndices * sizeof(uint32_t)), numIndices * sizeof(uint32_t));
    mLevels = std::move(levels);
    mRecordIDs = std::move(recordIDs);
    return true;
}

} // namespace Profiler
