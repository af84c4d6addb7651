// Writes a file anew so that the one that is there stays whole until the new one is: a full disk, or an end in the middle, never
// leaves half a file under its name.
//
// The new content goes to a file beside it, under its name with ".new" behind. Threads: one at a time. Ownership: the file beside
// it is deleted unless Commit has put it in place. Failure: the results alone.
#pragma once

#include <cstddef>
#include <fstream>
#include <string>

namespace FileSystem
{

class ReplacingFile
{
public:
    // Opens the file beside inPath.
    explicit ReplacingFile(std::string inPath);
    ~ReplacingFile();

    ReplacingFile(const ReplacingFile&) = delete;
    ReplacingFile& operator=(const ReplacingFile&) = delete;

    [[nodiscard]] bool IsOpen() const { return mIsMade; }

    // What goes wrong here is told by Commit.
    void Write(const void* inData, size_t inSize);

    // Puts the new file in the place of the old one. False if anything wasn't written; the old file is then untouched.
    [[nodiscard]] bool Commit();

private:
    std::string mPath;
    std::string mNewPath;
    std::ofstream mFile;
    bool mIsMade = false;
    bool mIsCommitted = false;
};

} // namespace FileSystem
