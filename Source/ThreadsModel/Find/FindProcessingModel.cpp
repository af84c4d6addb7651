#include "ThreadsModel/Find/FindProcessingModel.h"

#include "FileSystem/File.h"
#include "Utility/Hash.h"

#include <algorithm>
#include <new>
#include <utility>

namespace Profiler
{
namespace
{

constexpr uint32_t sNoCode = 0;
constexpr const char* sCompressionFailure = "Failed to compress find index";

} // namespace

FindProcessingModel::FindProcessingModel(std::string inPath, System::JobScheduler& inScheduler)
    : mPath(std::move(inPath)),
      mScheduler(inScheduler)
{
}

FindProcessingModel::~FindProcessingModel()
{
    if (mWriteJob.IsValid())
        mScheduler.CancelJobsAndWait(mWriteJob);
}

bool FindProcessingModel::OpenIndexFile(Utility::ErrorState& ioErrors)
{
    FileSystem::gOpenWrite(mFile, mPath, std::ios_base::out | std::ios_base::binary | std::ios_base::trunc);
    return Utility::Check(ioErrors, mFile.is_open() && mFile.good(), sNoCode, "Failed to open %s for writing", mPath);
}

ThreadInvocationData& FindProcessingModel::CreateThreadInvocationData(ThreadID inThread)
{
    std::unique_ptr<ThreadInvocationData>& data = mThreads[inThread];
    data = std::make_unique<ThreadInvocationData>();
    return *data;
}

bool FindProcessingModel::DestroyThreadInvocationData(ThreadID inThread, Utility::ErrorState& ioErrors)
{
    const auto found = mThreads.find(inThread);
    if (found == mThreads.end())
        return true;
    if (!WaitForWriteJob(ioErrors))
        return false;
    mCurrentData = std::move(found->second);
    System::JobDescription job;
    job.Work = [this, inThread](System::Job&, const bool& inIsCanceled) { WriteSection(inThread, inIsCanceled); };
    mWriteJob = mScheduler.ScheduleJob(std::move(job));
    mThreads.erase(found);
    return true;
}

bool FindProcessingModel::WaitForWriteJob(Utility::ErrorState& ioErrors)
{
    if (mWriteJob.IsValid())
        mScheduler.WaitForJobs(mWriteJob);
    if (mJobErrors.GetEntries().empty())
        return true;
    ioErrors.AddEntries(mJobErrors);
    return false;
}

// Runs as a job.
void FindProcessingModel::WriteSection(ThreadID inThread, const bool& inIsCanceled)
try
{
    if (!BuildBlocks(inIsCanceled))
        return;
    const auto offset = static_cast<uint64_t>(mFile.tellp());
    const bool isCompressed = mCompressor.Compress(mTable.GetData(), mTable.GetSize(), mCompressedTable);
    if (!Utility::Check(mJobErrors, isCompressed, sNoCode, sCompressionFailure))
        return;
    if (System::gIsCanceled(inIsCanceled) || !WriteBytes(mCompressedTable) || System::gIsCanceled(inIsCanceled) ||
        !WriteBytes(mBlocks))
        return;
    mSections.push_back({offset, inThread, static_cast<uint32_t>(mCompressedTable.GetSize())});
    mCurrentData.reset();
}
catch (const std::bad_alloc&)
{
    mJobErrors.AddError(sNoCode, sCompressionFailure);
}

// The function table of the current data, and the blocks that it names. False if a block can't be made, with a reason, or if the
// job was cancelled.
bool FindProcessingModel::BuildBlocks(const bool& inIsCanceled)
{
    mBlocks.Clear();
    mTable.Clear();
    const ThreadInvocationData::FunctionTable& functions = mCurrentData->GetFunctions();
    mTable.AppendValue(static_cast<uint64_t>(functions.size()));
    for (const auto& [function, chunks] : functions)
    {
        if (!AppendFunction(function, chunks, inIsCanceled))
            return false;
    }
    return true;
}

bool FindProcessingModel::AppendFunction(const ResolvedAddress& inFunction, const FunctionChunks& inChunks,
                                         const bool& inIsCanceled)
{
    if (System::gIsCanceled(inIsCanceled))
        return false;
    // Both lists stand in memory as they do in the file.
    static_assert(sizeof(FunctionChunks::Range) == 2 * sizeof(int32_t));
    mScratch.Clear();
    mScratch.Append(inChunks.GetRanges().data(), inChunks.GetRanges().size() * sizeof(FunctionChunks::Range));
    mScratch.Append(inChunks.GetChunks().data(), inChunks.GetChunks().size() * sizeof(int32_t));
    const uint64_t offset = mBlocks.GetSize();
    if (!Utility::Check(mJobErrors, mCompressor.Append(mScratch.GetData(), mScratch.GetSize(), mBlocks), sNoCode,
                        sCompressionFailure))
        return false;
    mTable.AppendValue(inFunction.RelativeAddress);
    mTable.AppendValue(inFunction.ResolveIndex.Index);
    mTable.AppendValue(offset);
    mTable.AppendValue(static_cast<uint64_t>(mBlocks.GetSize() - offset));
    mTable.AppendValue(static_cast<uint32_t>(inChunks.GetRanges().size()));
    mTable.AppendValue(static_cast<uint32_t>(inChunks.GetChunks().size()));
    return true;
}

bool FindProcessingModel::WriteBytes(const Utility::ByteBuffer& inBytes)
{
    mFile.write(reinterpret_cast<const char*>(inBytes.GetData()), static_cast<std::streamsize>(inBytes.GetSize()));
    return Utility::Check(mJobErrors, mFile.is_open() && mFile.good(), sNoCode, "Failed to write find index");
}

bool FindProcessingModel::FinishIndexFile(Utility::ErrorState& ioErrors)
{
    if (mIsFinished)
        return true;
    FindIndexFooter footer;
    footer.TableOffset = static_cast<uint64_t>(mFile.tellp());
    footer.NumThreads = static_cast<uint32_t>(mSections.size());
    std::sort(mSections.begin(), mSections.end(),
              [](const FindIndexSection& inOne, const FindIndexSection& inOther) { return inOne.ThreadID < inOther.ThreadID; });
    mTable.Clear();
    mTable.AppendValue(static_cast<uint64_t>(mSections.size()));
    for (const FindIndexSection& section : mSections)
    {
        mTable.AppendValue(section.ThreadID);
        mTable.AppendValue(section.Offset);
        mTable.AppendValue(section.TableSize);
    }
    footer.TableHash = Utility::gHash64(mTable.GetData(), mTable.GetSize());
    if (!Utility::Check(ioErrors, mCompressor.Compress(mTable.GetData(), mTable.GetSize(), mCompressedTable), sNoCode,
                        sCompressionFailure))
        return false;
    footer.TableSize = mCompressedTable.GetSize();
    const uint64_t footerHash = Utility::gHash64(&footer, sizeof(footer));

    const auto write = [&](const void* inBytes, size_t inSize)
    {
        mFile.write(static_cast<const char*>(inBytes), static_cast<std::streamsize>(inSize));
        return Utility::Check(ioErrors, mFile.is_open() && mFile.good(), sNoCode, "Failed to write to %s", mPath);
    };
    if (!write(mCompressedTable.GetData(), mCompressedTable.GetSize()) || !write(&footer, sizeof(footer)) ||
        !write(&footerHash, sizeof(footerHash)))
        return false;
    mFile.close();
    // What the stream held back reaches the disk only now.
    mIsFinished = Utility::Check(ioErrors, mFile.good(), sNoCode, "Failed to write to %s", mPath);
    return mIsFinished;
}

} // namespace Profiler
