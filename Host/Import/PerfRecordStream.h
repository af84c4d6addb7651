// The records of a capture: once in file order, then in time order.
//
// perf writes what it found in each processor's buffer one after the other, so the file is a sequence of stretches that are in
// order by themselves ("runs"). Scan walks over all record headers and finds the runs; Next merges them. Ties keep the order of
// the file. Memory is one small descriptor per run, never one per record. Threads: one at a time. Ownership: doesn't own the
// file, which must outlive the stream and all records. Invariant: Next delivers exactly the records that Scan delivered with an
// Event, each once.
#pragma once

#include "Host/Import/PerfFile.h"
#include "Host/Import/PerfHealth.h"
#include "Host/Import/PerfRecords.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Host
{

class PerfRecordStream
{
public:
    explicit PerfRecordStream(const PerfFile& inFile);

    // Reads all records in file order and hands each sound one to inVisitor(const PerfRecord&), also those without a time that
    // perf itself wrote (Event is null). Counts into ioHealth what it saw and skipped. A record of impossible size ends the
    // reading: ioHealth then says where and why. REQUIRES: called once, before the first Next.
    template <class Visitor>
    void Scan(PerfHealth& ioHealth, Visitor&& inVisitor)
    {
        BeginScan(ioHealth);
        PerfRecord record;
        while (ScanNext(record, ioHealth))
            inVisitor(static_cast<const PerfRecord&>(record));
        EndScan(ioHealth);
    }

    // The next record in time order; false after the last one. Records with a time of 0 come first. REQUIRES: Scan has ended.
    [[nodiscard]] bool Next(PerfRecord& outRecord);

    // Starts over with the first record in time order. REQUIRES: Scan has ended.
    void Rewind();

    // How many records Next delivers in all.
    [[nodiscard]] uint64_t GetRecordCount() const { return mRecordCount; }
    // Bytes of the records that Next has delivered, to tell progress against GetTotalBytes.
    [[nodiscard]] uint64_t GetPassedBytes() const { return mPassedBytes; }
    [[nodiscard]] uint64_t GetTotalBytes() const { return mTotalBytes; }

    // Where a record lies in the file, for messages.
    [[nodiscard]] uint64_t GetFileOffset(const PerfRecord& inRecord) const
    {
        return mFile.GetRecordsOffset() + static_cast<uint64_t>(inRecord.Data - mBegin);
    }

private:
    // A stretch of the file whose records are in time order. It ends where the next one of the file begins.
    struct Run
    {
        uint64_t FirstTime;
        const uint8_t* Begin; // its first record with a time
        const uint8_t* End;
    };
    static_assert(sizeof(Run) <= 32);

    // A run that is being merged, at the record that it delivers next.
    struct Cursor
    {
        PerfRecord Record;
        const uint8_t* End;

        // True if this cursor's record comes first; ties keep the order of the file.
        [[nodiscard]] bool IsBefore(const Cursor& inOther) const
        {
            return Record.Time < inOther.Record.Time || (Record.Time == inOther.Record.Time && Record.Data < inOther.Record.Data);
        }
    };

    // Reads the record at inData; Size is 0 if it has none that is possible in the bytes up to mEnd.
    void LoadHeader(const uint8_t* inData, PerfRecord& outRecord) const;
    // Finds the record's event and time. Gives why the record can't be used, None for those that have no event.
    [[nodiscard]] EPerfSkip Locate(PerfRecord& ioRecord) const;
    [[nodiscard]] EPerfSkip LocateSample(PerfRecord& ioRecord) const;
    [[nodiscard]] EPerfSkip LocateSideBand(PerfRecord& ioRecord) const;

    void BeginScan(PerfHealth& ioHealth);
    [[nodiscard]] bool ScanNext(PerfRecord& outRecord, PerfHealth& ioHealth);
    void EndScan(PerfHealth& ioHealth);
    void StopScan(PerfHealth& ioHealth, const char* inReason);
    void AddTime(const PerfRecord& inRecord, PerfHealth& ioHealth);
    void CountRecord(const PerfRecord& inRecord, PerfHealth& ioHealth) const;

    // Moves the cursor to its run's next record with a time; false at the run's end.
    [[nodiscard]] bool Advance(Cursor& ioCursor) const;
    void ReplaceTop();
    void ActivateRuns();
    void UpdateBound();

    const PerfFile& mFile;
    const uint8_t* mBegin;
    const uint8_t* mEnd;
    uint32_t mSampleIDOffset;
    uint32_t mTrailerIDOffset;

    const uint8_t* mScanned; // all records before it have been scanned
    uint64_t mLastTime = 0;  // of the run that the scan is in
    std::vector<Run> mRuns;  // in file order while scanning, by first time afterwards
    uint64_t mRecordCount = 0;
    uint64_t mTotalBytes = 0;

    bool mHasTop = false;
    Cursor mTop{};               // what Next delivers
    Cursor mBound{};             // as long as mTop comes before it, nothing else needs a look
    std::vector<Cursor> mOthers; // the other active runs, a heap with the earliest in front
    size_t mNextRun = 0;         // the first of mRuns that isn't active yet
    uint64_t mPassedBytes = 0;
};

} // namespace Host
