#include "Utility/ByteBuffer.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <new>

namespace Utility
{

namespace
{

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
