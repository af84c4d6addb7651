// A registry for stored objects, as a program with the given classes has it.
#pragma once

#include "RTTI/Primitives.h"
#include "RTTI/Registry.h"
#include "Serialization/Schema.h"

#include <memory>

template <class... Types>
std::unique_ptr<RTTI::Registry> gMakeRegistry()
{
    auto registry = std::make_unique<RTTI::Registry>();
    const RTTI::CurrentModuleScope scope(*registry, RTTI::gThreadsModelPluginModuleKey());
    RTTI::gRegisterFundamentalTypes(*registry);
    registry->Register(RTTI::gTypeOf<Serialization::Schema>());
    (registry->Register(RTTI::gTypeOf<Types>()), ...);
    registry->Finalize();
    return registry;
}
