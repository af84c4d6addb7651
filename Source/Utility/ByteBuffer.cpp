#include "Utility/ByteBuffer.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

namespace Utility
{
namespace
{

constexpr size_t sAlignment = 16;

} // namespace

void ByteBuffer::Grow(size_t inSize)
{
    const size_t capacity = std::max(mCapacity + mCapacity / 2, inSize);
    if (capacity > std::numeric_limits<size_t>::max() - sAlignment)
        throw std::bad_alloc();
    // Aligned allocations come in whole multiples of the alignment.
    const size_t allocated = (capacity + sAlignment - 1) / sAlignment * sAlignment;
    std::unique_ptr<uint8_t[], FreeBytes> data(static_cast<uint8_t*>(std::aligned_alloc(sAlignment, allocated)));
    if (data == nullptr)
        throw std::bad_alloc();
    if (mSize != 0)
        std::memcpy(data.get(), mData.get(), mSize);
    mData = std::move(data);
    mCapacity = capacity;
}

} // namespace Utility
