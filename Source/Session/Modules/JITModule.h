// Code that was generated while the process ran, and when which part of it lay where.
#pragma once

#include "Session/Modules/Function.h"
#include "Session/Modules/Module.h"

#include <unordered_map>

namespace Profiler
{

class JITModule : public Module
{
public:
    ~JITModule() override = default;
    const RTTI::Type& GetType() const override;
    [[nodiscard]] const char* GetModuleTypeText() const override;
    [[nodiscard]] std::vector<ModuleProperty> GetProperties() const override;

    // Identity of modules and of their functions, by which equal ones are merged.
    [[nodiscard]] virtual uint64_t GetModuleHash() const = 0;
    [[nodiscard]] virtual bool IsSameModule(const JITModule& inOther) const = 0;
    [[nodiscard]] virtual bool IsSameFunction(const Function& inFirst, const Function& inSecond) const = 0;
    [[nodiscard]] virtual uint64_t GetFunctionHash(const Function& inFunction) const = 0;

    // A function with this offset was dropped as a duplicate.
    virtual void ReleaseExtraData(int32_t inExtraData);

    std::string Path;
};

// Further data of functions; the platform derives from it.
class JITExtraDataStorage : public RTTI::Object
{
public:
    const RTTI::Type& GetType() const override;
};

struct JITModuleInstance
{
    int32_t ProcessID = -1;
    double LoadTimeMs = 0.0;
    double UnloadTimeMs = 0.0; // the instance is present in [LoadTimeMs, UnloadTimeMs)
    uint64_t ModuleID = 0;     // the platform's identifier
    uint32_t JITModuleIndex = 0;
};

struct JITFunctionInstance
{
    uint64_t AbsoluteAddress = 0;
    int32_t ProcessID = -1;
    uint64_t ModuleID = 0;
    double LoadTime = 0.0;
    double UnloadTime = 0.0; // the instance is present in [LoadTime, UnloadTime)
    uint32_t JITFunctionIndex = 0;
};

// Indices into JITFunctionInstances, ascending in AbsoluteAddress.
using JITFunctionIndices = std::vector<uint32_t>;

// A page table: an address falls in the bucket address >> sJITBucketShift, and an instance stands in every bucket that it
// touches.
using JITFunctionAddressMap = std::unordered_map<uint64_t, JITFunctionIndices>;
inline constexpr int sJITBucketShift = 10;

} // namespace Profiler

RTTI_DECLARE(Profiler::JITModule);
RTTI_DECLARE(Profiler::JITExtraDataStorage);
RTTI_DECLARE(Profiler::JITModuleInstance);
RTTI_DECLARE(Profiler::JITFunctionInstance);
