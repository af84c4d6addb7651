// Modules and a root object around a ModuleDatabase, as a build of today stores them.
#pragma once

#include "Session/Modules/ModuleDatabase.h"
#include "Tests/Serialization/Build.h"

namespace StoredModules
{

// Stands where the session stands: an object that holds the modules.
class Capture final : public RTTI::Object
{
public:
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Capture>(); }

    Profiler::ModuleDatabase Modules;
};

class ImageModule final : public Profiler::NativeModule
{
public:
    using NativeModule::NativeModule;

    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<ImageModule>(); }
    [[nodiscard]] std::string GetSymbolFile() const override { return {}; }
    [[nodiscard]] std::string GetSymbolFailure() const override { return {}; }
};

class GeneratedModule final : public Profiler::JITModule
{
public:
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<GeneratedModule>(); }
    [[nodiscard]] uint64_t GetModuleHash() const override { return 0; }
    [[nodiscard]] bool IsSameModule(const JITModule&) const override { return false; }
    [[nodiscard]] bool IsSameFunction(const Profiler::Function&, const Profiler::Function&) const override { return false; }
    [[nodiscard]] uint64_t GetFunctionHash(const Profiler::Function&) const override { return 0; }
};

// What a ModuleDatabase stores, open to tests that store what it never would.
class Database
{
public:
    std::vector<std::unique_ptr<Profiler::NativeModule>> NativeModules;
    std::vector<Profiler::NativeModuleInstance> NativeModuleInstances;
    std::vector<std::unique_ptr<Profiler::JITModule>> JITModules;
    std::vector<Profiler::JITModuleInstance> JITModuleInstances;
    std::vector<Profiler::Function> JITFunctions;
    std::vector<Profiler::JITFunctionInstance> JITFunctionInstances;
    Profiler::JITFunctionAddressMap JITFunctionAddressMap;
};

class OpenCapture final : public RTTI::Object
{
public:
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<OpenCapture>(); }

    Database Modules;
};

} // namespace StoredModules

DECLARE_AS(StoredModules::Capture, "Test::Capture");
DECLARE_AS(StoredModules::ImageModule, "Test::ImageModule");
DECLARE_AS(StoredModules::GeneratedModule, "Test::GeneratedModule");
DECLARE_AS(StoredModules::Database, "Profiler::ModuleDatabase");
DECLARE_AS(StoredModules::OpenCapture, "Test::Capture");
