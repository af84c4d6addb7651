// A folder that comes into being all at once: its files are written to another one beside it, which takes its place at the end.
//
// Threads: one. Ownership: deletes the folder beside it unless Commit has put it in place; a lock keeps other programs away from
// it until then. Invariant: whatever happens, the folder is as it was before or whole, and nothing else ever bears its name.
#pragma once

#include "Utility/ErrorState.h"

#include <string>

namespace Host
{

class StagedFolder
{
public:
    // inPath is where the folder is to be.
    explicit StagedFolder(std::string inPath);
    ~StagedFolder();

    StagedFolder(const StagedFolder&) = delete;
    StagedFolder& operator=(const StagedFolder&) = delete;

    // Makes the folder beside it, empty. What an interrupted program has left there goes; false if another one is still at it.
    [[nodiscard]] bool Make(Utility::ErrorState& ioErrors);

    // Puts it in place. With inReplaces a folder that is there makes way for it; without, one that came meanwhile is a failure.
    [[nodiscard]] bool Commit(bool inReplaces, Utility::ErrorState& ioErrors);

    // Where the files are to be written until then.
    [[nodiscard]] const std::string& GetStagingPath() const { return mStagingPath; }

private:
    std::string mPath;
    std::string mStagingPath;
    bool mIsMade = false;
    int mLock = -1; // a descriptor of the folder beside it
};

} // namespace Host
