// What a stored timeline says, decoded: two passes over the same events say the same, wherever its pieces come to lie in its
// files.
#pragma once

#include "Host/CommandLine/FailureText.h"
#include "Host/CommandLine/SessionPath.h"
#include "Host/CommandLine/TimelineInspection.h"
#include "Host/CommandLine/Workspace.h"
#include "ThreadsModel/ChunkFile.h"
#include "Utility/Compression.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

namespace Host
{

class StoredTimeline
{
public:
    using Pieces = std::map<std::string, std::string>; // bytes by what they are

    // Empty if the session has no timeline that can be loaded.
    static Pieces sRead(const std::string& inSession)
    {
        Utility::ErrorState errors;
        std::string path;
        uint32_t flags = 0;
        const std::unique_ptr<Workspace> workspace = Workspace::sMake(PLUGIN_LIBRARY, errors);
        const std::unique_ptr<Profiler::Session> session = workspace != nullptr && gFindSessionFile(inSession, path, errors)
                                                               ? workspace->LoadSession(path, flags, errors)
                                                               : nullptr;
        Profiler::ThreadsModel* model = session != nullptr ? gFindStoredTimeline(*session) : nullptr;
        return model != nullptr ? StoredTimeline(*model).Read() : Pieces();
    }

private:
    explicit StoredTimeline(Profiler::ThreadsModel& ioModel) : mModel(ioModel) {}

    Pieces Read()
    {
        const std::string folder = mModel.GetSession().GetDirectory() + "/Threads/";
        EXPECT_TRUE(mThreads.Open(folder + "Threads.dat", Profiler::ChunkFile::EMode::Reading));
        EXPECT_TRUE(mReadyThreads.Open(folder + "ReadyThreads.dat", Profiler::ChunkFile::EMode::Reading));
        for (const Profiler::Thread& thread : mModel.GetSession().GetThreadList())
            ReadThread(thread.ThreadID);
        ReadReadyThreads();
        return std::move(mPieces);
    }

    void ReadThread(Profiler::ThreadID inThread)
    {
        const std::string name = "thread " + std::to_string(inThread);
        const Profiler::ThreadData* data = mModel.FindThreadData(inThread);
        if (data != nullptr)
        {
            Append(name, data->MaxStackDepth);
            Append(name, data->TotalTime);
            for (const double time : data->StateTimes)
                Append(name, time);
        }
        for (int32_t i = 0; i < static_cast<int32_t>(mModel.GetNumLevels()); ++i)
        {
            const Profiler::DetailLOD& level = mModel.GetDetailLOD(i);
            const Profiler::DetailLODThread* thread = level.GetThread(inThread);
            if (thread == nullptr)
                continue;
            for (const auto& chunk : thread->GetChunkTable().GetChunksInRange(0, level.GetChunkLength(), 0.0, 1e300))
                ReadChunk(name + " level " + std::to_string(i) + " chunk " + std::to_string(chunk.mIndex), chunk);
        }
        for (const Profiler::FindFunctionEntry& entry :
             mModel.GetFindModel().ReadThreadFunctions(Profiler::EFindSet::FindResults, inThread))
        {
            const std::string function = name + " function " + std::to_string(entry.Function.RelativeAddress) + " of " +
                                         std::to_string(entry.Function.ResolveIndex.Index);
            Append(function, entry.NumRanges);
            EXPECT_TRUE(
                mModel.GetFindModel().ReadBlock(Profiler::EFindSet::FindResults, entry.BlockOffset, entry.BlockSize, mContent));
            AppendContent(function);
        }
    }

    void ReadChunk(const std::string& inName, const Profiler::ChunkDescription& inChunk)
    {
        const Profiler::ChunkLayout& layout = inChunk.mLayout;
        Append(inName, inChunk.mAvailableDataTypes);
        if (inChunk.HasDataTypes(Profiler::EChunkType::Bar))
        {
            ReadFrame(mThreads, layout.BarDataOffset, layout.BarDataSize, inName + " bars");
            EXPECT_TRUE(mThreads.Read(layout.BoundaryDataOffset, layout.BoundaryDataSize, mContent));
            AppendContent(inName + " boundaries");
        }
        if (inChunk.HasDataTypes(Profiler::EChunkType::Overview))
            ReadFrame(mThreads, layout.OverviewDataOffset, layout.OverviewDataSize, inName + " overview");
        if (inChunk.HasDataTypes(Profiler::EChunkType::FunctionIndex))
            ReadFrame(mThreads, layout.FunctionIndexOffset, layout.FunctionIndexSize, inName + " functions");
    }

    void ReadReadyThreads()
    {
        const Profiler::ReadyThreadData& data = mModel.GetReadyThreadData();
        for (uint32_t i = 0; i < data.GetReadyIndexCount(); ++i)
            Append("ready indices", data.GetRecordID(i));
        for (size_t level = 0; level < data.GetLevels().size(); ++level)
            for (const Profiler::ReadyThreadChunkHeader& chunk : data.GetLevels()[level])
                ReadFrame(mReadyThreads, chunk.Offset, chunk.Size, "wake-ups of level " + std::to_string(level));
    }

    void ReadFrame(Profiler::ChunkFile& ioFile, uint64_t inOffset, uint64_t inSize, const std::string& inName)
    {
        EXPECT_TRUE(ioFile.Read(inOffset, inSize, mFrame) &&
                    mDecompressor.Decompress(mFrame.GetData(), mFrame.GetSize(), mContent))
            << inName;
        AppendContent(inName);
    }

    template <class T>
    void Append(const std::string& inName, T inValue)
    {
        mPieces[inName].append(reinterpret_cast<const char*>(&inValue), sizeof(inValue));
    }
    void AppendContent(const std::string& inName)
    {
        mPieces[inName].append(reinterpret_cast<const char*>(mContent.GetData()), mContent.GetSize());
    }

    Profiler::ThreadsModel& mModel;
    Profiler::ChunkFile mThreads;
    Profiler::ChunkFile mReadyThreads;
    Utility::Decompressor mDecompressor;
    Utility::ByteBuffer mFrame;
    Utility::ByteBuffer mContent;
    Pieces mPieces;
};

} // namespace Host
