// Makes what was read from a session file fit for lookups, which trust every index and order.
#include "Session/Modules/ModuleDatabase.h"
#include "Utility/Log.h"

#include <algorithm>
#include <numeric>

namespace Profiler
{
namespace
{

// In place of the index of a record that was left out.
constexpr uint32_t sLeftOut = 0xFFFFFFFF;

template <class Pointer>
size_t gCountNull(const std::vector<Pointer>& inPointers)
{
    return static_cast<size_t>(std::count(inPointers.begin(), inPointers.end(), nullptr));
}

template <class Pointer>
bool gLeadsToObject(const std::vector<Pointer>& inPointers, uint32_t inIndex)
{
    return inIndex < inPointers.size() && inPointers[inIndex] != nullptr;
}

} // namespace

void ModuleDatabase::OnLoaded(Session& inSession)
{
    {
        // Only the list is copied under the lock: a module may look things up here while it is told.
        std::vector<Module*> modules;
        {
            const System::MutexLock lock(mMutex);
            LeaveOutUnusableRecords();
            for (const auto& nativeModule : mNativeModules)
                modules.push_back(nativeModule.get());
            for (const auto& jitModule : mJITModules)
                modules.push_back(jitModule.get());
        }
        std::erase(modules, nullptr);
        for (Module* module : modules)
            module->OnLoaded(inSession);
    }
    mInstrumentationDatabase.OnLoaded();
    NumberNativeModules();
}

void ModuleDatabase::NumberNativeModules()
{
    const System::MutexLock lock(mMutex);
    for (uint32_t i = 0; i < mNativeModules.size(); ++i)
        if (mNativeModules[i] != nullptr)
            mNativeModules[i]->SetIndex(i);
}

// A module that couldn't be read keeps its place as a null, since stored addresses name modules and generated functions by their
// positions. All that leads to it goes.
void ModuleDatabase::LeaveOutUnusableRecords()
{
    const size_t nativeModules = gCountNull(mNativeModules);
    const size_t nativeModuleInstances = LeaveOutNativeModuleInstances();
    const size_t jitModules = gCountNull(mJITModules);
    const size_t jitModuleInstances = LeaveOutJITModuleInstances();
    const size_t jitFunctions = DetachJITFunctions();
    std::vector<uint32_t> newIndices;
    const size_t jitFunctionInstances = LeaveOutJITFunctionInstances(newIndices);
    const size_t pageEntries = RenumberJITFunctionAddressMap(newIndices);
    if (nativeModules + nativeModuleInstances + jitModules + jitModuleInstances + jitFunctions + jitFunctionInstances +
            pageEntries !=
        0)
        Utility::gLog("The session file has records that lead to nothing. Left out: %zu native modules, %zu of their instances, "
                      "%zu JIT modules, %zu of their instances, the modules of %zu JIT functions, %zu JIT function instances, "
                      "%zu entries of their address map",
                      nativeModules, nativeModuleInstances, jitModules, jitModuleInstances, jitFunctions, jitFunctionInstances,
                      pageEntries);
}

size_t ModuleDatabase::LeaveOutNativeModuleInstances()
{
    const size_t count = std::erase_if(mNativeModuleInstances, [this](const NativeModuleInstance& inInstance) REQUIRES(mMutex)
                                       { return !gLeadsToObject(mNativeModules, inInstance.NativeModuleIndex); });
    SortNativeModuleInstances();
    return count;
}

size_t ModuleDatabase::LeaveOutJITModuleInstances()
{
    const size_t count = std::erase_if(mJITModuleInstances, [this](const JITModuleInstance& inInstance) REQUIRES(mMutex)
                                       { return !gLeadsToObject(mJITModules, inInstance.JITModuleIndex); });
    std::stable_sort(mJITModuleInstances.begin(), mJITModuleInstances.end(),
                     [](const JITModuleInstance& inFirst, const JITModuleInstance& inSecond)
                     { return inFirst.ModuleID < inSecond.ModuleID; });
    return count;
}

// Functions keep their places as well; one whose module isn't there gets none. Gives their number.
size_t ModuleDatabase::DetachJITFunctions()
{
    size_t count = 0;
    for (Function& function : mJITFunctions)
    {
        if (function.ModuleIndex == Function::sNoModule || gLeadsToObject(mJITModules, function.ModuleIndex))
            continue;
        function.ModuleIndex = Function::sNoModule;
        ++count;
    }
    return count;
}

// Gives their number. outNewIndices tells for each instance that was there where it is now.
size_t ModuleDatabase::LeaveOutJITFunctionInstances(std::vector<uint32_t>& outNewIndices)
{
    std::vector<uint32_t> order(mJITFunctionInstances.size());
    std::iota(order.begin(), order.end(), 0U);
    const size_t count = std::erase_if(order, [this](uint32_t inIndex) REQUIRES(mMutex)
                                       { return mJITFunctionInstances[inIndex].JITFunctionIndex >= mJITFunctions.size(); });
    std::stable_sort(order.begin(), order.end(),
                     [this](uint32_t inFirst, uint32_t inSecond) REQUIRES(mMutex) {
                         return mJITFunctionInstances[inFirst].AbsoluteAddress < mJITFunctionInstances[inSecond].AbsoluteAddress;
                     });
    outNewIndices.assign(mJITFunctionInstances.size(), sLeftOut);
    std::vector<JITFunctionInstance> kept;
    kept.reserve(order.size());
    for (const uint32_t index : order)
    {
        outNewIndices[index] = static_cast<uint32_t>(kept.size());
        kept.push_back(mJITFunctionInstances[index]);
    }
    mJITFunctionInstances = std::move(kept);
    return count;
}

// Gives the number of entries that led nowhere by themselves; those of instances that were left out are told with them.
size_t ModuleDatabase::RenumberJITFunctionAddressMap(std::span<const uint32_t> inNewIndices)
{
    size_t count = 0;
    for (auto& [bucket, indices] : mJITFunctionAddressMap)
    {
        count += std::erase_if(indices, [inNewIndices](uint32_t inIndex) { return inIndex >= inNewIndices.size(); });
        for (uint32_t& index : indices)
            index = inNewIndices[index];
        std::erase(indices, sLeftOut);
        // The instances are sorted by address, so their indices rise with it.
        if (!std::is_sorted(indices.begin(), indices.end()))
            std::sort(indices.begin(), indices.end());
    }
    std::erase_if(mJITFunctionAddressMap, [](const auto& inBucket) { return inBucket.second.empty(); });
    return count;
}

} // namespace Profiler
