// Root of all polymorphic reflected classes: through it a pointer to a base tells the class that it really points to.
//
// Threads: GetType from any. Ownership: by std::unique_ptr where a reflected class holds one. Invariant: an object begins with
// its RTTI::Object, so its address is that of the whole object.
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
