// The reference host's command line.

#include "FileSystem/Path.h"
#include "Host/CommandLine/FailureText.h"
#include "Host/CommandLine/FindCommand.h"
#include "Host/CommandLine/ImportCommand.h"
#include "Host/CommandLine/InfoCommand.h"
#include "Host/CommandLine/ProcessCommand.h"
#include "Host/CommandLine/ReadyCommand.h"
#include "Host/CommandLine/StackCommand.h"
#include "Host/CommandLine/SummarizeCommand.h"
#include "Utility/Log.h"

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace
{

constexpr int sSuccess = 0;
constexpr int sFailure = 1;
constexpr int sBadUsage = 2;

// The plugin lies beside the program.
std::string gGetDefaultPluginPath()
{
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    const std::string program = length > 0 ? std::string(path, static_cast<size_t>(length)) : std::string();
    return FileSystem::gChangeFileName(program, "ThreadsModelPlugin.so");
}

int gReportFailure(const Utility::ErrorState& inErrors)
{
    std::fprintf(stderr, "brenvaldoris: %s\n", Host::gGetFailureText(inErrors).c_str());
    return sFailure;
}

int gWriteOutput(const std::string& inText)
{
    if (std::fwrite(inText.data(), 1, inText.size(), stdout) == inText.size() && std::fflush(stdout) == 0)
        return sSuccess;
    std::fprintf(stderr, "brenvaldoris: cannot write to standard output\n");
    return sFailure;
}

// Runs a command and shows its text, also where it comes with a failure.
template <class Options>
int gRun(bool (*inCommand)(const Options&, std::string&, Utility::ErrorState&), const Options& inOptions)
{
    Utility::ErrorState errors;
    std::string text;
    const bool isDone = inCommand(inOptions, text, errors);
    const int written = text.empty() ? sSuccess : gWriteOutput(text);
    return isDone ? written : gReportFailure(errors);
}

// A command of the program, with what it runs once the arguments are read.
struct Command
{
    const CLI::App* Parser;
    std::function<int()> Run;
};
using CommandList = std::vector<Command>;

constexpr const char* sPluginText = "The plugin library";
constexpr const char* sJSONText = "One JSON object instead of tables";
constexpr const char* sSessionText = "A session file, a session folder, or the capture";

// Adds a command whose options are to be filled in.
template <class Options>
std::pair<CLI::App*, std::shared_ptr<Options>> gAddCommand(CLI::App& ioApp, CommandList& ioCommands, const char* inName,
                                                           const char* inText,
                                                           bool (*inFunction)(const Options&, std::string&, Utility::ErrorState&))
{
    CLI::App* command = ioApp.add_subcommand(inName, inText);
    auto options = std::make_shared<Options>();
    command->add_option("--plugin", options->PluginPath, sPluginText)->default_val(gGetDefaultPluginPath());
    ioCommands.push_back({command, [inFunction, options] { return gRun(inFunction, *options); }});
    return {command, options};
}

// "A,B" in milliseconds; either may be missing. Gives what is wrong with the text, or nothing.
std::string gParseTimeRange(const std::string& inText, double& ioStartMs, double& ioEndMs)
{
    const size_t comma = inText.find(',');
    const auto parse = [](const std::string& inNumber, double& ioMs)
    { return inNumber.empty() || CLI::detail::lexical_cast(inNumber, ioMs); };
    const bool isRange =
        comma != std::string::npos && parse(inText.substr(0, comma), ioStartMs) && parse(inText.substr(comma + 1), ioEndMs);
    // Written so that what is no number fails.
    return isRange && (comma == 0 || ioStartMs >= 0.0) && ioStartMs < ioEndMs
               ? std::string()
               : "needs START,END in milliseconds, as 1000,2500 or 1000, or ,2500";
}

void gAddTimeRange(CLI::App& ioCommand, double& ioStartMs, double& ioEndMs)
{
    ioCommand
        .add_option_function<std::string>(
            "--time-range",
            [&ioStartMs, &ioEndMs](const std::string& inText)
            {
                if (const std::string fault = gParseTimeRange(inText, ioStartMs, ioEndMs); !fault.empty())
                    throw CLI::ValidationError("--time-range", fault);
            },
            "Take only START,END in milliseconds from the capture's first record")
        ->type_name("START,END");
}

void gAddSummarize(CLI::App& ioApp, CommandList& ioCommands)
{
    const auto [command, options] = gAddCommand(
        ioApp, ioCommands, "summarize", "Print what a capture that perf record wrote holds, per thread", Host::gSummarize);
    command->add_option("CAPTURE", options->Path, "The perf.data file, or a session")->required();
    command->add_flag("--json", options->AsJSON, sJSONText);
}

void gAddImport(CLI::App& ioApp, CommandList& ioCommands)
{
    const auto [command, options] =
        gAddCommand(ioApp, ioCommands, "import", "Make a session of a capture that perf record wrote", Host::gImport);
    command->add_option("CAPTURE", options->CapturePath, "The perf.data file")->required();
    command->add_option("--output", options->OutputFolder, "Where the session folder goes, instead of beside the capture");
    command->add_option("--process", options->Filter.Processes, "Capture only processes of this name or number; may be repeated")
        ->allow_extra_args(false);
    gAddTimeRange(*command, options->Filter.StartMs, options->Filter.EndMs);
    command->add_flag("--force", options->Replaces, "Replace a session that is there");
    command->add_flag("--json", options->AsJSON, sJSONText);
}

void gAddProcess(CLI::App& ioApp, CommandList& ioCommands)
{
    const auto [command, options] =
        gAddCommand(ioApp, ioCommands, "process", "Bring a stored session to where it can be used", Host::gProcess);
    command->add_option("SESSION", options->Session, sSessionText)->required();
    command->add_flag("--rebuild", options->Rebuilds, "Build anew all that is derived from the events");
}

void gAddInfo(CLI::App& ioApp, CommandList& ioCommands)
{
    const auto [command, options] =
        gAddCommand(ioApp, ioCommands, "info", "Print what a session holds, and which of its stores are sound", Host::gShowInfo);
    command->add_option("SESSION", options->Session, sSessionText)->required();
    command->add_flag("--json", options->AsJSON, sJSONText);
}

constexpr const char* sKeyText = "A thread's key, as find tells it";
constexpr const char* sLimitText = "How many to list, 0 for all";

void gAddStack(CLI::App& ioApp, CommandList& ioCommands)
{
    const auto [command, options] =
        gAddCommand(ioApp, ioCommands, "stack", "Print what a thread was doing at a time, and where", Host::gShowStack);
    command->add_option("SESSION", options->Session, sSessionText)->required();
    command->add_option("THREAD", options->ThreadKey, sKeyText)->required();
    command->add_option("TIME", options->TimeMs, "Milliseconds from the capture's first record")->required();
    command->add_flag("--json", options->AsJSON, sJSONText);
}

void gAddReady(CLI::App& ioApp, CommandList& ioCommands)
{
    const auto [command, options] =
        gAddCommand(ioApp, ioCommands, "ready", "Print who woke whom, or what a wait was for", Host::gShowReady);
    command->add_option("SESSION", options->Session, sSessionText)->required();
    auto* start = command->add_option("START", options->StartMs, "Milliseconds from the capture's first record");
    auto* end = command->add_option("END", options->EndMs, "The same");
    auto* chain = command->add_option_function<std::pair<int32_t, double>>(
        "--chain",
        [filled = options](const std::pair<int32_t, double>& inValue) {
            filled->Chain = {inValue.first, inValue.second};
        },
        "Follow the wake-ups back from the wait of a thread at a time");
    chain->type_name("THREAD TIME")->excludes(start)->excludes(end);
    command->add_option("--thread", options->ThreadKey, "Only wake-ups of or by this thread")->excludes(chain);
    command->add_option("--limit", options->Limit, sLimitText);
    command->add_flag("--json", options->AsJSON, sJSONText);
    command->callback(
        [start, end, chain]
        {
            if (chain->count() == 0 && (start->count() == 0 || end->count() == 0))
                throw CLI::ValidationError("ready", "needs START and END, or --chain THREAD TIME");
        });
}

void gAddFind(CLI::App& ioApp, CommandList& ioCommands)
{
    const auto [command, options] = gAddCommand(ioApp, ioCommands, "find", "Print when and where functions ran", Host::gFind);
    command->add_option("SESSION", options->Session, sSessionText)->required();
    auto* function = command->add_option("FUNCTION", options->Function, "A part of the names of functions");
    auto* stack = command->add_option("--stack", options->Stack, "Instead: calls with exactly this stack, root first");
    stack->type_name("A;B;C")->excludes(function);
    command->add_option("--thread", options->ThreadKey, "Only calls of this thread");
    gAddTimeRange(*command, options->StartMs, options->EndMs);
    command->add_option("--limit", options->Limit, sLimitText);
    command->add_flag("--longest", options->SortsByLength, "List the longest calls instead of the first");
    command->add_flag("--json", options->AsJSON, sJSONText);
    command->callback(
        [function, stack]
        {
            if (function->count() + stack->count() == 0)
                throw CLI::ValidationError("find", "needs FUNCTION or --stack A;B;C");
        });
}

} // namespace

int main(int inArgumentCount, char** inArguments)
{
    CLI::App app("Tells why a program was slow: analyses captures of a sampling profiler.", "brenvaldoris");
    app.require_subcommand(1);
    bool isVerbose = false;
    app.add_flag("--verbose", isVerbose, "Write log lines to standard error");
    CommandList commands;
    gAddSummarize(app, commands);
    gAddImport(app, commands);
    gAddProcess(app, commands);
    gAddInfo(app, commands);
    gAddStack(app, commands);
    gAddReady(app, commands);
    gAddFind(app, commands);

    try
    {
        app.parse(inArgumentCount, inArguments);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == sSuccess ? sSuccess : sBadUsage;
    }
    if (isVerbose)
        Utility::gAddLogSink([](const char* inText, void*) { std::fputs(inText, stderr); }, nullptr);
    for (const Command& command : commands)
    {
        if (command.Parser->parsed())
            return command.Run();
    }
    return sBadUsage;
}
