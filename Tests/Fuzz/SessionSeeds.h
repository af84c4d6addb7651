// The first inputs of the fuzz targets for the files of a session.
#pragma once

#include <filesystem>

namespace Fuzz
{

// Writes them to folders of the targets' names below inFolder.
void gMakeSessionSeeds(const std::filesystem::path& inFolder);

} // namespace Fuzz
