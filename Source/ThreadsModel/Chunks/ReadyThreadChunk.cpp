#include "ThreadsModel/Chunks/ReadyThreadChunk.h"

#include <algorithm>
#include <numeric>

namespace Profiler
{
namespace
{

constexpr size_t sPackedRecordSize = 52;

void gAppendRecord(const ReadyRecord& inRecord, Utility::ByteBuffer& ioBuffer)
{
    ioBuffer.AppendValue(inRecord.ReadyTime);
    ioBuffer.AppendValue(inRecord.WaitStart);
    ioBuffer.AppendValue(inRecord.WaitEnd);
    ioBuffer.AppendValue(inRecord.WaitState);
    ioBuffer.AppendValue(inRecord.SwitchInStack);
    ioBuffer.AppendValue(inRecord.ReadyStack);
    ioBuffer.AppendValue(inRecord.ReadiedThreadID);
    ioBuffer.AppendValue(inRecord.ReadyingThreadID);
}

void gReadRecord(Utility::ByteCursor& ioCursor, ReadyRecord& outRecord)
{
    outRecord.ReadyTime = ioCursor.Read<double>();
    outRecord.WaitStart = ioCursor.Read<double>();
    outRecord.WaitEnd = ioCursor.Read<double>();
    outRecord.WaitState = ioCursor.Read<uint32_t>();
    outRecord.SwitchInStack = ioCursor.Read<CallstackKey>();
    outRecord.ReadyStack = ioCursor.Read<CallstackKey>();
    outRecord.ReadiedThreadID = ioCursor.Read<ThreadID>();
    outRecord.ReadyingThreadID = ioCursor.Read<ThreadID>();
}

} // namespace

void ReadyThreadChunk::AddRecord(const ReadyRecord& inRecord)
{
    mRecords.push_back(inRecord);
    UpdateSize();
}

// Times that aren't numbers, which have no place in an order, come last.
void ReadyThreadChunk::Serialize(Utility::ByteBuffer& ioBuffer)
{
    std::vector<uint16_t> timeIndex(mRecords.size());
    std::iota(timeIndex.begin(), timeIndex.end(), uint16_t{0});
    const auto isEarlier = [this](uint16_t inFirst, uint16_t inSecond)
    {
        const double first = mRecords[inFirst].ReadyTime;
        const double second = mRecords[inSecond].ReadyTime;
        return first < second || (first == first && second != second);
    };
    std::stable_sort(timeIndex.begin(), timeIndex.end(), isEarlier);

    ioBuffer.AppendValue(static_cast<uint32_t>(mRecords.size()));
    ioBuffer.Append(timeIndex.data(), timeIndex.size() * sizeof(uint16_t));
    for (const ReadyRecord& record : mRecords)
        gAppendRecord(record, ioBuffer);
}

bool ReadyThreadChunk::Deserialize(Utility::ByteCursor& ioCursor)
{
    const auto count = ioCursor.Read<uint32_t>();
    if (count > sMaxRecords || ioCursor.GetRemaining() != count * (sizeof(uint16_t) + sPackedRecordSize))
        return false;
    mTimeIndex.resize(count);
    // Every record once.
    std::vector<bool> isIndexed(count);
    bool isSound = true;
    for (uint16_t& position : mTimeIndex)
    {
        position = ioCursor.Read<uint16_t>();
        isSound = isSound && position < count && !isIndexed[position];
        if (isSound)
            isIndexed[position] = true;
    }
    mRecords.resize(count);
    for (ReadyRecord& record : mRecords)
        gReadRecord(ioCursor, record);
    UpdateSize();
    return isSound && !ioCursor.HasFailed();
}

void ReadyThreadChunk::UpdateSize()
{
    mSize.store(mRecords.size() * sizeof(ReadyRecord) + mTimeIndex.size() * sizeof(uint16_t), std::memory_order_relaxed);
}

} // namespace Profiler
