// A file's bytes, mapped read-only.
//
// Threads: constant after creation. Ownership: unmaps when it goes. Invariant: the span is readable as long as nobody shortens
// the file.
#pragma once

#include "Utility/ErrorState.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace Host
{

class MappedBytes
{
public:
    // Null and one entry in ioErrors if the file can't be opened or isn't a regular file.
    [[nodiscard]] static std::unique_ptr<MappedBytes> MapFile(const std::string& inPath, Utility::ErrorState& ioErrors);

    // Maps the first inSize bytes of an open file, which may be closed afterwards. inPath is for messages.
    [[nodiscard]] static std::unique_ptr<MappedBytes> MapDescriptor(int inDescriptor, uint64_t inSize, const std::string& inPath,
                                                                    Utility::ErrorState& ioErrors);

    ~MappedBytes();
    MappedBytes(const MappedBytes&) = delete;
    MappedBytes& operator=(const MappedBytes&) = delete;

    [[nodiscard]] std::span<const uint8_t> GetBytes() const { return mBytes; }

    // Lets go of the memory of what was read; what is read again comes from the file's cache.
    void ReleasePages() const;

private:
    explicit MappedBytes(std::span<const uint8_t> inBytes) : mBytes(inBytes) {}

    std::span<const uint8_t> mBytes;
};

} // namespace Host
