// A folder for files that nobody wants to keep.
//
// Threads: any. Ownership: deletes the folder with everything in it.
#pragma once

#include "Utility/ErrorState.h"

#include <string>

namespace Host
{

class TemporaryFolder
{
public:
    TemporaryFolder() = default;
    ~TemporaryFolder();

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // Makes the folder where the system keeps such files. To be called once.
    [[nodiscard]] bool Make(Utility::ErrorState& ioErrors);

    [[nodiscard]] const std::string& GetPath() const { return mPath; }

private:
    std::string mPath;
};

} // namespace Host
