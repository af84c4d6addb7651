// How a fuzz target says what must hold.
#pragma once

#include "Utility/Log.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace Fuzz
{

// Ends the target if inHolds is false, and says where.
inline void gExpect(bool inHolds, const char* inFile = __builtin_FILE(), int inLine = __builtin_LINE())
{
    if (inHolds)
        return;
    std::fprintf(stderr, "%s:%d: doesn't hold\n", inFile, inLine);
    std::abort();
}

// From now on an assertion that fails ends the target: whatever a file holds is no fault of ours.
inline void gExpectNoAssertions()
{
    Utility::gSetLogSinks(
        {{[](const char* inText, void*) { gExpect(std::string_view(inText).find("assertion failed") == std::string_view::npos); },
          nullptr}});
}

} // namespace Fuzz
