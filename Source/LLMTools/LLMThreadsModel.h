// What the tools keep between calls for a language model: the instances that it has opened. One serves all sessions.
//
// Threads: the host's tool thread, one call at a time. Ownership: the host's. Invariant: a key is never given out twice.
#pragma once

#include "Session/Events/TraceEvent.h"
#include "Session/Host/Tools.h"

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace Profiler
{

// One call of a function, in milliseconds.
struct InstanceSpan
{
    double Start = 0.0;
    double End = 0.0;
};

struct InstancesRecord
{
    int32_t SessionKey = -1; // where it came from
    std::unordered_map<ThreadID, std::vector<InstanceSpan>> SpansByThread;
};

class LLMThreadsModel : public ILLMModel
{
public:
    // Drops every record of the session.
    void CloseSession(int32_t inSessionKey) override;

    // Null for an unknown key.
    [[nodiscard]] const InstancesRecord* GetInstances(int32_t inKey) const;

    // False for an unknown key.
    bool CloseInstances(int32_t inKey);

    // Keeps the record and gives its key.
    int32_t AddInstances(std::unique_ptr<InstancesRecord> inRecord);

private:
    std::unordered_map<int32_t, std::unique_ptr<InstancesRecord>> mOpenInstances;
    uint32_t mNextKey = 0; // incremented before use
};

} // namespace Profiler
