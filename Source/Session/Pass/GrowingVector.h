// A vector whose live count can shrink without destroying anything, so that a slot that is handed out again still has the memory
// it had gathered.
//
// Threads: one at a time. Ownership: owns its slots. Invariant: the slots above the live count stay constructed, with old
// content.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace Profiler
{

template <class T>
class GrowingVector
{
public:
    [[nodiscard]] size_t GetSize() const { return mLiveCount; }
    [[nodiscard]] bool IsEmpty() const { return mLiveCount == 0; }

    T& operator[](size_t inIndex) { return mSlots[inIndex]; }
    const T& operator[](size_t inIndex) const { return mSlots[inIndex]; }

    [[nodiscard]] T& GetBack() { return mSlots[mLiveCount - 1]; }

    [[nodiscard]] std::span<T> GetLive() { return {mSlots.data(), mLiveCount}; }
    [[nodiscard]] std::span<const T> GetLive() const { return {mSlots.data(), mLiveCount}; }

    // Hands out the next slot, with whatever it held before; constructs one only if all are live. The caller sets every field.
    T& PushBack()
    {
        if (mLiveCount == mSlots.size())
            mSlots.emplace_back();
        return mSlots[mLiveCount++];
    }

    // Lets go of the slots from inCount on. REQUIRES: inCount is at most the live count.
    void Shrink(size_t inCount) { mLiveCount = inCount; }

private:
    std::vector<T> mSlots;
    size_t mLiveCount = 0;
};

} // namespace Profiler
