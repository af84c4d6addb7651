#include "Utility/Compression.h"

#include <zstd.h>

namespace Utility
{
namespace
{

constexpr int sLevel = 1;

// No block of a frame holds more than 128 KiB, or takes fewer than 3 bytes and one of content.
constexpr uint64_t sMaxRatio = (128u << 10) / 4;

} // namespace

Compressor::Compressor() : mContext(ZSTD_createCCtx()) {}

void Compressor::FreeContext::operator()(ZSTD_CCtx_s* inContext) const
{
    ZSTD_freeCCtx(inContext);
}

bool Compressor::Compress(const void* inData, size_t inSize, ByteBuffer& outFrame)
{
    outFrame.Clear();
    return Append(inData, inSize, outFrame);
}

bool Compressor::Append(const void* inData, size_t inSize, ByteBuffer& ioFrames)
{
    const size_t start = ioFrames.GetSize();
    const size_t bound = ZSTD_compressBound(inSize);
    if (mContext == nullptr || ZSTD_isError(bound) != 0 || !ioFrames.TryResize(start + bound))
        return false;
    const size_t size = ZSTD_compressCCtx(mContext.get(), ioFrames.GetData() + start, bound, inData, inSize, sLevel);
    const bool isCompressed = ZSTD_isError(size) == 0;
    ioFrames.Resize(isCompressed ? start + size : start);
    return isCompressed;
}

Decompressor::Decompressor() : mContext(ZSTD_createDCtx()) {}

void Decompressor::FreeContext::operator()(ZSTD_DCtx_s* inContext) const
{
    ZSTD_freeDCtx(inContext);
}

bool Decompressor::Decompress(const void* inFrame, size_t inSize, ByteBuffer& outContent)
{
    const unsigned long long contentSize = ZSTD_getFrameContentSize(inFrame, inSize);
    const bool isTold = contentSize != ZSTD_CONTENTSIZE_UNKNOWN && contentSize != ZSTD_CONTENTSIZE_ERROR;
    if (mContext == nullptr || !isTold || contentSize / sMaxRatio > inSize ||
        ZSTD_findFrameCompressedSize(inFrame, inSize) != inSize || !outContent.TryResize(contentSize))
        return false;
    return ZSTD_decompressDCtx(mContext.get(), outContent.GetData(), contentSize, inFrame, inSize) == contentSize;
}

} // namespace Utility
