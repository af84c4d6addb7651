#include "Host/CommandLine/TemporaryFolder.h"

#include "FileSystem/Delete.h"
#include "FileSystem/Path.h"
#include "System/Environment.h"

#include <stdlib.h>

#include <cerrno>
#include <cstring>

namespace Host
{

TemporaryFolder::~TemporaryFolder()
{
    // Nobody is left to tell.
    Utility::ErrorState errors;
    if (!mPath.empty())
        static_cast<void>(FileSystem::gDeleteDirectory(mPath, errors));
}

bool TemporaryFolder::Make(Utility::ErrorState& ioErrors)
{
    const std::string parent = System::gGetEnvironmentVariable("TMPDIR");
    std::string path = FileSystem::gCombinePath(parent.empty() ? "/tmp" : parent, "brenvaldoris.XXXXXX");
    const bool isMade = mkdtemp(path.data()) != nullptr;
    if (isMade)
        mPath = path;
    return Utility::Check(ioErrors, isMade, 0, "Unable to make a temporary folder %s: %s", path, std::strerror(errno));
}

} // namespace Host
