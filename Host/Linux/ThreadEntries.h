// Where the stacks of Linux threads begin: the functions that the kernel or the C library calls to start a thread.
//
// Threads: any.
#pragma once

#include <string_view>

namespace Host
{

// Whether a thread begins in this function, or in one that only ever calls a thread's first own function. Names as in symbol
// tables, with or without a version ("__libc_start_main@@GLIBC_2.34").
[[nodiscard]] bool gIsThreadEntry(std::string_view inFunctionName);

// Whether threads begin in the C library or the dynamic loader of this path. Both mostly come without names for the functions in
// which that happens.
[[nodiscard]] bool gHasThreadEntries(std::string_view inModulePath);

} // namespace Host
