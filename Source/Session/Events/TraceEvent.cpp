#include "Session/Events/TraceEvent.h"

#include <array>
#include <type_traits>
#include <utility>

namespace Profiler
{
namespace
{

using Utility::ByteBuffer;
using Utility::ByteCursor;

static_assert(std::variant_size_v<TraceEvent::Payload> == sNumStoredEventTypes + 1);
template <ETraceEventType Type>
using PayloadOf = std::variant_alternative_t<static_cast<size_t>(Type), TraceEvent::Payload>;
static_assert(std::is_same_v<PayloadOf<ETraceEventType::StackOnly>, StackOnlyEvent>);
static_assert(std::is_same_v<PayloadOf<ETraceEventType::ReadyThreadTimed>, ReadyThreadTimedEvent>);
static_assert(std::is_same_v<PayloadOf<ETraceEventType::Invalid>, InvalidEvent>);

void gAppendField(ByteBuffer& ioBuffer, const std::string& inText)
{
    ioBuffer.AppendString(inText);
}

template <class T>
void gAppendField(ByteBuffer& ioBuffer, T inValue)
{
    ioBuffer.AppendValue(inValue);
}

void gReadField(ByteCursor& ioCursor, std::string& outText)
{
    outText.assign(ioCursor.ReadString());
}

template <class T>
void gReadField(ByteCursor& ioCursor, T& outValue)
{
    outValue = ioCursor.Read<T>();
}

struct EventHeader
{
    double TimeMs;
    int32_t ProcessID;
    int32_t ThreadID;
};

template <class T>
void gDecodePayload(const EventHeader& inHeader, ByteCursor& ioCursor, TraceEvent& outEvent)
{
    T& payload = outEvent.Reuse<T>(inHeader.TimeMs, inHeader.ProcessID, inHeader.ThreadID);
    std::apply([&](auto... inFields) { (gReadField(ioCursor, payload.*inFields), ...); }, T::sFields);
}

using DecodeFunction = void (*)(const EventHeader&, ByteCursor&, TraceEvent&);

template <size_t... Types>
constexpr std::array<DecodeFunction, sizeof...(Types)> gMakeDecodeTable(std::index_sequence<Types...>)
{
    return {&gDecodePayload<std::variant_alternative_t<Types, TraceEvent::Payload>>...};
}

constexpr auto sDecodeTable = gMakeDecodeTable(std::make_index_sequence<sNumStoredEventTypes>());

} // namespace

void gEncodePayload(const TraceEvent& inEvent, ByteBuffer& ioBuffer)
{
    std::visit(
        [&ioBuffer](const auto& inPayload)
        {
            using T = std::decay_t<decltype(inPayload)>;
            std::apply([&](auto... inFields) { (gAppendField(ioBuffer, inPayload.*inFields), ...); }, T::sFields);
        },
        inEvent.GetPayload());
}

bool gDecodeEvent(uint8_t inType, double inTimeMs, int32_t inProcessID, int32_t inThreadID, ByteCursor& ioCursor,
                  TraceEvent& outEvent)
{
    if (inType >= sNumStoredEventTypes)
    {
        outEvent = TraceEvent();
        return true;
    }
    sDecodeTable[inType]({inTimeMs, inProcessID, inThreadID}, ioCursor, outEvent);
    if (!ioCursor.HasFailed())
        return true;
    outEvent = TraceEvent();
    return false;
}

} // namespace Profiler
