// What a capture says about the machine that it was recorded on.
//
// Threads: any. Ownership: plain values.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Host
{

// Build id of one file that was mapped while recording.
struct PerfBuildID
{
    int32_t ProcessID = 0; // -1 or 0 for most; guests have their own
    std::string Path;      // "[kernel.kallsyms]" for the kernel
    std::string BuildID;   // lower-case hexadecimal digits
    bool IsKernel = false; // the kernel or one of its modules
};

// What the file says about the machine and the recording. Texts are empty and numbers 0 where it says nothing.
struct PerfMachine
{
    std::string HostName;
    std::string KernelRelease;
    std::string PerfVersion;
    std::string Architecture;
    std::string CpuDescription;
    std::vector<std::string> CommandLine; // of perf record
    uint32_t CpusOnline = 0;
    uint32_t CpusAvailable = 0;
    uint64_t MemoryKiB = 0;
};

} // namespace Host
