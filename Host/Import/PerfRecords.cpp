#include "Host/Import/PerfRecords.h"

#include <linux/perf_event.h>
#include <sys/mman.h>

#include <bit>

namespace Host
{
namespace
{

constexpr size_t sWord = sizeof(uint64_t);

// The bytes between a side-band record's header and its trailer, and where in it the text begins that ends it.
struct RecordBody
{
    const uint8_t* Data;
    size_t Size;
};

// False if the record is too short for its header, inFixedSize bytes and its trailer.
bool gGetBody(const PerfRecord& inRecord, size_t inFixedSize, RecordBody& outBody)
{
    const size_t around = sPerfRecordHeaderSize + inRecord.Event->Layout.TrailerSize;
    if (inRecord.Size < around + inFixedSize)
        return false;
    outBody = {inRecord.Data + sPerfRecordHeaderSize, inRecord.Size - around};
    return true;
}

// The text that begins inOffset bytes into the body and must end within it.
bool gGetText(const RecordBody& inBody, size_t inOffset, std::string_view& outText)
{
    const uint8_t* begin = inBody.Data + inOffset;
    const void* end = std::memchr(begin, 0, inBody.Size - inOffset);
    if (end == nullptr)
        return false;
    outText = {reinterpret_cast<const char*>(begin), static_cast<size_t>(static_cast<const uint8_t*>(end) - begin)};
    return true;
}

uint32_t gGetMode(const PerfRecord& inRecord)
{
    return inRecord.Misc & PERF_RECORD_MISC_CPUMODE_MASK;
}

// The part of a sample that follows the fields of fixed size.
class SampleTail
{
public:
    explicit SampleTail(const PerfRecord& inRecord)
        : mNext(inRecord.Data + inRecord.Event->Layout.FixedSize),
          mRemaining(inRecord.Size - inRecord.Event->Layout.FixedSize)
    {
    }

    [[nodiscard]] const uint8_t* GetNext() const { return mNext; }

    // False if fewer than inSize bytes are left.
    bool Pass(uint64_t inSize)
    {
        if (inSize > mRemaining)
            return false;
        mNext += inSize;
        mRemaining -= static_cast<size_t>(inSize);
        return true;
    }

    // Passes a count and that many entries, whose place it gives. The comparison can't overflow, whatever the count.
    bool PassCounted(uint64_t inEntrySize, const uint8_t*& outEntries, uint64_t& outCount)
    {
        const uint8_t* count = mNext;
        if (!Pass(sWord))
            return false;
        outCount = gLoad<uint64_t>(count);
        outEntries = mNext;
        return outCount <= mRemaining / inEntrySize && Pass(outCount * inEntrySize);
    }

private:
    const uint8_t* mNext;
    size_t mRemaining;
};

// Steps over the counter values of PERF_SAMPLE_READ.
bool gPassRead(uint64_t inReadFormat, SampleTail& ioTail)
{
    const uint64_t times = ((inReadFormat & PERF_FORMAT_TOTAL_TIME_ENABLED) != 0 ? 1u : 0u) +
                           ((inReadFormat & PERF_FORMAT_TOTAL_TIME_RUNNING) != 0 ? 1u : 0u);
    const uint64_t value =
        1u + ((inReadFormat & PERF_FORMAT_ID) != 0 ? 1u : 0u) + ((inReadFormat & PERF_FORMAT_LOST) != 0 ? 1u : 0u);
    if ((inReadFormat & PERF_FORMAT_GROUP) == 0)
        return ioTail.Pass((value + times) * sWord);

    // The count of a group is followed by its times, and only then by the values.
    const uint8_t* count = ioTail.GetNext();
    if (!ioTail.Pass(sWord + times * sWord))
        return false;
    const auto valueCount = gLoad<uint64_t>(count);
    return valueCount <= UINT16_MAX && ioTail.Pass(valueCount * value * sWord);
}

EPerfSkip gDecodeTail(const PerfRecord& inRecord, PerfSample& outSample)
{
    const PerfRecordLayout& layout = inRecord.Event->Layout;
    SampleTail tail(inRecord);
    if (layout.HasRead && !gPassRead(inRecord.Event->ReadFormat, tail))
        return EPerfSkip::ReadTooLong;

    outSample.Callchain = {};
    if (layout.HasCallchain)
    {
        const uint8_t* entries = nullptr;
        uint64_t count = 0;
        if (!tail.PassCounted(sWord, entries, count))
            return EPerfSkip::CallchainTooLong;
        outSample.Callchain = {entries, static_cast<uint32_t>(count)};
    }

    outSample.Raw = {};
    if (layout.HasRaw)
    {
        const uint8_t* size = tail.GetNext();
        if (!tail.Pass(sizeof(uint32_t)))
            return EPerfSkip::RawTooLong;
        const auto rawSize = gLoad<uint32_t>(size);
        const uint8_t* raw = tail.GetNext();
        if (!tail.Pass(rawSize))
            return EPerfSkip::RawTooLong;
        outSample.Raw = {raw, rawSize};
    }
    return EPerfSkip::None;
}

// The part that only MMAP2 has: which file is mapped, and how.
void gDecodeMmapFile(const PerfRecord& inRecord, const uint8_t* inData, PerfMmap& outMmap)
{
    constexpr size_t fileSize = 24;
    if ((inRecord.Misc & PERF_RECORD_MISC_MMAP_BUILD_ID) != 0)
    {
        constexpr size_t buildIDOffset = 4;
        constexpr size_t buildIDCapacity = fileSize - buildIDOffset;
        const size_t size = inData[0];
        if (size <= buildIDCapacity)
            outMmap.BuildID = {inData + buildIDOffset, size};
    }
    else
    {
        outMmap.DeviceMajor = gLoad<uint32_t>(inData);
        outMmap.DeviceMinor = gLoad<uint32_t>(inData + 4);
        outMmap.Inode = gLoad<uint64_t>(inData + 8);
        outMmap.InodeGeneration = gLoad<uint64_t>(inData + 16);
    }
    outMmap.Protection = gLoad<uint32_t>(inData + fileSize);
    outMmap.Flags = gLoad<uint32_t>(inData + fileSize + 4);
}

} // namespace

uint64_t gGetBytesBehind(const uint8_t* inRecord, size_t inSize)
{
    const auto type = gLoad<uint32_t>(inRecord);
    const uint8_t* content = inRecord + sPerfRecordHeaderSize;
    if (type == EPerfRecordType::AuxTrace && inSize >= sPerfRecordHeaderSize + sWord)
        return gLoad<uint64_t>(content);
    if (type == EPerfRecordType::TracingData && inSize >= sPerfRecordHeaderSize + sizeof(uint32_t))
        return (uint64_t{gLoad<uint32_t>(content)} + sWord - 1) / sWord * sWord;
    return 0;
}

EPerfSkip gDecodeSample(const PerfRecord& inRecord, PerfSample& outSample)
{
    const PerfEvent& event = *inRecord.Event;
    const PerfRecordLayout& layout = event.Layout;
    if (inRecord.Size < layout.FixedSize)
        return EPerfSkip::RecordTooShort;

    const uint8_t* data = inRecord.Data;
    outSample.Time = inRecord.Time;
    outSample.InstructionPointer = layout.InstructionPointer != 0 ? gLoad<uint64_t>(data + layout.InstructionPointer) : 0;
    outSample.Period =
        layout.Period != 0 ? gLoad<uint64_t>(data + layout.Period) : (event.IsFrequency ? 0 : event.PeriodOrFrequency);
    outSample.ID = layout.Identifier != 0 ? gLoad<uint64_t>(data + layout.Identifier) : 0;
    outSample.ProcessID = gLoad<int32_t>(data + layout.Thread);
    outSample.ThreadID = gLoad<int32_t>(data + layout.Thread + sizeof(int32_t));
    outSample.Cpu = layout.Cpu != 0 ? gLoad<int32_t>(data + layout.Cpu) : sNoCpu;
    const uint32_t mode = gGetMode(inRecord);
    outSample.IsKernel = mode == PERF_RECORD_MISC_KERNEL || mode == PERF_RECORD_MISC_GUEST_KERNEL;
    outSample.IsGuest = mode == PERF_RECORD_MISC_GUEST_KERNEL || mode == PERF_RECORD_MISC_GUEST_USER;
    return gDecodeTail(inRecord, outSample);
}

EPerfSkip gDecodeSampleID(const PerfRecord& inRecord, PerfSampleID& outID)
{
    const PerfRecordLayout& layout = inRecord.Event->Layout;
    if (inRecord.Size < sPerfRecordHeaderSize + layout.TrailerSize)
        return EPerfSkip::TrailerMissing;
    const uint8_t* end = inRecord.Data + inRecord.Size;
    outID.Time = inRecord.Time;
    outID.ID = layout.TrailerIdentifier != 0 ? gLoad<uint64_t>(end - layout.TrailerIdentifier) : 0;
    outID.ProcessID = gLoad<int32_t>(end - layout.TrailerThread);
    outID.ThreadID = gLoad<int32_t>(end - layout.TrailerThread + sizeof(int32_t));
    outID.Cpu = layout.TrailerCpu != 0 ? gLoad<int32_t>(end - layout.TrailerCpu) : sNoCpu;
    return EPerfSkip::None;
}

EPerfSkip gDecodeMmap(const PerfRecord& inRecord, PerfMmap& outMmap)
{
    constexpr size_t mmapTextOffset = 32;
    constexpr size_t mmap2TextOffset = mmapTextOffset + 32;
    const bool isMmap2 = inRecord.Type == EPerfRecordType::Mmap2;
    const size_t textOffset = isMmap2 ? mmap2TextOffset : mmapTextOffset;
    RecordBody body{};
    if (!gGetBody(inRecord, textOffset, body))
        return EPerfSkip::RecordTooShort;

    outMmap = {};
    if (!gGetText(body, textOffset, outMmap.Path))
        return EPerfSkip::TextUnterminated;
    outMmap.ProcessID = gLoad<int32_t>(body.Data);
    outMmap.ThreadID = gLoad<int32_t>(body.Data + 4);
    outMmap.Address = gLoad<uint64_t>(body.Data + 8);
    outMmap.Length = gLoad<uint64_t>(body.Data + 16);
    outMmap.FileOffset = gLoad<uint64_t>(body.Data + 24);
    outMmap.IsKernel = gGetMode(inRecord) == PERF_RECORD_MISC_KERNEL;
    outMmap.IsExecutable = (inRecord.Misc & PERF_RECORD_MISC_MMAP_DATA) == 0;
    if (isMmap2)
    {
        gDecodeMmapFile(inRecord, body.Data + mmapTextOffset, outMmap);
        // perf leaves the protection of mappings that it looked up itself at 0 in some versions; the flag above still holds then.
        if (outMmap.Protection != 0 && (outMmap.Protection & PROT_EXEC) == 0)
            outMmap.IsExecutable = false;
    }
    return EPerfSkip::None;
}

EPerfSkip gDecodeComm(const PerfRecord& inRecord, PerfComm& outComm)
{
    constexpr size_t textOffset = 8;
    RecordBody body{};
    if (!gGetBody(inRecord, textOffset, body))
        return EPerfSkip::RecordTooShort;
    if (!gGetText(body, textOffset, outComm.Name))
        return EPerfSkip::TextUnterminated;
    outComm.ProcessID = gLoad<int32_t>(body.Data);
    outComm.ThreadID = gLoad<int32_t>(body.Data + 4);
    outComm.IsExec = (inRecord.Misc & PERF_RECORD_MISC_COMM_EXEC) != 0;
    return EPerfSkip::None;
}

EPerfSkip gDecodeTask(const PerfRecord& inRecord, PerfTask& outTask)
{
    constexpr size_t taskSize = 24;
    RecordBody body{};
    if (!gGetBody(inRecord, taskSize, body))
        return EPerfSkip::RecordTooShort;
    outTask.ProcessID = gLoad<int32_t>(body.Data);
    outTask.ParentProcessID = gLoad<int32_t>(body.Data + 4);
    outTask.ThreadID = gLoad<int32_t>(body.Data + 8);
    outTask.ParentThreadID = gLoad<int32_t>(body.Data + 12);
    outTask.Time = gLoad<uint64_t>(body.Data + 16);
    return EPerfSkip::None;
}

EPerfSkip gDecodeLost(const PerfRecord& inRecord, PerfLost& outLost)
{
    // LOST has the id of a counter in front.
    const size_t countOffset = inRecord.Type == EPerfRecordType::Lost ? sWord : 0;
    RecordBody body{};
    if (!gGetBody(inRecord, countOffset + sWord, body))
        return EPerfSkip::RecordTooShort;
    outLost.Count = gLoad<uint64_t>(body.Data + countOffset);
    return EPerfSkip::None;
}

EPerfSkip gDecodeSwitch(const PerfRecord& inRecord, PerfSwitch& outSwitch)
{
    if (const EPerfSkip reason = gDecodeSampleID(inRecord, outSwitch.Self); reason != EPerfSkip::None)
        return reason;
    outSwitch.IsOut = (inRecord.Misc & PERF_RECORD_MISC_SWITCH_OUT) != 0;
    outSwitch.IsPreempted = outSwitch.IsOut && (inRecord.Misc & PERF_RECORD_MISC_SWITCH_OUT_PREEMPT) != 0;
    outSwitch.HasOther = inRecord.Type == EPerfRecordType::SwitchCpuWide;
    outSwitch.OtherProcessID = 0;
    outSwitch.OtherThreadID = 0;
    if (!outSwitch.HasOther)
        return EPerfSkip::None;

    RecordBody body{};
    if (!gGetBody(inRecord, sWord, body))
        return EPerfSkip::RecordTooShort;
    outSwitch.OtherProcessID = gLoad<int32_t>(body.Data);
    outSwitch.OtherThreadID = gLoad<int32_t>(body.Data + 4);
    return EPerfSkip::None;
}

} // namespace Host
