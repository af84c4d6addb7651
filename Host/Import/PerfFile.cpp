#include "Host/Import/PerfFile.h"

#include "Host/Import/MappedBytes.h"
#include "Host/Import/PerfDecompressor.h"
#include "Host/Import/PerfFeatures.h"
#include "Host/Import/PerfFormat.h"
#include "Host/Import/PerfRecords.h"

#include <linux/perf_event.h>

#include <algorithm>
#include <bit>
#include <cinttypes>
#include <iterator>

namespace Host
{
namespace
{

constexpr uint64_t sMinAttributeEntrySize = PERF_ATTR_SIZE_VER0 + sizeof(PerfFileSection);
constexpr uint64_t sMaxAttributeEntrySize = 4096;

constexpr const char* sHardwareNames[] = {
    "cycles",        "instructions", "cache-references",        "cache-misses",           "branches",
    "branch-misses", "bus-cycles",   "stalled-cycles-frontend", "stalled-cycles-backend", "ref-cycles"};
constexpr const char* sSoftwareNames[] = {"cpu-clock",        "task-clock",   "page-faults",  "context-switches",
                                          "cpu-migrations",   "minor-faults", "major-faults", "alignment-faults",
                                          "emulation-faults", "dummy",        "bpf-output",   "cgroup-switches"};

std::string gMakeName(uint32_t inType, uint64_t inConfig)
{
    if (inType == PERF_TYPE_HARDWARE && inConfig < std::size(sHardwareNames))
        return sHardwareNames[inConfig];
    if (inType == PERF_TYPE_SOFTWARE && inConfig < std::size(sSoftwareNames))
        return sSoftwareNames[inConfig];
    if (inType == PERF_TYPE_TRACEPOINT)
        return Utility::gFormat("tracepoint %" PRIu64, inConfig);
    return Utility::gFormat("event type %u config 0x%" PRIx64, inType, inConfig);
}

// By the name that perf was told, "cycles:u" or "cpu_core/cycles/".
bool gNamesCycles(std::string_view inName)
{
    constexpr std::string_view cycles[] = {"cycles", "cpu-cycles", "cpu_cycles", "ref-cycles", "cpu_clk_unhalted"};
    const size_t slash = inName.find('/');
    const std::string_view event = slash != std::string_view::npos ? inName.substr(slash + 1) : inName;
    return std::any_of(std::begin(cycles), std::end(cycles),
                       [event](std::string_view inCycles) { return event.starts_with(inCycles); });
}

// Cache misses, branches and the like happen where they happen: how many there are says nothing about the time spent.
EPerfEventKind gClassify(const PerfEvent& inEvent)
{
    constexpr uint64_t hardwareEvent = 0xFFFFFFFF; // above: the kind of core, where there are several
    const uint64_t hardware = inEvent.Config & hardwareEvent;
    switch (inEvent.Type)
    {
    case PERF_TYPE_HARDWARE:
        return hardware == PERF_COUNT_HW_CPU_CYCLES || hardware == PERF_COUNT_HW_REF_CPU_CYCLES ? EPerfEventKind::Hardware
                                                                                                : EPerfEventKind::Other;
    case PERF_TYPE_TRACEPOINT:
        return EPerfEventKind::Tracepoint;
    case PERF_TYPE_SOFTWARE:
        if (inEvent.Config == PERF_COUNT_SW_CPU_CLOCK || inEvent.Config == PERF_COUNT_SW_TASK_CLOCK)
            return EPerfEventKind::Clock;
        return inEvent.Config == PERF_COUNT_SW_DUMMY ? EPerfEventKind::Dummy : EPerfEventKind::Other;
    default:
        // Only the name tells what is counted, also by a particular kind of core, which has a type of its own.
        return gNamesCycles(inEvent.Name) ? EPerfEventKind::Hardware : EPerfEventKind::Other;
    }
}

// True for counters of the processor, whatever they count.
bool gIsCounter(const PerfEvent& inEvent)
{
    return inEvent.Type != PERF_TYPE_SOFTWARE && inEvent.Type != PERF_TYPE_TRACEPOINT && inEvent.Type != PERF_TYPE_BREAKPOINT;
}

} // namespace

// Reads the parts of a file in the order in which they depend on each other. Lives only as long as PerfFile::Open.
class PerfFileReader
{
public:
    PerfFileReader(PerfFile& ioFile, std::span<const uint8_t> inImage, Utility::ErrorState& ioErrors)
        : mFile(ioFile),
          mImage(inImage),
          mErrors(ioErrors)
    {
    }

    [[nodiscard]] bool Read()
    {
        if (!ReadHeader() || !ReadAttributes() || !CheckFields() || !FindIdentifiers() || !BuildIDTable() || !LocateRecords() ||
            !ReadFeatures())
            return false;
        ClassifyEvents();
        return Decompress();
    }

private:
    // One line with file and offset; always false.
    bool Refuse(uint64_t inOffset, const std::string& inReason)
    {
        mErrors.AddError(0, Utility::gFormat("%s, offset %" PRIu64 ": %s", mFile.mPath.c_str(), inOffset, inReason.c_str()));
        return false;
    }

    void Warn(uint64_t inOffset, const std::string& inReason)
    {
        mFile.mWarnings.push_back(
            Utility::gFormat("%s, offset %" PRIu64 ": %s", mFile.mPath.c_str(), inOffset, inReason.c_str()));
    }

    [[nodiscard]] bool IsInside(const PerfFileSection& inSection) const
    {
        return inSection.Offset <= mImage.size() && inSection.Size <= mImage.size() - inSection.Offset;
    }

    [[nodiscard]] std::span<const uint8_t> GetSection(const PerfFileSection& inSection) const
    {
        return mImage.subspan(inSection.Offset, inSection.Size);
    }

    [[nodiscard]] bool HasFeature(uint32_t inFeature) const
    {
        constexpr uint32_t bitsPerWord = 64;
        return (mHeader.Features[inFeature / bitsPerWord] >> (inFeature % bitsPerWord) & 1) != 0;
    }

    [[nodiscard]] bool ReadHeader();
    [[nodiscard]] bool CheckMagic();
    [[nodiscard]] bool ReadAttributes();
    [[nodiscard]] bool ReadAttribute(uint64_t inOffset);
    [[nodiscard]] bool ReadIDs(const PerfFileSection& inSection, uint64_t inOffset, PerfEvent& outEvent);
    [[nodiscard]] bool CheckFields();
    [[nodiscard]] bool FindIdentifiers();
    [[nodiscard]] bool BuildIDTable();
    [[nodiscard]] bool LocateRecords();
    [[nodiscard]] bool ReadFeatures();
    [[nodiscard]] bool ReadFeature(uint32_t inFeature, const PerfFileSection& inSection);
    void NameEvents();
    void ClassifyEvents();
    [[nodiscard]] bool Decompress();

    // Offset of an event's entry among the attributes.
    [[nodiscard]] uint64_t GetAttributeOffset(const PerfEvent& inEvent) const
    {
        return mHeader.Attributes.Offset + inEvent.Index * mHeader.AttributeSize;
    }

    PerfFile& mFile;
    std::span<const uint8_t> mImage;
    Utility::ErrorState& mErrors;
    PerfFileHeader mHeader;
    uint64_t mIDBytes = 0;
    bool mKnowsFeatures = false;
    std::vector<PerfEventDescription> mDescriptions;
};

bool PerfFileReader::CheckMagic()
{
    const uint64_t magic = mImage.size() >= sizeof(uint64_t) ? gLoad<uint64_t>(mImage.data()) : 0;
    if (magic == sPerfMagicOtherEndian)
        return Refuse(0, "recorded on a big-endian machine, which isn't supported");
    if (magic == sPerfMagicOld)
        return Refuse(0, "written by a version of perf older than this format; record it with a newer one");
    if (magic != sPerfMagic)
        return Refuse(0, "not a perf.data file");
    return true;
}

bool PerfFileReader::ReadHeader()
{
    if (!CheckMagic())
        return false;
    std::memcpy(&mHeader, mImage.data(), std::min(mImage.size(), sizeof(mHeader)));
    if (mHeader.Size == sPerfPipeHeaderSize)
        return Refuse(sizeof(uint64_t), "recorded into a pipe: record to a file with `perf record -o FILE`, or convert it with "
                                        "`perf inject -i FILE -o NEW`");
    if (mImage.size() < sizeof(mHeader))
        return Refuse(mImage.size(), "the file ends within its header");
    if (mHeader.Size < sizeof(mHeader))
        return Refuse(sizeof(uint64_t), Utility::gFormat("a header of %" PRIu64 " bytes is too small", mHeader.Size));
    return true;
}

bool PerfFileReader::ReadAttributes()
{
    const uint64_t entrySize = mHeader.AttributeSize;
    if (entrySize < sMinAttributeEntrySize || entrySize > sMaxAttributeEntrySize)
        return Refuse(2 * sizeof(uint64_t), Utility::gFormat("attributes of %" PRIu64 " bytes are impossible", entrySize));
    const PerfFileSection& section = mHeader.Attributes;
    if (!IsInside(section))
        return Refuse(section.Offset, "the attributes lie beyond the end of the file");
    if (section.Size == 0 || section.Size % entrySize != 0)
        return Refuse(section.Offset,
                      Utility::gFormat("%" PRIu64 " bytes of attributes hold no whole number of them", section.Size));
    for (uint64_t offset = section.Offset; offset != section.Offset + section.Size; offset += entrySize)
        if (!ReadAttribute(offset))
            return false;
    return true;
}

bool PerfFileReader::ReadAttribute(uint64_t inOffset)
{
    perf_event_attr attribute = {};
    const uint64_t attributeSize = mHeader.AttributeSize - sizeof(PerfFileSection);
    std::memcpy(&attribute, mImage.data() + inOffset, std::min<uint64_t>(attributeSize, sizeof(attribute)));

    PerfEvent event;
    event.Index = static_cast<uint32_t>(mFile.mEvents.size());
    event.Type = attribute.type;
    event.Config = attribute.config;
    event.SampleType = attribute.sample_type;
    event.ReadFormat = attribute.read_format;
    event.PeriodOrFrequency = attribute.sample_period;
    event.IsFrequency = attribute.freq != 0;
    event.IsInherited = attribute.inherit != 0;
    event.IsEnabledOnExec = attribute.enable_on_exec != 0;
    event.HasContextSwitch = attribute.context_switch != 0;
    event.HasSampleIDAll = attribute.sample_id_all != 0;
    event.ExcludesKernel = attribute.exclude_kernel != 0;
    event.ExcludesUser = attribute.exclude_user != 0;
    event.HasBuildIDInMmap = attribute.build_id != 0;
    event.Name = gMakeName(event.Type, event.Config);
    event.Layout = gComputeLayout(event.SampleType);

    PerfFileSection ids;
    std::memcpy(&ids, mImage.data() + inOffset + attributeSize, sizeof(ids));
    if (!ReadIDs(ids, inOffset, event))
        return false;
    mFile.mEvents.push_back(std::move(event));
    return true;
}

bool PerfFileReader::ReadIDs(const PerfFileSection& inSection, uint64_t inOffset, PerfEvent& outEvent)
{
    if (!IsInside(inSection) || inSection.Size % sizeof(uint64_t) != 0)
        return Refuse(inOffset,
                      Utility::gFormat("the ids of attribute %u (%" PRIu64 " bytes at %" PRIu64 ") don't lie within the file",
                                       outEvent.Index, inSection.Size, inSection.Offset));
    // Sections may overlap in a damaged file; what is taken in all stays below the file's size.
    mIDBytes += inSection.Size;
    if (mIDBytes > mImage.size())
        return Refuse(inOffset, "the attributes claim more ids than the file can hold");
    outEvent.IDs.resize(inSection.Size / sizeof(uint64_t));
    if (!outEvent.IDs.empty())
        std::memcpy(outEvent.IDs.data(), mImage.data() + inSection.Offset, inSection.Size);
    return true;
}

// Records without time or thread can't be put in their place.
bool PerfFileReader::CheckFields()
{
    for (const PerfEvent& event : mFile.mEvents)
    {
        const uint64_t offset = GetAttributeOffset(event);
        if (event.Layout.Time == 0)
            return Refuse(
                offset, Utility::gFormat("the samples of event %u (%s) have no time; record them with `perf record --timestamp`",
                                         event.Index, event.Name.c_str()));
        if (event.Layout.Thread == 0)
            return Refuse(offset,
                          Utility::gFormat("the samples of event %u (%s) don't tell their thread; record with `perf record "
                                           "--timestamp`, which adds it",
                                           event.Index, event.Name.c_str()));
        if (!event.HasSampleIDAll)
            return Refuse(
                offset, Utility::gFormat("event %u (%s) was recorded without the time of processes and mappings (sample_id_all); "
                                         "record again with a kernel and a perf that have it, as all since Linux 2.6.38 do",
                                         event.Index, event.Name.c_str()));
    }
    return true;
}

// With several events, each record must tell its own, at a place that is the same for all.
bool PerfFileReader::FindIdentifiers()
{
    const std::vector<PerfEvent>& events = mFile.mEvents;
    if (events.size() == 1)
        return true;
    const PerfRecordLayout& first = events.front().Layout;
    for (const PerfEvent& event : events)
    {
        if (event.Layout.Identifier == 0 || event.Layout.Identifier != first.Identifier ||
            event.Layout.TrailerIdentifier != first.TrailerIdentifier)
            return Refuse(GetAttributeOffset(event),
                          Utility::gFormat("the samples of event %u (%s) can't be told from those of the others; "
                                           "record with `perf record --sample-identifier`",
                                           event.Index, event.Name.c_str()));
    }
    mFile.mSampleIDOffset = first.Identifier;
    mFile.mTrailerIDOffset = first.TrailerIdentifier;
    return true;
}

bool PerfFileReader::BuildIDTable()
{
    std::vector<PerfEvent>& events = mFile.mEvents;
    if (events.size() == 1)
        return true;
    size_t idCount = 0;
    for (const PerfEvent& event : events)
        idCount += event.IDs.size();
    // Half of the entries stay free, so that a search for an unknown id ends.
    mFile.mIDTable.assign(std::bit_ceil(2 * idCount + 2), {0, PerfFile::sNoEvent});
    mFile.mIDMask = mFile.mIDTable.size() - 1;
    for (const PerfEvent& event : events)
    {
        for (const uint64_t id : event.IDs)
        {
            uint64_t slot = PerfFile::HashID(id) & mFile.mIDMask;
            while (mFile.mIDTable[slot].Index != PerfFile::sNoEvent && mFile.mIDTable[slot].ID != id)
                slot = (slot + 1) & mFile.mIDMask;
            if (mFile.mIDTable[slot].Index != PerfFile::sNoEvent && mFile.mIDTable[slot].Index != event.Index)
                return Refuse(GetAttributeOffset(event), Utility::gFormat("events %u and %u share the id %" PRIu64,
                                                                          mFile.mIDTable[slot].Index, event.Index, id));
            mFile.mIDTable[slot] = {id, event.Index};
        }
    }
    return true;
}

bool PerfFileReader::LocateRecords()
{
    PerfFileSection& data = mHeader.Data;
    if (data.Offset < mHeader.Size || data.Offset > mImage.size())
        return Refuse(data.Offset, "the records lie outside the file");
    const uint64_t available = mImage.size() - data.Offset;
    if (data.Size == 0)
    {
        constexpr const char* reason = "the size of the data is 0: perf record was interrupted before it could finish the file";
        if (available == 0)
            return Refuse(data.Offset, std::string(reason) + ", and it holds no records");
        Warn(data.Offset, std::string(reason) + "; names of events and formats of tracepoints are missing");
        data.Size = available;
        mFile.mTruncationReason = reason;
    }
    else if (data.Size > available)
    {
        mFile.mMissingBytes = data.Size - available;
        mFile.mTruncationReason = Utility::gFormat(
            "the file lacks the last %" PRIu64 " bytes of its records and all that follows them", mFile.mMissingBytes);
        Warn(mImage.size(), mFile.mTruncationReason);
        data.Size = available;
    }
    else
        mKnowsFeatures = true;
    mFile.mRecordsOffset = data.Offset;
    mFile.mRecords = GetSection(data);
    return true;
}

bool PerfFileReader::ReadFeatures()
{
    if (!mKnowsFeatures)
        return true;
    uint64_t entryOffset = mHeader.Data.Offset + mHeader.Data.Size;
    for (uint32_t feature = 0; feature != EPerfFeature::Count; ++feature)
    {
        if (!HasFeature(feature))
            continue;
        PerfFileSection section;
        if (mImage.size() - entryOffset < sizeof(section))
        {
            Warn(entryOffset, "the list of feature sections is cut off; what they tell is missing");
            mKnowsFeatures = false;
            break;
        }
        std::memcpy(&section, mImage.data() + entryOffset, sizeof(section));
        if (!IsInside(section))
            Warn(entryOffset, Utility::gFormat("feature section %u lies beyond the end of the file", feature));
        else if (feature == EPerfFeature::DirectoryFormat)
            return Refuse(entryOffset, "a part of a capture in several files; record without `perf record --threads`");
        else if (!ReadFeature(feature, section))
            Warn(section.Offset, Utility::gFormat("feature section %u is damaged", feature));
        entryOffset += sizeof(section);
    }
    NameEvents();
    return true;
}

bool PerfFileReader::ReadFeature(uint32_t inFeature, const PerfFileSection& inSection)
{
    const std::span<const uint8_t> bytes = GetSection(inSection);
    PerfMachine& machine = mFile.mMachine;
    switch (inFeature)
    {
    case EPerfFeature::TracingData:
        mFile.mTracingData = bytes;
        return true;
    case EPerfFeature::BuildID:
        return gReadBuildIDs(bytes, mFile.mBuildIDs);
    case EPerfFeature::HostName:
        return gReadTextFeature(bytes, machine.HostName);
    case EPerfFeature::KernelRelease:
        return gReadTextFeature(bytes, machine.KernelRelease);
    case EPerfFeature::PerfVersion:
        return gReadTextFeature(bytes, machine.PerfVersion);
    case EPerfFeature::Architecture:
        return gReadTextFeature(bytes, machine.Architecture);
    case EPerfFeature::CpuDescription:
        return gReadTextFeature(bytes, machine.CpuDescription);
    case EPerfFeature::CpuCount:
        return gReadCpuCount(bytes, machine);
    case EPerfFeature::TotalMemory:
        return gReadTotalMemory(bytes, machine);
    case EPerfFeature::CommandLine:
        return gReadCommandLine(bytes, machine.CommandLine);
    case EPerfFeature::EventDescription:
        return gReadEventDescriptions(bytes, mDescriptions);
    default:
        return true;
    }
}

// A description belongs to the event with the same ids; where there are none, to the one at the same place.
void PerfFileReader::NameEvents()
{
    std::vector<PerfEvent>& events = mFile.mEvents;
    for (size_t i = 0; i != mDescriptions.size(); ++i)
    {
        PerfEventDescription& description = mDescriptions[i];
        const auto hasSameIDs = [&description](const PerfEvent& inEvent) { return inEvent.IDs == description.IDs; };
        const auto found = description.IDs.empty() ? events.end() : std::find_if(events.begin(), events.end(), hasSameIDs);
        if (found != events.end())
            found->Name = std::move(description.Name);
        else if (i < events.size() && events.size() == mDescriptions.size())
            events[i].Name = std::move(description.Name);
    }
}

// A capture without clock and cycles isn't left empty if there is one counter that can stand in for them.
void PerfFileReader::ClassifyEvents()
{
    PerfEvent* counter = nullptr;
    size_t numCounters = 0;
    bool hasExecutionSamples = false;
    for (PerfEvent& event : mFile.mEvents)
    {
        event.Kind = gClassify(event);
        hasExecutionSamples |= event.IsExecutionSample();
        if (event.PeriodOrFrequency == 0 || !gIsCounter(event))
            continue;
        counter = &event;
        ++numCounters;
    }
    if (hasExecutionSamples || numCounters != 1)
        return;
    counter->Kind = EPerfEventKind::Hardware;
    Warn(GetAttributeOffset(*counter),
         Utility::gFormat("neither a clock nor cycles were recorded; the samples of %s stand in for them, which show where that "
                          "happened, not where time was spent",
                          counter->Name.c_str()));
}

bool PerfFileReader::Decompress()
{
    // Where perf didn't come to write which features there are, only the records themselves can tell.
    mFile.mIsCompressed = HasFeature(EPerfFeature::Compressed) || (!mKnowsFeatures && gHasCompressedRecords(mFile.mRecords));
    if (!mFile.mIsCompressed)
        return true;
    PerfDecompressed result;
    if (!gDecompressRecords(mFile.mRecords, mFile.mRecordsOffset, mFile.mPath, result, mErrors))
        return false;
    mFile.mDecompressed = std::move(result.Records);
    mFile.mRecords = mFile.mDecompressed->GetBytes();
    mFile.mRecordsOffset = 0;
    if (!result.StopReason.empty())
    {
        mFile.mWarnings.push_back(mFile.mPath + ": " + result.StopReason);
        mFile.mTruncationReason = result.StopReason;
        mFile.mMissingBytes += result.UnreadBytes;
    }
    return true;
}

PerfFile::PerfFile() = default;
PerfFile::~PerfFile() = default;

bool PerfFile::Open(const std::string& inPath, Utility::ErrorState& ioErrors)
{
    mMapping = MappedBytes::MapFile(inPath, ioErrors);
    return mMapping != nullptr && OpenImage(mMapping->GetBytes(), inPath, ioErrors);
}

void PerfFile::ReleasePages() const
{
    for (const MappedBytes* bytes : {mMapping.get(), mDecompressed.get()})
    {
        if (bytes != nullptr)
            bytes->ReleasePages();
    }
}

bool PerfFile::OpenImage(std::span<const uint8_t> inImage, const std::string& inName, Utility::ErrorState& ioErrors)
{
    mPath = inName;
    return PerfFileReader(*this, inImage, ioErrors).Read();
}

} // namespace Host
