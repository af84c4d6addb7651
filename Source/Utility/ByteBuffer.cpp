#include "Utility/ByteBuffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <new>

namespace Utility
{

namespace
{

// Below this a buffer has few pages to be touched for the first time.
constexpr size_t sLargeBuffer = size_t{4} << 20;

// The first touch of a page costs more than what is then written to it; of a large page it costs nearly nothing. A system that
// has none to give goes on with small ones.
void gAdviseLargePages(void* inData, size_t inSize)
{
    const auto pageSize = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const uintptr_t start = (reinterpret_cast<uintptr_t>(inData) + pageSize - 1) & ~(pageSize - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(inData) + inSize) & ~(pageSize - 1);
    static_cast<void>(madvise(reinterpret_cast<void*>(start), end - start, MADV_HUGEPAGE)); // NOLINT(performance-no-int-to-ptr)
}

bool gFitsIntoMemory(uint64_t inSize)
{
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long pageSize = sysconf(_SC_PAGESIZE);
    return pages <= 0 || pageSize <= 0 || inSize / static_cast<uint64_t>(pageSize) < static_cast<uint64_t>(pages);
}

} // namespace

// Growing in place where the allocator can, and by moving pages instead of bytes where the buffer is large: a buffer that grows
// to many megabytes would else spend its time in page faults.
bool ByteBuffer::Reallocate(size_t inCapacity)
{
    static_assert(alignof(std::max_align_t) >= 16, "realloc keeps the alignment that the buffer promises");
    void* data = std::realloc(mData.get(), inCapacity);
    if (data == nullptr)
        return false;
    static_cast<void>(mData.release()); // realloc took it over
    mData.reset(static_cast<uint8_t*>(data));
    mCapacity = inCapacity;
    if (inCapacity >= sLargeBuffer)
        gAdviseLargePages(data, inCapacity);
    return true;
}

void ByteBuffer::Grow(size_t inSize)
{
    if (!Reallocate(std::max(mCapacity + mCapacity / 2, inSize)))
        throw std::bad_alloc();
}

bool ByteBuffer::TryGrow(uint64_t inSize)
{
    return gFitsIntoMemory(inSize) && Reallocate(std::max(mCapacity + mCapacity / 2, static_cast<size_t>(inSize)));
}

} // namespace Utility
