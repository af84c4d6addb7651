// The library that the kernel maps into each process. It exists in memory only, so the copy in this process stands for those in
// the recorded ones. Threads: any.
#pragma once

#include <cstdint>
#include <vector>

namespace Host
{

// The bytes of its ELF file; empty if this process has none.
[[nodiscard]] std::vector<uint8_t> gCopyOwnVDSO();

} // namespace Host
