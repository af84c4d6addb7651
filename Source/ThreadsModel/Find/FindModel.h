// Where functions ran, as Find.dat tells it. Docs/FindIndex.md describes the file.
//
// Threads: LoadIndex on the one that owns the model. Afterwards a find set, the streams and work space of one kind of search, is
// for one thread at a time, and different sets are independent of each other. Ownership: the ThreadsModel.
#pragma once

#include "Serialization/ReaderErrorState.h"
#include "Session/Modules/ResolvedAddress.h"
#include "ThreadsModel/Find/FindIndexFile.h"
#include "Utility/ByteBuffer.h"
#include "Utility/Compression.h"

#include <array>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace Profiler
{

// The kinds of searches, which can run at the same time.
enum class EFindSet : uint8_t
{
    FindResults = 0,
    ContextResults = 1,
};
inline constexpr size_t sNumFindSets = 2;

// Where the chunks of one function are told.
struct FindFunctionEntry
{
    ResolvedAddress Function;
    uint64_t BlockOffset = 0; // in the file
    uint64_t BlockSize = 0;   // bytes of the frame
    uint32_t NumRanges = 0;
    uint32_t NumChunks = 0;
};

class FindModel
{
public:
    FindModel() = default;

    FindModel(const FindModel&) = delete;
    FindModel& operator=(const FindModel&) = delete;

    // Opens the file for both sets and reads which threads it has. False, with the model as if nothing was loaded, if the file
    // isn't one or is damaged.
    [[nodiscard]] bool LoadIndex(const std::string& inPath, Serialization::ReaderErrorState& ioErrors);

    // The functions of a thread, sorted by address and then by the bits of the resolve index that comparisons look at. Empty for
    // a thread that isn't in the file, and for a damaged one.
    [[nodiscard]] std::vector<FindFunctionEntry> ReadThreadFunctions(EFindSet inSet, ThreadID inThread);

    // What a frame of the file holds. False if it can't be read or decompressed.
    [[nodiscard]] bool ReadBlock(EFindSet inSet, uint64_t inOffset, uint64_t inSize, Utility::ByteBuffer& outContent);

    [[nodiscard]] const std::vector<FindIndexSection>& GetSections() const { return mSections; }

private:
    // What one kind of search needs of the file.
    struct FindSet
    {
        std::ifstream File;
        Utility::Decompressor Decompressor;
        Utility::ByteBuffer Compressed;
        Utility::ByteBuffer Content; // work space of ReadThreadFunctions
    };

    [[nodiscard]] bool Load(const std::string& inPath, Serialization::ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadFooter(const std::string& inPath, FindIndexFooter& outFooter,
                                  Serialization::ReaderErrorState& ioErrors);
    [[nodiscard]] bool ParseThreadTable(const Utility::ByteBuffer& inTable);

    uint64_t mFileSize = 0;
    std::vector<FindIndexSection> mSections; // by ThreadID
    std::array<FindSet, sNumFindSets> mSets;
};

} // namespace Profiler
