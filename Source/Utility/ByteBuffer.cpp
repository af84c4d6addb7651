#include "Utility/ByteBuffer.h"

#include <algorithm>
#include <cstddef>
#include <new>

namespace Utility
{

// Growing in place where the allocator can, and by moving pages instead of bytes where the buffer is large: a buffer that grows
// to many megabytes would else spend its time in page faults.
void ByteBuffer::Grow(size_t inSize)
{
    static_assert(alignof(std::max_align_t) >= 16, "realloc keeps the alignment that the buffer promises");
    const size_t capacity = std::max(mCapacity + mCapacity / 2, inSize);
    void* data = std::realloc(mData.get(), capacity);
    if (data == nullptr)
        throw std::bad_alloc();
    static_cast<void>(mData.release()); // realloc took it over
    mData.reset(static_cast<uint8_t*>(data));
    mCapacity = capacity;
}

} // namespace Utility
