#include "Host/CommandLine/TimelineInspection.h"

#include "FileSystem/File.h"
#include "FileSystem/Path.h"
#include "Plugin/ThreadsModelPlugin.h"
#include "RTTI/TypeQueries.h"
#include "Session/SessionPaths.h"
#include "ThreadsModel/ChunkFile.h"
#include "ThreadsModel/Chunks/BarChunk.h"
#include "ThreadsModel/Chunks/OverviewChunk.h"
#include "Utility/Compression.h"
#include "Utility/Format.h"

#include <algorithm>
#include <memory>
#include <set>
#include <unordered_map>
#include <utility>

namespace Host
{
namespace
{

using Profiler::ChunkDescription;
using Profiler::ChunkLayout;
using Profiler::ChunkTable;
using Profiler::DetailLOD;
using Profiler::DetailLODThread;
using Profiler::EChunkType;
using Profiler::ThreadID;
using Utility::gFormat;

// A field that only files are meant to see. REQUIRES: the class has it, of that type.
template <class Field, class Class>
const Field& gGetStored(const Class& inObject, const char* inName)
{
    return *static_cast<const Field*>(RTTI::gFindProperty(RTTI::gTypeOf<Class>(), inName)->GetData(&inObject));
}

const auto& gGetThreads(const DetailLOD& inLevel)
{
    return gGetStored<std::unordered_map<ThreadID, std::unique_ptr<DetailLODThread>>>(inLevel, "Threads");
}

const ChunkTable::DescriptionList& gGetChunks(const DetailLODThread& inThread)
{
    return gGetStored<ChunkTable::DescriptionList>(inThread.GetChunkTable(), "Chunks");
}

std::string gGetPath(const Profiler::ThreadsModel& inModel, const char* inFile)
{
    const std::string folder = FileSystem::gCombinePath(inModel.GetSession().GetDirectory(), Profiler::sThreadsFolder);
    return FileSystem::gCombinePath(folder, inFile);
}

// Reads the blocks of one file.
class BlockReader
{
public:
    explicit BlockReader(const std::string& inPath)
    {
        if (!FileSystem::gGetFileSize(inPath, mSize) || !mFile.Open(inPath, Profiler::ChunkFile::EMode::Reading))
            mSize = 0;
    }

    [[nodiscard]] bool IsInFile(uint64_t inOffset, uint64_t inSize) const
    {
        return inOffset < mSize && inSize <= mSize - inOffset;
    }

    [[nodiscard]] bool Read(uint64_t inOffset, uint64_t inSize, Utility::ByteBuffer& outBytes)
    {
        return IsInFile(inOffset, inSize) && mFile.Read(inOffset, inSize, outBytes);
    }

    [[nodiscard]] bool ReadChunk(uint64_t inOffset, uint64_t inSize, Profiler::Chunk& outChunk)
    {
        if (!Read(inOffset, inSize, mFrame) || !mDecompressor.Decompress(mFrame.GetData(), mFrame.GetSize(), mContent))
            return false;
        Utility::ByteCursor cursor(mContent.GetData(), mContent.GetSize());
        return outChunk.Deserialize(cursor);
    }

private:
    Profiler::ChunkFile mFile;
    Utility::Decompressor mDecompressor;
    Utility::ByteBuffer mFrame;
    Utility::ByteBuffer mContent;
    uint64_t mSize = 0; // of the file; 0 if it can't be read
};

// Goes over the blocks of Threads.dat.
class LevelCounter
{
public:
    explicit LevelCounter(const std::string& inPath) : mReader(inPath) {}

    [[nodiscard]] TimelineLevel Count(const DetailLOD& inLevel)
    {
        TimelineLevel level;
        for (const auto& [threadID, thread] : gGetThreads(inLevel))
        {
            const uint64_t bytes = level.Bytes;
            for (const ChunkDescription& chunk : gGetChunks(*thread))
            {
                if (!CountChunk(chunk, level) && mFault.empty())
                    mFault = gFormat("chunk %d of thread %d at level %d is damaged", chunk.mIndex, threadID, inLevel.GetLevel());
            }
            level.Threads += level.Bytes != bytes ? 1 : 0;
        }
        return level;
    }

    // The first damage that was met.
    [[nodiscard]] const std::string& GetFault() const { return mFault; }

private:
    [[nodiscard]] bool CountChunk(const ChunkDescription& inChunk, TimelineLevel& ioLevel)
    {
        const ChunkLayout& layout = inChunk.mLayout;
        bool isSound = true;
        if (inChunk.HasDataTypes(EChunkType::Bar))
        {
            ++ioLevel.BarChunks;
            ioLevel.Bytes += layout.BarDataSize + layout.BoundaryDataSize;
            isSound = mReader.IsInFile(layout.BarDataOffset, layout.BarDataSize) && CountBars(layout, ioLevel);
        }
        if (inChunk.HasDataTypes(EChunkType::Overview))
        {
            ++ioLevel.OverviewChunks;
            ioLevel.Bytes += layout.OverviewDataSize;
            Profiler::OverviewChunk overview;
            const bool isRead = mReader.ReadChunk(layout.OverviewDataOffset, layout.OverviewDataSize, overview);
            ioLevel.Entries += isRead ? overview.GetEntryCount() : 0;
            isSound = isSound && isRead;
        }
        if (inChunk.HasDataTypes(EChunkType::FunctionIndex))
        {
            ioLevel.Bytes += layout.FunctionIndexSize;
            isSound = isSound && mReader.IsInFile(layout.FunctionIndexOffset, layout.FunctionIndexSize);
        }
        return isSound;
    }

    [[nodiscard]] bool CountBars(const ChunkLayout& inLayout, TimelineLevel& ioLevel)
    {
        Profiler::BarChunk::BoundaryList boundaries;
        if (!mReader.Read(inLayout.BoundaryDataOffset, inLayout.BoundaryDataSize, mBlock))
            return false;
        Utility::ByteCursor cursor(mBlock.GetData(), mBlock.GetSize());
        if (!Profiler::BarChunk::ReadBoundaries(cursor, boundaries))
            return false;
        for (const Profiler::BarBoundary& boundary : boundaries)
            ioLevel.Bars += boundary.BarCount;
        return true;
    }

    BlockReader mReader;
    Utility::ByteBuffer mBlock;
    std::string mFault;
};

void gInspectFindIndex(Profiler::FindModel& ioModel, TimelineInspection& ioInspection)
{
    constexpr Profiler::EFindSet set = Profiler::EFindSet::FindResults;
    std::set<std::pair<uint64_t, uint32_t>> functions;
    Utility::ByteBuffer content;
    for (const Profiler::FindIndexSection& section : ioModel.GetSections())
    {
        ++ioInspection.FindThreads;
        bool isSound = ioModel.ReadBlock(set, section.Offset, section.TableSize, content);
        const uint64_t count = isSound ? Utility::ByteCursor(content.GetData(), content.GetSize()).Read<uint64_t>() : 0;
        const std::vector<Profiler::FindFunctionEntry> entries = ioModel.ReadThreadFunctions(set, section.ThreadID);
        isSound = isSound && entries.size() == count;
        for (const Profiler::FindFunctionEntry& entry : entries)
        {
            const uint32_t index = entry.Function.ResolveIndex.Index & Profiler::ResolveIndex::sComparedMask;
            functions.emplace(entry.Function.RelativeAddress, index);
            isSound = isSound && ioModel.ReadBlock(set, entry.BlockOffset, entry.BlockSize, content);
        }
        if (!isSound && ioInspection.FindFault.empty())
            ioInspection.FindFault = gFormat("the functions of thread %d are damaged", section.ThreadID);
    }
    ioInspection.FindFunctions = functions.size();
}

void gInspectReadyThreads(const Profiler::ThreadsModel& inModel, TimelineInspection& ioInspection)
{
    const Profiler::ReadyThreadData& data = inModel.GetReadyThreadData();
    ioInspection.ReadyIndices = data.GetReadyIndexCount();
    const Profiler::ReadyThreadLevels& levels = data.GetLevels();
    // The coarsest levels are left out while they have no records.
    if (levels.size() > ioInspection.Levels.size())
    {
        ioInspection.ReadyFault = gFormat("it has %zu levels", levels.size());
        return;
    }
    BlockReader reader(gGetPath(inModel, "ReadyThreads.dat"));
    for (size_t level = 0; level < levels.size(); ++level)
    {
        for (size_t i = 0; i < levels[level].size(); ++i)
        {
            Profiler::ReadyThreadChunk chunk;
            const bool isRead = reader.ReadChunk(levels[level][i].Offset, levels[level][i].Size, chunk);
            ioInspection.Levels[level].ReadyRecords += isRead ? chunk.GetRecords().size() : 0;
            if (!isRead && ioInspection.ReadyFault.empty())
                ioInspection.ReadyFault = gFormat("chunk %zu at level %zu is damaged", i, level);
        }
    }
}

} // namespace

Profiler::ThreadsModel* gFindStoredTimeline(const Profiler::Session& inSession)
{
    Profiler::Model* model = inSession.GetModel(Profiler::sThreadsModelID);
    const std::vector<Profiler::Model*>& unbuilt = inSession.GetModelsToReprocess();
    if (model == nullptr || std::find(unbuilt.begin(), unbuilt.end(), model) != unbuilt.end())
        return nullptr;
    // The object is of the library's copy of the class, which may be used through ours if it has the same layout.
    const bool isSame = RTTI::gIsSameType(model->GetType(), RTTI::gTypeOf<Profiler::ThreadsModel>());
    return isSame ? static_cast<Profiler::ThreadsModel*>(model) : nullptr;
}

TimelineInspection gInspectTimeline(Profiler::ThreadsModel& ioModel)
{
    TimelineInspection inspection;
    LevelCounter counter(gGetPath(ioModel, "Threads.dat"));
    for (size_t i = 0; i < ioModel.GetNumLevels(); ++i)
        inspection.Levels.push_back(counter.Count(ioModel.GetDetailLOD(static_cast<int32_t>(i))));
    inspection.ThreadsFault = counter.GetFault();
    gInspectFindIndex(ioModel.GetFindModel(), inspection);
    gInspectReadyThreads(ioModel, inspection);
    return inspection;
}

} // namespace Host
