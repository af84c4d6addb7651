#include "Serialization/TypeCreators.h"

#include <utility>

namespace Serialization
{

void TypeCreators::AddTypeCreator(const RTTI::Type& inType, TypeCreator inFunction)
{
    mFunctions.insert_or_assign(&inType, std::move(inFunction));
}

RTTI::OwnedValue TypeCreators::Create(const RTTI::Type& inType) const
{
    if (!mFunctions.empty())
    {
        const auto position = mFunctions.find(&inType);
        if (position != mFunctions.end())
            return position->second();
    }
    return inType.Descriptor->Create();
}

} // namespace Serialization
