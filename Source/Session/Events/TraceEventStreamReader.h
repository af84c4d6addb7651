// Gives the events of a stream one by one, in the order of the file.
//
// Threads: one at a time; several readers may read one stream at once while nothing is added to it. Ownership: refers to its
// stream, which outlives it; has a file handle and buffers of its own. Invariant: once reading has failed, no event comes any
// more, and GetFailure says why: damage is never taken for the end.
#pragma once

#include "Session/Events/EventChunk.h"
#include "Utility/ByteBuffer.h"
#include "Utility/Compression.h"
#include "Utility/ErrorState.h"

#include <cstdint>
#include <fstream>
#include <string>

namespace Profiler
{

class TraceEventStream;

class TraceEventStreamReader
{
public:
    // In front of the first event that isn't below the time, in milliseconds.
    TraceEventStreamReader(const TraceEventStream& inStream, double inStartTimeMs);
    ~TraceEventStreamReader() = default;

    // The copy stands where the original stands, and opens the file anew.
    TraceEventStreamReader(const TraceEventStreamReader& inOther);
    TraceEventStreamReader& operator=(const TraceEventStreamReader& inOther);
    TraceEventStreamReader(TraceEventStreamReader&&) noexcept = default;
    TraceEventStreamReader& operator=(TraceEventStreamReader&&) noexcept = default;

    // Fills outEvent with the next event; false at the end, and when reading has failed. One event used over and over keeps the
    // memory of its texts.
    [[nodiscard]] bool NextEvent(TraceEvent& outEvent);
    // The same, but gives only events below the limit, in milliseconds. One that isn't stays the next.
    [[nodiscard]] bool NextEvent(TraceEvent& outEvent, double inLimitMs);

    // Events that were given or passed over since the start; at the end of a stream all of them, so that it tells progress.
    [[nodiscard]] uint64_t GetEventsRead() const { return mEventsRead; }
    // Seconds spent on reading and decompressing.
    [[nodiscard]] double GetIOTimeSeconds() const { return mIOTimeSeconds; }

    // Empty while all is well.
    [[nodiscard]] const std::string& GetFailure() const { return mFailure; }
    // False, with an entry in ioErrors, if reading has failed.
    [[nodiscard]] bool CheckSound(Utility::ErrorState& ioErrors) const;

private:
    static constexpr size_t sNoChunk = ~size_t{0};

    [[nodiscard]] size_t FindChunk(double inTimeMs) const;
    void OpenFile();
    [[nodiscard]] bool LoadChunk();
    [[nodiscard]] bool ReadChunk();
    [[nodiscard]] bool LoadNextChunk();
    void PassOver(double inStartTimeMs);
    template <class IsAllowed>
    [[nodiscard]] bool ReadEvent(TraceEvent& outEvent, IsAllowed inIsAllowed);
    bool Fail(const char* inReason);

    const TraceEventStream* mStream;
    bool mIncludeInstrumentation;
    std::ifstream mFile;
    uint64_t mFileSize = 0;
    Utility::Decompressor mDecompressor;
    Utility::ByteBuffer mFrame;   // compressed
    Utility::ByteBuffer mContent; // decompressed
    EventChunkView mView;
    size_t mChunk = sNoChunk;
    uint64_t mPosition = 0; // in the chunk
    uint64_t mEventsRead = 0;
    double mIOTimeSeconds = 0.0;
    std::string mFailure;
};

} // namespace Profiler
