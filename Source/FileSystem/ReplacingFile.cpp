#include "FileSystem/ReplacingFile.h"

#include "FileSystem/Delete.h"
#include "FileSystem/File.h"

#include <utility>

namespace FileSystem
{

ReplacingFile::ReplacingFile(std::string inPath) : mPath(std::move(inPath)), mNewPath(mPath + ".new")
{
    gOpenWrite(mFile, mNewPath, std::ios_base::out | std::ios_base::binary | std::ios_base::trunc);
    mIsMade = mFile.is_open();
}

ReplacingFile::~ReplacingFile()
{
    if (mIsCommitted || !mIsMade)
        return;
    mFile.close();
    static_cast<void>(gDeleteFile(mNewPath));
}

void ReplacingFile::Write(const void* inData, size_t inSize)
{
    mFile.write(static_cast<const char*>(inData), static_cast<std::streamsize>(inSize));
}

bool ReplacingFile::Commit()
{
    // Some file systems tell only when a file is closed that there was no room for it.
    mFile.close();
    mIsCommitted = mFile.good() && gRename(mNewPath, mPath);
    return mIsCommitted;
}

} // namespace FileSystem
