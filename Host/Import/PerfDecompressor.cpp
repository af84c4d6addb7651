#include "Host/Import/PerfDecompressor.h"

#include "Host/Import/PerfRecords.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zstd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace Host
{
namespace
{

// Records compress to a tenth or a thirtieth. A file that grows by more than this is a bomb and not a capture.
constexpr uint64_t sMaxExpansion = 512;
constexpr uint64_t sMinExpandedLimit = 64ull << 20;

constexpr size_t sOutputBlockSize = 1u << 20;

// Opens a file that has no name and is gone with its descriptor. Memory is the fallback where no folder takes one.
int gOpenTemporaryFile()
{
    const char* folder = std::getenv("TMPDIR");
    const int descriptor =
        open(folder != nullptr && *folder != 0 ? folder : "/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
    return descriptor >= 0 ? descriptor : memfd_create("decompressed capture", MFD_CLOEXEC);
}

// Writes blocks to the temporary file and keeps track of whether the bytes so far end with a whole record.
class RecordWriter
{
public:
    RecordWriter() : mDescriptor(gOpenTemporaryFile()) {}

    ~RecordWriter()
    {
        if (mDescriptor >= 0)
            close(mDescriptor);
    }

    RecordWriter(const RecordWriter&) = delete;
    RecordWriter& operator=(const RecordWriter&) = delete;

    [[nodiscard]] int GetDescriptor() const { return mDescriptor; }
    [[nodiscard]] uint64_t GetSize() const { return mSize; }
    [[nodiscard]] bool IsBetweenRecords() const { return mRecordRest == 0 && mHeaderBytes == 0; }
    [[nodiscard]] bool IsSound() const { return mIsSound; }

    // Any part of the stream of records.
    [[nodiscard]] bool WriteStream(const uint8_t* inData, size_t inSize)
    {
        FollowRecords(inData, inSize);
        return Write(inData, inSize);
    }

    // A whole record. REQUIRES: IsBetweenRecords.
    [[nodiscard]] bool Write(const uint8_t* inData, size_t inSize)
    {
        mSize += inSize;
        if (mBlock.size() + inSize > sOutputBlockSize && !Flush())
            return false;
        mBlock.insert(mBlock.end(), inData, inData + inSize);
        return true;
    }

    [[nodiscard]] bool Flush()
    {
        size_t done = 0;
        while (done != mBlock.size())
        {
            const ssize_t written = write(mDescriptor, mBlock.data() + done, mBlock.size() - done);
            if (written < 0 && errno == EINTR)
                continue;
            if (written <= 0)
                return false;
            done += static_cast<size_t>(written);
        }
        mBlock.clear();
        return true;
    }

private:
    // Walks over the headers of what is written; a header may come in two parts.
    void FollowRecords(const uint8_t* inData, size_t inSize)
    {
        while (inSize != 0 && mIsSound)
        {
            const size_t wanted = mRecordRest != 0 ? mRecordRest : sPerfRecordHeaderSize - mHeaderBytes;
            const size_t part = std::min(wanted, inSize);
            if (mRecordRest != 0)
                mRecordRest -= part;
            else
                FollowHeader(inData, part);
            inData += part;
            inSize -= part;
        }
    }

    void FollowHeader(const uint8_t* inData, size_t inSize)
    {
        constexpr size_t sizeOffset = 6;
        std::memcpy(mHeader + mHeaderBytes, inData, inSize);
        mHeaderBytes += inSize;
        if (mHeaderBytes != sPerfRecordHeaderSize)
            return;
        const auto size = gLoad<uint16_t>(mHeader + sizeOffset);
        mHeaderBytes = 0;
        mIsSound = size >= sPerfRecordHeaderSize;
        mRecordRest = mIsSound ? size - sPerfRecordHeaderSize : 0;
    }

    int mDescriptor;
    std::vector<uint8_t> mBlock;
    uint64_t mSize = 0;
    uint8_t mHeader[sPerfRecordHeaderSize] = {};
    size_t mHeaderBytes = 0; // of the record whose header isn't complete
    size_t mRecordRest = 0;  // bytes of the last record that haven't been written yet
    bool mIsSound = true;    // false from a record of impossible size on: its end can't be told
};

struct FreeStream
{
    void operator()(ZSTD_DStream* inStream) const { ZSTD_freeDStream(inStream); }
};

// Takes the file's records one after the other.
class Decompressor
{
public:
    Decompressor(std::span<const uint8_t> inRecords, uint64_t inOffset, const std::string& inPath, Utility::ErrorState& ioErrors)
        : mRecords(inRecords),
          mOffset(inOffset),
          mPath(inPath),
          mErrors(ioErrors),
          mStream(ZSTD_createDStream()),
          mOutput(ZSTD_DStreamOutSize()),
          mLimit(std::max(inRecords.size() * sMaxExpansion, sMinExpandedLimit))
    {
    }

    bool Run(PerfDecompressed& outResult)
    {
        if (mWriter.GetDescriptor() < 0)
            return Fail(0, std::strerror(errno));
        size_t position = 0;
        while (position != mRecords.size() && mStopReason.empty())
        {
            const size_t size = GetRecordSize(position);
            if (size == 0)
                Stop(position, "impossible size");
            else if (!Take(position, size))
                return false;
            if (mStopReason.empty())
                position += size;
        }
        if (!mWriter.Flush())
            return Fail(position, std::strerror(errno));
        outResult.UnreadBytes = mStopReason.empty() ? 0 : mRecords.size() - position;
        outResult.StopReason = mStopReason;
        outResult.Records = MappedBytes::MapDescriptor(mWriter.GetDescriptor(), mWriter.GetSize(), mPath, mErrors);
        return outResult.Records != nullptr;
    }

private:
    bool Fail(size_t inPosition, const char* inReason)
    {
        mErrors.AddError(0, Utility::gFormat("%s, offset %" PRIu64 ": can't be decompressed: %s", mPath.c_str(),
                                             mOffset + inPosition, inReason));
        return false;
    }

    // With the bytes behind it; 0 for a record of impossible size.
    [[nodiscard]] size_t GetRecordSize(size_t inPosition) const
    {
        constexpr size_t sizeOffset = 6;
        const size_t remaining = mRecords.size() - inPosition;
        if (remaining < sPerfRecordHeaderSize)
            return 0;
        const size_t size = gLoad<uint16_t>(mRecords.data() + inPosition + sizeOffset);
        if (size < sPerfRecordHeaderSize || size > remaining)
            return 0;
        const uint64_t behind = gGetBytesBehind(mRecords.data() + inPosition, size);
        return behind <= remaining - size ? size + static_cast<size_t>(behind) : 0;
    }

    [[nodiscard]] bool Take(size_t inPosition, size_t inSize)
    {
        const uint8_t* record = mRecords.data() + inPosition;
        const auto type = gLoad<uint32_t>(record);
        if (type == EPerfRecordType::Compressed)
            return Decompress(inPosition, record + sPerfRecordHeaderSize, inSize - sPerfRecordHeaderSize);
        if (type == EPerfRecordType::Compressed2)
            return DecompressPadded(inPosition, record + sPerfRecordHeaderSize, inSize - sPerfRecordHeaderSize);
        if (mWriter.IsBetweenRecords())
            return mWriter.Write(record, inSize) || Fail(inPosition, std::strerror(errno));
        // It must not end up in the middle of a record of which one part hasn't come yet.
        mHeldBack.push_back({record, inSize});
        return true;
    }

    // The newer form says how many of its bytes count.
    [[nodiscard]] bool DecompressPadded(size_t inPosition, const uint8_t* inData, size_t inSize)
    {
        const uint64_t used = inSize >= sizeof(uint64_t) ? gLoad<uint64_t>(inData) : UINT64_MAX;
        if (inSize < sizeof(uint64_t) || used > inSize - sizeof(uint64_t))
        {
            Stop(inPosition, "claims more bytes than it holds");
            return true;
        }
        return Decompress(inPosition, inData + sizeof(uint64_t), static_cast<size_t>(used));
    }

    void Stop(size_t inPosition, const char* inReason)
    {
        mStopReason = Utility::gFormat("damaged record at offset %" PRIu64 " of the file: %s", mOffset + inPosition, inReason);
    }

    [[nodiscard]] bool Decompress(size_t inPosition, const uint8_t* inData, size_t inSize)
    {
        ZSTD_inBuffer input = {inData, inSize, 0};
        ZSTD_outBuffer output = {mOutput.data(), mOutput.size(), 0};
        do
        {
            output.pos = 0;
            const size_t result = ZSTD_decompressStream(mStream.get(), &output, &input);
            if (ZSTD_isError(result) != 0)
            {
                Stop(inPosition, ZSTD_getErrorName(result));
                return true;
            }
            if (mWriter.GetSize() + output.pos > mLimit)
                return Fail(inPosition, "it would grow out of all proportion to the file");
            if (!mWriter.WriteStream(mOutput.data(), output.pos))
                return Fail(inPosition, std::strerror(errno));
            // A full output block means that the stream may still hold something back.
        } while (input.pos != input.size || output.pos == output.size);
        if (!mWriter.IsSound())
            Stop(inPosition, "decompresses to a record of impossible size");
        return !mWriter.IsBetweenRecords() || WriteHeldBack();
    }

    [[nodiscard]] bool WriteHeldBack()
    {
        for (const std::span<const uint8_t> record : mHeldBack)
            if (!mWriter.Write(record.data(), record.size()))
                return Fail(0, std::strerror(errno));
        mHeldBack.clear();
        return true;
    }

    std::span<const uint8_t> mRecords;
    uint64_t mOffset;
    const std::string& mPath;
    Utility::ErrorState& mErrors;
    std::unique_ptr<ZSTD_DStream, FreeStream> mStream;
    std::vector<uint8_t> mOutput;
    uint64_t mLimit;
    RecordWriter mWriter;
    std::vector<std::span<const uint8_t>> mHeldBack;
    std::string mStopReason;
};

} // namespace

bool gHasCompressedRecords(std::span<const uint8_t> inRecords)
{
    constexpr size_t sizeOffset = 6;
    size_t position = 0;
    while (inRecords.size() - position >= sPerfRecordHeaderSize)
    {
        const auto type = gLoad<uint32_t>(inRecords.data() + position);
        const auto size = gLoad<uint16_t>(inRecords.data() + position + sizeOffset);
        if (type == EPerfRecordType::Compressed || type == EPerfRecordType::Compressed2)
            return true;
        if (size < sPerfRecordHeaderSize || size > inRecords.size() - position)
            return false;
        const uint64_t behind = gGetBytesBehind(inRecords.data() + position, size);
        position += size;
        if (behind > inRecords.size() - position)
            return false;
        position += static_cast<size_t>(behind);
    }
    return false;
}

bool gDecompressRecords(std::span<const uint8_t> inRecords, uint64_t inOffset, const std::string& inPath,
                        PerfDecompressed& outResult, Utility::ErrorState& ioErrors)
{
    return Decompressor(inRecords, inOffset, inPath, ioErrors).Run(outResult);
}

} // namespace Host
