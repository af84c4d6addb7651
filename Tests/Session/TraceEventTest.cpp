#include "Session/Events/TraceEvent.h"

#include "Utility/Format.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace
{

using namespace Profiler;
using Utility::ByteBuffer;
using Utility::ByteCursor;

constexpr double sTime = 12.5;
constexpr int32_t sProcess = static_cast<int32_t>(0x80000001);
constexpr int32_t sThread = 7;

std::string gToHex(const uint8_t* inData, size_t inSize)
{
    std::string text;
    for (size_t i = 0; i < inSize; ++i)
        text += Utility::gFormat("%02x", inData[i]);
    return text;
}

ByteBuffer gEncode(const TraceEvent& inEvent)
{
    ByteBuffer buffer;
    gEncodePayload(inEvent, buffer);
    return buffer;
}

// One event of each kind, with the bytes of its payload.
struct StoredEvent
{
    TraceEvent::Payload Payload;
    std::string Hex;

    [[nodiscard]] TraceEvent MakeEvent() const { return {sTime, sProcess, sThread, Payload}; }
};

constexpr uint64_t sStack = 0x0807060504030201;
constexpr const char* sNameHex = "0200000000000000"
                                 "6869";
constexpr const char* sContextHex = "0100000000000000"
                                    "78";

std::vector<StoredEvent> gMakeStoredEvents()
{
    const std::string stack = "0102030405060708";
    const std::string texts = std::string(sNameHex) + sContextHex;
    return {
        {SampleEvent{sStack}, stack},
        {ContextSwitchOutEvent{22}, "16"},
        {ContextSwitchInEvent{sStack}, stack},
        {ReadyThreadEvent{sStack, static_cast<int32_t>(0x80000002), 0x0A0B0C0D}, stack + "02000080" + "0d0c0b0a"},
        {ThreadStartEvent{1, 0x1122334455667788}, "01" + std::string("8877665544332211")},
        {ThreadEndEvent{2}, "02"},
        {ThreadNameEvent{"hi"}, sNameHex},
        {InstrumentationBeginEvent{sStack, "hi", "x"}, stack + texts},
        {InstrumentationEndEvent{}, ""},
        {InstrumentationBeginColoredEvent{sStack, "hi", "x", 0xFF0000AA}, stack + texts + "aa0000ff"},
        {ReadyThreadTimedEvent{sStack, -1, 3, 1.5}, stack + "ffffffff" + "03000000" + "000000000000f83f"},
        {ThreadStartDisplayEvent{0x01020304, 1, 0x10}, "04030201" + std::string("01") + "1000000000000000"},
        {ThreadEndDisplayEvent{-2, 1}, "feffffff" + std::string("01")},
        {Reserved13Event{sStack}, stack},
        {Reserved14Event{sStack}, stack},
        {FiberSwitchOutEvent{sStack, 0xAA}, stack + "aa00000000000000"},
        {FiberSwitchInEvent{sStack}, stack},
        {StackOnlyEvent{sStack}, stack},
    };
}

bool gDecode(size_t inType, const uint8_t* inData, size_t inSize, TraceEvent& outEvent)
{
    ByteCursor cursor(inData, inSize);
    return gDecodeEvent(static_cast<uint8_t>(inType), sTime, sProcess, sThread, cursor, outEvent);
}

// Each test runs over the events of all kinds; the index of an event is its type.
class TraceEventTest : public testing::Test
{
protected:
    const std::vector<StoredEvent> mEvents = gMakeStoredEvents();
};

TEST_F(TraceEventTest, PayloadsHaveTheirBytes)
{
    ASSERT_EQ(mEvents.size(), static_cast<size_t>(sNumStoredEventTypes));
    for (size_t type = 0; type < mEvents.size(); ++type)
    {
        EXPECT_EQ(static_cast<size_t>(mEvents[type].MakeEvent().GetType()), type);
        const ByteBuffer bytes = gEncode(mEvents[type].MakeEvent());
        EXPECT_EQ(gToHex(bytes.GetData(), bytes.GetSize()), mEvents[type].Hex) << "type " << type;
    }
    EXPECT_EQ(gEncode(TraceEvent()).GetSize(), 0U);
}

TEST_F(TraceEventTest, EventsLieBehindEachOtherAndReadBack)
{
    ByteBuffer bytes;
    for (const StoredEvent& stored : mEvents)
        gEncodePayload(stored.MakeEvent(), bytes);

    ByteCursor cursor(bytes.GetData(), bytes.GetSize());
    TraceEvent event;
    for (size_t type = 0; type < mEvents.size(); ++type)
    {
        ASSERT_TRUE(gDecodeEvent(static_cast<uint8_t>(type), sTime, sProcess, sThread, cursor, event)) << "type " << type;
        EXPECT_EQ(event, mEvents[type].MakeEvent()) << "type " << type;
    }
    EXPECT_EQ(cursor.GetRemaining(), 0U);
}

TEST_F(TraceEventTest, ACutPayloadGivesAnInvalidEvent)
{
    for (size_t type = 0; type < mEvents.size(); ++type)
    {
        const ByteBuffer bytes = gEncode(mEvents[type].MakeEvent());
        for (size_t size = 0; size < bytes.GetSize(); ++size)
        {
            // A block of exactly this size lets a sanitizer see a read behind it.
            const std::vector<uint8_t> cut(bytes.GetData(), bytes.GetData() + size);
            TraceEvent event = mEvents[type].MakeEvent();
            EXPECT_FALSE(gDecode(type, cut.data(), cut.size(), event)) << "type " << type << ", " << size << " bytes";
            EXPECT_EQ(event, TraceEvent());
        }
    }
}

TEST_F(TraceEventTest, ALengthBeyondThePayloadIsRefused)
{
    for (const uint64_t length : {uint64_t{3}, uint64_t{1} << 40, ~uint64_t{0}})
    {
        ByteBuffer bytes;
        bytes.AppendValue(length);
        bytes.Append("hi", 2);
        TraceEvent event;
        EXPECT_FALSE(gDecode(static_cast<size_t>(ETraceEventType::ThreadName), bytes.GetData(), bytes.GetSize(), event));
        EXPECT_EQ(event.GetType(), ETraceEventType::Invalid);
    }
}

TEST_F(TraceEventTest, UnknownTypesAreInvalidAndReadNothing)
{
    const uint8_t bytes[8] = {};
    for (const uint8_t type : {uint8_t{18}, uint8_t{19}, uint8_t{255}})
    {
        ByteCursor cursor(bytes, sizeof(bytes));
        TraceEvent event = mEvents[0].MakeEvent();
        EXPECT_TRUE(gDecodeEvent(type, sTime, sProcess, sThread, cursor, event));
        EXPECT_EQ(event.GetType(), ETraceEventType::Invalid);
        EXPECT_EQ(event.TimeMs, -1.0);
        EXPECT_EQ(cursor.GetRemaining(), sizeof(bytes));
    }
}

TEST_F(TraceEventTest, OneRecordServesForAllEvents)
{
    const unsigned seed = 20240611;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    TraceEvent event;
    for (int i = 0; i < 2000; ++i)
    {
        const size_t type = random() % mEvents.size();
        const ByteBuffer bytes = gEncode(mEvents[type].MakeEvent());
        const bool isCut = bytes.GetSize() > 0 && random() % 4 == 0;
        ASSERT_EQ(gDecode(type, bytes.GetData(), bytes.GetSize() - (isCut ? 1 : 0), event), !isCut);
        ASSERT_EQ(event, isCut ? TraceEvent() : mEvents[type].MakeEvent());
    }
}

TEST_F(TraceEventTest, ARecordOfTheSameKindKeepsTheMemoryOfItsTexts)
{
    const auto type = static_cast<size_t>(ETraceEventType::ThreadName);
    const ByteBuffer longName = gEncode({sTime, sProcess, sThread, ThreadNameEvent{std::string(200, 'x')}});
    const ByteBuffer shortName = gEncode(mEvents[type].MakeEvent());
    TraceEvent event;
    ASSERT_TRUE(gDecode(type, longName.GetData(), longName.GetSize(), event));
    const char* text = event.As<ThreadNameEvent>()->Name.data();
    ASSERT_TRUE(gDecode(type, shortName.GetData(), shortName.GetSize(), event));
    EXPECT_EQ(event.As<ThreadNameEvent>()->Name.data(), text);
    EXPECT_EQ(event, mEvents[type].MakeEvent());
}

} // namespace
