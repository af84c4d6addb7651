// The separate debug file that an ELF file names.
#pragma once

#include <cstdint>
#include <string>

namespace Host
{

// What a module notes about its debug file.
struct DebugLink
{
    std::string FileName; // without folder; empty if the module notes none
    uint32_t Checksum = 0;
};

} // namespace Host
