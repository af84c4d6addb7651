#include "Host/CommandLine/ImportCommand.h"

#include "Host/CommandLine/Interrupt.h"
#include "Host/CommandLine/JSONOutput.h"
#include "Host/CommandLine/ReportText.h"
#include "Host/CommandLine/SessionImport.h"
#include "Utility/Format.h"

#include <algorithm>

namespace Host
{
namespace
{

double gGetSeconds(const SessionImportResult& inResult)
{
    return inResult.ReadSeconds + inResult.PassSeconds;
}

double gGetEventsPerSecond(const SessionImportResult& inResult)
{
    // No clock is so coarse that an import takes no time at all, but none of it is worth a division by zero.
    constexpr double shortest = 1e-9;
    return static_cast<double>(inResult.Events) / std::max(gGetSeconds(inResult), shortest);
}

std::string gFormatResult(const SessionImportResult& inResult)
{
    std::string text = inResult.SessionPath + '\n';
    text += Utility::gFormat("%.3f s of %zu processes with %zu threads: %llu events, %llu stack nodes\n",
                             inResult.LengthMs / 1000.0, inResult.Processes, inResult.Threads,
                             static_cast<unsigned long long>(inResult.Events), static_cast<unsigned long long>(inResult.Stacks));
    if (inResult.BrokenThreads != 0)
        text += Utility::gFormat("%zu threads have stacks that were cut short\n", inResult.BrokenThreads);
    text += Utility::gFormat("Read in %.2f s, processed in %.2f s: %.0f events/s\n", inResult.ReadSeconds, inResult.PassSeconds,
                             gGetEventsPerSecond(inResult));
    return text + '\n' + gFormatReport(inResult.Report);
}

std::string gFormatResultAsJSON(const SessionImportResult& inResult)
{
    return gFormatJSON(
        [&inResult](JSONWriter& ioWriter)
        {
            gWriteMember(ioWriter, "session", inResult.SessionPath);
            gWriteMember(ioWriter, "length_ms", inResult.LengthMs);
            gWriteMember(ioWriter, "processes", uint64_t{inResult.Processes});
            gWriteMember(ioWriter, "threads", uint64_t{inResult.Threads});
            gWriteMember(ioWriter, "events", inResult.Events);
            gWriteMember(ioWriter, "stack_nodes", inResult.Stacks);
            gWriteMember(ioWriter, "threads_with_broken_stacks", uint64_t{inResult.BrokenThreads});
            gWriteMember(ioWriter, "read_seconds", inResult.ReadSeconds);
            gWriteMember(ioWriter, "pass_seconds", inResult.PassSeconds);
            gWriteMember(ioWriter, "events_per_second", gGetEventsPerSecond(inResult));
            ioWriter.Key("health");
            ioWriter.StartObject();
            gWriteReport(ioWriter, inResult.Report);
            ioWriter.EndObject();
        });
}

} // namespace

bool gImport(const ImportOptions& inOptions, std::string& outText, Utility::ErrorState& ioErrors)
{
    const InterruptScope interrupt;
    const std::unique_ptr<Workspace> workspace = Workspace::sMake(inOptions.PluginPath, ioErrors);
    if (workspace == nullptr)
        return false;
    const SessionImportOptions options{inOptions.CapturePath, inOptions.OutputFolder, inOptions.Replaces, inOptions.Filter};
    SessionImportResult result;
    if (!gImportSession(options, *workspace, interrupt.GetFlag(), result, ioErrors))
        return false;
    outText = inOptions.AsJSON ? gFormatResultAsJSON(result) : gFormatResult(result);
    return true;
}

} // namespace Host
