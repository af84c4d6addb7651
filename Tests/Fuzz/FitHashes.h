// Lets mutated containers past the hashes that protect them, to what lies behind.
#pragma once

#include <cstdint>
#include <vector>

namespace Fuzz
{

// Writes each hash of a container, of any version, anew. As far as the bytes don't look like a container, they stay as they are.
void gMakeHashesFit(std::vector<uint8_t>& ioFile);

// What lies behind the header of a container of today's version.
[[nodiscard]] std::vector<uint8_t> gGetContainerData(const std::vector<uint8_t>& inContainer);

// The container with other data behind its header, as much as fits, and with hashes that fit. The schema takes most of a
// container, so that few changes to the whole would meet the objects.
[[nodiscard]] std::vector<uint8_t> gReplaceContainerData(std::vector<uint8_t> inContainer, const std::vector<uint8_t>& inData);

} // namespace Fuzz
