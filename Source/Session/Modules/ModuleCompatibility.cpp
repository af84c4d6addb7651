#include "Session/Modules/ModuleCompatibility.h"

#include "RTTI/Containers.h"
#include "RTTI/Primitives.h"
#include "Serialization/BinaryReader.h"

#include <utility>

namespace Profiler
{
namespace
{

using Serialization::BinaryReader;
using Serialization::CompoundSchema;
using Serialization::EReaderError;
using Serialization::MemoryReadStream;
using Serialization::PropertySchema;
using Serialization::ReaderErrorState;

// From these versions on modules don't tell where they lay, and native modules stand in a list of their own.
constexpr int32_t sNativeModuleWithInstances = 2;
constexpr int32_t sModuleDatabaseWithModules = 1;

constexpr std::string_view sFormerNativeFunction = "Profiler::ResolvedFunction";
constexpr std::string_view sFormerJITFunction = "Profiler::JITResolvedFunction";

// What a handler needs to read the property that it was called for.
struct RemovedProperty
{
    BinaryReader& Reader;
    MemoryReadStream& Stream;
    const PropertySchema& Schema;
    ReaderErrorState& Errors;

    // Numbers of the same width may differ in their signs.
    template <class Number>
    [[nodiscard]] bool ReadNumber(Number& outNumber) const
    {
        const Serialization::TypeSchema& type = Schema.Type;
        const bool isNumber = static_cast<RTTI::EKind>(type.DataType) == RTTI::EKind::Primitive &&
                              Serialization::gGetPrimitiveSize(Serialization::gGetPrimitive(type.TypeName)) == sizeof(Number);
        return Check(Errors, isNumber, EReaderError::Incompatible,
                     "Compatibility issue: Property %s has switched from type %s to type %s. This is not supported.", Schema.Name,
                     type.TypeName, RTTI::gTypeOf<Number>().GetName()) &&
               Reader.ReadValue(Stream, RTTI::gValueOf(outNumber), type, Errors);
    }
};

} // namespace

bool ModuleDatabaseCompatibilityHandler::ReadRemovedProperty(BinaryReader& ioReader, MemoryReadStream& ioStream,
                                                             const RTTI::Type& /*inType*/, void* ioObject,
                                                             std::string_view /*inTypeName*/, const CompoundSchema& inSchema,
                                                             const PropertySchema& inProperty, ReaderErrorState& ioErrors)
{
    if (inSchema.Version != sModuleDatabaseWithModules || inProperty.Name != "Modules")
        return true;
    std::vector<std::unique_ptr<Module>> modules;
    if (!ioReader.ReadValue(ioStream, RTTI::gValueOf(modules), inProperty.Type, ioErrors))
        return false;
    auto& database = *static_cast<ModuleDatabase*>(ioObject);
    for (std::unique_ptr<Module>& module : modules)
    {
        // A module of a class that isn't here gets no instance either, and instances count on the positions of the others.
        if (module == nullptr)
            continue;
        if (!Check(ioErrors, RTTI::gIsDerivedFrom(module->GetType(), RTTI::gTypeOf<NativeModule>()), EReaderError::Incompatible,
                   "Encountered a non-NativeModule during upgrade of V1 ModuleDatabase."))
            return false;
        database.AddNativeModule(std::unique_ptr<NativeModule>(static_cast<NativeModule*>(module.release())));
    }
    return true;
}

NativeModuleCompatibilityHandler::NativeModuleCompatibilityHandler(ModuleUpgradeTargetFinder inFindTarget)
    : mFindTarget(std::move(inFindTarget))
{
}

bool NativeModuleCompatibilityHandler::ReadRemovedProperty(BinaryReader& ioReader, MemoryReadStream& ioStream,
                                                           const RTTI::Type& /*inType*/, void* /*ioObject*/,
                                                           std::string_view /*inTypeName*/, const CompoundSchema& inSchema,
                                                           const PropertySchema& inProperty, ReaderErrorState& ioErrors)
{
    if (inSchema.Version >= sNativeModuleWithInstances)
        return true;
    const RemovedProperty property{ioReader, ioStream, inProperty, ioErrors};
    const auto read = [&](auto NativeModuleInstance::*inNumber)
    {
        if (!mCurrent)
            mCurrent = NativeModuleInstance{.ProcessID = sNoProcessID};
        return property.ReadNumber((*mCurrent).*inNumber);
    };
    if (inProperty.Name == "ImageBase")
        return read(&NativeModuleInstance::ImageBase);
    if (inProperty.Name == "LoadTimeMs")
        return read(&NativeModuleInstance::LoadTimeMs);
    if (inProperty.Name == "UnloadTimeMs")
        return read(&NativeModuleInstance::UnloadTimeMs);
    if (inProperty.Name == "ProcessID")
        return read(&NativeModuleInstance::ProcessID);
    return true;
}

// A class that was never changed may well have a version below that of NativeModule; it has none of the properties, though.
bool NativeModuleCompatibilityHandler::OnCompoundRead(const RTTI::Type& /*inType*/, void* ioObject,
                                                      const CompoundSchema& /*inSchema*/, ReaderErrorState& /*ioErrors*/)
{
    if (!mCurrent)
        return true;
    mCurrent->NativeModuleIndex = static_cast<uint32_t>(mInstances.size());
    static_cast<NativeModule*>(ioObject)->MakeFunctionsRelative(mCurrent->ImageBase, mCurrent->NativeModuleIndex);
    mInstances.push_back(*mCurrent);
    mCurrent.reset();
    return true;
}

bool NativeModuleCompatibilityHandler::OnRootObjectRead(RTTI::Object& ioRoot, ReaderErrorState& /*ioErrors*/)
{
    std::vector<NativeModuleInstance> instances = std::exchange(mInstances, {});
    if (instances.empty())
        return true;
    const ModuleUpgradeTarget target = mFindTarget(ioRoot);
    if (target.Modules == nullptr)
        return true;
    for (NativeModuleInstance& instance : instances)
        if (instance.ProcessID == sNoProcessID)
            instance.ProcessID = target.FirstProcessID.value_or(sNoProcessID);
    target.Modules->SetNativeModuleInstances(std::move(instances));
    return true;
}

JITModuleCompatibilityHandler::JITModuleCompatibilityHandler(ModuleUpgradeTargetFinder inFindTarget)
    : mFindTarget(std::move(inFindTarget))
{
}

bool JITModuleCompatibilityHandler::ReadRemovedProperty(BinaryReader& ioReader, MemoryReadStream& ioStream,
                                                        const RTTI::Type& inType, void* /*ioObject*/,
                                                        std::string_view /*inTypeName*/, const CompoundSchema& inSchema,
                                                        const PropertySchema& inProperty, ReaderErrorState& ioErrors)
{
    if (inSchema.Version >= inType.AsCompound()->Version)
        return true;
    const RemovedProperty property{ioReader, ioStream, inProperty, ioErrors};
    const auto read = [&](auto JITModuleInstance::*inNumber)
    {
        if (!mCurrent)
            mCurrent.emplace();
        return property.ReadNumber((*mCurrent).*inNumber);
    };
    if (inProperty.Name == "ProcessID")
        return read(&JITModuleInstance::ProcessID);
    if (inProperty.Name == "LoadTimeMs")
        return read(&JITModuleInstance::LoadTimeMs);
    if (inProperty.Name == "UnloadTimeMs")
        return read(&JITModuleInstance::UnloadTimeMs);
    if (inProperty.Name == "ModuleID")
        return read(&JITModuleInstance::ModuleID);
    return true;
}

bool JITModuleCompatibilityHandler::OnCompoundRead(const RTTI::Type& /*inType*/, void* /*ioObject*/,
                                                   const CompoundSchema& /*inSchema*/, ReaderErrorState& /*ioErrors*/)
{
    if (!mCurrent)
        return true;
    mCurrent->JITModuleIndex = static_cast<uint32_t>(mInstances.size());
    mInstances.push_back(*mCurrent);
    mCurrent.reset();
    return true;
}

bool JITModuleCompatibilityHandler::OnRootObjectRead(RTTI::Object& ioRoot, ReaderErrorState& /*ioErrors*/)
{
    std::vector<JITModuleInstance> instances = std::exchange(mInstances, {});
    // Files of today hold their instances themselves.
    if (instances.empty())
        return true;
    if (ModuleDatabase* modules = mFindTarget(ioRoot).Modules)
        modules->SetUpgradedJITModuleInstances(std::move(instances));
    return true;
}

FunctionCompatibilityHandler::FunctionCompatibilityHandler(ModuleUpgradeTargetFinder inFindTarget)
    : mFindTarget(std::move(inFindTarget))
{
}

bool FunctionCompatibilityHandler::ReadRemovedProperty(BinaryReader& ioReader, MemoryReadStream& ioStream,
                                                       const RTTI::Type& /*inType*/, void* ioObject, std::string_view inTypeName,
                                                       const CompoundSchema& /*inSchema*/, const PropertySchema& inProperty,
                                                       ReaderErrorState& ioErrors)
{
    auto& function = *static_cast<Function*>(ioObject);
    const RemovedProperty property{ioReader, ioStream, inProperty, ioErrors};
    if (inTypeName == sFormerNativeFunction)
        return inProperty.Name != "Address" || property.ReadNumber(function.RelativeAddress);
    if (inTypeName != sFormerJITFunction)
        return true;
    if (inProperty.Name == "Address")
    {
        function.RelativeAddress = 0;
        return property.ReadNumber(mCurrent.AbsoluteAddress);
    }
    if (inProperty.Name == "ProcessID")
        return property.ReadNumber(mCurrent.ProcessID);
    if (inProperty.Name == "ModuleID")
        return property.ReadNumber(mCurrent.ModuleID);
    if (inProperty.Name == "LoadTime")
        return property.ReadNumber(mCurrent.LoadTime);
    if (inProperty.Name == "UnloadTime")
        return property.ReadNumber(mCurrent.UnloadTime);
    return true;
}

bool FunctionCompatibilityHandler::OnCompoundRead(const RTTI::Type& /*inType*/, void* /*ioObject*/,
                                                  const CompoundSchema& /*inSchema*/, ReaderErrorState& /*ioErrors*/)
{
    JITFunctionInstance instance = std::exchange(mCurrent, sNothingRead);
    if (instance.ProcessID == sNoProcessID)
        return true;
    instance.JITFunctionIndex = static_cast<uint32_t>(mInstances.size());
    mInstances.push_back(instance);
    return true;
}

bool FunctionCompatibilityHandler::OnRootObjectRead(RTTI::Object& ioRoot, ReaderErrorState& /*ioErrors*/)
{
    std::vector<JITFunctionInstance> instances = std::exchange(mInstances, {});
    if (instances.empty())
        return true;
    if (ModuleDatabase* modules = mFindTarget(ioRoot).Modules)
        modules->SetUpgradedJITFunctionInstances(std::move(instances));
    return true;
}

} // namespace Profiler
