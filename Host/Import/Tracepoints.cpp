#include "Host/Import/Tracepoints.h"

#include "Host/Import/PerfRecords.h"
#include "Host/Import/TracingData.h"

#include <event-parse.h>

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <memory>

namespace Host
{
namespace
{

// What all tracepoints that are decoded belong to.
constexpr std::string_view sSystem = "sched";

struct TracepointName
{
    const char* Name;
    ETracepoint Kind;
};

constexpr TracepointName sTracepointNames[] = {{"sched_switch", ETracepoint::SchedSwitch},
                                               {"sched_wakeup", ETracepoint::SchedWakeup},
                                               {"sched_wakeup_new", ETracepoint::SchedWakeupNew},
                                               {"sched_waking", ETracepoint::SchedWaking},
                                               {"sched_process_exit", ETracepoint::SchedProcessExit}};

ETracepoint gFindKind(std::string_view inSystem, std::string_view inName)
{
    for (const TracepointName& tracepoint : sTracepointNames)
        if (inSystem == sSystem && inName == tracepoint.Name)
            return tracepoint.Kind;
    return ETracepoint::Other;
}

// By the name that perf gave the event: "sched:sched_switch", perhaps with modifiers behind another colon.
ETracepoint gFindKindByEventName(std::string_view inName)
{
    const size_t colon = inName.find(':');
    if (colon == std::string_view::npos)
        return ETracepoint::Other;
    const std::string_view name = inName.substr(colon + 1);
    return gFindKind(inName.substr(0, colon), name.substr(0, name.find(':')));
}

std::string_view gTrimText(const uint8_t* inData, size_t inSize)
{
    const auto* text = reinterpret_cast<const char*>(inData);
    return {text, strnlen(text, inSize)};
}

struct FreeParser
{
    void operator()(tep_handle* inParser) const { tep_free(inParser); }
};

} // namespace

// Finds the places of fields in format texts.
class TracepointFormatReader
{
public:
    explicit TracepointFormatReader(uint32_t inLongSize) : mParser(tep_alloc())
    {
        tep_set_loglevel(TEP_LOG_NONE);
        tep_set_file_bigendian(mParser.get(), TEP_LITTLE_ENDIAN);
        tep_set_local_bigendian(mParser.get(), TEP_LITTLE_ENDIAN);
        tep_set_long_size(mParser.get(), static_cast<int>(inLongSize));
    }

    // Null if the format is damaged.
    tep_event* Parse(const std::string& inSystem, const CleanFormat& inFormat)
    {
        if (tep_parse_event(mParser.get(), inFormat.Text.c_str(), inFormat.Text.size(), inSystem.c_str()) != TEP_ERRNO__SUCCESS)
            return nullptr;
        return tep_find_event_by_name(mParser.get(), inSystem.c_str(), inFormat.Name.c_str());
    }

    // Fills the fields that the kind needs. The format stays unknown if one is missing.
    static void Fill(tep_event& inEvent, ETracepoint inKind, Tracepoints::EventFormat& outFormat)
    {
        const bool isSwitch = inKind == ETracepoint::SchedSwitch;
        outFormat.CommonType = FindNumber(inEvent, "common_type");
        outFormat.Comm = FindText(inEvent, isSwitch ? "prev_comm" : "comm");
        outFormat.Thread = FindNumber(inEvent, isSwitch ? "prev_pid" : "pid");
        outFormat.TargetCpu = FindNumber(inEvent, "target_cpu");
        outFormat.IsKnown = outFormat.CommonType.Size != 0 && outFormat.Comm.Size != 0 && outFormat.Thread.Size != 0;
        if (!isSwitch)
            return;
        outFormat.State = FindNumber(inEvent, "prev_state");
        outFormat.NextComm = FindText(inEvent, "next_comm");
        outFormat.NextThread = FindNumber(inEvent, "next_pid");
        outFormat.IsKnown =
            outFormat.IsKnown && outFormat.State.Size != 0 && outFormat.NextComm.Size != 0 && outFormat.NextThread.Size != 0;
    }

private:
    static Tracepoints::Field FindField(tep_event& inEvent, const char* inName)
    {
        constexpr int maxOffset = 8192;
        constexpr int maxSize = 4096;
        const tep_format_field* field = tep_find_any_field(&inEvent, inName);
        if (field == nullptr || field->offset < 0 || field->offset > maxOffset || field->size <= 0 || field->size > maxSize)
            return {};
        return {static_cast<uint16_t>(field->offset), static_cast<uint16_t>(field->size),
                (field->flags & TEP_FIELD_IS_DYNAMIC) != 0, (field->flags & TEP_FIELD_IS_RELATIVE) != 0};
    }

    static Tracepoints::Field FindNumber(tep_event& inEvent, const char* inName)
    {
        const Tracepoints::Field field = FindField(inEvent, inName);
        const bool isNumber = !field.IsDynamic && (field.Size == 1 || field.Size == 2 || field.Size == 4 || field.Size == 8);
        return isNumber ? field : Tracepoints::Field{};
    }

    static Tracepoints::Field FindText(tep_event& inEvent, const char* inName)
    {
        const Tracepoints::Field field = FindField(inEvent, inName);
        return !field.IsDynamic || field.Size == sizeof(uint32_t) ? field : Tracepoints::Field{};
    }

    std::unique_ptr<tep_handle, FreeParser> mParser;
};

namespace
{

// Reads a number of 1, 2, 4 or 8 bytes. False if it doesn't lie within the raw data.
template <class Field>
bool gReadNumber(std::span<const uint8_t> inRaw, const Field& inField, uint64_t& outNumber)
{
    if (size_t{inField.Offset} + inField.Size > inRaw.size())
        return false;
    const uint8_t* data = inRaw.data() + inField.Offset;
    switch (inField.Size)
    {
    case sizeof(uint8_t):
        outNumber = *data;
        return true;
    case sizeof(uint16_t):
        outNumber = gLoad<uint16_t>(data);
        return true;
    case sizeof(uint32_t):
        outNumber = gLoad<uint32_t>(data);
        return true;
    default:
        outNumber = gLoad<uint64_t>(data);
        return true;
    }
}

template <class Field>
bool gReadThreadID(std::span<const uint8_t> inRaw, const Field& inField, int32_t& outThreadID)
{
    uint64_t number = 0;
    if (!gReadNumber(inRaw, inField, number))
        return false;
    outThreadID = static_cast<int32_t>(number);
    return true;
}

template <class Field>
bool gReadComm(std::span<const uint8_t> inRaw, const Field& inField, std::string_view& outText)
{
    const size_t fieldEnd = size_t{inField.Offset} + inField.Size;
    if (fieldEnd > inRaw.size())
        return false;
    if (!inField.IsDynamic)
    {
        outText = gTrimText(inRaw.data() + inField.Offset, inField.Size);
        return true;
    }
    // Place in the lower half, length in the upper one.
    constexpr uint32_t halfBits = 16;
    const auto location = gLoad<uint32_t>(inRaw.data() + inField.Offset);
    const size_t begin = (location & UINT16_MAX) + (inField.IsRelative ? fieldEnd : 0);
    const size_t length = location >> halfBits;
    if (begin > inRaw.size() || length > inRaw.size() - begin)
        return false;
    outText = gTrimText(inRaw.data() + begin, length);
    return true;
}

} // namespace

void Tracepoints::Load(const PerfFile& inFile, std::vector<std::string>& ioWarnings)
{
    mEvents.assign(inFile.GetEvents().size(), {});
    for (const PerfEvent& event : inFile.GetEvents())
    {
        if (event.Kind != EPerfEventKind::Tracepoint)
            continue;
        mEvents[event.Index].Kind = gFindKindByEventName(event.Name);
        mEvents[event.Index].ID = event.Config;
    }

    TracingData data;
    if (!inFile.GetTracingData().empty() && !gReadTracingData(inFile.GetTracingData(), data))
        ioWarnings.push_back(inFile.GetPath() + ": the stored formats of tracepoints are damaged");
    TracepointFormatReader reader(data.LongSize != 0 ? data.LongSize : sizeof(uint64_t));
    CleanFormat format;
    for (const TracepointText& text : data.Events)
        if (text.System == sSystem && gCleanFormat(text.Format, format))
            ApplyFormat(reader, format);

    for (const PerfEvent& event : inFile.GetEvents())
        if (mEvents[event.Index].Kind > ETracepoint::Other && !mEvents[event.Index].IsKnown)
            ioWarnings.push_back(Utility::gFormat("%s: the file doesn't tell the format of %s (id %" PRIu64
                                                  "); its events are skipped",
                                                  inFile.GetPath().c_str(), event.Name.c_str(), event.Config));
}

// The id decides which event a format belongs to: names can be given freely on perf's command line.
void Tracepoints::ApplyFormat(TracepointFormatReader& ioReader, const CleanFormat& inFormat)
{
    const ETracepoint kind = gFindKind(sSystem, inFormat.Name);
    for (EventFormat& event : mEvents)
    {
        if (event.Kind == ETracepoint::None || event.ID != inFormat.ID || event.IsKnown)
            continue;
        event.Kind = kind;
        if (kind == ETracepoint::Other)
            continue;
        if (tep_event* parsed = ioReader.Parse(std::string(sSystem), inFormat); parsed != nullptr)
            TracepointFormatReader::Fill(*parsed, kind, event);
    }
}

bool Tracepoints::Has(ETracepoint inKind) const
{
    return std::any_of(mEvents.begin(), mEvents.end(), [inKind](const EventFormat& inFormat) { return inFormat.Kind == inKind; });
}

bool Tracepoints::CanDecode(ETracepoint inKind) const
{
    return std::any_of(mEvents.begin(), mEvents.end(),
                       [inKind](const EventFormat& inFormat) { return inFormat.Kind == inKind && inFormat.IsKnown; });
}

EPerfSkip Tracepoints::CheckRaw(const EventFormat& inFormat, std::span<const uint8_t> inRaw) const
{
    if (!inFormat.IsKnown)
        return EPerfSkip::NoFormat;
    if (inRaw.empty())
        return EPerfSkip::NoRawData;
    uint64_t id = 0;
    if (!gReadNumber(inRaw, inFormat.CommonType, id))
        return EPerfSkip::FieldMissing;
    return id == inFormat.ID ? EPerfSkip::None : EPerfSkip::WrongTracepoint;
}

EPerfSkip Tracepoints::Decode(const PerfEvent& inEvent, std::span<const uint8_t> inRaw, SchedSwitch& outSwitch) const
{
    const EventFormat& format = mEvents[inEvent.Index];
    if (const EPerfSkip reason = CheckRaw(format, inRaw); reason != EPerfSkip::None)
        return reason;
    const bool isWhole = gReadComm(inRaw, format.Comm, outSwitch.PreviousComm) &&
                         gReadComm(inRaw, format.NextComm, outSwitch.NextComm) &&
                         gReadThreadID(inRaw, format.Thread, outSwitch.PreviousThreadID) &&
                         gReadThreadID(inRaw, format.NextThread, outSwitch.NextThreadID) &&
                         gReadNumber(inRaw, format.State, outSwitch.PreviousState);
    return isWhole ? EPerfSkip::None : EPerfSkip::FieldMissing;
}

EPerfSkip Tracepoints::Decode(const PerfEvent& inEvent, std::span<const uint8_t> inRaw, SchedWakeup& outWakeup) const
{
    const EventFormat& format = mEvents[inEvent.Index];
    if (const EPerfSkip reason = CheckRaw(format, inRaw); reason != EPerfSkip::None)
        return reason;
    outWakeup.TargetCpu = sNoCpu;
    const bool isWhole = gReadComm(inRaw, format.Comm, outWakeup.Comm) &&
                         gReadThreadID(inRaw, format.Thread, outWakeup.ThreadID) &&
                         (format.TargetCpu.Size == 0 || gReadThreadID(inRaw, format.TargetCpu, outWakeup.TargetCpu));
    return isWhole ? EPerfSkip::None : EPerfSkip::FieldMissing;
}

EPerfSkip Tracepoints::Decode(const PerfEvent& inEvent, std::span<const uint8_t> inRaw, SchedProcessExit& outExit) const
{
    const EventFormat& format = mEvents[inEvent.Index];
    if (const EPerfSkip reason = CheckRaw(format, inRaw); reason != EPerfSkip::None)
        return reason;
    const bool isWhole = gReadComm(inRaw, format.Comm, outExit.Comm) && gReadThreadID(inRaw, format.Thread, outExit.ThreadID);
    return isWhole ? EPerfSkip::None : EPerfSkip::FieldMissing;
}

} // namespace Host
