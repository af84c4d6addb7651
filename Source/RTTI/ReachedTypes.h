// The edges of the type graph.
#pragma once

#include "RTTI/TypeQueries.h"

namespace RTTI
{

// Calls inFunction with each type that inType refers to directly: bases and fields of a compound, the size type of an
// enumeration, the parts of a container.
template <class Function>
void gForEachReachedType(const Type& inType, const Function& inFunction)
{
    switch (inType.GetKind())
    {
    case EKind::Compound:
        for (int32_t i = 0; i < inType.AsCompound()->BaseCount; ++i)
            inFunction(*inType.AsCompound()->Bases[i]);
        for (const Property* property : gGetAllProperties(inType))
            inFunction(*property->Type);
        break;
    case EKind::Primitive:
        break;
    case EKind::Enum:
        inFunction(*inType.AsEnum()->SizeType);
        break;
    case EKind::Array:
        inFunction(*inType.AsArray()->ElementType);
        break;
    case EKind::Map:
        inFunction(*inType.AsMap()->KeyType);
        inFunction(*inType.AsMap()->ValueType);
        break;
    case EKind::UniquePtr:
        inFunction(*inType.AsPointer()->PointeeType);
        break;
    case EKind::Set:
        inFunction(*inType.AsSet()->ElementType);
        break;
    }
}

} // namespace RTTI
