// A file of chunks, as the streaming manager sees it: blocks are appended at its end and read back from anywhere.
//
// The operations are virtual so that tests can stand in for a disk that fails. Threads: one at a time; the streaming thread, once
// the file is open. Ownership: the manager. Invariant: bytes that were written never change.
#pragma once

#include "Utility/ByteBuffer.h"

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

namespace Profiler
{

class ChunkFile
{
public:
    enum class EMode
    {
        Reading,
        Writing, // and reading; a file that is there keeps what it holds
    };

    ChunkFile() = default;
    virtual ~ChunkFile() = default;

    ChunkFile(const ChunkFile&) = delete;
    ChunkFile& operator=(const ChunkFile&) = delete;

    // Opens the file, after closing what was open. False, and closed, if that can't be done.
    [[nodiscard]] virtual bool Open(const std::string& inPath, EMode inMode);
    virtual void Close();

    // Makes outBytes the given part of the file. False, with outBytes in no particular state, if not all of it is there or it
    // can't be read.
    [[nodiscard]] virtual bool Read(uint64_t inOffset, uint64_t inSize, Utility::ByteBuffer& outBytes);

    // Writes behind the end of the file, in one piece, and gives the place of the first byte. False if it wasn't all written;
    // the file may then end in a part of it, which nobody refers to.
    [[nodiscard]] virtual bool Append(const Utility::ByteBuffer& inBytes, uint64_t& outOffset);

    // Hands what was written to the system. False if the file isn't open, or this or the last write failed.
    [[nodiscard]] virtual bool Flush();

    // Why the last Append or Flush failed, as errno numbers it.
    [[nodiscard]] int GetError() const { return mError; }

protected:
    // Keeps the reason, and returns false.
    bool Fail(int inError);

private:
    [[nodiscard]] bool GetEnd(uint64_t& outEnd);

    std::fstream mStream;
    int mError = 0;
};

} // namespace Profiler
