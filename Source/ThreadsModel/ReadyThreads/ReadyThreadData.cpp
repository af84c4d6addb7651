#include "ThreadsModel/ReadyThreads/ReadyThreadData.h"

#include "FileSystem/File.h"
#include "ThreadsModel/LODThresholds.h"
#include "ThreadsModel/ThreadStreamingManager.h"
#include "Utility/ByteBuffer.h"
#include "Utility/Hash.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Profiler
{
namespace
{

using Serialization::Check;
using Serialization::EReaderError;

size_t gGetLevel(uint32_t inID)
{
    return inID >> sReadyIDLevelShift;
}

uint32_t gMakeID(size_t inLevel, size_t inNumber)
{
    return static_cast<uint32_t>(inLevel << sReadyIDLevelShift | inNumber);
}

// The first level that is coarser than the scale, from 1 on; inNumLevels if all are finer.
size_t gFindCoarserLevel(float inScale, size_t inNumLevels)
{
    if (inNumLevels < 2)
        return 1;
    const auto found = std::upper_bound(sLODThresholds.begin() + 1, sLODThresholds.end(), inScale);
    return found != sLODThresholds.end() ? static_cast<size_t>(found - sLODThresholds.begin()) : inNumLevels;
}

// How far the scale has come on its way from the primary level to the next one.
float gGetBlend(float inScale, float inBaseScale, size_t inCoarserLevel)
{
    if (inCoarserLevel == sLODThresholds.size())
        return 0.0F;
    const float low = inCoarserLevel == 1 ? inBaseScale : sLODThresholds[inCoarserLevel - 1];
    const float blend = (inScale - low) / (sLODThresholds[inCoarserLevel] - low);
    return blend > 0.0F ? std::min(blend, 1.0F) : 0.0F; // not by a clamp, as two equal scales give no number
}

// Where in the time index to begin: with the last record that was readied by the time, or with the first one.
size_t gFindFirstRecord(const ReadyThreadChunk& inChunk, double inTime)
{
    const std::vector<uint16_t>& index = inChunk.GetTimeIndex();
    const auto above = std::upper_bound(index.begin(), index.end(), inTime,
                                        [&](double inLimit, uint16_t inPosition)
                                        { return inLimit < inChunk.GetRecords()[inPosition].ReadyTime; });
    return static_cast<size_t>(std::max<ptrdiff_t>(above - index.begin(), 1) - 1);
}

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
    if (levels.size() > sLODThresholds.size())
        return false;
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

void ReadyThreadData::GetReadyThreads(uint32_t inFirst, uint32_t inSecond, const std::unordered_set<uint32_t>& inPinned,
                                      ReadyThreadsResult& outResult, double inStart, double inEnd, float inFadeLimit,
                                      float inScale, float inBaseScale) const
{
    outResult = {};
    if (mLevels.empty())
        return;
    const size_t coarser = gFindCoarserLevel(inScale, mLevels.size());
    const size_t primary = coarser - 1;

    WantedSet wanted{inFirst, inSecond};
    std::copy_if(inPinned.begin(), inPinned.end(), std::inserter(wanted, wanted.end()),
                 [primary](uint32_t inID) { return gGetLevel(inID) >= primary; });
    wanted.erase(sNoReadyRecord);

    outResult.Blend = gGetBlend(inScale, inBaseScale, coarser);
    if (inFadeLimit > outResult.Blend)
        CollectLevel(primary, inStart, inEnd, wanted, outResult, outResult.Primary);
    for (size_t level = coarser; level < mLevels.size(); ++level)
        CollectLevel(level, inStart, inEnd, wanted, outResult, outResult.Secondary);
    for (const uint32_t id : wanted)
        CollectWanted(id, primary, outResult);
}

TypedChunkHandle<ReadyThreadChunk> ReadyThreadData::LoadChunk(size_t inLevel, size_t inChunk,
                                                              const ChunkCallback& inCallback) const
{
    if (inLevel >= mLevels.size() || inChunk >= mLevels[inLevel].size())
        return {};
    return mManager.LoadReadyThreadChunk(mLevels[inLevel][inChunk], gMakeID(inLevel, inChunk), EChunkUnloadMode::Delayed,
                                         inCallback);
}

void ReadyThreadData::CollectLevel(size_t inLevel, double inStart, double inEnd, WantedSet& ioWanted,
                                   ReadyThreadsResult& ioResult, ReadyThreadsResult::RecordList& ioRecords) const
{
    const size_t numChunks = inLevel < mLevels.size() ? mLevels[inLevel].size() : 0;
    for (size_t i = 0; i < numChunks; ++i)
    {
        const ReadyThreadChunkHeader& header = mLevels[inLevel][i];
        if (!(header.Start <= inEnd && header.End >= inStart))
            continue;
        ioResult.Chunks.push_back(LoadChunk(inLevel, i, {}));
        const ReadyThreadChunk* chunk = ioResult.Chunks.back().Get();
        if (chunk == nullptr)
            continue;
        const std::vector<uint16_t>& index = chunk->GetTimeIndex();
        for (size_t at = gFindFirstRecord(*chunk, inStart); at < index.size(); ++at)
        {
            const ReadyRecord& record = chunk->GetRecords()[index[at]];
            if (record.ReadyTime > inEnd)
                break;
            const uint32_t id = gMakeID(inLevel, i * ReadyThreadChunk::sMaxRecords + index[at]);
            ioRecords.emplace_back(&record, id);
            ioWanted.erase(id);
        }
    }
}

void ReadyThreadData::CollectWanted(uint32_t inRecordID, size_t inPrimaryLevel, ReadyThreadsResult& ioResult) const
{
    const size_t number = inRecordID & sReadyIDNumberMask;
    const size_t position = number % ReadyThreadChunk::sMaxRecords;
    ioResult.Chunks.push_back(LoadChunk(gGetLevel(inRecordID), number / ReadyThreadChunk::sMaxRecords, {}));
    const ReadyThreadChunk* chunk = ioResult.Chunks.back().Get();
    if (chunk == nullptr || position >= chunk->GetRecords().size())
        return;
    ReadyThreadsResult::RecordList& records = gGetLevel(inRecordID) == inPrimaryLevel ? ioResult.Primary : ioResult.Secondary;
    records.emplace_back(&chunk->GetRecords()[position], inRecordID);
}

} // namespace Profiler
