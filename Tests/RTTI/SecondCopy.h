// What the test's shared library exports. It has a copy of the core and of the test classes of its own, as a plugin has.
#pragma once

#include "RTTI/Registry.h"

extern "C"
{
    using RegisterSecondCopyFunction = void (*)(RTTI::Registry* ioRegistry);
    using GetSecondCopyTypeFunction = const RTTI::Type* (*)();
}
