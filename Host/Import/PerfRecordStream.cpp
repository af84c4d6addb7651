#include "Host/Import/PerfRecordStream.h"

#include <algorithm>

namespace Host
{
namespace
{

constexpr size_t sWord = sizeof(uint64_t);
constexpr size_t sTypeOffset = 0;
constexpr size_t sMiscOffset = 4;
constexpr size_t sSizeOffset = 6;

// What every cursor comes before.
const uint8_t* const sBeyondAll = reinterpret_cast<const uint8_t*>(UINTPTR_MAX); // NOLINT(performance-no-int-to-ptr)

// True if the list of recorded threads has the entry that stands for all of the system.
bool gNamesAllThreads(const PerfRecord& inThreadMap)
{
    constexpr size_t entrySize = 24;
    constexpr size_t entriesOffset = sPerfRecordHeaderSize + sWord;
    for (size_t offset = entriesOffset; offset + entrySize <= inThreadMap.Size; offset += entrySize)
        if (gLoad<int32_t>(inThreadMap.Data + offset) == -1)
            return true;
    return false;
}

} // namespace

PerfRecordStream::PerfRecordStream(const PerfFile& inFile)
    : mFile(inFile),
      mBegin(inFile.GetRecords().data()),
      mEnd(mBegin + inFile.GetRecords().size()),
      mSampleIDOffset(inFile.GetSampleIDOffset()),
      mTrailerIDOffset(inFile.GetTrailerIDOffset()),
      mScanned(mBegin)
{
}

inline void PerfRecordStream::LoadHeader(const uint8_t* inData, PerfRecord& outRecord) const
{
    const auto remaining = static_cast<size_t>(mEnd - inData);
    outRecord = {};
    outRecord.Data = inData;
    if (remaining < sPerfRecordHeaderSize)
        return;
    outRecord.Type = gLoad<uint32_t>(inData + sTypeOffset);
    outRecord.Misc = gLoad<uint16_t>(inData + sMiscOffset);
    const auto size = gLoad<uint16_t>(inData + sSizeOffset);
    if (size >= sPerfRecordHeaderSize && size <= remaining)
        outRecord.Size = size;
}

inline EPerfSkip PerfRecordStream::LocateSample(PerfRecord& ioRecord) const
{
    const PerfEvent* event = mFile.GetEvents().data();
    if (mSampleIDOffset != 0)
    {
        if (ioRecord.Size < mSampleIDOffset + sWord)
            return EPerfSkip::RecordTooShort;
        const auto id = gLoad<uint64_t>(ioRecord.Data + mSampleIDOffset);
        event = id != 0 ? mFile.FindEvent(id) : nullptr;
        if (event == nullptr)
            return EPerfSkip::UnknownEvent;
    }
    if (ioRecord.Size < event->Layout.FixedSize)
        return EPerfSkip::RecordTooShort;
    ioRecord.Event = event;
    ioRecord.Time = gLoad<uint64_t>(ioRecord.Data + event->Layout.Time);
    return EPerfSkip::None;
}

EPerfSkip PerfRecordStream::LocateSideBand(PerfRecord& ioRecord) const
{
    const PerfEvent* event = mFile.GetEvents().data();
    const uint8_t* end = ioRecord.Data + ioRecord.Size;
    if (mTrailerIDOffset != 0)
    {
        if (ioRecord.Size < sPerfRecordHeaderSize + mTrailerIDOffset)
            return EPerfSkip::TrailerMissing;
        event = mFile.FindEvent(gLoad<uint64_t>(end - mTrailerIDOffset));
        if (event == nullptr)
            return EPerfSkip::UnknownEvent;
    }
    if (ioRecord.Size < sPerfRecordHeaderSize + event->Layout.TrailerSize)
        return EPerfSkip::TrailerMissing;
    ioRecord.Event = event;
    ioRecord.Time = gLoad<uint64_t>(end - event->Layout.TrailerTime);
    return EPerfSkip::None;
}

inline EPerfSkip PerfRecordStream::Locate(PerfRecord& ioRecord) const
{
    if (ioRecord.Type == EPerfRecordType::Sample) [[likely]]
        return LocateSample(ioRecord);
    if (ioRecord.Type == 0 || ioRecord.Type >= EPerfRecordType::FirstOfPerf)
        return EPerfSkip::None;
    return LocateSideBand(ioRecord);
}

void PerfRecordStream::BeginScan(PerfHealth& ioHealth)
{
    ioHealth.SamplesByEvent.assign(mFile.GetEvents().size(), 0);
}

void PerfRecordStream::StopScan(PerfHealth& ioHealth, const char* inReason)
{
    ioHealth.TruncatedOffset = mFile.GetRecordsOffset() + static_cast<uint64_t>(mScanned - mBegin);
    ioHealth.TruncatedBytes = static_cast<uint64_t>(mEnd - mScanned) + mFile.GetMissingBytes();
    ioHealth.TruncatedReason = inReason;
    if (!mFile.GetTruncationReason().empty())
        ioHealth.TruncatedReason += "; " + mFile.GetTruncationReason();
    mEnd = mScanned;
}

bool PerfRecordStream::ScanNext(PerfRecord& outRecord, PerfHealth& ioHealth)
{
    while (mScanned != mEnd)
    {
        LoadHeader(mScanned, outRecord);
        if (outRecord.Size == 0) [[unlikely]]
        {
            const bool isCutOff = static_cast<size_t>(mEnd - mScanned) < sPerfRecordHeaderSize ||
                                  gLoad<uint16_t>(mScanned + sSizeOffset) >= sPerfRecordHeaderSize;
            StopScan(ioHealth, isCutOff ? "the data ends within a record" : "a record of impossible size");
            return false;
        }
        const uint8_t* next = mScanned + outRecord.Size;
        if (outRecord.Type >= EPerfRecordType::FirstOfPerf) [[unlikely]]
        {
            const uint64_t extra = gGetBytesBehind(outRecord.Data, outRecord.Size);
            if (extra > static_cast<uint64_t>(mEnd - next))
            {
                StopScan(ioHealth, "the data ends within a block of trace data");
                return false;
            }
            next += extra;
            ioHealth.AuxBytes += extra;
        }
        mScanned = next;

        ++ioHealth.Records;
        ++ioHealth.RecordsByType[std::min<size_t>(outRecord.Type, PerfHealth::sCountedTypes)];
        const EPerfSkip reason = Locate(outRecord);
        if (reason != EPerfSkip::None) [[unlikely]]
        {
            ioHealth.CountSkip(reason);
            continue;
        }
        if (outRecord.Event != nullptr)
            AddTime(outRecord, ioHealth);
        if (outRecord.Type == EPerfRecordType::Sample)
            ++ioHealth.SamplesByEvent[outRecord.Event->Index];
        else
            CountRecord(outRecord, ioHealth);
        return true;
    }
    return false;
}

// Opens a new run if the record goes back in time.
inline void PerfRecordStream::AddTime(const PerfRecord& inRecord, PerfHealth& ioHealth)
{
    if (inRecord.Time < mLastTime || mRuns.empty()) [[unlikely]]
        mRuns.push_back({inRecord.Time, inRecord.Data, nullptr});
    mLastTime = inRecord.Time;
    ++mRecordCount;
    mTotalBytes += inRecord.Size;
    ioHealth.LastTime = std::max(ioHealth.LastTime, inRecord.Time);
    // Wraps a time of 0 around to the greatest value.
    ioHealth.FirstTime = std::min(ioHealth.FirstTime - 1, inRecord.Time - 1) + 1;
}

void PerfRecordStream::CountRecord(const PerfRecord& inRecord, PerfHealth& ioHealth) const
{
    switch (inRecord.Type)
    {
    case EPerfRecordType::Lost:
    case EPerfRecordType::LostSamples:
        if (PerfLost lost; gDecodeLost(inRecord, lost) == EPerfSkip::None)
        {
            ++ioHealth.LostRecords;
            (inRecord.Type == EPerfRecordType::Lost ? ioHealth.LostEvents : ioHealth.LostSamples) += lost.Count;
        }
        else
            ioHealth.CountSkip(EPerfSkip::RecordTooShort);
        break;
    case EPerfRecordType::Throttle:
        ++ioHealth.Throttles;
        break;
    case EPerfRecordType::Unthrottle:
        ++ioHealth.Unthrottles;
        break;
    case EPerfRecordType::ThreadMap:
        ioHealth.HasThreadMap = true;
        ioHealth.RecordedAllThreads = ioHealth.RecordedAllThreads || gNamesAllThreads(inRecord);
        break;
    default:
        break;
    }
}

void PerfRecordStream::EndScan(PerfHealth& ioHealth)
{
    if (ioHealth.TruncatedReason.empty() && !mFile.GetTruncationReason().empty())
        StopScan(ioHealth, "the data ends early");
    for (size_t i = 0; i != mRuns.size(); ++i)
        mRuns[i].End = i + 1 != mRuns.size() ? mRuns[i + 1].Begin : mEnd;
    ioHealth.Runs = mRuns.size();
    std::sort(mRuns.begin(), mRuns.end(),
              [](const Run& inLeft, const Run& inRight) {
                  return inLeft.FirstTime != inRight.FirstTime ? inLeft.FirstTime < inRight.FirstTime
                                                               : inLeft.Begin < inRight.Begin;
              });
    Rewind();
}

void PerfRecordStream::Rewind()
{
    mPassedBytes = 0;
    mNextRun = 0;
    mOthers.clear();
    mHasTop = false;
    ReplaceTop();
}

inline bool PerfRecordStream::Advance(Cursor& ioCursor) const
{
    const uint8_t* next = ioCursor.Record.Data + ioCursor.Record.Size;
    while (next < ioCursor.End)
    {
        LoadHeader(next, ioCursor.Record);
        if (ioCursor.Record.Size == 0)
            return false; // only if the file changed since the scan
        if (Locate(ioCursor.Record) == EPerfSkip::None && ioCursor.Record.Event != nullptr) [[likely]]
            return true;
        next += ioCursor.Record.Size;
        const uint64_t extra = gGetBytesBehind(ioCursor.Record.Data, ioCursor.Record.Size);
        if (extra > static_cast<uint64_t>(mEnd - next))
            return false;
        next += extra;
    }
    return false;
}

// Makes active what begins no later than the earliest active record.
void PerfRecordStream::ActivateRuns()
{
    const auto isLater = [](const Cursor& inLeft, const Cursor& inRight) { return inRight.IsBefore(inLeft); };
    while (mNextRun != mRuns.size() && (mOthers.empty() || mRuns[mNextRun].FirstTime <= mOthers.front().Record.Time))
    {
        const Run& run = mRuns[mNextRun++];
        Cursor cursor{};
        LoadHeader(run.Begin, cursor.Record);
        cursor.End = run.End;
        if (cursor.Record.Size == 0 || Locate(cursor.Record) != EPerfSkip::None || cursor.Record.Event == nullptr)
            continue; // only if the file changed since the scan
        mOthers.push_back(cursor);
        std::push_heap(mOthers.begin(), mOthers.end(), isLater);
    }
}

// Puts the earliest record of all into mTop.
void PerfRecordStream::ReplaceTop()
{
    const auto isLater = [](const Cursor& inLeft, const Cursor& inRight) { return inRight.IsBefore(inLeft); };
    if (mHasTop)
    {
        mOthers.push_back(mTop);
        std::push_heap(mOthers.begin(), mOthers.end(), isLater);
    }
    ActivateRuns();
    mHasTop = !mOthers.empty();
    if (mHasTop)
    {
        std::pop_heap(mOthers.begin(), mOthers.end(), isLater);
        mTop = mOthers.back();
        mOthers.pop_back();
    }
    UpdateBound();
}

void PerfRecordStream::UpdateBound()
{
    mBound.Record.Time = UINT64_MAX;
    mBound.Record.Data = sBeyondAll;
    if (!mOthers.empty())
        mBound = mOthers.front();
    if (mNextRun == mRuns.size())
        return;
    Cursor inactive{};
    inactive.Record.Time = mRuns[mNextRun].FirstTime;
    inactive.Record.Data = mRuns[mNextRun].Begin;
    if (inactive.IsBefore(mBound))
        mBound = inactive;
}

bool PerfRecordStream::Next(PerfRecord& outRecord)
{
    if (!mHasTop) [[unlikely]]
        return false;
    outRecord = mTop.Record;
    mPassedBytes += outRecord.Size;
    mHasTop = Advance(mTop);
    if (!mHasTop || !mTop.IsBefore(mBound))
        ReplaceTop();
    return true;
}

} // namespace Host
