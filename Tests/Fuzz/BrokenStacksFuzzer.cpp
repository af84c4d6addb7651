// Any bytes as a file of the broken ranges: the index with hashes that fit, stacks.dat as it is, or the content of a chunk of it.
#include "Serialization/BinaryWriter.h"
#include "Session/Callstacks/BrokenStackChunk.h"
#include "Session/Callstacks/BrokenStackHolder.h"
#include "Session/Callstacks/BrokenStackReader.h"
#include "Tests/Fuzz/StreamFiles.h"

#include <cstring>
#include <limits>

namespace
{

using namespace Profiler;
using Fuzz::Bytes;
using Fuzz::gExpect;

// Steps to the begin, the middle and the end of every range, as a pass that meets events there.
void gStepThrough(BrokenStackReader inReader, const std::vector<BrokenRange>& inRanges)
{
    BrokenRange range;
    for (const BrokenRange& expected : inRanges)
    {
        for (const double time : {expected.Start, (expected.Start + expected.End) / 2, expected.End})
        {
            if (inReader.StepTo(range, time) == EBrokenStackStep::RangeBegins)
                gExpect(range.Start == time);
        }
    }
}

void gReadThread(const BrokenStackHolder& inHolder, ThreadID inThread)
{
    const BrokenStackIndex::ChunkList* chunks = inHolder.FindChunks(inThread);
    gExpect(chunks != nullptr);
    std::vector<BrokenRange> all;
    if (!chunks->empty())
    {
        BrokenStackFile file;
        gExpect(file.Open(gGetBrokenStackDataPath(inHolder.GetDirectory())));
        std::vector<BrokenRange> ranges;
        for (const BrokenStackIndex::Chunk& chunk : *chunks)
        {
            gExpect(file.ReadChunk(chunk, ranges) && !ranges.empty());
            all.insert(all.end(), ranges.begin(), ranges.end());
        }
    }
    constexpr double inf = std::numeric_limits<double>::infinity();
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double start : {-inf, 0.0, inf, nan})
        gStepThrough(BrokenStackReader(inHolder, inThread, start), all);
    if (!all.empty())
        gStepThrough(BrokenStackReader(inHolder, inThread, all[all.size() / 2].Start), all);
}

// Whether the files could be loaded.
bool gTry(const Fuzz::StreamFiles& inSound, const Bytes& inIndex, const Bytes& inData)
{
    const Fuzz::Files files = inSound.Replace(inIndex, inData);
    BrokenStackHolder holder(inSound.Place.GetPath());
    Utility::ErrorState errors;
    const bool isLoaded = holder.Load(Fuzz::gGetSessionRegistry(), errors);
    gExpect(isLoaded == errors.GetEntries().empty() && isLoaded == (holder.GetIndex() != nullptr));
    gExpect(inSound.Place.ReadAll() == files);
    if (!isLoaded)
        return false;
    for (const auto& [thread, chunks] : holder.GetIndex()->ChunksByThread)
        gReadThread(holder, thread);
    return true;
}

// The index that belongs to the content of a chunk, as far as it is one.
Bytes gMakeIndex(const Bytes& inContent, size_t inFrameSize)
{
    constexpr size_t countSize = sizeof(uint64_t);
    BrokenRange first;
    BrokenRange last;
    if (inContent.size() >= countSize + sizeof(BrokenRange))
    {
        std::memcpy(&first, inContent.data() + countSize, sizeof(first));
        std::memcpy(&last, inContent.data() + inContent.size() - sizeof(last), sizeof(last));
    }
    BrokenStackIndex index;
    index.ChunksByThread[1] = {{first.Start, last.End, 0, inFrameSize}};
    const RTTI::Object* object = &index;
    Utility::ByteBuffer buffer;
    Utility::ErrorState errors;
    gExpect(Serialization::gWriteObjectsToBuffer(buffer, {&object, 1}, errors));
    return {buffer.GetData(), buffer.GetData() + buffer.GetSize()};
}

void gTryContent(const Fuzz::StreamFiles& inSound, const Bytes& inContent)
{
    const Bytes frame = Fuzz::gCompress(inContent);
    if (!gTry(inSound, gMakeIndex(inContent, frame.size()), frame))
        return;
    // What was taken for ranges is nothing but ranges.
    BrokenStackFile file;
    std::vector<BrokenRange> ranges;
    BrokenRange first;
    std::memcpy(&first, inContent.data() + sizeof(uint64_t), sizeof(first));
    BrokenRange last;
    std::memcpy(&last, inContent.data() + inContent.size() - sizeof(last), sizeof(last));
    gExpect(file.Open(inSound.Place.At("stacks.dat")) && file.ReadChunk({first.Start, last.End, 0, frame.size()}, ranges));
    Utility::ByteBuffer content;
    gEncodeBrokenRanges(ranges, content);
    gExpect(Bytes(content.GetData(), content.GetData() + content.GetSize()) == inContent);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize)
{
    static const Fuzz::StreamFiles sSound("stacks");
    Fuzz::gExpectNoAssertions();
    const Fuzz::ChosenInput input(inData, inSize);
    switch (static_cast<Fuzz::EBrokenStackInput>(input.Choice % Fuzz::sNumBrokenStackInputs))
    {
    case Fuzz::EBrokenStackInput::Index:
        static_cast<void>(gTry(sSound, input.MakeContainer(sSound.Index), sSound.Data));
        break;
    case Fuzz::EBrokenStackInput::Data:
        static_cast<void>(gTry(sSound, sSound.Index, input.Content));
        break;
    case Fuzz::EBrokenStackInput::ChunkContent:
        gTryContent(sSound, input.Content);
        break;
    }
    return 0;
}
