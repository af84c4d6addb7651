// Assertions report a fault of our own and go on: code behind one stays correct when its condition is false.
// Threads: any. For data that comes from outside an ErrorState is right, not an assertion.
#pragma once

#include "Utility/Log.h"

// Writes two log lines if inCondition is false: the expression with its place, and the message, itself a format string.
// inPath is the source path below the library folder without its extension, as "ThreadsModel/DetailLODThread"; it stays the same
// when the code moves to a neighbouring file.
#define PROFILER_ASSERT_AT(inPath, inCondition, ...)                                                                             \
    do                                                                                                                           \
    {                                                                                                                            \
        if (!(inCondition)) [[unlikely]]                                                                                         \
        {                                                                                                                        \
            Utility::gLog("\"%s\" assertion failed at %s (%d):", #inCondition, inPath, __LINE__);                                \
            Utility::gLog(__VA_ARGS__);                                                                                          \
        }                                                                                                                        \
    } while (false)
