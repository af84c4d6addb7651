// Enters every reflected type of the library in a registry.
#pragma once

namespace RTTI
{
class Registry;
}

namespace Profiler
{

// Registering a type also registers what its properties name, so only the roots stand here. REQUIRES: the registry has a current
// module.
void gRegisterTypes(RTTI::Registry& ioRegistry);

} // namespace Profiler
