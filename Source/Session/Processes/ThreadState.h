// What a thread is doing, and the vocabulary to show it.
#pragma once

#include "Session/Processes/Theme.h"

#include <array>
#include <cstdint>

namespace Profiler
{

// Stored in files; never renumber. 0 to 7 index every array of times by state; 8 is unused.
enum class ThreadState : uint8_t // NOLINT(readability-identifier-naming): a byte of the files, named as there
{
    UnknownWaitState = 0, // waiting, since before the capture began
    Executing = 1,
    IO = 2,
    MemoryManagement = 3,
    Sleep = 4,
    Preemption = 5,
    Synchronization = 6,
    Idle = 7,
    NotStarted = 9, // no event has decided the state yet
    Finished = 10,  // the thread has ended; nothing changes any more
};
inline constexpr int sNumTimedThreadStates = 8;

// Milliseconds by ThreadState.
using StateTimes = std::array<double, sNumTimedThreadStates>;

// The wait reason of a thread that has ended. It is tested for before the table below is used.
inline constexpr uint8_t sWaitReasonTerminated = 22;

// The state of a thread that waits for the given reason; Idle for a reason above 37.
[[nodiscard]] ThreadState WaitReasonToState(uint8_t inWaitReason);

// Short names and descriptions of the states 0 to 7.
extern const std::array<const char*, sNumTimedThreadStates> ThreadStateName;
extern const std::array<const char*, sNumTimedThreadStates> ThreadStateDescription;

// Red, green, blue, alpha, each from 0 to 1.
using Color = std::array<float, 4>;

// REQUIRES: inState is one of 0 to 7.
[[nodiscard]] const Color& ThreadStateColor(EThemeType inTheme, ThreadState inState);

} // namespace Profiler
