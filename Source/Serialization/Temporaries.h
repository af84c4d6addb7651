// The values that readers fill before they insert them into a map or a set.
//
// Threads: one at a time. Ownership: owns its value.
#pragma once

#include "RTTI/Type.h"
#include "Serialization/TypeCreators.h"

namespace Serialization
{

// One value that is read again and again.
class Temporary
{
public:
    // Both outlive the object.
    Temporary(const RTTI::Type& inType, const TypeCreators& inCreators) : mType(inType), mCreators(inCreators) {}

    // Makes the value ready for the next read; empty if it can't be created. A number is overwritten whole, so one is enough.
    // Anything else starts anew: reading adds to what a value holds, and an insertion may have moved it away.
    const RTTI::OwnedValue& Renew()
    {
        const bool isOverwritten = mType.GetKind() == RTTI::EKind::Enum || mType.GetKind() == RTTI::EKind::Primitive;
        if (!isOverwritten || !mValue)
            mValue = mCreators.Create(mType);
        return mValue;
    }

    [[nodiscard]] RTTI::Value GetValue() const { return mValue.GetValue(); }

private:
    const RTTI::Type& mType;
    const TypeCreators& mCreators;
    RTTI::OwnedValue mValue;
};

// A later pair replaces an earlier one of the same key. inValue may be moved from.
inline void gInsertIntoMap(const RTTI::MapInfo& inInfo, void* ioMap, const RTTI::Value& inKey, const RTTI::Value& inValue)
{
    if (inInfo.ValueType->GetKind() == RTTI::EKind::UniquePtr)
        inInfo.InsertMoving(ioMap, inKey.Data, inValue.Data);
    else
        inInfo.Insert(ioMap, inKey.Data, inValue.Data);
}

} // namespace Serialization
