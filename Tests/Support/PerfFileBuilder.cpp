#include "Tests/Support/PerfFileBuilder.h"

#include "Host/Import/PerfFormat.h"
#include "Host/Import/PerfRecords.h"
#include "Tests/Support/ByteWriter.h"

#include <gtest/gtest.h>
#include <linux/perf_event.h>
#include <zstd.h>

#include <algorithm>
#include <map>
#include <sstream>

namespace Host
{
namespace
{

constexpr uint64_t sClockSample =
    PERF_SAMPLE_IDENTIFIER | PERF_SAMPLE_IP | PERF_SAMPLE_TID | PERF_SAMPLE_TIME | PERF_SAMPLE_CALLCHAIN | PERF_SAMPLE_CPU;
constexpr uint64_t sTracepointSample = sClockSample | PERF_SAMPLE_PERIOD | PERF_SAMPLE_RAW;
constexpr uint64_t sFirstTracepointID = 370;
constexpr uint64_t sFirstCounterID = 20;
constexpr uint64_t sProcessors = 2;

uint64_t gGetCounterID(const BuilderEvent& inEvent, uint32_t inCpu)
{
    return inEvent.IDs.empty() ? 0 : inEvent.IDs[inCpu % inEvent.IDs.size()];
}

void gAddHeader(ByteWriter& ioWriter, uint32_t inType, uint16_t inMisc, size_t inBodySize)
{
    const size_t size = sPerfRecordHeaderSize + inBodySize;
    ASSERT_LE(size, UINT16_MAX) << "record too large";
    ioWriter.Add(inType).Add(inMisc).Add(static_cast<uint16_t>(size));
}

void gAddTrailer(ByteWriter& ioBody, const BuilderEvent& inEvent, const BuilderSample& inTrailer)
{
    const uint64_t id = inTrailer.Time == 0 ? 0 : gGetCounterID(inEvent, inTrailer.Cpu);
    if ((inEvent.SampleType & PERF_SAMPLE_TID) != 0)
        ioBody.Add(inTrailer.ProcessID).Add(inTrailer.ThreadID);
    if ((inEvent.SampleType & PERF_SAMPLE_TIME) != 0)
        ioBody.Add(inTrailer.Time);
    if ((inEvent.SampleType & PERF_SAMPLE_ID) != 0)
        ioBody.Add(id);
    if ((inEvent.SampleType & PERF_SAMPLE_STREAM_ID) != 0)
        ioBody.Add(uint64_t{0});
    if ((inEvent.SampleType & PERF_SAMPLE_CPU) != 0)
        ioBody.Add(inTrailer.Cpu).Add(uint32_t{0});
    if ((inEvent.SampleType & PERF_SAMPLE_IDENTIFIER) != 0)
        ioBody.Add(id);
}

// Counter values as PERF_SAMPLE_READ stores them; a group holds two.
void gAddRead(ByteWriter& ioBody, uint64_t inReadFormat)
{
    constexpr uint64_t groupSize = 2;
    const bool isGroup = (inReadFormat & PERF_FORMAT_GROUP) != 0;
    ioBody.Add(isGroup ? groupSize : uint64_t{1});
    for (const uint64_t time : {PERF_FORMAT_TOTAL_TIME_ENABLED, PERF_FORMAT_TOTAL_TIME_RUNNING})
        if ((inReadFormat & time) != 0)
            ioBody.Add(uint64_t{1});
    for (uint64_t i = 0; isGroup && i != groupSize; ++i)
        ioBody.Add(i);
    for (uint64_t i = 0; i != (isGroup ? groupSize : 1); ++i)
        for (const uint64_t field : {PERF_FORMAT_ID, PERF_FORMAT_LOST})
            if ((inReadFormat & field) != 0)
                ioBody.Add(uint64_t{7});
}

void gAddSampleBody(ByteWriter& ioBody, const BuilderEvent& inEvent, const BuilderSample& inSample)
{
    const auto has = [&inEvent](uint64_t inBit) { return (inEvent.SampleType & inBit) != 0; };
    const uint64_t id = gGetCounterID(inEvent, inSample.Cpu);
    if (has(PERF_SAMPLE_IDENTIFIER))
        ioBody.Add(id);
    if (has(PERF_SAMPLE_IP))
        ioBody.Add(inSample.InstructionPointer);
    if (has(PERF_SAMPLE_TID))
        ioBody.Add(inSample.ProcessID).Add(inSample.ThreadID);
    if (has(PERF_SAMPLE_TIME))
        ioBody.Add(inSample.Time);
    if (has(PERF_SAMPLE_ADDR))
        ioBody.Add(uint64_t{0xADD});
    if (has(PERF_SAMPLE_ID))
        ioBody.Add(id);
    if (has(PERF_SAMPLE_STREAM_ID))
        ioBody.Add(uint64_t{0x57});
    if (has(PERF_SAMPLE_CPU))
        ioBody.Add(inSample.Cpu).Add(uint32_t{0});
    if (has(PERF_SAMPLE_PERIOD))
        ioBody.Add(inEvent.Period);
    if (has(PERF_SAMPLE_READ))
        gAddRead(ioBody, inEvent.ReadFormat);
    if (has(PERF_SAMPLE_CALLCHAIN))
        ioBody.Add(static_cast<uint64_t>(inSample.Callchain.size()));
    if (has(PERF_SAMPLE_CALLCHAIN))
        for (const uint64_t frame : inSample.Callchain)
            ioBody.Add(frame);
    if (has(PERF_SAMPLE_RAW))
        ioBody.Add(static_cast<uint32_t>(inSample.Raw.size())).AddBytes(inSample.Raw);
}

// One line of AddRecords, word by word.
class RecordLine
{
public:
    RecordLine(PerfFileBuilder& ioBuilder, const std::string& inLine) : mBuilder(ioBuilder), mWords(inLine) {}

    // False if the line can't be read.
    bool Add()
    {
        std::string word;
        mWords >> word;
        if (word == "round")
        {
            mBuilder.AddRound();
            return true;
        }
        mSample.Time = std::stoull(word);
        mWords >> mKind;
        if (mKind.starts_with("cpu"))
        {
            mSample.Cpu = static_cast<uint32_t>(std::stoul(mKind.substr(3)));
            mWords >> mKind;
        }
        if (mKind != "lost")
            ReadThread(mSample.ProcessID, mSample.ThreadID);
        return (AddSample() || AddSideBand()) && !mWords.fail();
    }

private:
    void ReadThread(int32_t& outProcess, int32_t& outThread)
    {
        char slash = 0;
        mWords >> outProcess >> slash >> outThread;
    }

    std::string ReadWord()
    {
        std::string word;
        mWords >> word;
        return word;
    }

    uint64_t ReadAddress()
    {
        const std::string word = ReadWord();
        return std::stoull(word.empty() ? "0" : word, nullptr, 0);
    }

    bool AddSample()
    {
        static const std::map<std::string, EBuilderEvent> sEvents = {
            {"clock", EBuilderEvent::Clock},        {"switch", EBuilderEvent::SchedSwitch},
            {"wakeup", EBuilderEvent::SchedWakeup}, {"wakeup_new", EBuilderEvent::SchedWakeupNew},
            {"waking", EBuilderEvent::SchedWaking}, {"process_exit", EBuilderEvent::SchedProcessExit}};
        const auto event = sEvents.find(mKind);
        if (event == sEvents.end())
            return false;
        if (event->second == EBuilderEvent::Clock)
            ReadCallchain();
        else if (event->second == EBuilderEvent::SchedSwitch)
            ReadSwitch();
        else if (event->second == EBuilderEvent::SchedProcessExit)
            mSample.Raw = gMakeExitRaw(mSample.ThreadID);
        else
            mSample.Raw = gMakeWakeupRaw(event->second, static_cast<int32_t>(ReadAddress()), static_cast<int32_t>(mSample.Cpu));
        mBuilder.AddSample(static_cast<uint32_t>(event->second), mSample);
        return true;
    }

    void ReadCallchain()
    {
        std::istringstream frames(ReadWord());
        std::string frame;
        mSample.Callchain.push_back(static_cast<uint64_t>(PERF_CONTEXT_USER));
        while (std::getline(frames, frame, ';'))
            mSample.Callchain.push_back(std::stoull(frame, nullptr, 0));
        mSample.InstructionPointer = mSample.Callchain.size() > 1 ? mSample.Callchain[1] : 0;
    }

    void ReadSwitch()
    {
        static const std::map<std::string, uint64_t> sStates = {{"R", 0}, {"S", 1}, {"D", 2}, {"X", 0x10}, {"P", 0x100}};
        const std::string state = ReadWord();
        int32_t nextProcess = 0;
        int32_t nextThread = 0;
        ReadThread(nextProcess, nextThread);
        const auto known = sStates.find(state);
        mSample.Raw =
            gMakeSwitchRaw(mSample.ThreadID, known != sStates.end() ? known->second : std::stoull(state, nullptr, 0), nextThread);
    }

    bool AddSideBand()
    {
        ByteWriter body;
        if (mKind == "comm" || mKind == "exec")
            return Add(EPerfRecordType::Comm, mKind == "exec" ? PERF_RECORD_MISC_COMM_EXEC : 0,
                       AddIDs(body).AddAligned(ReadWord()));
        if (mKind == "mmap")
        {
            AddIDs(body).Add(ReadAddress());
            body.Add(ReadAddress()).Add(uint64_t{0}).AddAligned(ReadWord());
            return Add(EPerfRecordType::Mmap, PERF_RECORD_MISC_USER, body);
        }
        if (mKind == "fork" || mKind == "exit")
            return AddTask(body);
        if (mKind == "lost")
            return Add(EPerfRecordType::Lost, 0, body.Add(uint64_t{0}).Add(ReadAddress()));
        if (mKind == "switch_out" || mKind == "switch_in")
            return Add(EPerfRecordType::Switch, mKind == "switch_out" ? PERF_RECORD_MISC_SWITCH_OUT : 0, body);
        return false;
    }

    bool AddTask(ByteWriter& ioBody)
    {
        int32_t parentProcess = mSample.ProcessID;
        int32_t parentThread = mSample.ThreadID;
        if (mKind == "fork")
        {
            (void)ReadWord(); // from
            ReadThread(parentProcess, parentThread);
        }
        ioBody.Add(mSample.ProcessID).Add(parentProcess).Add(mSample.ThreadID).Add(parentThread).Add(mSample.Time);
        return Add(mKind == "fork" ? EPerfRecordType::Fork : EPerfRecordType::Exit, 0, ioBody);
    }

    ByteWriter& AddIDs(ByteWriter& ioBody) { return ioBody.Add(mSample.ProcessID).Add(mSample.ThreadID); }

    bool Add(uint32_t inType, uint32_t inMisc, const ByteWriter& inBody)
    {
        mBuilder.AddSideBand(inType, static_cast<uint16_t>(inMisc), inBody.Bytes, mSample);
        return true;
    }

    PerfFileBuilder& mBuilder;
    std::istringstream mWords;
    std::string mKind;
    BuilderSample mSample;
};

perf_event_attr gMakeAttribute(const BuilderEvent& inEvent)
{
    perf_event_attr attribute = {};
    attribute.type = inEvent.Type;
    attribute.size = sizeof(attribute);
    attribute.config = inEvent.Config;
    attribute.sample_period = inEvent.Period;
    attribute.sample_type = inEvent.SampleType;
    attribute.read_format = inEvent.ReadFormat;
    attribute.freq = inEvent.IsFrequency ? 1 : 0;
    attribute.sample_id_all = inEvent.HasSampleIDAll ? 1 : 0;
    attribute.enable_on_exec = inEvent.IsEnabledOnExec ? 1 : 0;
    attribute.context_switch = inEvent.HasContextSwitch ? 1 : 0;
    return attribute;
}

// A text feature: padded length, text, zeros.
void gAddFeatureText(ByteWriter& ioWriter, std::string_view inText)
{
    ByteWriter padded;
    padded.AddAligned(inText);
    ioWriter.Add(static_cast<uint32_t>(padded.Bytes.size())).AddBytes(padded.Bytes);
}

std::vector<uint8_t> gMakeEventDescriptions(const std::vector<BuilderEvent>& inEvents)
{
    ByteWriter writer;
    writer.Add(static_cast<uint32_t>(inEvents.size())).Add(static_cast<uint32_t>(sizeof(perf_event_attr)));
    for (const BuilderEvent& event : inEvents)
    {
        writer.Add(gMakeAttribute(event)).Add(static_cast<uint32_t>(event.IDs.size()));
        gAddFeatureText(writer, event.Name);
        for (const uint64_t id : event.IDs)
            writer.Add(id);
    }
    return writer.Bytes;
}

std::vector<uint8_t> gMakeText(std::string_view inText)
{
    ByteWriter writer;
    gAddFeatureText(writer, inText);
    return writer.Bytes;
}

std::vector<uint8_t> gMakeCommandLine(const std::vector<std::string>& inArguments)
{
    ByteWriter writer;
    writer.Add(static_cast<uint32_t>(inArguments.size()));
    for (const std::string& argument : inArguments)
        gAddFeatureText(writer, argument);
    return writer.Bytes;
}

// One stream, flushed after each part, each part a record.
std::vector<uint8_t> gCompressRecords(const std::vector<uint8_t>& inRecords, size_t inPartSize)
{
    ByteWriter writer;
    ZSTD_CStream* stream = ZSTD_createCStream();
    std::vector<uint8_t> part(ZSTD_compressBound(inPartSize) + ZSTD_CStreamOutSize());
    for (size_t begin = 0; begin < inRecords.size(); begin += inPartSize)
    {
        ZSTD_inBuffer input = {inRecords.data() + begin, std::min(inPartSize, inRecords.size() - begin), 0};
        ZSTD_outBuffer output = {part.data(), part.size(), 0};
        EXPECT_EQ(ZSTD_compressStream2(stream, &output, &input, ZSTD_e_flush), 0u);
        gAddHeader(writer, EPerfRecordType::Compressed, 0, output.pos);
        writer.Bytes.insert(writer.Bytes.end(), part.begin(), part.begin() + static_cast<ptrdiff_t>(output.pos));
    }
    ZSTD_freeCStream(stream);
    return writer.Bytes;
}

} // namespace

PerfFileBuilder::PerfFileBuilder()
{
    static constexpr const char* sNames[] = {"cpu-clock/period=250000/", "sched:sched_switch", "sched:sched_wakeup",
                                             "sched:sched_wakeup_new",   "sched:sched_waking", "sched:sched_process_exit"};
    for (uint32_t i = 0; i != static_cast<uint32_t>(EBuilderEvent::Count); ++i)
    {
        const bool isClock = i == static_cast<uint32_t>(EBuilderEvent::Clock);
        BuilderEvent event;
        event.Name = sNames[i];
        event.Type = isClock ? PERF_TYPE_SOFTWARE : PERF_TYPE_TRACEPOINT;
        event.Config = isClock ? uint64_t{PERF_COUNT_SW_CPU_CLOCK} : sFirstTracepointID + i;
        event.SampleType = isClock ? sClockSample : sTracepointSample;
        event.Period = isClock ? 250000 : 1;
        event.IDs = {sFirstCounterID + i * sProcessors, sFirstCounterID + i * sProcessors + 1};
        Events.push_back(event);
    }
}

void PerfFileBuilder::AddRecords(std::string_view inText)
{
    std::istringstream lines{std::string(inText)};
    std::string line;
    while (std::getline(lines, line))
    {
        const bool isRead = line.empty() || RecordLine(*this, line).Add();
        EXPECT_TRUE(isRead) << "can't read: " << line;
    }
}

void PerfFileBuilder::AddSample(uint32_t inEvent, const BuilderSample& inSample)
{
    ByteWriter body;
    gAddSampleBody(body, Events[inEvent], inSample);
    body.Bytes.resize((body.Bytes.size() + 7) / 8 * 8);
    ByteWriter record;
    gAddHeader(record, EPerfRecordType::Sample, inSample.Misc, body.Bytes.size());
    AddBytes(record.AddBytes(body.Bytes).Bytes);
}

void PerfFileBuilder::AddSideBand(uint32_t inType, uint16_t inMisc, const std::vector<uint8_t>& inBody,
                                  const BuilderSample& inTrailer, uint32_t inEvent)
{
    ByteWriter body;
    gAddTrailer(body.AddBytes(inBody), Events[inEvent], inTrailer);
    ByteWriter record;
    gAddHeader(record, inType, inMisc, body.Bytes.size());
    AddBytes(record.AddBytes(body.Bytes).Bytes);
}

void PerfFileBuilder::AddPlain(uint32_t inType, const std::vector<uint8_t>& inBody)
{
    ByteWriter record;
    gAddHeader(record, inType, 0, inBody.size());
    AddBytes(record.AddBytes(inBody).Bytes);
}

void PerfFileBuilder::AddRound()
{
    AddPlain(EPerfRecordType::FinishedRound, {});
}

void PerfFileBuilder::AddBytes(std::span<const uint8_t> inBytes)
{
    mRecords.insert(mRecords.end(), inBytes.begin(), inBytes.end());
}

void PerfFileBuilder::AddBuildID(int32_t inProcessID, std::span<const uint8_t> inBuildID, const std::string& inPath,
                                 bool inIsKernel)
{
    ByteWriter body;
    body.Add(inProcessID).AddPadded({reinterpret_cast<const char*>(inBuildID.data()), inBuildID.size()}, sBuildIDBytes);
    body.Add(static_cast<uint32_t>(inBuildID.size())).AddAligned(inPath);
    ByteWriter record;
    const uint32_t mode = inIsKernel ? PERF_RECORD_MISC_KERNEL : PERF_RECORD_MISC_USER;
    gAddHeader(record, 0, static_cast<uint16_t>(mode | sBuildIDHasSize), body.Bytes.size());
    record.AddBytes(body.Bytes);
    BuildIDs.insert(BuildIDs.end(), record.Bytes.begin(), record.Bytes.end());
}

uint64_t PerfFileBuilder::GetRecordsOffset() const
{
    uint64_t offset = sizeof(PerfFileHeader);
    for (const BuilderEvent& event : Events)
        offset += event.IDs.size() * sizeof(uint64_t) + sizeof(perf_event_attr) + sizeof(PerfFileSection);
    return offset;
}

std::vector<uint8_t> PerfFileBuilder::Build() const
{
    std::map<uint32_t, std::vector<uint8_t>> features;
    if (HasTracingData)
        features[EPerfFeature::TracingData] = gMakeTracingData();
    if (!BuildIDs.empty())
        features[EPerfFeature::BuildID] = BuildIDs;
    if (!HostName.empty())
        features[EPerfFeature::HostName] = gMakeText(HostName);
    if (!KernelRelease.empty())
        features[EPerfFeature::KernelRelease] = gMakeText(KernelRelease);
    if (!CommandLine.empty())
        features[EPerfFeature::CommandLine] = gMakeCommandLine(CommandLine);
    if (HasEventDescriptions)
        features[EPerfFeature::EventDescription] = gMakeEventDescriptions(Events);
    if (CompressedPartSize != 0)
        features[EPerfFeature::Compressed] = std::vector<uint8_t>(20);
    const std::vector<uint8_t> records = CompressedPartSize != 0 ? gCompressRecords(mRecords, CompressedPartSize) : mRecords;

    ByteWriter ids;
    ByteWriter attributes;
    for (const BuilderEvent& event : Events)
    {
        const PerfFileSection section{sizeof(PerfFileHeader) + ids.Bytes.size(), event.IDs.size() * sizeof(uint64_t)};
        attributes.Add(gMakeAttribute(event)).Add(section);
        for (const uint64_t id : event.IDs)
            ids.Add(id);
    }
    PerfFileHeader header;
    header.Magic = sPerfMagic;
    header.Size = sizeof(header);
    header.AttributeSize = sizeof(perf_event_attr) + sizeof(PerfFileSection);
    header.Attributes = {sizeof(header) + ids.Bytes.size(), attributes.Bytes.size()};
    header.Data = {GetRecordsOffset(), records.size()};

    ByteWriter sections;
    ByteWriter content;
    for (const auto& [feature, bytes] : features)
    {
        header.Features[feature / 64] |= uint64_t{1} << (feature % 64);
        const uint64_t begin = header.Data.Offset + header.Data.Size + features.size() * sizeof(PerfFileSection);
        sections.Add(PerfFileSection{begin + content.Bytes.size(), bytes.size()});
        content.AddBytes(bytes);
    }
    ByteWriter file;
    file.Add(header).AddBytes(ids.Bytes).AddBytes(attributes.Bytes);
    return file.AddBytes(records).AddBytes(sections.Bytes).AddBytes(content.Bytes).Bytes;
}

} // namespace Host
