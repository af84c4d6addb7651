// The record that everything is derived from: one event of a capture.
//
// A TraceEvent is a plain value that owns its texts. It has the fields that every kind shares and the payload of its kind; a
// kind's payload structure names its fields in the order in which they are stored. Threads: as any value. Invariant: the
// alternative that the payload holds is the event's type.
#pragma once

#include "Utility/ByteBuffer.h"

#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <variant>

namespace Profiler
{

using ThreadID = int32_t;  // index into the session's ThreadList
using ProcessID = int32_t; // captured: index with the top bit set; non-captured: index

// The key of an interned stack. An event whose key is sNoCallstack has no stack; so has one with key 0, the stack without frames.
using CallstackKey = uint64_t;
inline constexpr CallstackKey sNoCallstack = 0xFFFFFFFFFFFFFFFF;

// Stored in files; never renumber.
enum class ETraceEventType : uint8_t
{
    Sample = 0,
    ContextSwitchOut = 1,
    ContextSwitchIn = 2,
    ReadyThread = 3,
    ThreadStart = 4,
    ThreadEnd = 5,
    ThreadName = 6,
    InstrumentationBegin = 7,
    InstrumentationEnd = 8,
    InstrumentationBeginColored = 9,
    ReadyThreadTimed = 10,
    ThreadStartDisplay = 11,
    ThreadEndDisplay = 12,
    Reserved13 = 13,
    Reserved14 = 14,
    FiberSwitchOut = 15,
    FiberSwitchIn = 16,
    StackOnly = 17,
    Invalid = 18, // never stored
};
inline constexpr int sNumStoredEventTypes = 18;

struct SampleEvent
{
    CallstackKey Stack = sNoCallstack;

    static constexpr auto sFields = std::tuple(&SampleEvent::Stack);
    bool operator==(const SampleEvent&) const = default;
};

struct ContextSwitchOutEvent
{
    uint8_t WaitReason = 0;

    static constexpr auto sFields = std::tuple(&ContextSwitchOutEvent::WaitReason);
    bool operator==(const ContextSwitchOutEvent&) const = default;
};

struct ContextSwitchInEvent
{
    CallstackKey Stack = sNoCallstack;

    static constexpr auto sFields = std::tuple(&ContextSwitchInEvent::Stack);
    bool operator==(const ContextSwitchInEvent&) const = default;
};

// The event's own process and thread made another thread ready, at TimeMs. Stack is the stack of the thread that did it.
struct ReadyThreadEvent
{
    CallstackKey Stack = sNoCallstack;
    int32_t ReadiedProcessID = -1;
    int32_t ReadiedThreadID = -1;

    static constexpr auto sFields =
        std::tuple(&ReadyThreadEvent::Stack, &ReadyThreadEvent::ReadiedProcessID, &ReadyThreadEvent::ReadiedThreadID);
    bool operator==(const ReadyThreadEvent&) const = default;
};

struct ThreadStartEvent
{
    uint8_t StartFlag = 0; // 1: the thread existed when the capture began
    uint64_t StartAddress = 0;

    static constexpr auto sFields = std::tuple(&ThreadStartEvent::StartFlag, &ThreadStartEvent::StartAddress);
    bool operator==(const ThreadStartEvent&) const = default;
};

struct ThreadEndEvent
{
    uint8_t EndFlag = 0; // 1: the thread was alive at the end of the capture; 1 and 2 close the thread in the processing

    static constexpr auto sFields = std::tuple(&ThreadEndEvent::EndFlag);
    bool operator==(const ThreadEndEvent&) const = default;
};

struct ThreadNameEvent
{
    std::string Name;

    static constexpr auto sFields = std::tuple(&ThreadNameEvent::Name);
    bool operator==(const ThreadNameEvent&) const = default;
};

inline constexpr uint32_t sNoInstrumentationColor = 0xFFFFFFFF;

struct InstrumentationBeginEvent
{
    CallstackKey Stack = sNoCallstack;
    std::string Name;                                           // text of the bar
    std::string Context;                                        // further text of this one occurrence, may be empty
    static constexpr uint32_t sColor = sNoInstrumentationColor; // what the kind without a colour reads as

    static constexpr auto sFields =
        std::tuple(&InstrumentationBeginEvent::Stack, &InstrumentationBeginEvent::Name, &InstrumentationBeginEvent::Context);
    bool operator==(const InstrumentationBeginEvent&) const = default;
};

struct InstrumentationEndEvent
{
    static constexpr auto sFields = std::tuple();
    bool operator==(const InstrumentationEndEvent&) const = default;
};

struct InstrumentationBeginColoredEvent
{
    CallstackKey Stack = sNoCallstack;
    std::string Name;
    std::string Context;
    uint32_t Color = sNoInstrumentationColor;

    static constexpr auto sFields =
        std::tuple(&InstrumentationBeginColoredEvent::Stack, &InstrumentationBeginColoredEvent::Name,
                   &InstrumentationBeginColoredEvent::Context, &InstrumentationBeginColoredEvent::Color);
    bool operator==(const InstrumentationBeginColoredEvent&) const = default;
};

// As ReadyThreadEvent, but the moment of readying is ReadyTimeMs instead of TimeMs.
struct ReadyThreadTimedEvent
{
    CallstackKey Stack = sNoCallstack;
    int32_t ReadiedProcessID = -1;
    int32_t ReadiedThreadID = -1;
    double ReadyTimeMs = 0.0;

    static constexpr auto sFields = std::tuple(&ReadyThreadTimedEvent::Stack, &ReadyThreadTimedEvent::ReadiedProcessID,
                                               &ReadyThreadTimedEvent::ReadiedThreadID, &ReadyThreadTimedEvent::ReadyTimeMs);
    bool operator==(const ReadyThreadTimedEvent&) const = default;
};

struct ThreadStartDisplayEvent
{
    int32_t DisplayThreadID = -1; // the thread's number as the operating system gave it
    uint8_t StartFlag = 0;
    uint64_t StartAddress = 0;

    static constexpr auto sFields = std::tuple(&ThreadStartDisplayEvent::DisplayThreadID, &ThreadStartDisplayEvent::StartFlag,
                                               &ThreadStartDisplayEvent::StartAddress);
    bool operator==(const ThreadStartDisplayEvent&) const = default;
};

struct ThreadEndDisplayEvent
{
    int32_t DisplayThreadID = -1;
    uint8_t EndFlag = 0;

    static constexpr auto sFields = std::tuple(&ThreadEndDisplayEvent::DisplayThreadID, &ThreadEndDisplayEvent::EndFlag);
    bool operator==(const ThreadEndDisplayEvent&) const = default;
};

// Kept unchanged; nothing acts on them.
struct Reserved13Event
{
    uint64_t Value = 0;

    static constexpr auto sFields = std::tuple(&Reserved13Event::Value);
    bool operator==(const Reserved13Event&) const = default;
};

struct Reserved14Event
{
    uint64_t Value = 0;

    static constexpr auto sFields = std::tuple(&Reserved14Event::Value);
    bool operator==(const Reserved14Event&) const = default;
};

struct FiberSwitchOutEvent
{
    uint64_t FiberID = 0;
    uint64_t Aux = 0; // kept unchanged; nothing reads it

    static constexpr auto sFields = std::tuple(&FiberSwitchOutEvent::FiberID, &FiberSwitchOutEvent::Aux);
    bool operator==(const FiberSwitchOutEvent&) const = default;
};

struct FiberSwitchInEvent
{
    uint64_t FiberID = 0;

    static constexpr auto sFields = std::tuple(&FiberSwitchInEvent::FiberID);
    bool operator==(const FiberSwitchInEvent&) const = default;
};

struct StackOnlyEvent
{
    CallstackKey Stack = sNoCallstack;

    static constexpr auto sFields = std::tuple(&StackOnlyEvent::Stack);
    bool operator==(const StackOnlyEvent&) const = default;
};

struct InvalidEvent
{
    static constexpr auto sFields = std::tuple();
    bool operator==(const InvalidEvent&) const = default;
};

class TraceEvent
{
public:
    // One alternative per type, in the order of ETraceEventType.
    using Payload =
        std::variant<SampleEvent, ContextSwitchOutEvent, ContextSwitchInEvent, ReadyThreadEvent, ThreadStartEvent, ThreadEndEvent,
                     ThreadNameEvent, InstrumentationBeginEvent, InstrumentationEndEvent, InstrumentationBeginColoredEvent,
                     ReadyThreadTimedEvent, ThreadStartDisplayEvent, ThreadEndDisplayEvent, Reserved13Event, Reserved14Event,
                     FiberSwitchOutEvent, FiberSwitchInEvent, StackOnlyEvent, InvalidEvent>;

    // An invalid event at time -1.
    TraceEvent() = default;
    TraceEvent(double inTimeMs, int32_t inProcessID, int32_t inThreadID, Payload inPayload)
        : TimeMs(inTimeMs),
          ProcessID(inProcessID),
          ThreadID(inThreadID),
          mPayload(std::move(inPayload))
    {
    }

    [[nodiscard]] ETraceEventType GetType() const { return static_cast<ETraceEventType>(mPayload.index()); }

    // The payload of kind T, null if the event is of another kind.
    template <class T>
    [[nodiscard]] const T* As() const
    {
        return std::get_if<T>(&mPayload);
    }

    [[nodiscard]] const Payload& GetPayload() const { return mPayload; }

    // Makes this an event of kind T with a default payload and gives it for filling in. An event that is already of this kind
    // keeps its payload with the memory of its texts, so that one record can be filled over and over without allocating.
    template <class T>
    T& Reuse(double inTimeMs, int32_t inProcessID, int32_t inThreadID)
    {
        TimeMs = inTimeMs;
        ProcessID = inProcessID;
        ThreadID = inThreadID;
        T* payload = std::get_if<T>(&mPayload);
        return payload != nullptr ? *payload : mPayload.template emplace<T>();
    }

    bool operator==(const TraceEvent&) const = default;

    double TimeMs = -1.0; // milliseconds, on the clock of SessionStartTimeMs
    int32_t ProcessID = -1;
    int32_t ThreadID = -1; // -1 where a ReadyThread has no known readying thread

private:
    Payload mPayload = InvalidEvent{};
};

// Appends the payload alone, little-endian and packed; nothing for an invalid event.
void gEncodePayload(const TraceEvent& inEvent, Utility::ByteBuffer& ioBuffer);

// Reads the payload of kind inType and advances the cursor behind it. A type of 18 or above gives an invalid event at time -1 and
// reads nothing. A payload that runs over the end of the cursor gives an invalid event too, and false.
[[nodiscard]] bool gDecodeEvent(uint8_t inType, double inTimeMs, int32_t inProcessID, int32_t inThreadID,
                                Utility::ByteCursor& ioCursor, TraceEvent& outEvent);

} // namespace Profiler
