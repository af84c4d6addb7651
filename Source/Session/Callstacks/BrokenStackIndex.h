// Where the broken ranges of each thread lie in stacks.dat. Docs/BrokenStacks.md describes the two files.
//
// A broken range is a span of time in which a thread's stacks are cut short. Bars that the good stack at its end still shows have
// gone on meanwhile.
//
// Threads: read-only once it is loaded. Ownership: the BrokenStackHolder. Invariant: the chunks of a thread stand in the order in
// which they were written.
#pragma once

#include "RTTI/Declare.h"
#include "RTTI/Object.h"
#include "Serialization/ReaderErrorState.h"
#include "Session/Events/TraceEvent.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace RTTI
{
class Registry;
}

namespace Profiler
{

class BrokenStackIndex final : public RTTI::Object
{
public:
    struct Chunk
    {
        double StartTime = 0.0; // milliseconds, start of the first range
        double EndTime = 0.0;   // end of the last range
        uint64_t FileOffset = 0;
        uint64_t Size = 0; // bytes in stacks.dat
    };
    using ChunkList = std::vector<Chunk>; // in file order

    const RTTI::Type& GetType() const override;

    // Reads an index file. Null, with the reason in ioErrors, if it is missing or damaged.
    [[nodiscard]] static std::unique_ptr<BrokenStackIndex> sLoad(const std::string& inPath, const RTTI::Registry& inRegistry,
                                                                 Serialization::ReaderErrorState& ioErrors);

    std::unordered_map<ThreadID, ChunkList> ChunksByThread;
};

// The two files in the folder of a session.
[[nodiscard]] std::string gGetBrokenStackIndexPath(const std::string& inDirectory);
[[nodiscard]] std::string gGetBrokenStackDataPath(const std::string& inDirectory);

} // namespace Profiler

RTTI_DECLARE(Profiler::BrokenStackIndex::Chunk);
RTTI_DECLARE(Profiler::BrokenStackIndex);
