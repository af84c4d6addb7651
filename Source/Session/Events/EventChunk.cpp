#include "Session/Events/EventChunk.h"

namespace Profiler
{
namespace
{

constexpr size_t sInvalidType = static_cast<size_t>(ETraceEventType::Invalid);
constexpr std::array<uint64_t, sNumEventArrays> sElementSizes{sizeof(uint8_t), sizeof(double), sizeof(int32_t), sizeof(int32_t),
                                                              sizeof(uint32_t)};

} // namespace

bool EventChunkBuilder::Add(const TraceEvent& inEvent)
{
    if (inEvent.GetPayload().index() == sInvalidType)
        return false;
    mContent.Resize(mPayloadEnd);
    mPayloadOffsets.push_back(static_cast<uint32_t>(mPayloadEnd));
    gEncodePayload(inEvent, mContent);
    mPayloadEnd = mContent.GetSize();
    // Neighbouring events are mostly of one process.
    if (mProcessIDs.empty() || mProcessIDs.back() != inEvent.ProcessID)
        mProcesses.insert(inEvent.ProcessID);
    if (mThreadIDs.empty() || mThreadIDs.back() != inEvent.ThreadID)
        mThreads.insert(inEvent.ThreadID);
    mTypes.push_back(static_cast<uint8_t>(inEvent.GetType()));
    mTimes.push_back(inEvent.TimeMs);
    mProcessIDs.push_back(inEvent.ProcessID);
    mThreadIDs.push_back(inEvent.ThreadID);
    return true;
}

const Utility::ByteBuffer& EventChunkBuilder::Build()
{
    mContent.Resize(mPayloadEnd);
    AppendArray(TypeArray, mTypes);
    AppendArray(TimeArray, mTimes);
    AppendArray(ProcessArray, mProcessIDs);
    AppendArray(ThreadArray, mThreadIDs);
    AppendArray(PayloadOffsetArray, mPayloadOffsets);
    return mContent;
}

template <class T>
void EventChunkBuilder::AppendArray(EEventArray inArray, const std::vector<T>& inValues)
{
    const uint64_t offset = mContent.GetSize();
    std::memcpy(mContent.GetData() + (1 + inArray) * sizeof(uint64_t), &offset, sizeof(offset));
    mContent.Append(inValues.data(), inValues.size() * sizeof(T));
}

void EventChunkBuilder::Clear()
{
    mContent.Clear();
    mContent.AppendValue(uint64_t{sEventChunkHeaderSize});
    for (size_t i = 0; i < sNumEventArrays; ++i)
        mContent.AppendValue(uint64_t{0});
    mPayloadEnd = mContent.GetSize();
    mTypes.clear();
    mTimes.clear();
    mProcessIDs.clear();
    mThreadIDs.clear();
    mPayloadOffsets.clear();
    mProcesses.clear();
    mThreads.clear();
}

bool EventChunkView::Open(const Utility::ByteBuffer& inContent, uint64_t inNumEvents)
{
    const uint64_t size = inContent.GetSize();
    if (size < sEventChunkHeaderSize)
        return false;
    Utility::ByteCursor header(inContent.GetData() + sizeof(uint64_t), sNumEventArrays * sizeof(uint64_t));
    for (size_t i = 0; i < sNumEventArrays; ++i)
    {
        mOffsets[i] = header.Read<uint64_t>();
        if (mOffsets[i] > size || inNumEvents > (size - mOffsets[i]) / sElementSizes[i])
            return false;
    }
    mNumEvents = inNumEvents;
    return true;
}

bool EventChunkView::Decode(const Utility::ByteBuffer& inContent, uint64_t inIndex, TraceEvent& outEvent) const
{
    const auto offset = Load<uint32_t>(inContent, PayloadOffsetArray, inIndex);
    if (offset > inContent.GetSize())
        return false;
    Utility::ByteCursor payload(inContent.GetData() + offset, inContent.GetSize() - offset);
    return gDecodeEvent(GetType(inContent, inIndex), GetTime(inContent, inIndex), Load<int32_t>(inContent, ProcessArray, inIndex),
                        Load<int32_t>(inContent, ThreadArray, inIndex), payload, outEvent);
}

} // namespace Profiler
