// The functions of the kernel and its modules, from the kernel's symbol list.
//
// Threads: any; each call reads the list anew, so whoever asks keeps the result. The table holds absolute addresses of the time
// of recording.
#pragma once

#include "Host/Linux/BuildID.h"
#include "Host/Linux/SymbolLoadResult.h"
#include "Host/Linux/SymbolTable.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace Host
{

struct KernelSymbolsRequest
{
    std::string ListPath = "/proc/kallsyms";
    std::string NotesPath = "/sys/kernel/notes"; // where the build id of the list's kernel stands
    BuildID RecordedID;                          // empty: not recorded, the list is taken as it is

    // Where this symbol ("_text" or "_stext") lay when the capture was recorded. The kernel may have moved since: all its
    // functions are shifted by the difference. Address 0: not recorded, no shift.
    std::string ReferenceName;
    uint64_t ReferenceAddress = 0;
};

struct KernelSymbols
{
    ESymbolLoadResult Result = ESymbolLoadResult::FileMissing;
    std::shared_ptr<const SymbolTable> Table; // not null if Result is Loaded
};

// Reads and checks the list. BuildIDMismatch if another kernel runs now than the recorded one, or its id can't be read.
// Functions of modules are left out when the kernel has moved: modules move on their own, so their old places are unknown.
[[nodiscard]] KernelSymbols gLoadKernelSymbols(const KernelSymbolsRequest& inRequest);

// As above from the list's text, without the checks of files and ids.
[[nodiscard]] KernelSymbols gParseKernelSymbols(std::string_view inList, std::string_view inReferenceName,
                                                uint64_t inReferenceAddress);

} // namespace Host
