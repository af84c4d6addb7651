// From the state in which the kernel's scheduler leaves a thread to the reason that a switch-out event gives.
#pragma once

#include <cstdint>

namespace Host
{

// The wait reasons that a Linux capture uses.
inline constexpr uint8_t sWaitForIO = 0;       // uninterruptible
inline constexpr uint8_t sWaitSuspended = 5;   // stopped, traced or parked
inline constexpr uint8_t sWaitForThread = 6;   // interruptible: for another thread, a timer or a message
inline constexpr uint8_t sWaitIdleWorker = 13; // a kernel worker without work
inline constexpr uint8_t sWaitTerminated = 22; // the thread has ended
inline constexpr uint8_t sWaitPreempted = 32;  // still runnable

// inState is prev_state of sched_switch. inHasExited: the thread's end was recorded in front of this switch.
[[nodiscard]] constexpr uint8_t gGetWaitReason(uint64_t inState, bool inHasExited)
{
    constexpr uint64_t interruptible = 0x01;
    constexpr uint64_t uninterruptible = 0x02;
    constexpr uint64_t stoppedTracedOrParked = 0x04 | 0x08 | 0x40;
    constexpr uint64_t dead = 0x10 | 0x20;
    constexpr uint64_t deadOnOldKernels = 0x40; // parked since Linux 4.14
    constexpr uint64_t idle = 0x80;
    constexpr uint64_t reported = 0xFF; // what lies above marks a preemption, with no bit of these set

    if ((inState & reported) == 0)
        return sWaitPreempted;
    if ((inState & dead) != 0 || (inHasExited && (inState & deadOnOldKernels) != 0))
        return sWaitTerminated;
    if ((inState & interruptible) != 0)
        return sWaitForThread;
    if ((inState & idle) != 0)
        return sWaitIdleWorker;
    if ((inState & uninterruptible) != 0)
        return sWaitForIO;
    return (inState & stoppedTracedOrParked) != 0 ? sWaitSuspended : sWaitForThread;
}

} // namespace Host
