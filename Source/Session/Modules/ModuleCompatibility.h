// What brings modules and functions of session files of older builds into the present form.
//
// In those files a module told itself where it lay, and functions had absolute addresses; now a ModuleDatabase holds the
// instances, and functions are relative to them. A handler gathers instances while a root object is read and hands them over at
// its end. It serves the one class that it is entered for and counts its modules alone, so a platform enters one for the one
// module class that its old files have.
//
// Threads: those of the read. Ownership: the CompatibilityHandlers of the read.
#pragma once

#include "Serialization/CompatibilityHandler.h"
#include "Session/Modules/ModuleDatabase.h"

#include <functional>
#include <limits>
#include <optional>
#include <vector>

namespace Profiler
{

// Where a root object keeps its modules.
struct ModuleUpgradeTarget
{
    ModuleDatabase* Modules = nullptr;     // null for a root without modules: what was gathered is dropped
    std::optional<int32_t> FirstProcessID; // that of the first captured process, if there is one
};

// Asked at the end of a root object, when all of it has been read and upgraded but the modules.
using ModuleUpgradeTargetFinder = std::function<ModuleUpgradeTarget(RTTI::Object& inRoot)>;

// For ModuleDatabase: takes over the list of modules of all kinds, in which only native ones can be.
class ModuleDatabaseCompatibilityHandler final : public Serialization::CompatibilityHandler
{
public:
    bool ReadRemovedProperty(Serialization::BinaryReader& ioReader, Serialization::MemoryReadStream& ioStream,
                             const RTTI::Type& inType, void* ioObject, std::string_view inTypeName,
                             const Serialization::CompoundSchema& inSchema, const Serialization::PropertySchema& inProperty,
                             Serialization::ReaderErrorState& ioErrors) override;
};

// For a class below NativeModule: makes an instance of where the module lay, and its functions relative.
class NativeModuleCompatibilityHandler final : public Serialization::CompatibilityHandler
{
public:
    explicit NativeModuleCompatibilityHandler(ModuleUpgradeTargetFinder inFindTarget);

    bool ReadRemovedProperty(Serialization::BinaryReader& ioReader, Serialization::MemoryReadStream& ioStream,
                             const RTTI::Type& inType, void* ioObject, std::string_view inTypeName,
                             const Serialization::CompoundSchema& inSchema, const Serialization::PropertySchema& inProperty,
                             Serialization::ReaderErrorState& ioErrors) override;
    bool OnCompoundRead(const RTTI::Type& inType, void* ioObject, const Serialization::CompoundSchema& inSchema,
                        Serialization::ReaderErrorState& ioErrors) override;
    bool OnRootObjectRead(RTTI::Object& ioRoot, Serialization::ReaderErrorState& ioErrors) override;

private:
    // Process 0 is what files of one process without a number of its own hold.
    static constexpr int32_t sNoProcessID = 0;

    ModuleUpgradeTargetFinder mFindTarget;
    std::optional<NativeModuleInstance> mCurrent; // of the module that is being read
    std::vector<NativeModuleInstance> mInstances; // one per module, in the order of the modules
};

// For a class below JITModule: makes an instance of when the module was there.
class JITModuleCompatibilityHandler final : public Serialization::CompatibilityHandler
{
public:
    explicit JITModuleCompatibilityHandler(ModuleUpgradeTargetFinder inFindTarget);

    bool ReadRemovedProperty(Serialization::BinaryReader& ioReader, Serialization::MemoryReadStream& ioStream,
                             const RTTI::Type& inType, void* ioObject, std::string_view inTypeName,
                             const Serialization::CompoundSchema& inSchema, const Serialization::PropertySchema& inProperty,
                             Serialization::ReaderErrorState& ioErrors) override;
    bool OnCompoundRead(const RTTI::Type& inType, void* ioObject, const Serialization::CompoundSchema& inSchema,
                        Serialization::ReaderErrorState& ioErrors) override;
    bool OnRootObjectRead(RTTI::Object& ioRoot, Serialization::ReaderErrorState& ioErrors) override;

private:
    ModuleUpgradeTargetFinder mFindTarget;
    std::optional<JITModuleInstance> mCurrent; // of the module that is being read
    std::vector<JITModuleInstance> mInstances; // one per module, in the order of the modules
};

// For Function: reads the two former classes, of native functions and of those that were generated at run time.
class FunctionCompatibilityHandler final : public Serialization::CompatibilityHandler
{
public:
    explicit FunctionCompatibilityHandler(ModuleUpgradeTargetFinder inFindTarget);

    bool ReadRemovedProperty(Serialization::BinaryReader& ioReader, Serialization::MemoryReadStream& ioStream,
                             const RTTI::Type& inType, void* ioObject, std::string_view inTypeName,
                             const Serialization::CompoundSchema& inSchema, const Serialization::PropertySchema& inProperty,
                             Serialization::ReaderErrorState& ioErrors) override;
    bool OnCompoundRead(const RTTI::Type& inType, void* ioObject, const Serialization::CompoundSchema& inSchema,
                        Serialization::ReaderErrorState& ioErrors) override;
    bool OnRootObjectRead(RTTI::Object& ioRoot, Serialization::ReaderErrorState& ioErrors) override;

private:
    static constexpr int32_t sNoProcessID = -1;
    static constexpr JITFunctionInstance sNothingRead{.ProcessID = sNoProcessID,
                                                      .ModuleID = std::numeric_limits<uint64_t>::max(),
                                                      .LoadTime = std::numeric_limits<double>::lowest(),
                                                      .UnloadTime = std::numeric_limits<double>::max()};

    ModuleUpgradeTargetFinder mFindTarget;
    JITFunctionInstance mCurrent = sNothingRead; // of the function that is being read
    std::vector<JITFunctionInstance> mInstances; // one per function, in the order of the functions
};

} // namespace Profiler
