// The broken ranges of a session, as far as they are there.
//
// Threads: loaded by the thread that opens the session or has found the ranges; read-only while readers use it. Ownership: the
// session. Invariant: an index that was loaded can be read to its last range.
#pragma once

#include "Session/Callstacks/BrokenStackIndex.h"
#include "Utility/ErrorState.h"

#include <memory>
#include <string>

namespace Profiler
{

class BrokenStackHolder
{
public:
    // inDirectory is the folder of the session file. Touches no file.
    explicit BrokenStackHolder(std::string inDirectory) : mDirectory(std::move(inDirectory)) {}

    // Loads stacks.index and looks whether stacks.dat holds what it says. False, with the text of the first failure in ioErrors
    // and nothing loaded, if the ranges have to be found anew.
    [[nodiscard]] bool Load(const RTTI::Registry& inRegistry, Utility::ErrorState& ioErrors);

    // The chunks of a thread; null if it has none or nothing is loaded.
    [[nodiscard]] const BrokenStackIndex::ChunkList* FindChunks(ThreadID inThread) const;

    // Null if nothing is loaded.
    [[nodiscard]] const BrokenStackIndex* GetIndex() const { return mIndex.get(); }
    [[nodiscard]] const std::string& GetDirectory() const { return mDirectory; }

private:
    std::string mDirectory;
    std::unique_ptr<BrokenStackIndex> mIndex;
};

} // namespace Profiler
