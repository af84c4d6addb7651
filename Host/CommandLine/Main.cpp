// The reference host's command line.

#include "FileSystem/Path.h"
#include "Host/CommandLine/SummarizeCommand.h"
#include "Utility/Log.h"

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <climits>
#include <cstdio>

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

// Failures take one line: the oldest entry says what went wrong, later ones what that led to.
int gReportFailure(const Utility::ErrorState& inErrors)
{
    const std::string text = inErrors.GetEntries().empty() ? "unknown failure" : inErrors.GetEntries().front().Message;
    std::fprintf(stderr, "brenvaldoris: %s\n", text.c_str());
    return sFailure;
}

int gWriteOutput(const std::string& inText)
{
    if (std::fwrite(inText.data(), 1, inText.size(), stdout) == inText.size() && std::fflush(stdout) == 0)
        return sSuccess;
    std::fprintf(stderr, "brenvaldoris: cannot write to standard output\n");
    return sFailure;
}

int gRunSummarize(const Host::SummarizeOptions& inOptions)
{
    Utility::ErrorState errors;
    std::string text;
    if (!Host::gSummarize(inOptions, text, errors))
        return gReportFailure(errors);
    return gWriteOutput(text);
}

} // namespace

int main(int inArgumentCount, char** inArguments)
{
    CLI::App app("Tells why a program was slow: analyses captures of a sampling profiler.", "brenvaldoris");
    app.require_subcommand(1);
    bool isVerbose = false;
    app.add_flag("--verbose", isVerbose, "Write log lines to standard error");
    Host::SummarizeOptions summarize;
    summarize.PluginPath = gGetDefaultPluginPath();

    CLI::App* command = app.add_subcommand("summarize", "Print what a capture that perf record wrote holds, per thread");
    command->add_option("CAPTURE", summarize.CapturePath, "The perf.data file")->required();
    command->add_flag("--json", summarize.AsJSON, "One JSON object instead of tables");
    command->add_option("--plugin", summarize.PluginPath, "The plugin library")->capture_default_str();

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
    return gRunSummarize(summarize);
}
