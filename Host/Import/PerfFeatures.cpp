#include "Host/Import/PerfFeatures.h"

#include "Host/Import/PerfFormat.h"
#include "Host/Import/PerfRecords.h"
#include "Utility/ByteBuffer.h"

#include <linux/perf_event.h>

#include <algorithm>
#include <cstring>

namespace Host
{
namespace
{

// A text with its padded length in front; it ends at the first zero byte.
bool gReadText(Utility::ByteCursor& ioCursor, std::string& outText)
{
    const auto length = ioCursor.Read<uint32_t>();
    const uint8_t* bytes = ioCursor.Take(length);
    if (ioCursor.HasFailed())
        return false;
    const auto* text = reinterpret_cast<const char*>(bytes);
    outText.assign(text, strnlen(text, length));
    return true;
}

std::string gToHexadecimal(const uint8_t* inBytes, size_t inSize)
{
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    text.reserve(inSize * 2);
    for (size_t i = 0; i != inSize; ++i)
    {
        text += digits[inBytes[i] >> 4];
        text += digits[inBytes[i] & 0xF];
    }
    return text;
}

// One record of the build id section, without its header.
bool gReadBuildID(std::span<const uint8_t> inBody, uint16_t inMisc, PerfBuildID& outBuildID)
{
    constexpr size_t idOffset = 4;
    constexpr size_t sizeOffset = idOffset + sBuildIDBytes;
    constexpr size_t pathOffset = sizeOffset + 4;
    if (inBody.size() <= pathOffset)
        return false;
    size_t size = (inMisc & sBuildIDHasSize) != 0 ? inBody[sizeOffset] : sBuildIDBytes;
    if (size > sBuildIDBytes)
        return false;
    const auto* path = reinterpret_cast<const char*>(inBody.data() + pathOffset);
    outBuildID.ProcessID = gLoad<int32_t>(inBody.data());
    outBuildID.BuildID = gToHexadecimal(inBody.data() + idOffset, size);
    outBuildID.Path.assign(path, strnlen(path, inBody.size() - pathOffset));
    outBuildID.IsKernel = (inMisc & PERF_RECORD_MISC_CPUMODE_MASK) == PERF_RECORD_MISC_KERNEL;
    return true;
}

bool gReadEventDescription(Utility::ByteCursor& ioCursor, uint32_t inAttributeSize, PerfEventDescription& outEvent)
{
    ioCursor.Take(inAttributeSize);
    const auto idCount = ioCursor.Read<uint32_t>();
    if (!gReadText(ioCursor, outEvent.Name) || idCount > ioCursor.GetRemaining() / sizeof(uint64_t))
        return false;
    outEvent.IDs.resize(idCount);
    for (uint64_t& id : outEvent.IDs)
        id = ioCursor.Read<uint64_t>();
    return !ioCursor.HasFailed();
}

} // namespace

bool gReadTextFeature(std::span<const uint8_t> inBytes, std::string& outText)
{
    Utility::ByteCursor cursor(inBytes.data(), inBytes.size());
    return gReadText(cursor, outText);
}

bool gReadCommandLine(std::span<const uint8_t> inBytes, std::vector<std::string>& outArguments)
{
    Utility::ByteCursor cursor(inBytes.data(), inBytes.size());
    const auto count = cursor.Read<uint32_t>();
    std::vector<std::string> arguments;
    std::string argument;
    for (uint32_t i = 0; i != count; ++i)
    {
        if (!gReadText(cursor, argument))
            return false;
        arguments.push_back(argument);
    }
    outArguments = std::move(arguments);
    return !cursor.HasFailed();
}

bool gReadCpuCount(std::span<const uint8_t> inBytes, PerfMachine& ioMachine)
{
    Utility::ByteCursor cursor(inBytes.data(), inBytes.size());
    const auto first = cursor.Read<uint32_t>();
    const auto second = cursor.Read<uint32_t>();
    if (cursor.HasFailed())
        return false;
    // Which of the two comes first isn't told alike everywhere; no machine has more processors online than available.
    ioMachine.CpusAvailable = std::max(first, second);
    ioMachine.CpusOnline = std::min(first, second);
    return true;
}

bool gReadTotalMemory(std::span<const uint8_t> inBytes, PerfMachine& ioMachine)
{
    if (inBytes.size() < sizeof(uint64_t))
        return false;
    ioMachine.MemoryKiB = gLoad<uint64_t>(inBytes.data());
    return true;
}

bool gReadEventDescriptions(std::span<const uint8_t> inBytes, std::vector<PerfEventDescription>& outEvents)
{
    Utility::ByteCursor cursor(inBytes.data(), inBytes.size());
    const auto count = cursor.Read<uint32_t>();
    const auto attributeSize = cursor.Read<uint32_t>();
    std::vector<PerfEventDescription> events;
    PerfEventDescription event;
    for (uint32_t i = 0; i != count; ++i)
    {
        if (!gReadEventDescription(cursor, attributeSize, event))
            return false;
        events.push_back(event);
    }
    outEvents = std::move(events);
    return !cursor.HasFailed();
}

bool gReadBuildIDs(std::span<const uint8_t> inBytes, std::vector<PerfBuildID>& outBuildIDs)
{
    constexpr size_t miscOffset = 4;
    constexpr size_t sizeOffset = 6;
    std::vector<PerfBuildID> buildIDs;
    while (!inBytes.empty())
    {
        if (inBytes.size() < sPerfRecordHeaderSize)
            return false;
        const auto misc = gLoad<uint16_t>(inBytes.data() + miscOffset);
        const auto size = gLoad<uint16_t>(inBytes.data() + sizeOffset);
        PerfBuildID buildID;
        if (size < sPerfRecordHeaderSize || size > inBytes.size() ||
            !gReadBuildID(inBytes.subspan(sPerfRecordHeaderSize, size - sPerfRecordHeaderSize), misc, buildID))
            return false;
        buildIDs.push_back(std::move(buildID));
        inBytes = inBytes.subspan(size);
    }
    outBuildIDs = std::move(buildIDs);
    return true;
}

} // namespace Host
