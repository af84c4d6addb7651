// Any bytes as a file of the event stream: the index with hashes that fit, events.dat as it is, the content of a chunk of it, or
// events.dat in the plain layout, which is brought to that of today.
#include "Session/Events/TraceEventStreamReader.h"
#include "Tests/Fuzz/StreamFiles.h"

#include <cstring>
#include <limits>

namespace
{

using namespace Profiler;
using Fuzz::Bytes;
using Fuzz::gExpect;

constexpr double sFromTheStart = std::numeric_limits<double>::lowest();

using Events = std::vector<TraceEvent>;

// Compares every bit, so that a time that is no number equals itself.
Bytes gJoin(const Events& inEvents)
{
    Bytes bytes;
    for (const TraceEvent& event : inEvents)
    {
        const Bytes record = Fuzz::gMakePlainRecord(event);
        bytes.insert(bytes.end(), record.begin(), record.end());
    }
    return bytes;
}

void gReadOn(TraceEventStreamReader& ioReader, Events& ioEvents)
{
    TraceEvent event;
    while (ioReader.NextEvent(event))
        ioEvents.push_back(event);
    gExpect(!ioReader.NextEvent(event));
    Utility::ErrorState errors;
    gExpect(ioReader.CheckSound(errors) == ioReader.GetFailure().empty());
    gExpect(errors.GetEntries().empty() == ioReader.GetFailure().empty());
}

// However a stream is read, it is the same events.
Events gReadInAllWays(const TraceEventStream& inStream)
{
    Events all;
    TraceEventStreamReader reader = inStream.CreateReader(sFromTheStart);
    gReadOn(reader, all);
    const Bytes bytes = gJoin(all);

    Events half;
    TraceEventStreamReader second = inStream.CreateReader(sFromTheStart);
    TraceEvent event;
    while (half.size() < all.size() / 2 && second.NextEvent(event))
        half.push_back(event);
    TraceEventStreamReader copy(second);
    Events other = half;
    gReadOn(second, half);
    gReadOn(copy, other);
    gExpect(gJoin(half) == bytes && gJoin(other) == bytes);
    gExpect(copy.GetFailure() == reader.GetFailure() && copy.GetEventsRead() == reader.GetEventsRead());

    if (all.empty())
        return all;
    const double middle = all[all.size() / 2].TimeMs;
    Events limited;
    TraceEventStreamReader third = inStream.CreateReader(sFromTheStart);
    while (third.NextEvent(event, middle))
    {
        gExpect(event.TimeMs < middle || event.GetType() == ETraceEventType::Invalid);
        limited.push_back(event);
    }
    gReadOn(third, limited);
    gExpect(gJoin(limited) == bytes);
    Events late;
    TraceEventStreamReader fourth = inStream.CreateReader(middle);
    gReadOn(fourth, late);
    // A damaged event ends the reading of all, and may be passed over here.
    gExpect(!reader.GetFailure().empty() || late.size() <= all.size());
    return all;
}

std::unique_ptr<TraceEventStream> gLoad(const Fuzz::Folder& inFolder)
{
    const Fuzz::Files before = inFolder.ReadAll();
    Serialization::ReaderErrorState errors;
    std::unique_ptr<TraceEventStream> stream = TraceEventStream::sLoad(inFolder.GetPath(), Fuzz::gGetSessionRegistry(), errors);
    gExpect((stream == nullptr) == !errors.GetEntries().empty());
    gExpect(inFolder.ReadAll() == before);
    return stream;
}

// What was read can be stored, and gives the same events. One of a kind of tomorrow has no contents here, and isn't stored.
void gExpectStorable(const Events& inEvents)
{
    static const Fuzz::Folder sFolder;
    sFolder.ReplaceAll({});
    TraceEventStream stream(sFolder.GetPath(), TraceEventStream::sColumnarVersion);
    Utility::ErrorState errors;
    Events kept;
    for (const TraceEvent& event : inEvents)
    {
        gExpect(stream.AddEvent(event, errors));
        if (event.GetType() != ETraceEventType::Invalid)
            kept.push_back(event);
    }
    gExpect(stream.FlushStream(errors) && stream.GetNumEvents() == kept.size());
    const std::unique_ptr<TraceEventStream> stored = gLoad(sFolder);
    gExpect(stored != nullptr && stored->GetNumEvents() == kept.size());
    // The time of the last event says whether there is any at all, so that all have to be asked for differently.
    TraceEventStreamReader reader = stored->CreateReader(-std::numeric_limits<double>::infinity());
    Events again;
    gReadOn(reader, again);
    gExpect(gJoin(again) == gJoin(kept));
}

// The new stream's events, or none and the old files.
Events gUpgrade(const Fuzz::Folder& inFolder, TraceEventStream& ioStream, bool& outIsUpgraded)
{
    const Fuzz::Files before = inFolder.ReadAll();
    Utility::ErrorState errors;
    const bool isCanceled = false;
    outIsUpgraded = ioStream.UpgradeStream(isCanceled, errors, {});
    if (!outIsUpgraded)
    {
        gExpect(!errors.GetEntries().empty() && inFolder.ReadAll() == before);
        return {};
    }
    gExpect(!ioStream.NeedsUpgrade() && inFolder.ReadAll().size() == before.size());
    const std::unique_ptr<TraceEventStream> stored = gLoad(inFolder);
    gExpect(stored != nullptr && !stored->NeedsUpgrade());
    Events events;
    TraceEventStreamReader reader = stored->CreateReader(-std::numeric_limits<double>::infinity());
    gReadOn(reader, events);
    gExpect(reader.GetFailure().empty() && events.size() == stored->GetNumEvents());
    return events;
}

void gTryIndex(const Fuzz::StreamFiles& inSound, const Bytes& inIndex)
{
    inSound.Replace(inIndex, inSound.Data);
    const std::unique_ptr<TraceEventStream> stream = gLoad(inSound.Place);
    if (stream == nullptr)
        return;
    const Events events = gReadInAllWays(*stream);
    gExpect(events.empty() || !stream->NeedsUpgrade());
    if (stream->GetEventDataVersion() != TraceEventStream::sPlainVersion)
        return;
    inSound.Place.Write("events.dat", inSound.PlainData);
    bool isUpgraded = false;
    static_cast<void>(gUpgrade(inSound.Place, *stream, isUpgraded));
}

void gTryData(const Fuzz::StreamFiles& inSound, const Bytes& inIndex, const Bytes& inData)
{
    inSound.Replace(inIndex, inData);
    const std::unique_ptr<TraceEventStream> stream = gLoad(inSound.Place);
    gExpect(stream != nullptr);
    const Events events = gReadInAllWays(*stream);
    gExpectStorable(events);
    stream->SetIncludeInstrumentation(false);
    static_cast<void>(gReadInAllWays(*stream));
}

void gTryContent(const Fuzz::StreamFiles& inSound, const Bytes& inInput)
{
    uint64_t numEvents = 0;
    if (inInput.size() < sizeof(numEvents))
        return;
    std::memcpy(&numEvents, inInput.data(), sizeof(numEvents));
    const Bytes frame = Fuzz::gCompress({inInput.begin() + sizeof(numEvents), inInput.end()});
    gTryData(inSound, Fuzz::gMakeEventIndex(TraceEventStream::sColumnarVersion, frame.size(), numEvents), frame);
}

void gTryPlainData(const Fuzz::StreamFiles& inSound, const Bytes& inData)
{
    const Bytes index = Fuzz::gMakeEventIndex(TraceEventStream::sPlainVersion, inData.size(), 1);
    inSound.Replace(index, inData);
    const std::unique_ptr<TraceEventStream> stream = gLoad(inSound.Place);
    gExpect(stream != nullptr && stream->NeedsUpgrade() && gReadInAllWays(*stream).empty());
    bool isUpgraded = false;
    const Events events = gUpgrade(inSound.Place, *stream, isUpgraded);
    // Nothing of it is lost or changed.
    gExpect(!isUpgraded || gJoin(events) == inData);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize)
{
    static const Fuzz::StreamFiles sSound("events");
    Fuzz::gExpectNoAssertions();
    const Fuzz::ChosenInput input(inData, inSize);
    switch (static_cast<Fuzz::EEventStreamInput>(input.Choice % Fuzz::sNumEventStreamInputs))
    {
    case Fuzz::EEventStreamInput::Index:
        gTryIndex(sSound, input.MakeContainer(sSound.Index));
        break;
    case Fuzz::EEventStreamInput::Data:
        gTryData(sSound, sSound.Index, input.Content);
        break;
    case Fuzz::EEventStreamInput::ChunkContent:
        gTryContent(sSound, input.Content);
        break;
    case Fuzz::EEventStreamInput::PlainData:
        gTryPlainData(sSound, input.Content);
        break;
    }
    return 0;
}
