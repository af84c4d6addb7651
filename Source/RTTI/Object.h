// Root of all polymorphic reflected classes.
#pragma once

#include "RTTI/TypeTable.h"

namespace RTTI
{

class Object
{
public:
    virtual ~Object() = default;

    // The type of the object's class. Every class that can be instantiated overrides it with `return RTTI::gTypeOf<Class>();`.
    virtual const Type& GetType() const = 0;

protected:
    Object() = default;
    Object(const Object&) = default;
    Object(Object&&) = default;
    Object& operator=(const Object&) = default;
    Object& operator=(Object&&) = default;
};

} // namespace RTTI

RTTI_DECLARE(RTTI::Object);
