#include "Session/Modules/JITModule.h"

RTTI_BEGIN(Profiler::JITModule, 1)
    RTTI_BASE(Profiler::Module)
    RTTI_PROPERTY("Path", Path)
RTTI_END()

RTTI_BEGIN(Profiler::JITExtraDataStorage, 1)
    RTTI_BASE(RTTI::Object)
RTTI_END()

RTTI_BEGIN(Profiler::JITModuleInstance, 1)
    RTTI_PROPERTY("ProcessID", ProcessID)
    RTTI_PROPERTY("LoadTimeMs", LoadTimeMs)
    RTTI_PROPERTY("UnloadTimeMs", UnloadTimeMs)
    RTTI_PROPERTY("ModuleID", ModuleID)
    RTTI_PROPERTY("JITModuleIndex", JITModuleIndex)
RTTI_END()

RTTI_BEGIN(Profiler::JITFunctionInstance, 1)
    RTTI_PROPERTY("AbsoluteAddress", AbsoluteAddress)
    RTTI_PROPERTY("ProcessID", ProcessID)
    RTTI_PROPERTY("ModuleID", ModuleID)
    RTTI_PROPERTY("LoadTime", LoadTime)
    RTTI_PROPERTY("UnloadTime", UnloadTime)
    RTTI_PROPERTY("JITFunctionIndex", JITFunctionIndex)
RTTI_END()

namespace Profiler
{

const RTTI::Type& JITModule::GetType() const
{
    return RTTI::gTypeOf<JITModule>();
}

const char* JITModule::GetModuleTypeText() const
{
    return "JIT";
}

std::vector<ModuleProperty> JITModule::GetProperties() const
{
    std::vector<ModuleProperty> properties = Module::GetProperties();
    properties.push_back({"Path", Path, EModulePropertyKind::Path});
    return properties;
}

void JITModule::ReleaseExtraData(int32_t) {}

const RTTI::Type& JITExtraDataStorage::GetType() const
{
    return RTTI::gTypeOf<JITExtraDataStorage>();
}

} // namespace Profiler
