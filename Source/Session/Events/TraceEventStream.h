// The events of a capture on disk: appended in time order by the producer, read back in the order of the file.
//
// Two files in the session folder: events.dat holds the chunks of events, events.index this object with the list of chunks. It is
// written anew after every chunk, whole or not at all, so that a capture that breaks off keeps what was written until then.
//
// Threads: one at a time, and no reader while events are added. Ownership: the session. Invariant: every chunk in the list has
// been written whole; NumEvents also counts those that wait for a chunk.
#pragma once

#include "RTTI/Declare.h"
#include "RTTI/Object.h"
#include "Serialization/CompatibilityHandler.h"
#include "Serialization/ReaderErrorState.h"
#include "Session/Events/EventChunk.h"
#include "Session/Events/TraceEvent.h"
#include "Utility/Compression.h"
#include "Utility/ErrorState.h"
#include "Utility/Progress.h"

#include <functional>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

namespace RTTI
{
class Registry;
}

namespace Profiler
{

class TraceEventStreamReader;

class TraceEventStream final : public RTTI::Object
{
    RTTI_FRIEND()

public:
    // The layouts of events.dat.
    static constexpr uint32_t sPlainVersion = 1;    // records back to back; read by UpgradeStream alone
    static constexpr uint32_t sColumnarVersion = 2; // compressed chunks, as EventChunk.h says

    // Pending events become a chunk whenever their number reaches a multiple of this.
    static constexpr uint64_t sEventsPerChunk = 100000;

    struct Chunk
    {
        double StartTime = 0.0; // TimeMs of the first event
        double EndTime = 0.0;   // TimeMs of the last event
        uint64_t FileOffset = 0;
        uint64_t Size = 0; // bytes in events.dat
        uint64_t NumEvents = 0;
        std::unordered_set<int32_t> Processes;
        std::unordered_set<int32_t> Threads;
    };

    // inDirectory is the folder of the session file. Touches no file.
    TraceEventStream(const std::string& inDirectory, uint32_t inEventDataVersion);
    ~TraceEventStream() override;

    TraceEventStream(const TraceEventStream&) = delete;
    TraceEventStream& operator=(const TraceEventStream&) = delete;

    const RTTI::Type& GetType() const override;

    // Null, with the reason in ioErrors, if a file is missing or damaged.
    [[nodiscard]] static std::unique_ptr<TraceEventStream> sLoad(const std::string& inDirectory, const RTTI::Registry& inRegistry,
                                                                 Serialization::ReaderErrorState& ioErrors);

    // Appends an event, which must not lie before those that are there. False if a chunk was due and it or the index couldn't be
    // written; the events are kept, and the next flush writes what is missing. An event of kind Invalid isn't stored. One that
    // comes when the pending ones fill a chunk that can't be written isn't taken.
    [[nodiscard]] bool AddEvent(const TraceEvent& inEvent, Utility::ErrorState& ioErrors);
    [[nodiscard]] bool AddEvent(const TraceEvent& inEvent, const std::string& inIndexPath, const std::string& inDataPath,
                                Utility::ErrorState& ioErrors);

    // Writes the pending events as a chunk, even a short one, and makes both files if they don't exist.
    [[nodiscard]] bool FlushStream(Utility::ErrorState& ioErrors);

    // Whether readers that are made from now on give instrumentation events.
    void SetIncludeInstrumentation(bool inIncludes) { mIncludeInstrumentation = inIncludes; }
    [[nodiscard]] bool IncludesInstrumentation() const { return mIncludeInstrumentation; }

    [[nodiscard]] bool NeedsUpgrade() const { return mEventDataVersion != sColumnarVersion; }

    // Brings the files from the plain layout to the columnar one. On failure, and when inIsCanceled becomes true, the stored
    // files are the old ones, nothing lies beside them, and this object isn't to be used any further.
    [[nodiscard]] bool UpgradeStream(const bool& inIsCanceled, Utility::ErrorState& ioErrors,
                                     const Utility::ProgressFunction& inProgress);

    // A reader in front of the first event that isn't below the time, in milliseconds; of a stream that needs an upgrade it gives
    // no event, and fails. REQUIRES: the stream outlives it.
    [[nodiscard]] TraceEventStreamReader CreateReader(double inStartTimeMs) const;

    [[nodiscard]] uint64_t GetNumEvents() const { return mNumEvents; }
    [[nodiscard]] uint32_t GetEventDataVersion() const { return mEventDataVersion; }
    [[nodiscard]] const std::vector<Chunk>& GetChunks() const { return mChunks; }
    [[nodiscard]] const std::string& GetIndexPath() const { return mIndexPath; }
    [[nodiscard]] const std::string& GetDataPath() const { return mDataPath; }

private:
    // The two files, in the session folder or beside them.
    struct FilePair
    {
        std::string Index;
        std::string Data;
    };

    [[nodiscard]] bool FlushChunk(const std::string& inIndexPath, const std::string& inDataPath, Utility::ErrorState& ioErrors);
    [[nodiscard]] bool AppendToFile(const std::string& inDataPath, Chunk& outChunk, Utility::ErrorState& ioErrors);
    [[nodiscard]] bool WriteIndex(const std::string& inIndexPath, Utility::ErrorState& ioErrors);
    [[nodiscard]] bool MakeMissingFiles(const FilePair& inFiles, Utility::ErrorState& ioErrors);

    [[nodiscard]] bool ConvertChunks(const FilePair& inTemporary, const bool& inIsCanceled, Utility::ErrorState& ioErrors,
                                     const Utility::ProgressFunction& inProgress);
    [[nodiscard]] bool ConvertRecords(const Utility::ByteBuffer& inRecords, const FilePair& inTemporary, const bool& inIsCanceled,
                                      Utility::ErrorState& ioErrors, const std::function<void()>& inOnRecord);
    [[nodiscard]] bool ReplaceFiles(const FilePair& inTemporary, Utility::ErrorState& ioErrors) const;

    std::string mIndexPath;
    std::string mDataPath;
    bool mIncludeInstrumentation = true;
    uint64_t mNumEvents = 0;
    std::vector<Chunk> mChunks;
    uint32_t mEventDataVersion;
    EventChunkBuilder mPending;
    bool mIsIndexStale = false; // lacks a chunk that was written
    Utility::Compressor mCompressor;
    Utility::ByteBuffer mFrame; // work space of FlushChunk
};

// For an index of an older build: what it holds beyond the properties of today is passed over.
class TraceEventStreamCompatibilityHandler final : public Serialization::CompatibilityHandler
{
};

} // namespace Profiler

RTTI_DECLARE(Profiler::TraceEventStream::Chunk);
RTTI_DECLARE(Profiler::TraceEventStream);
