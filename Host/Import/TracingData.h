// The format texts of tracepoints as perf stores them in a file: the same container as that of the kernel's own tracer.
//
// Threads: any. Ownership: texts are views into the file.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Host
{

struct TracepointText
{
    std::string_view System; // "sched"
    std::string_view Format; // as in the kernel's events/SYSTEM/NAME/format
};

struct TracingData
{
    uint32_t LongSize = 0; // bytes of a long on the recorded machine
    std::vector<TracepointText> Events;
};

// False if the container is damaged; the events before the damage are in outData.
[[nodiscard]] bool gReadTracingData(std::span<const uint8_t> inBytes, TracingData& outData);

// What a format tells, in the form in which it can be handed to a parser that isn't made for anything but what the kernel writes.
struct CleanFormat
{
    uint64_t ID = 0;
    std::string Name;
    std::string Text; // name, id and the fields that are written as usual; how to print them is left out
};

// False if the text isn't a format. Fields that are written in an unusual way are left out.
[[nodiscard]] bool gCleanFormat(std::string_view inFormat, CleanFormat& outFormat);

} // namespace Host
