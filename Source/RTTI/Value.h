// A value together with its type: Value refers to one, OwnedValue owns one.
//
// Threads: as the data itself. Invariant: type and data are both null or both set.
#pragma once

#include "RTTI/Type.h"

#include <utility>

namespace RTTI
{

// Doesn't own the data.
struct Value
{
    const RTTI::Type* Type = nullptr;
    void* Data = nullptr;
};

// Owns data that the Create of its type has made, or that was made with new as exactly that type, and destroys it through the
// type's descriptor.
class OwnedValue
{
public:
    OwnedValue() = default;
    OwnedValue(const Type& inType, void* inData) : mType(inData != nullptr ? &inType : nullptr), mData(inData) {}
    OwnedValue(OwnedValue&& ioOther) noexcept
        : mType(std::exchange(ioOther.mType, nullptr)),
          mData(std::exchange(ioOther.mData, nullptr))
    {
    }
    OwnedValue& operator=(OwnedValue&& ioOther) noexcept
    {
        OwnedValue taken(std::move(ioOther));
        std::swap(mType, taken.mType);
        std::swap(mData, taken.mData);
        return *this;
    }
    ~OwnedValue() { Reset(); }

    const Type* GetType() const { return mType; }
    void* GetData() const { return mData; }
    Value GetValue() const { return {mType, mData}; }
    explicit operator bool() const { return mData != nullptr; }

    // Gives the data up; the caller destroys it.
    [[nodiscard]] void* Release()
    {
        mType = nullptr;
        return std::exchange(mData, nullptr);
    }

    void Reset()
    {
        if (mType != nullptr)
            mType->Descriptor->Destroy(mData);
        mType = nullptr;
        mData = nullptr;
    }

private:
    const Type* mType = nullptr;
    void* mData = nullptr;
};

} // namespace RTTI
