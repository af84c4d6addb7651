#include "Session/Callstacks/BrokenStackHolder.h"

#include "Session/Callstacks/BrokenStackChunk.h"

namespace Profiler
{
namespace
{

constexpr uint32_t sNoCode = 0;

// Reads all ranges once: there are few of them, and what is damaged can still be made anew now, but not in the middle of a pass.
bool gCheckChunks(const BrokenStackIndex& inIndex, const std::string& inDataPath, Serialization::ReaderErrorState& ioErrors)
{
    using Serialization::EReaderError;
    if (inIndex.ChunksByThread.empty())
        return true;
    const Utility::ErrorContextScope context(&ioErrors, inDataPath);
    BrokenStackFile file;
    if (!Serialization::Check(ioErrors, file.Open(inDataPath), EReaderError::FileNotAccessible, "Unable to open file"))
        return false;
    std::vector<BrokenRange> ranges;
    for (const auto& [thread, chunks] : inIndex.ChunksByThread)
    {
        for (const BrokenStackIndex::Chunk& chunk : chunks)
        {
            if (!Serialization::Check(ioErrors, file.ReadChunk(chunk, ranges), EReaderError::Corrupt,
                                      "The broken ranges of thread %d are damaged", thread))
                return false;
        }
    }
    return true;
}

} // namespace

bool BrokenStackHolder::Load(const RTTI::Registry& inRegistry, Utility::ErrorState& ioErrors)
{
    Serialization::ReaderErrorState errors;
    mIndex = BrokenStackIndex::sLoad(gGetBrokenStackIndexPath(mDirectory), inRegistry, errors);
    if (mIndex != nullptr && !gCheckChunks(*mIndex, gGetBrokenStackDataPath(mDirectory), errors))
        mIndex.reset();
    if (mIndex == nullptr)
        ioErrors.AddError(sNoCode, errors.GetEntries().empty() ? std::string() : errors.GetEntries().front().Message);
    return mIndex != nullptr;
}

const BrokenStackIndex::ChunkList* BrokenStackHolder::FindChunks(ThreadID inThread) const
{
    if (mIndex == nullptr)
        return nullptr;
    const auto found = mIndex->ChunksByThread.find(inThread);
    return found != mIndex->ChunksByThread.end() ? &found->second : nullptr;
}

} // namespace Profiler
