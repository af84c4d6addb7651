// Hears what the streaming manager does, for somebody who looks into its work.
//
// Threads: called from any thread, several at once. It must not call back.
// Ownership: whoever installs it, and it outlives the manager's work.
#pragma once

#include <cstdint>
#include <string>

namespace Profiler
{

class IStreamingLog
{
public:
    virtual ~IStreamingLog() = default;

    virtual void Log(const std::string& inLine) = 0;

    // Chunks in memory, being loaded or being filled.
    virtual void ChunkCountChanged(uint64_t inCount) = 0;

    // Bytes of the chunks that aren't being filled.
    virtual void MemoryChanged(int64_t inBytes) = 0;

    // Requests that the streaming thread hasn't come to.
    virtual void PendingLoadsChanged(uint32_t inCount) = 0;
};

} // namespace Profiler
