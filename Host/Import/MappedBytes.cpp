#include "Host/Import/MappedBytes.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Host
{
namespace
{

// Looks the file behind inDescriptor over and maps it.
std::unique_ptr<MappedBytes> gMapRegularFile(int inDescriptor, const std::string& inPath, Utility::ErrorState& ioErrors)
{
    struct stat status = {};
    if (fstat(inDescriptor, &status) != 0)
    {
        ioErrors.AddError(0, Utility::gFormat("%s: %s", inPath.c_str(), std::strerror(errno)));
        return nullptr;
    }
    if (S_ISDIR(status.st_mode))
    {
        ioErrors.AddError(
            0, Utility::gFormat("%s: is a folder; perf record --threads writes such captures: record without --threads",
                                inPath.c_str()));
        return nullptr;
    }
    if (!S_ISREG(status.st_mode))
    {
        ioErrors.AddError(0,
                          Utility::gFormat("%s: not a regular file; record to a file with perf record -o FILE", inPath.c_str()));
        return nullptr;
    }
    return MappedBytes::MapDescriptor(inDescriptor, static_cast<uint64_t>(status.st_size), inPath, ioErrors);
}

} // namespace

std::unique_ptr<MappedBytes> MappedBytes::MapFile(const std::string& inPath, Utility::ErrorState& ioErrors)
{
    // Without O_NONBLOCK, opening a named pipe would wait for somebody to write to it.
    const int descriptor = open(inPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0)
    {
        ioErrors.AddError(0, Utility::gFormat("%s: %s", inPath.c_str(), std::strerror(errno)));
        return nullptr;
    }
    std::unique_ptr<MappedBytes> bytes = gMapRegularFile(descriptor, inPath, ioErrors);
    close(descriptor);
    return bytes;
}

std::unique_ptr<MappedBytes> MappedBytes::MapDescriptor(int inDescriptor, uint64_t inSize, const std::string& inPath,
                                                        Utility::ErrorState& ioErrors)
{
    if (inSize == 0)
        return std::unique_ptr<MappedBytes>(new MappedBytes({}));
    void* address = mmap(nullptr, inSize, PROT_READ, MAP_PRIVATE, inDescriptor, 0);
    if (address == MAP_FAILED)
    {
        ioErrors.AddError(0, Utility::gFormat("%s: can't be mapped: %s", inPath.c_str(), std::strerror(errno)));
        return nullptr;
    }
    // Advice only: the file is read from front to back, twice.
    madvise(address, inSize, MADV_HUGEPAGE);
    madvise(address, inSize, MADV_WILLNEED);
    return std::unique_ptr<MappedBytes>(new MappedBytes({static_cast<const uint8_t*>(address), inSize}));
}

void MappedBytes::ReleasePages() const
{
    if (!mBytes.empty())
        madvise(const_cast<uint8_t*>(mBytes.data()), mBytes.size(), MADV_DONTNEED);
}

MappedBytes::~MappedBytes()
{
    if (!mBytes.empty())
        munmap(const_cast<uint8_t*>(mBytes.data()), mBytes.size());
}

} // namespace Host
