#include "SecondCopy.h"

#include "RTTI/Primitives.h"
#include "TestTypes.h"

namespace Zoo
{

// A class that only the library knows, below one that both know.
class Penguin final : public Animal
{
public:
    Penguin() : Animal("Pingu") {}

    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Penguin>(); }
    int GetLegCount() const override { return 2; }
};

} // namespace Zoo

RTTI_DECLARE(Zoo::Penguin);

RTTI_BEGIN(Zoo::Penguin, 6)
    RTTI_BASE(Zoo::Animal)
RTTI_END()

extern "C"
{
    __attribute__((visibility("default"))) void gRegisterSecondCopy(RTTI::Registry* ioRegistry)
    {
        RTTI::CurrentModuleScope scope(*ioRegistry, RTTI::gThreadsModelPluginModuleKey());
        RTTI::gRegisterFundamentalTypes(*ioRegistry);
        ioRegistry->Register(RTTI::gTypeOf<Zoo::Lion>());
        ioRegistry->Register(RTTI::gTypeOf<Zoo::Penguin>());
    }

    __attribute__((visibility("default"))) const RTTI::Type* gGetSecondCopyLion()
    {
        return &RTTI::gTypeOf<Zoo::Lion>();
    }
}
