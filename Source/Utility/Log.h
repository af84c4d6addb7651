// The one way to write a log line. Where lines end up is decided by the sinks that the host registers.
//
// Threads: lines may be written from any thread, also while statics are torn down; sinks are registered before threads start,
// must be callable from any thread, and don't log themselves. Invariant: the library and its host each have a sink list of their
// own; the host hands its list over when it loads the library.
#pragma once

#include <string_view>
#include <vector>

namespace Utility
{

// A receiver of finished log text.
struct LogSink
{
    void (*Function)(const char* inText, void* inUserData);
    void* UserData;
};

// Writes the local time as "[%H:%M:%S]: ", the message and a newline to every sink.
void gLog(const char* inFormat, ...) __attribute__((format(printf, 1, 2)));

// Writes a text. Without the prefix it goes out unchanged, with no newline added; with it, as a line of gLog.
void gLogText(std::string_view inText, bool inAddPrefix);

void gAddLogSink(void (*inFunction)(const char*, void*), void* inUserData);

// Replaces all sinks. Setting the list to itself changes nothing.
void gSetLogSinks(const std::vector<LogSink>& inSinks);

[[nodiscard]] const std::vector<LogSink>& gGetLogSinks();

} // namespace Utility
