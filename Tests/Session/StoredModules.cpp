#include "Tests/Session/StoredModules.h"

RTTI_BEGIN(StoredModules::Capture, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("Modules", Modules)
RTTI_END()

RTTI_BEGIN(StoredModules::ImageModule, 2)
    RTTI_BASE(Profiler::NativeModule)
RTTI_END()

RTTI_BEGIN(StoredModules::GeneratedModule, 2)
    RTTI_BASE(Profiler::JITModule)
RTTI_END()

RTTI_BEGIN(StoredModules::Database, 2)
    RTTI_PROPERTY("NativeModules", NativeModules)
    RTTI_PROPERTY("NativeModuleInstances", NativeModuleInstances)
    RTTI_PROPERTY("JITModules", JITModules)
    RTTI_PROPERTY("JITModuleInstances", JITModuleInstances)
    RTTI_PROPERTY("JITFunctions", JITFunctions)
    RTTI_PROPERTY("JITFunctionInstances", JITFunctionInstances)
    RTTI_PROPERTY("JITFunctionAddressMap", JITFunctionAddressMap)
RTTI_END()

RTTI_BEGIN(StoredModules::OpenCapture, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("Modules", Modules)
RTTI_END()
