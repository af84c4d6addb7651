// A folder that comes into being all at once: its files are written to another one beside it, which takes its place at the end.
//
// Threads: one. Ownership: deletes the folder beside it unless Commit has put it in place. Invariant: whatever happens, the
// folder is as it was before or whole, and nothing else ever bears its name.
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

    // Makes the folder beside it, empty. What an interrupted program has left there goes.
    [[nodiscard]] bool Make(Utility::ErrorState& ioErrors);

    // Puts it in place; a folder that is there makes way for it.
    [[nodiscard]] bool Commit(Utility::ErrorState& ioErrors);

    // Where the files are to be written until then.
    [[nodiscard]] const std::string& GetStagingPath() const { return mStagingPath; }

private:
    std::string mPath;
    std::string mStagingPath;
    bool mIsMade = false;
};

} // namespace Host
