#include "Utility/Log.h"

#include "Utility/ByteBuffer.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>

namespace Utility
{
namespace
{

// Room beside the message: the time prefix, and the newline with the terminator.
constexpr size_t sPrefixRoom = 256;
constexpr size_t sLineEndRoom = 2;

// Destructors of statics may log, assertions among them, when what logging needs has been destroyed before them. These flags have
// no destructor, so they can be asked even then.
bool sAreSinksGone = false;
thread_local bool sIsLineBufferGone = false;

struct SinkList
{
    std::vector<LogSink> Sinks;
    ~SinkList() { sAreSinksGone = true; }
};

struct LineBuffer
{
    ByteBuffer Bytes;
    ~LineBuffer() { sIsLineBufferGone = true; }
};

std::vector<LogSink>& gSinks()
{
    static SinkList sList;
    return sList.Sinks;
}

// Grows to the longest line of its thread and stays there, so that logging on a hot thread stops allocating.
thread_local LineBuffer sLineBuffer;

// The line lies in the thread's buffer, or in ioLateBuffer when that is gone.
char* gReserveLine(size_t inMessageLength, ByteBuffer& ioLateBuffer)
{
    ByteBuffer& buffer = sIsLineBufferGone ? ioLateBuffer : sLineBuffer.Bytes;
    buffer.Clear();
    buffer.Resize(inMessageLength + sPrefixRoom + sLineEndRoom);
    return reinterpret_cast<char*>(buffer.GetData());
}

size_t gWriteTimePrefix(char* outLine)
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return std::strftime(outLine, sPrefixRoom, "[%H:%M:%S]: ", &local);
}

void gEndLine(char* outEnd)
{
    outEnd[0] = '\n';
    outEnd[1] = '\0';
}

void gSend(const char* inText)
{
    if (sAreSinksGone)
        return;
    for (const LogSink& sink : gSinks())
        sink.Function(inText, sink.UserData);
}

} // namespace

void gLog(const char* inFormat, ...)
{
    va_list arguments;
    va_start(arguments, inFormat);
    const int length = std::vsnprintf(nullptr, 0, inFormat, arguments);
    va_end(arguments);
    if (length < 0)
        return;

    const auto messageLength = static_cast<size_t>(length);
    ByteBuffer lateBuffer;
    char* line = gReserveLine(messageLength, lateBuffer);
    char* message = line + gWriteTimePrefix(line);
    va_start(arguments, inFormat);
    std::vsnprintf(message, messageLength + 1, inFormat, arguments);
    va_end(arguments);
    gEndLine(message + messageLength);
    gSend(line);
}

void gLogText(std::string_view inText, bool inAddPrefix)
{
    ByteBuffer lateBuffer;
    char* line = gReserveLine(inText.size(), lateBuffer);
    char* message = inAddPrefix ? line + gWriteTimePrefix(line) : line;
    inText.copy(message, inText.size());
    char* end = message + inText.size();
    if (inAddPrefix)
        gEndLine(end);
    else
        *end = '\0';
    gSend(line);
}

void gAddLogSink(void (*inFunction)(const char*, void*), void* inUserData)
{
    gSinks().push_back({inFunction, inUserData});
}

void gSetLogSinks(const std::vector<LogSink>& inSinks)
{
    if (&gSinks() != &inSinks)
        gSinks() = inSinks;
}

const std::vector<LogSink>& gGetLogSinks()
{
    return gSinks();
}

} // namespace Utility
