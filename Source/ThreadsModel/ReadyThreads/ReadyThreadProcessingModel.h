// Turns wake-ups into records during a pass, sorts them into levels of detail, and writes full chunks to ReadyThreads.dat on a
// thread of its own.
//
// A record begins with a ready event, learns of its wait when the readied thread is switched in, and is filed when that thread is
// switched out or ends, since its level depends on the wait and on the run behind it. Docs/ReadyThreads.md describes the file.
//
// Threads: the pass's thread, but for CancelWriting, which any thread may call meanwhile. The chunk headers are the writer's
// until it has ended. Ownership: the ThreadsModel, from the start of a pass until it is saved. Invariant: chunks of one level
// reach the file in the order in which they were filled, since their ids count by it.
#pragma once

#include "Session/Processes/ThreadState.h"
#include "System/Mutex.h"
#include "ThreadsModel/ReadyThreads/ReadyThreadFile.h"
#include "Utility/ByteBuffer.h"
#include "Utility/Compression.h"
#include "Utility/ErrorState.h"

#include <atomic>
#include <cstdint>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace Profiler
{

class ReadyThreadProcessingModel
{
public:
    // Milliseconds that a thread which ends in its wait counts as having run afterwards.
    static constexpr double sRunAfterEndMs = 1000.0;

    // inPath is where ReadyThreads.dat goes. Starts the writer; OpenFile tells if that didn't work.
    explicit ReadyThreadProcessingModel(std::string inPath);
    // Drops what isn't written yet.
    ~ReadyThreadProcessingModel();

    ReadyThreadProcessingModel(const ReadyThreadProcessingModel&) = delete;
    ReadyThreadProcessingModel& operator=(const ReadyThreadProcessingModel&) = delete;

    // Creates the file, to be called once before anything else.
    [[nodiscard]] bool OpenFile(Utility::ErrorState& ioErrors);

    // All times in milliseconds.

    // The next ready index, from 0 on.
    [[nodiscard]] uint32_t NewReadyIndex();

    // The wait of a record has ended: the readied thread runs again.
    static void SetWaitInfo(ReadyRecord& ioRecord, ThreadState inState, CallstackKey inStack, double inWaitStart,
                            double inWaitEnd);

    // Files a record under its ready index, with the run behind the wait. False if the file can't be written.
    [[nodiscard]] bool CommitReady(const ReadyRecord& inRecord, uint32_t inReadyIndex, Utility::ErrorState& ioErrors,
                                   double inRunStart, double inRunEnd);

    // Files the record of a thread that has ended, in a state that had lasted since inStart.
    [[nodiscard]] bool CloseReady(ReadyRecord& ioRecord, uint32_t inReadyIndex, ThreadState inState,
                                  Utility::ErrorState& ioErrors, double inStart, double inEnd);

    // Writes what is left, and waits until it is written. False if anything couldn't be; nothing is said of a writer that was
    // cancelled.
    [[nodiscard]] bool FinishWriting(Utility::ErrorState& ioErrors);

    // Ends the writer without writing what is left.
    void CancelWriting();

    // Writes the end of the file and closes it. A second call after a success does nothing. REQUIRES: FinishWriting gave true,
    // and the writer wasn't cancelled.
    [[nodiscard]] bool WriteHeader(Utility::ErrorState& ioErrors);

private:
    struct PendingReadyChunk
    {
        int32_t Level = 0;
        double Start = std::numeric_limits<double>::max();
        double End = 0.0; // so a chunk of negative times ends at 0
        ReadyThreadChunk Chunk;
    };

    struct OpenChunk
    {
        uint32_t NumRecords = 0; // of the level so far
        std::unique_ptr<PendingReadyChunk> Pending;
    };

    enum class ECommand : uint32_t
    {
        None = 0,
        Finish = 1,
        Abort = 2,
    };

    void Enqueue(std::unique_ptr<PendingReadyChunk> inChunk);
    void SendCommand(ECommand inCommand);
    void RunWriter();
    [[nodiscard]] bool WriteChunk(PendingReadyChunk& ioChunk);
    void EncodeHeader(Utility::ByteBuffer& outHeader) const;

    // The pass's
    std::vector<OpenChunk> mOpenChunks;     // by level
    std::vector<uint32_t> mReadyIndexTable; // record ids
    const std::string mPath;
    bool mIsFinished = false;

    // The writer's, until it has ended
    ReadyThreadLevels mChunkHeaders;
    std::ofstream mFile;
    Utility::ByteBuffer mContent;
    Utility::ByteBuffer mFrame;
    Utility::Compressor mCompressor;

    // Have their own synchronization
    std::atomic<bool> mHasFailed = false;

    System::Mutex mMutex;
    System::ConditionVariable mWorkCondition;
    System::ConditionVariable mDoneCondition;
    std::vector<std::unique_ptr<PendingReadyChunk>> mQueue GUARDED_BY(mMutex);
    ECommand mCommand GUARDED_BY(mMutex) = ECommand::None;
    bool mIsDone GUARDED_BY(mMutex) = false;

    std::thread mThread; // the last member: it uses all others
};

} // namespace Profiler
