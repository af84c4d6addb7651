// Zstandard frames that say in their header how much they hold, as the files of the system store their chunks.
//
// Threads: one at a time. Ownership: each object keeps its library context, which costs more to make than a chunk takes to pass.
#pragma once

#include "Utility/ByteBuffer.h"

#include <cstddef>
#include <cstdint>
#include <memory>

struct ZSTD_CCtx_s;
struct ZSTD_DCtx_s;

namespace Utility
{

class Compressor
{
public:
    Compressor();

    // Makes outFrame one frame of the bytes, compressed at level 1. False if memory doesn't suffice.
    [[nodiscard]] bool Compress(const void* inData, size_t inSize, ByteBuffer& outFrame);

    // Appends such a frame to those that are there. On failure ioFrames is as it was. REQUIRES: inData doesn't point into
    // ioFrames.
    [[nodiscard]] bool Append(const void* inData, size_t inSize, ByteBuffer& ioFrames);

private:
    struct FreeContext
    {
        void operator()(ZSTD_CCtx_s* inContext) const;
    };
    std::unique_ptr<ZSTD_CCtx_s, FreeContext> mContext;
};

class Decompressor
{
public:
    Decompressor();

    // Makes outContent what the frame holds. False, with outContent in no particular state, for bytes that aren't one whole frame
    // or whose header doesn't say how much it holds. Memory is only touched as far as the frame really fills it.
    [[nodiscard]] bool Decompress(const void* inFrame, size_t inSize, ByteBuffer& outContent);

private:
    struct FreeContext
    {
        void operator()(ZSTD_DCtx_s* inContext) const;
    };
    std::unique_ptr<ZSTD_DCtx_s, FreeContext> mContext;
};

} // namespace Utility
