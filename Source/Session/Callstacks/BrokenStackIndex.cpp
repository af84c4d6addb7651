#include "Session/Callstacks/BrokenStackIndex.h"

#include "FileSystem/File.h"
#include "FileSystem/Path.h"
#include "Serialization/BinaryFileReader.h"

RTTI_BEGIN(Profiler::BrokenStackIndex::Chunk, 1)
    RTTI_PROPERTY("StartTime", StartTime)
    RTTI_PROPERTY("EndTime", EndTime)
    RTTI_PROPERTY("FileOffset", FileOffset)
    RTTI_PROPERTY("Size", Size)
RTTI_END()

RTTI_BEGIN(Profiler::BrokenStackIndex, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("ChunksByThread", ChunksByThread)
RTTI_END()

namespace Profiler
{

const RTTI::Type& BrokenStackIndex::GetType() const
{
    return RTTI::gTypeOf<BrokenStackIndex>();
}

std::unique_ptr<BrokenStackIndex> BrokenStackIndex::sLoad(const std::string& inPath, const RTTI::Registry& inRegistry,
                                                          Serialization::ReaderErrorState& ioErrors)
{
    using Serialization::EReaderError;
    const Utility::ErrorContextScope context(&ioErrors, inPath);
    if (!Serialization::Check(ioErrors, FileSystem::gExists(inPath), EReaderError::FileNotFound, "Unable to open file"))
        return nullptr;

    std::vector<std::unique_ptr<RTTI::Object>> objects;
    if (!Serialization::gReadObjectsFromFile(inPath, inRegistry, {}, {}, Serialization::ReadObjectMode::Strict, objects,
                                             ioErrors))
        return nullptr;
    for (std::unique_ptr<RTTI::Object>& object : objects)
    {
        if (RTTI::gIsDerivedFrom(object->GetType(), RTTI::gTypeOf<BrokenStackIndex>()))
            return std::unique_ptr<BrokenStackIndex>(static_cast<BrokenStackIndex*>(object.release()));
    }
    ioErrors.AddError(EReaderError::Corrupt,
                      "The file does not appear to be a BrokenStackIndex file (missing BrokenStackIndex object)");
    return nullptr;
}

std::string gGetBrokenStackIndexPath(const std::string& inDirectory)
{
    return FileSystem::gCombinePath(inDirectory, "stacks.index");
}

std::string gGetBrokenStackDataPath(const std::string& inDirectory)
{
    return FileSystem::gCombinePath(inDirectory, "stacks.dat");
}

} // namespace Profiler
