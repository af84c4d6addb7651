// Runs captures from memory through the importer and prints the trace events that come out, for comparison in tests.
#pragma once

#include "Host/Import/CaptureImporter.h"
#include "Host/Plugins/PluginManager.h"
#include "System/JobScheduler.h"
#include "Tests/Support/PerfFileBuilder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace Host
{

// What a table of such texts holds.
struct EventCase
{
    const char* Name;
    const char* Records;
    std::vector<std::string> Events;
};

// A session for one capture, without a file of its own and without models.
struct ImportedCapture final : public ITraceEventSink
{
    // Two threads of one process that ran before the capture began: what most tests add their records to.
    static constexpr const char* sTwoThreads = "0 comm 10/10 main\n"
                                               "0 comm 10/11 worker\n";

    explicit ImportedCapture(std::vector<uint8_t> inImage, const ImportFilter& inFilter = {}) : Image(std::move(inImage))
    {
        IsOpen = File.OpenImage(Image, "test.data", Errors);
        if (!IsOpen)
            return;
        Importer = std::make_unique<CaptureImporter>(File, Session, Symbols, inFilter);
        IsPrepared = Importer->Prepare(Errors);
    }

    explicit ImportedCapture(std::string_view inRecords, const ImportFilter& inFilter = {})
        : ImportedCapture(PerfFileBuilder(inRecords).Build(), inFilter)
    {
    }

    // Imports a text of the builder's and gives the events, one per line.
    static std::vector<std::string> sImport(std::string_view inRecords) { return ImportedCapture(inRecords).Run(); }

    // The events behind the starts of the two threads and before the ends of all that live.
    static std::vector<std::string> sImportMiddle(const std::string& inRecords)
    {
        return sImportMiddle(PerfFileBuilder(), inRecords);
    }
    static std::vector<std::string> sImportMiddle(PerfFileBuilder inBuilder, const std::string& inRecords)
    {
        inBuilder.AddRecords(sTwoThreads + inRecords);
        return ImportedCapture(inBuilder.Build()).RunMiddle();
    }

    std::vector<std::string> RunMiddle()
    {
        std::vector<std::string> lines = Run();
        std::erase_if(lines, [](const std::string& inLine)
                      { return inLine.find(" start ") != std::string::npos || inLine.find(" end ") != std::string::npos; });
        return lines;
    }

    std::vector<std::string> Run()
    {
        EXPECT_TRUE(IsPrepared) << Utility::GetErrorText(Errors);
        EXPECT_TRUE(IsPrepared && Importer->Run(*this, {}, Errors));
        return Lines;
    }

    bool OnEvent(const Profiler::TraceEvent& inEvent, Utility::ErrorState&) override
    {
        Session.UpdateThreadFromEvent(inEvent);
        Lines.push_back(Print(inEvent));
        return true;
    }

    // "30 sample 10/11 400000;400010": nanoseconds from the capture's first record, the operating system's numbers.
    [[nodiscard]] std::string Print(const Profiler::TraceEvent& inEvent) const
    {
        using namespace Profiler;
        constexpr double nanosecondsPerMillisecond = 1e6;
        const std::string text = Utility::gFormat("%.0f ", inEvent.TimeMs * nanosecondsPerMillisecond);
        const std::string thread = " " + PrintThread(inEvent.ProcessID, inEvent.ThreadID);
        if (const auto* sample = inEvent.As<SampleEvent>())
            return text + "sample" + thread + PrintStack(sample->Stack);
        if (const auto* out = inEvent.As<ContextSwitchOutEvent>())
            return text + "out" + thread + " " + std::to_string(out->WaitReason);
        if (const auto* in = inEvent.As<ContextSwitchInEvent>())
            return text + "in" + thread + PrintStack(in->Stack);
        if (const auto* ready = inEvent.As<ReadyThreadEvent>())
            return text + "ready" + thread + " -> " + PrintThread(ready->ReadiedProcessID, ready->ReadiedThreadID) +
                   PrintStack(ready->Stack);
        if (const auto* start = inEvent.As<ThreadStartEvent>())
            return text + "start" + thread + " " + std::to_string(start->StartFlag);
        if (const auto* end = inEvent.As<ThreadEndEvent>())
            return text + "end" + thread + " " + std::to_string(end->EndFlag);
        if (const auto* name = inEvent.As<ThreadNameEvent>())
            return text + "name" + thread + " " + name->Name;
        return text + "unexpected";
    }

    std::vector<uint8_t> Image;
    Utility::ErrorState Errors;
    PerfFile File;
    System::JobScheduler Scheduler{1};
    Profiler::PluginManagerCommon Plugins;
    SymbolCache Symbols;
    PluginManager FrontEnd{Symbols};
    Profiler::Session Session{std::make_unique<Profiler::SessionInfo>(), "test.data", Scheduler, Plugins, FrontEnd};
    std::unique_ptr<CaptureImporter> Importer;
    bool IsOpen = false;
    bool IsPrepared = false;
    std::vector<std::string> Lines;

private:
    // "(10)" is a process that isn't captured, "-" a thread that isn't one of the capture.
    [[nodiscard]] std::string PrintThread(int32_t inProcess, int32_t inThread) const
    {
        std::string text = "?";
        if (const Profiler::Process* process = Session.GetProcess(inProcess))
            text = std::to_string(process->DisplayID);
        else if (const Profiler::Process* other = Session.GetNonCapturedProcess(inProcess))
            text = "(" + std::to_string(other->DisplayID) + ")";
        const Profiler::Thread* thread = Session.GetThread(inThread);
        return text + "/" + (thread != nullptr ? std::to_string(thread->DisplayThreadID) : "-");
    }

    [[nodiscard]] std::string PrintStack(Profiler::CallstackKey inStack) const
    {
        Profiler::Callstack addresses;
        std::string text;
        if (Session.GetCallstack(inStack, addresses))
            for (const uint64_t address : addresses)
                text += Utility::gFormat("%s%llx", text.empty() ? " " : ";", static_cast<unsigned long long>(address));
        return text;
    }
};

} // namespace Host
