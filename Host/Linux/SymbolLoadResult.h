// How an attempt to read a module's symbols ended. The summary shows the text beside a module whose frames have no names.
#pragma once

#include <cstdint>

namespace Host
{

enum class ESymbolLoadResult : uint8_t
{
    Loaded,            // a full symbol table
    LoadedDynamicOnly, // stripped: exported functions and stubs only
    FileMissing, // no such file, not a regular file, or deleted with nothing to tell whether a file of that name is the same
    NotElf,
    BuildIDMismatch, // the file is another build than the one recorded
    NoSymbols,       // sound, but names no function
    Damaged,
    Restricted, // the kernel hides its addresses
};

// Whether the result comes with a table.
[[nodiscard]] constexpr bool gHasSymbols(ESymbolLoadResult inResult)
{
    return inResult == ESymbolLoadResult::Loaded || inResult == ESymbolLoadResult::LoadedDynamicOnly;
}

// A few words in lower case, without a full stop: "file is missing".
[[nodiscard]] constexpr const char* gGetSymbolLoadText(ESymbolLoadResult inResult)
{
    switch (inResult)
    {
    case ESymbolLoadResult::Loaded:
        return "symbols loaded";
    case ESymbolLoadResult::LoadedDynamicOnly:
        return "stripped, only exported functions have names";
    case ESymbolLoadResult::FileMissing:
        return "file is missing";
    case ESymbolLoadResult::NotElf:
        return "not an ELF file";
    case ESymbolLoadResult::BuildIDMismatch:
        return "file is another build than the recorded one";
    case ESymbolLoadResult::NoSymbols:
        return "file names no functions";
    case ESymbolLoadResult::Damaged:
        return "file is damaged";
    case ESymbolLoadResult::Restricted:
        return "the kernel hides its addresses (kernel.kptr_restrict)";
    }
    return "unknown";
}

} // namespace Host
