#include "RTTI/Primitives.h"

#include "RTTI/Registry.h"

namespace RTTI
{

void gRegisterFundamentalTypes(Registry& ioRegistry)
{
    ioRegistry.Register(gTypeOf<uint8_t>());
    ioRegistry.Register(gTypeOf<int8_t>());
    ioRegistry.Register(gTypeOf<uint16_t>());
    ioRegistry.Register(gTypeOf<int16_t>());
    ioRegistry.Register(gTypeOf<uint32_t>());
    ioRegistry.Register(gTypeOf<int32_t>());
    ioRegistry.Register(gTypeOf<uint64_t>());
    ioRegistry.Register(gTypeOf<int64_t>());
    ioRegistry.Register(gTypeOf<bool>());
    ioRegistry.Register(gTypeOf<float>());
    ioRegistry.Register(gTypeOf<double>());
    ioRegistry.Register(gTypeOf<std::string>());
}

} // namespace RTTI
