#include "Session/Modules/ModuleDatabase.h"

#include "Session/Host/PlatformSession.h"
#include "Utility/Format.h"

#include <algorithm>
#include <array>
#include <utility>

RTTI_BEGIN(Profiler::NativeModuleInstance, 1)
    RTTI_PROPERTY("ImageBase", ImageBase)
    RTTI_PROPERTY("LoadTimeMs", LoadTimeMs)
    RTTI_PROPERTY("UnloadTimeMs", UnloadTimeMs)
    RTTI_PROPERTY("ProcessID", ProcessID)
    RTTI_PROPERTY("NativeModuleIndex", NativeModuleIndex)
RTTI_END()

RTTI_BEGIN(Profiler::ModuleDatabase, 2)
    RTTI_PROPERTY("InstrumentationDatabase", mInstrumentationDatabase)
    RTTI_PROPERTY("NativeModules", mNativeModules)
    RTTI_PROPERTY("NativeModuleInstances", mNativeModuleInstances)
    RTTI_PROPERTY("JITModules", mJITModules)
    RTTI_PROPERTY("JITModuleInstances", mJITModuleInstances)
    RTTI_PROPERTY("JITFunctions", mJITFunctions)
    RTTI_PROPERTY("JITFunctionInstances", mJITFunctionInstances)
    RTTI_PROPERTY_AS("JITFunctionAddressMap", mJITFunctionAddressMap, "Map_uint64_t_To_Profiler::JITFunctionIndices")
    RTTI_PROPERTY("JITExtraDataStorage", mJITExtraDataStorage)
RTTI_END()

namespace Profiler
{
namespace
{

constexpr uint32_t sNoIndex = 0xFFFFFFFF;

// Runs that are found under one hold of the lock. Most stacks have fewer.
constexpr size_t sRunsPerLock = 16;

} // namespace

ModuleDatabase::ModuleDatabase()
    : mUnknownModule("<unknown>"),
      mUnknownFunction(Function::sMakeUnknown("Unknown")),
      mRootModule(std::string()),
      mRootFunction(Function::sMakeUnknown("[Unrooted Stacks]"))
{
}

ModuleDatabase::~ModuleDatabase() = default;

NativeModule& ModuleDatabase::AddNativeModule(std::unique_ptr<NativeModule> inModule)
{
    const System::MutexLock lock(mMutex);
    inModule->SetIndex(static_cast<uint32_t>(mNativeModules.size()));
    mNativeModules.push_back(std::move(inModule));
    return *mNativeModules.back();
}

void ModuleDatabase::SetNativeModuleInstances(std::vector<NativeModuleInstance> inInstances)
{
    const System::MutexLock lock(mMutex);
    mNativeModuleInstances = std::move(inInstances);
    SortNativeModuleInstances();
}

void ModuleDatabase::SortNativeModuleInstances()
{
    // Stable, so that instances with one base keep the order in which they were loaded.
    std::stable_sort(mNativeModuleInstances.begin(), mNativeModuleInstances.end(),
                     [](const NativeModuleInstance& inFirst, const NativeModuleInstance& inSecond)
                     { return inFirst.ImageBase < inSecond.ImageBase; });
    mProcessInstances.clear();
    for (uint32_t i = 0; i < mNativeModuleInstances.size(); ++i)
        mProcessInstances[mNativeModuleInstances[i].ProcessID].push_back(i);
}

std::optional<NativeModuleInstance> ModuleDatabase::FindNativeModuleInstance(uint64_t inAddress, int32_t inProcessID,
                                                                             double inTimeMs) const
{
    const System::MutexLock lock(mMutex);
    const NativeModuleInstance* found = FindInstance(GetInstancesOf(inProcessID), inAddress, inTimeMs);
    return found != nullptr ? std::optional(*found) : std::nullopt;
}

std::span<const uint32_t> ModuleDatabase::GetInstancesOf(int32_t inProcessID) const
{
    const auto process = mProcessInstances.find(inProcessID);
    return process != mProcessInstances.end() ? std::span<const uint32_t>(process->second) : std::span<const uint32_t>();
}

const NativeModuleInstance* ModuleDatabase::FindInstance(std::span<const uint32_t> inInstances, uint64_t inAddress,
                                                         double inTimeMs) const
{
    auto next = std::upper_bound(inInstances.begin(), inInstances.end(), inAddress,
                                 [this](uint64_t inValue, uint32_t inInstance) REQUIRES(mMutex)
                                 { return inValue < mNativeModuleInstances[inInstance].ImageBase; });

    const NativeModuleInstance* loadedLater = nullptr;
    while (next != inInstances.begin())
    {
        const NativeModuleInstance& instance = mNativeModuleInstances[*--next];
        // Instances may be set ahead of their modules; nothing can be found in them yet.
        if (instance.NativeModuleIndex >= mNativeModules.size())
            continue;
        if (mNativeModules[instance.NativeModuleIndex]->EndsBelow(inAddress, instance.ImageBase))
            break;
        if (instance.LoadTimeMs <= inTimeMs && inTimeMs <= instance.UnloadTimeMs)
            return &instance;
        if (instance.LoadTimeMs > inTimeMs)
            loadedLater = &instance;
    }
    return loadedLater;
}

// Neighbouring frames mostly lie in one module: they are resolved together, under one hold of its lock. Where the image's size is
// unknown, the run is the one address.
ModuleDatabase::FrameRun ModuleDatabase::FindRun(std::span<const uint32_t> inInstances, std::span<const uint64_t> inAddresses,
                                                 size_t inStart, double inTimeMs) const
{
    FrameRun run{inStart, inStart + 1, {0, nullptr}};
    const NativeModuleInstance* instance = FindInstance(inInstances, inAddresses[inStart], inTimeMs);
    if (instance == nullptr)
        return run;
    run.Found = {instance->ImageBase, mNativeModules[instance->NativeModuleIndex].get()};
    const auto imageSize = static_cast<uint64_t>(std::max(run.Found.Module->ImageSize, 0));
    while (run.End < inAddresses.size() && inAddresses[run.End] - instance->ImageBase < imageSize)
        ++run.End;
    return run;
}

// Finds the next runs from inStart on, as many as outRuns holds, and gives their number.
size_t ModuleDatabase::FindRuns(std::span<const uint64_t> inAddresses, size_t inStart, int32_t inProcessID, double inTimeMs,
                                std::span<FrameRun> outRuns) const
{
    const System::MutexLock lock(mMutex);
    const std::span<const uint32_t> instances = GetInstancesOf(inProcessID);
    size_t count = 0;
    for (size_t start = inStart; start < inAddresses.size() && count < outRuns.size(); ++count)
    {
        outRuns[count] = FindRun(instances, inAddresses, start, inTimeMs);
        start = outRuns[count].End;
    }
    return count;
}

void ModuleDatabase::SetJITData(std::vector<Function> inFunctions, std::vector<JITFunctionInstance> inFunctionInstances,
                                JITFunctionAddressMap inAddressMap, std::vector<std::unique_ptr<JITModule>> inModules,
                                std::vector<JITModuleInstance> inModuleInstances,
                                std::vector<std::unique_ptr<JITExtraDataStorage>> inExtraDataStorage)
{
    const System::MutexLock lock(mMutex);
    mJITFunctions = std::move(inFunctions);
    mJITFunctionInstances = std::move(inFunctionInstances);
    mJITFunctionAddressMap = std::move(inAddressMap);
    mJITModules = std::move(inModules);
    mJITModuleInstances = std::move(inModuleInstances);
    mJITExtraDataStorage = std::move(inExtraDataStorage);
}

void ModuleDatabase::SetUpgradedJITFunctionInstances(std::vector<JITFunctionInstance> inInstances)
{
    const System::MutexLock lock(mMutex);
    mJITFunctionInstances = std::move(inInstances);
}

void ModuleDatabase::SetUpgradedJITModuleInstances(std::vector<JITModuleInstance> inInstances)
{
    const System::MutexLock lock(mMutex);
    mJITModuleInstances = std::move(inInstances);
}

const JITFunctionInstance* ModuleDatabase::FindJITFunctionInstance(uint64_t inAddress, int32_t inProcessID, double inTimeMs) const
{
    const auto bucket = mJITFunctionAddressMap.find(inAddress >> sJITBucketShift);
    if (bucket == mJITFunctionAddressMap.end())
        return nullptr;
    const JITFunctionIndices& indices = bucket->second;
    auto next = std::upper_bound(indices.begin(), indices.end(), inAddress,
                                 [this](uint64_t inValue, uint32_t inInstance) REQUIRES(mMutex)
                                 { return inValue < mJITFunctionInstances[inInstance].AbsoluteAddress; });
    while (next != indices.begin())
    {
        const JITFunctionInstance& instance = mJITFunctionInstances[*--next];
        const uint64_t size = mJITFunctions[instance.JITFunctionIndex].Size;
        if (instance.ProcessID == inProcessID && instance.LoadTime <= inTimeMs && inTimeMs < instance.UnloadTime &&
            inAddress - instance.AbsoluteAddress < size)
            return &instance;
    }
    return nullptr;
}

std::optional<ResolvedJITFunction> ModuleDatabase::TryResolveJIT(uint64_t inAddress, int32_t inProcessID, double inTimeMs) const
{
    const System::MutexLock lock(mMutex);
    if (mJITFunctions.empty())
        return std::nullopt;
    const JITFunctionInstance* instance = FindJITFunctionInstance(inAddress, inProcessID, inTimeMs);
    if (instance == nullptr)
        return std::nullopt;
    const Function& function = mJITFunctions[instance->JITFunctionIndex];
    if (function.ModuleIndex >= mJITModules.size())
        return std::nullopt;
    return ResolvedJITFunction{
        *instance, &function, mJITModules[function.ModuleIndex].get(), {ResolveIndex::sJITClass | instance->JITFunctionIndex}};
}

int32_t ModuleDatabase::ResolveFrames(std::span<const uint64_t> inAddresses, int32_t inProcessID, EResolveFlag inFlag,
                                      PlatformSession* inPlatform, std::vector<ResolvedFrame>& ioFrames, double inTimeMs)
{
    ioFrames.resize(inAddresses.size());
    std::array<FrameRun, sRunsPerLock> runs;
    for (size_t start = 0; start < inAddresses.size();)
    {
        const size_t runCount = FindRuns(inAddresses, start, inProcessID, inTimeMs, runs);
        for (const FrameRun& run : std::span(runs).first(runCount))
        {
            if (run.Found.Module == nullptr)
            {
                FillFrameOutsideNativeModules(ioFrames[run.Start], inAddresses[run.Start], inProcessID, inTimeMs);
                continue;
            }
            const size_t length = run.End - run.Start;
            const int32_t stop = run.Found.Module->ResolveAddresses(
                inAddresses.subspan(run.Start, length), std::span(ioFrames).subspan(run.Start, length),
                run.Found.Module->GetBase(run.Found.ImageBase), inPlatform, inFlag);
            if (stop != NativeModule::sNotStopped)
                return static_cast<int32_t>(run.Start) + stop;
        }
        start = runs[runCount - 1].End;
    }
    return static_cast<int32_t>(inAddresses.size());
}

void ModuleDatabase::FillFrameOutsideNativeModules(ResolvedFrame& outFrame, uint64_t inAddress, int32_t inProcessID,
                                                   double inTimeMs) const
{
    outFrame.AbsoluteAddress = inAddress;
    if (const std::optional<ResolvedJITFunction> found = TryResolveJIT(inAddress, inProcessID, inTimeMs))
    {
        outFrame.Module = found->Module;
        outFrame.FunctionRelativeAddress = found->Function->RelativeAddress;
        outFrame.FunctionSize = found->Function->Size;
        outFrame.RelativeAddress = inAddress - found->Instance.AbsoluteAddress;
        outFrame.ResolveIndex = found->ResolveIndex;
        outFrame.FunctionAbsoluteAddress = found->Instance.AbsoluteAddress;
        return;
    }
    outFrame.Module = &mUnknownModule;
    outFrame.FunctionRelativeAddress = sNoAddress;
    outFrame.FunctionSize = 0;
    outFrame.RelativeAddress = inAddress;
    outFrame.ResolveIndex.Index = ResolveIndex::sUnknownModuleClass;
    outFrame.FunctionAbsoluteAddress = sNoAddress;
}

ResolvedFrame ModuleDatabase::ResolveFrame(uint64_t inAddress, int32_t inProcessID, double inTimeMs, PlatformSession* inPlatform)
{
    ResolvedFrame frame;
    FrameRun run;
    static_cast<void>(FindRuns({&inAddress, 1}, 0, inProcessID, inTimeMs, {&run, 1}));
    if (run.Found.Module == nullptr)
        FillFrameOutsideNativeModules(frame, inAddress, inProcessID, inTimeMs);
    else // the position of a stop is of no interest here: the one frame is filled either way
        run.Found.Module->ResolveAddresses({&inAddress, 1}, {&frame, 1}, run.Found.Module->GetBase(run.Found.ImageBase),
                                           inPlatform, EResolveFlag::FetchSymbols);
    return frame;
}

ResolvedFunctionInfo ModuleDatabase::sMakeInfo(const Module& inModule, const Function& inFunction, uint64_t inRelativeAddress,
                                               ResolveIndex inIndex)
{
    ResolvedFunctionInfo info;
    info.Module = &inModule;
    info.FunctionRelativeAddress = inFunction.RelativeAddress;
    info.FunctionSize = inFunction.Size;
    info.RelativeAddress = inRelativeAddress;
    info.ResolveIndex = inIndex;
    info.FunctionName = inFunction.Name;
    return info;
}

ResolvedFunctionInfo ModuleDatabase::FindKnownFunction(uint64_t inAddress, int32_t inProcessID, double inTimeMs) const
{
    FrameRun run;
    static_cast<void>(FindRuns({&inAddress, 1}, 0, inProcessID, inTimeMs, {&run, 1}));
    if (const NativeModule* module = run.Found.Module; module != nullptr)
    {
        const uint64_t base = module->GetBase(run.Found.ImageBase);
        const Function function = module->FindCachedFunction(inAddress - base);
        ResolvedFunctionInfo info = sMakeInfo(*module, function, inAddress - base, {module->GetIndex()});
        info.AbsoluteAddress = inAddress;
        if (function.IsKnown())
            info.FunctionAbsoluteAddress = function.RelativeAddress + base;
        return info;
    }
    ResolvedFrame frame;
    FillFrameOutsideNativeModules(frame, inAddress, inProcessID, inTimeMs);
    ResolvedFunctionInfo info = GetResolvedFunction(frame.RelativeAddress, frame.ResolveIndex);
    info.AbsoluteAddress = inAddress;
    info.FunctionAbsoluteAddress = frame.FunctionAbsoluteAddress;
    return info;
}

ResolvedFunctionInfo ModuleDatabase::GetResolvedFunction(uint64_t inRelativeAddress, ResolveIndex inIndex) const
{
    const uint32_t position = inIndex.Index & ResolveIndex::sIndexMask;
    const NativeModule* nativeModule = nullptr;
    {
        const System::MutexLock lock(mMutex);
        switch (inIndex.GetClass())
        {
        case ResolveIndex::sNativeClass:
            if (position < mNativeModules.size())
                nativeModule = mNativeModules[position].get();
            break;
        case ResolveIndex::sJITClass:
            if (position < mJITFunctions.size() && mJITFunctions[position].ModuleIndex < mJITModules.size())
                return sMakeInfo(*mJITModules[mJITFunctions[position].ModuleIndex], mJITFunctions[position], inRelativeAddress,
                                 inIndex);
            break;
        case ResolveIndex::sUnknownModuleClass:
            return sMakeInfo(mUnknownModule, mUnknownFunction, inRelativeAddress, inIndex);
        case ResolveIndex::sUnknownClass:
            return sMakeInfo(mRootModule, mRootFunction, inRelativeAddress, inIndex);
        default:
            break;
        }
    }
    if (nativeModule != nullptr)
        return sMakeInfo(*nativeModule, nativeModule->FindCachedFunction(inRelativeAddress), inRelativeAddress, inIndex);
    ResolvedFunctionInfo empty;
    empty.ResolveIndex.Index = sNoIndex;
    return empty;
}

uint64_t ModuleDatabase::ToAbsoluteAddress(uint64_t inRelativeAddress, ResolveIndex inIndex, double inTimeMs) const
{
    const System::MutexLock lock(mMutex);
    const uint32_t position = inIndex.Index & ResolveIndex::sIndexMask;

    // The instance that is loaded at the time, else the only one there is.
    const auto findInstance = [inTimeMs](const auto& inInstances, auto inIsWanted, auto inLoadTime, auto inUnloadTime)
    {
        size_t count = 0;
        decltype(&inInstances.front()) only = nullptr;
        for (const auto& instance : inInstances)
        {
            if (!inIsWanted(instance))
                continue;
            if (inTimeMs != sAnyTime && instance.*inLoadTime <= inTimeMs && inTimeMs < instance.*inUnloadTime)
                return &instance;
            ++count;
            only = &instance;
        }
        return count == 1 ? only : nullptr;
    };

    if (inIndex.GetClass() == ResolveIndex::sJITClass)
    {
        const auto* found = findInstance(
            mJITFunctionInstances,
            [position](const JITFunctionInstance& inInstance) { return inInstance.JITFunctionIndex == position; },
            &JITFunctionInstance::LoadTime, &JITFunctionInstance::UnloadTime);
        return found != nullptr ? found->AbsoluteAddress + inRelativeAddress : sNoAddress;
    }
    if (inIndex.GetClass() != ResolveIndex::sNativeClass || position >= mNativeModules.size())
        return sNoAddress;
    const auto* found = findInstance(
        mNativeModuleInstances,
        [position](const NativeModuleInstance& inInstance) { return inInstance.NativeModuleIndex == position; },
        &NativeModuleInstance::LoadTimeMs, &NativeModuleInstance::UnloadTimeMs);
    return found != nullptr ? inRelativeAddress + mNativeModules[position]->GetBase(found->ImageBase) : sNoAddress;
}

std::vector<ModuleDatabase::FoundFunction>
ModuleDatabase::FindFunctions(const std::function<bool(const std::string&)>& inPredicate) const
{
    std::vector<FoundFunction> found;
    std::vector<const NativeModule*> modules;
    {
        const System::MutexLock lock(mMutex);
        for (const auto& nativeModule : mNativeModules)
            if (nativeModule != nullptr)
                modules.push_back(nativeModule.get());
    }
    for (const NativeModule* nativeModule : modules)
        nativeModule->ForEachCachedFunction(
            [&](const Function& inFunction)
            {
                if (inPredicate(inFunction.Name))
                    found.push_back(
                        {inFunction.Name, nativeModule->Name, {inFunction.RelativeAddress, {nativeModule->GetIndex()}}});
            });

    const System::MutexLock lock(mMutex);
    for (uint32_t i = 0; i < mJITFunctions.size(); ++i)
    {
        const Function& function = mJITFunctions[i];
        if (function.ModuleIndex < mJITModules.size() && inPredicate(function.Name))
            found.push_back({function.Name,
                             mJITModules[function.ModuleIndex]->Name,
                             {function.RelativeAddress, {ResolveIndex::sJITClass | i}}});
    }
    return found;
}

std::string gGetFrameDisplayName(const ResolvedFunctionInfo& inFrame)
{
    const bool isUnknown = inFrame.Module == nullptr || inFrame.FunctionRelativeAddress == sNoAddress;
    if (!inFrame.ResolveIndex.IsUnknownClass() && isUnknown)
        return Utility::gFormat("0x%llX", static_cast<unsigned long long>(inFrame.AbsoluteAddress));
    return inFrame.FunctionName;
}

} // namespace Profiler
