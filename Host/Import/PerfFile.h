// A perf.data file: its events, what it says about the machine and the recording, and where its records lie.
//
// A file that can't be used is refused with one line that names the file, the offset and, where there is one, the cure. Damaged
// parts that aren't needed are left out with a warning. The records of a compressed file are decompressed while it is opened.
// Threads: Open from one thread; constant afterwards, so any thread may read. Ownership: owns the mapped file; everything that it
// hands out (spans, events, records read from it) lives as long as the file.
// Invariant: after a successful Open there is at least one event, and every event's records carry a time and a thread.
#pragma once

#include "Host/Import/PerfEvent.h"
#include "Host/Import/PerfMachine.h"
#include "Utility/ErrorState.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Host
{

class MappedBytes; // a file mapped read-only

class PerfFile
{
public:
    PerfFile();
    ~PerfFile();
    PerfFile(const PerfFile&) = delete;
    PerfFile& operator=(const PerfFile&) = delete;

    // Maps and checks the file. REQUIRES: not opened before. Failure: one entry in ioErrors, the object is of no further use.
    [[nodiscard]] bool Open(const std::string& inPath, Utility::ErrorState& ioErrors);

    // The same for a file that is in memory already. inName stands for the path in messages.
    // REQUIRES: inImage outlives this object.
    [[nodiscard]] bool OpenImage(std::span<const uint8_t> inImage, const std::string& inName, Utility::ErrorState& ioErrors);

    [[nodiscard]] const std::string& GetPath() const { return mPath; }
    [[nodiscard]] const std::vector<PerfEvent>& GetEvents() const { return mEvents; }
    [[nodiscard]] const PerfMachine& GetMachine() const { return mMachine; }
    [[nodiscard]] const std::vector<PerfBuildID>& GetBuildIDs() const { return mBuildIDs; }

    // One line for each thing that was left out or looks wrong, in the order found.
    [[nodiscard]] const std::vector<std::string>& GetWarnings() const { return mWarnings; }

    // The records, decompressed. They may end within a record.
    [[nodiscard]] std::span<const uint8_t> GetRecords() const { return mRecords; }
    // Offset of the first byte of GetRecords in its file, for messages.
    [[nodiscard]] uint64_t GetRecordsOffset() const { return mRecordsOffset; }
    // Bytes at the end of the records that the file lacks or that couldn't be decompressed, 0 if they are whole or if nobody
    // knows.
    [[nodiscard]] uint64_t GetMissingBytes() const { return mMissingBytes; }
    // Why records are missing behind the last byte of GetRecords, in one line; empty if none are.
    [[nodiscard]] const std::string& GetTruncationReason() const { return mTruncationReason; }

    // The formats of the tracepoints as stored in the file; empty if it has none.
    [[nodiscard]] std::span<const uint8_t> GetTracingData() const { return mTracingData; }

    [[nodiscard]] bool IsCompressed() const { return mIsCompressed; }

    // Lets go of the memory of the records that were read. They can be read again, and pointers to them hold.
    void ReleasePages() const;

    // The event with the given id among its IDs; null if no event has it. An id of 0 is what records that perf itself wrote
    // carry: it gives the first event.
    [[nodiscard]] const PerfEvent* FindEvent(uint64_t inID) const
    {
        if (mIDMask == 0)
            return &mEvents[0];
        return FindEventInTable(inID);
    }

    // Where a sample's id lies; the same for all events. 0 if there is only one event, which needs none.
    [[nodiscard]] uint32_t GetSampleIDOffset() const { return mSampleIDOffset; }
    // The same for the trailer of other records, counted backwards from their end.
    [[nodiscard]] uint32_t GetTrailerIDOffset() const { return mTrailerIDOffset; }

private:
    friend class PerfFileReader;

    // Open-addressed table from id to event; entries with Index sNoEvent are free.
    struct IDEntry
    {
        uint64_t ID;
        uint32_t Index;
    };
    static constexpr uint32_t sNoEvent = UINT32_MAX;

    static uint64_t HashID(uint64_t inID) { return (inID * 0x9E3779B97F4A7C15ull) >> 32; }

    const PerfEvent* FindEventInTable(uint64_t inID) const
    {
        for (uint64_t slot = HashID(inID) & mIDMask;; slot = (slot + 1) & mIDMask)
        {
            const IDEntry& entry = mIDTable[slot];
            if (entry.Index == sNoEvent)
                return inID == 0 ? &mEvents[0] : nullptr;
            if (entry.ID == inID)
                return &mEvents[entry.Index];
        }
    }

    std::string mPath;
    std::vector<PerfEvent> mEvents;
    PerfMachine mMachine;
    std::vector<PerfBuildID> mBuildIDs;
    std::vector<std::string> mWarnings;
    std::span<const uint8_t> mRecords;
    uint64_t mRecordsOffset = 0;
    uint64_t mMissingBytes = 0;
    std::string mTruncationReason;
    std::span<const uint8_t> mTracingData;
    bool mIsCompressed = false;
    uint32_t mSampleIDOffset = 0;
    uint32_t mTrailerIDOffset = 0;
    std::vector<IDEntry> mIDTable; // at most half full
    uint64_t mIDMask = 0;          // 0: one event, all ids are its own
    std::unique_ptr<MappedBytes> mMapping;
    std::unique_ptr<MappedBytes> mDecompressed;
};

} // namespace Host
