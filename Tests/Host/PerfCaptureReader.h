// Reads a whole capture from memory and prints what it holds as text, one line per record, for comparison in tests.
#pragma once

#include "Host/Import/PerfRecordStream.h"
#include "Host/Import/Tracepoints.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Host
{

struct PerfCaptureReader
{
    explicit PerfCaptureReader(std::vector<uint8_t> inImage) : Image(std::move(inImage))
    {
        IsOpen = File.OpenImage(Image, "test.data", Errors);
        if (!IsOpen)
            return;
        Formats.Load(File, Warnings);
        Stream = std::make_unique<PerfRecordStream>(File);
        Stream->Scan(Health, [this](const PerfRecord& inRecord) { Scanned.push_back(inRecord); });
        PerfRecord record;
        while (Stream->Next(record))
        {
            Ordered.push_back(record);
            Lines.push_back(Print(record));
        }
    }

    [[nodiscard]] std::string GetError() const { return Errors.GetEntries().empty() ? "" : Errors.GetEntries().front().Message; }

    // "5 sample 10/11 cpu0 401000 402000 raw 68"
    [[nodiscard]] std::string Print(const PerfRecord& inRecord) const
    {
        std::string text = std::to_string(inRecord.Time) + " ";
        EPerfSkip reason = EPerfSkip::None;
        switch (inRecord.Type)
        {
        case EPerfRecordType::Sample:
            reason = PrintSample(inRecord, text);
            break;
        case EPerfRecordType::Mmap:
        case EPerfRecordType::Mmap2:
            if (PerfMmap mmap; (reason = gDecodeMmap(inRecord, mmap)) == EPerfSkip::None)
                text +=
                    Utility::gFormat("mmap %d/%d %zx+%zx %s", mmap.ProcessID, mmap.ThreadID, static_cast<size_t>(mmap.Address),
                                     static_cast<size_t>(mmap.Length), std::string(mmap.Path).c_str());
            break;
        case EPerfRecordType::Comm:
            if (PerfComm comm; (reason = gDecodeComm(inRecord, comm)) == EPerfSkip::None)
                text += Utility::gFormat("%s %d/%d %s", comm.IsExec ? "exec" : "comm", comm.ProcessID, comm.ThreadID,
                                         std::string(comm.Name).c_str());
            break;
        case EPerfRecordType::Fork:
        case EPerfRecordType::Exit:
            if (PerfTask task; (reason = gDecodeTask(inRecord, task)) == EPerfSkip::None)
                text += Utility::gFormat("%s %d/%d from %d/%d", inRecord.Type == EPerfRecordType::Fork ? "fork" : "exit",
                                         task.ProcessID, task.ThreadID, task.ParentProcessID, task.ParentThreadID);
            break;
        case EPerfRecordType::Switch:
        case EPerfRecordType::SwitchCpuWide:
            if (PerfSwitch change; (reason = gDecodeSwitch(inRecord, change)) == EPerfSkip::None)
                text += Utility::gFormat("%s %d/%d cpu%d other %d/%d",
                                         change.IsOut ? (change.IsPreempted ? "preempt" : "out") : "in", change.Self.ProcessID,
                                         change.Self.ThreadID, change.Self.Cpu, change.OtherProcessID, change.OtherThreadID);
            break;
        default:
            text += gGetRecordTypeName(inRecord.Type);
            break;
        }
        return reason == EPerfSkip::None ? text : text + "skip: " + gGetSkipName(reason);
    }

    EPerfSkip PrintSample(const PerfRecord& inRecord, std::string& ioText) const
    {
        PerfSample sample;
        if (const EPerfSkip reason = gDecodeSample(inRecord, sample); reason != EPerfSkip::None)
            return reason;
        ioText += Utility::gFormat("sample %d/%d cpu%d", sample.ProcessID, sample.ThreadID, sample.Cpu);
        for (uint32_t i = 0; i != sample.Callchain.GetCount(); ++i)
            if (gIsCodeAddress(sample.Callchain[i]))
                ioText += Utility::gFormat(" %zx", static_cast<size_t>(sample.Callchain[i]));
        EPerfSkip reason = EPerfSkip::None;
        SchedSwitch change;
        SchedWakeup wakeup;
        SchedProcessExit exit;
        switch (Formats.GetKind(*inRecord.Event))
        {
        case ETracepoint::SchedSwitch:
            reason = Formats.Decode(*inRecord.Event, sample.Raw, change);
            if (reason == EPerfSkip::None)
                ioText += Utility::gFormat(" switch %s:%d state %zu to %s:%d", std::string(change.PreviousComm).c_str(),
                                           change.PreviousThreadID, static_cast<size_t>(change.PreviousState),
                                           std::string(change.NextComm).c_str(), change.NextThreadID);
            return reason;
        case ETracepoint::SchedWakeup:
        case ETracepoint::SchedWakeupNew:
        case ETracepoint::SchedWaking:
            reason = Formats.Decode(*inRecord.Event, sample.Raw, wakeup);
            if (reason == EPerfSkip::None)
                ioText += Utility::gFormat(" wakes %s:%d on cpu%d", std::string(wakeup.Comm).c_str(), wakeup.ThreadID,
                                           wakeup.TargetCpu);
            return reason;
        case ETracepoint::SchedProcessExit:
            reason = Formats.Decode(*inRecord.Event, sample.Raw, exit);
            if (reason == EPerfSkip::None)
                ioText += Utility::gFormat(" exits %s:%d", std::string(exit.Comm).c_str(), exit.ThreadID);
            return reason;
        default:
            return EPerfSkip::None;
        }
    }

    std::vector<uint8_t> Image;
    Utility::ErrorState Errors;
    PerfFile File;
    Tracepoints Formats;
    std::unique_ptr<PerfRecordStream> Stream;
    PerfHealth Health;
    std::vector<PerfRecord> Scanned; // in file order
    std::vector<PerfRecord> Ordered; // in time order
    std::vector<std::string> Lines;  // Ordered as text
    std::vector<std::string> Warnings;
    bool IsOpen = false;
};

} // namespace Host
