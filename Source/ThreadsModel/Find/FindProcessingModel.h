// Builds Find.dat during a pass: per thread and function, the chunks in which it ran.
//
// What a thread's closed bars say is gathered in memory until the thread ends; a job then compresses it and appends it to the
// file. So memory goes with the threads that are alive. Docs/FindIndex.md describes the file.
//
// Threads: the pass's thread. One job at a time runs beside it, which alone touches the file, the work space and its errors
// until it has been waited for. Ownership: the ThreadsModel, from the start of a pass until it is saved.
#pragma once

#include "System/JobScheduler.h"
#include "ThreadsModel/Find/FindIndexFile.h"
#include "ThreadsModel/Find/ThreadInvocationData.h"
#include "Utility/ByteBuffer.h"
#include "Utility/Compression.h"
#include "Utility/ErrorState.h"

#include <fstream>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace Profiler
{

class FindProcessingModel
{
public:
    FindProcessingModel(std::string inPath, System::JobScheduler& inScheduler);
    // Ends a job that still runs.
    ~FindProcessingModel();

    FindProcessingModel(const FindProcessingModel&) = delete;
    FindProcessingModel& operator=(const FindProcessingModel&) = delete;

    // Creates the file, to be called once before anything else.
    [[nodiscard]] bool OpenIndexFile(Utility::ErrorState& ioErrors);

    // Empty data for a thread that begins; valid until the thread is destroyed.
    ThreadInvocationData& CreateThreadInvocationData(ThreadID inThread);

    // Notes one bar that has closed: its function, and the chunks of the finest level in which it starts and ends.
    static void AddInvocation(ThreadInvocationData& ioData, uint64_t inRelativeAddress, ResolveIndex inResolveIndex,
                              int32_t inFirstChunk, int32_t inLastChunk)
    {
        ioData.Add({inRelativeAddress, inResolveIndex}, inFirstChunk, inLastChunk);
    }

    // The thread has ended: starts to write what was gathered, once that of the thread before is written. False if that one
    // couldn't be written. A thread without data is none of its business.
    [[nodiscard]] bool DestroyThreadInvocationData(ThreadID inThread, Utility::ErrorState& ioErrors);

    // Waits until no job runs. False, with the reasons, if any job has failed, each time it is called.
    [[nodiscard]] bool WaitForWriteJob(Utility::ErrorState& ioErrors);

    // Writes the thread table and the end of the file, and closes it. A second call after a success does nothing. REQUIRES: no
    // job runs.
    [[nodiscard]] bool FinishIndexFile(Utility::ErrorState& ioErrors);

private:
    void WriteSection(ThreadID inThread, const bool& inIsCanceled);
    [[nodiscard]] bool BuildBlocks(const bool& inIsCanceled);
    [[nodiscard]] bool AppendFunction(const ResolvedAddress& inFunction, const FunctionChunks& inChunks,
                                      const bool& inIsCanceled);
    [[nodiscard]] bool WriteBytes(const Utility::ByteBuffer& inBytes);

    const std::string mPath;
    System::JobScheduler& mScheduler;
    std::unordered_map<ThreadID, std::unique_ptr<ThreadInvocationData>> mThreads; // that are alive
    bool mIsFinished = false;

    // The job's, while one runs
    std::vector<FindIndexSection> mSections; // in order of completion
    std::ofstream mFile;
    Utility::ByteBuffer mBlocks; // of all functions of a thread
    Utility::ByteBuffer mScratch;
    Utility::ByteBuffer mTable;
    Utility::ByteBuffer mCompressedTable;
    Utility::Compressor mCompressor;
    Utility::ErrorState mJobErrors;
    std::unique_ptr<ThreadInvocationData> mCurrentData;

    System::JobHandle mWriteJob;
};

} // namespace Profiler
