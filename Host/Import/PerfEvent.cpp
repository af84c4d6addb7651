#include "Host/Import/PerfEvent.h"

#include <linux/perf_event.h>

namespace Host
{
namespace
{

constexpr uint8_t sFieldSize = sizeof(uint64_t);

// Gives out the places of fields one after the other, in the order in which a sample keeps them.
class SampleFields
{
public:
    explicit SampleFields(uint64_t inSampleType) : mSampleType(inSampleType) {}

    // Place of the field behind the earlier ones; 0 if it isn't recorded.
    uint8_t Next(uint64_t inBit)
    {
        if ((mSampleType & inBit) == 0)
            return 0;
        const uint8_t offset = mEnd;
        mEnd = static_cast<uint8_t>(mEnd + sFieldSize);
        return offset;
    }

    [[nodiscard]] uint8_t GetEnd() const { return mEnd; }

private:
    uint64_t mSampleType;
    uint8_t mEnd = sPerfRecordHeaderSize;
};

// The same for a trailer, from its end to its front.
class TrailerFields
{
public:
    explicit TrailerFields(uint64_t inSampleType) : mSampleType(inSampleType) {}

    uint8_t Previous(uint64_t inBit)
    {
        if ((mSampleType & inBit) == 0)
            return 0;
        mSize = static_cast<uint8_t>(mSize + sFieldSize);
        return mSize;
    }

    [[nodiscard]] uint8_t GetSize() const { return mSize; }

private:
    uint64_t mSampleType;
    uint8_t mSize = 0;
};

} // namespace

PerfRecordLayout gComputeLayout(uint64_t inSampleType)
{
    PerfRecordLayout layout;
    SampleFields fields(inSampleType);
    layout.Identifier = fields.Next(PERF_SAMPLE_IDENTIFIER);
    layout.InstructionPointer = fields.Next(PERF_SAMPLE_IP);
    layout.Thread = fields.Next(PERF_SAMPLE_TID);
    layout.Time = fields.Next(PERF_SAMPLE_TIME);
    fields.Next(PERF_SAMPLE_ADDR);
    const uint8_t id = fields.Next(PERF_SAMPLE_ID);
    fields.Next(PERF_SAMPLE_STREAM_ID);
    layout.Cpu = fields.Next(PERF_SAMPLE_CPU);
    layout.Period = fields.Next(PERF_SAMPLE_PERIOD);
    layout.FixedSize = fields.GetEnd();
    if (layout.Identifier == 0)
        layout.Identifier = id;

    TrailerFields trailer(inSampleType);
    layout.TrailerIdentifier = trailer.Previous(PERF_SAMPLE_IDENTIFIER);
    layout.TrailerCpu = trailer.Previous(PERF_SAMPLE_CPU);
    trailer.Previous(PERF_SAMPLE_STREAM_ID);
    const uint8_t trailerID = trailer.Previous(PERF_SAMPLE_ID);
    layout.TrailerTime = trailer.Previous(PERF_SAMPLE_TIME);
    layout.TrailerThread = trailer.Previous(PERF_SAMPLE_TID);
    layout.TrailerSize = trailer.GetSize();
    if (layout.TrailerIdentifier == 0)
        layout.TrailerIdentifier = trailerID;

    layout.HasRead = (inSampleType & PERF_SAMPLE_READ) != 0;
    layout.HasCallchain = (inSampleType & PERF_SAMPLE_CALLCHAIN) != 0;
    layout.HasRaw = (inSampleType & PERF_SAMPLE_RAW) != 0;
    return layout;
}

} // namespace Host
