#include "Host/Import/SessionBuilder.h"

#include "Host/Linux/ElfModule.h"
#include "Host/Linux/KernelModule.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <unordered_set>

namespace Host
{
namespace
{

constexpr double sOpenEnd = std::numeric_limits<double>::max();
constexpr const char* sKernelBuildIDPath = "[kernel.kallsyms]";

// Modules beyond this size can't be told apart from unknown ones; nothing that is linked gets there.
constexpr uint64_t sMaxImageSize = std::numeric_limits<int32_t>::max();

int32_t gToImageSize(uint64_t inSize)
{
    return static_cast<int32_t>(std::min(inSize, sMaxImageSize));
}

// Kernel threads are shown in brackets, so that they aren't taken for programs.
std::string gGetShownName(const ProcessInstance& inInstance)
{
    return inInstance.IsKernelThread ? "[" + inInstance.Name + "]" : inInstance.Name;
}

} // namespace

SessionBuilder::SessionBuilder(Profiler::Session& ioSession, ProcessTimeline& ioTimeline, SymbolCache& ioSymbols,
                               uint64_t inFirstTime, uint64_t inLastTime)
    : mSession(ioSession),
      mTimeline(ioTimeline),
      mSymbols(ioSymbols),
      mFirstTime(inFirstTime),
      mLastTime(inLastTime)
{
}

int32_t SessionBuilder::GetProcessOf(int32_t inThreadID, int32_t inToldProcessID, int32_t inToldElsewhere, uint64_t inTime) const
{
    if (inToldProcessID > 0)
        return inToldProcessID;
    const int32_t known = mTimeline.FindProcessOfThread(inThreadID, inTime);
    if (known > 0)
        return known;
    return inToldElsewhere > 0 ? inToldElsewhere : inThreadID;
}

double SessionBuilder::EndToMs(uint64_t inTime) const
{
    return inTime == sNeverEnded ? sOpenEnd : ToMs(inTime);
}

void SessionBuilder::AddProcesses(const ActiveThreads& inActive, const ImportFilter& inFilter)
{
    std::unordered_set<int32_t> activePids;
    inActive.ForEachProcess(
        [&](int32_t inProcessID)
        {
            if (activePids.insert(inProcessID).second && mTimeline.FindInstance(inProcessID, 0) == ProcessTimeline::sNoInstance)
                mTimeline.AddUnknownProcess(inProcessID);
        });

    const std::vector<ProcessInstance>& instances = mTimeline.GetInstances();
    mProcessIDs.assign(instances.size(), sNotEntered);
    for (size_t i = 0; i < instances.size(); ++i)
    {
        const ProcessInstance& instance = instances[i];
        const bool isInTime = instance.Start <= mLastTime && instance.End >= mFirstTime;
        if (!isInTime || !activePids.contains(instance.ProcessID) ||
            !inFilter.TakesProcess(instance.ProcessID, instance.Name, instance.Path))
            continue;
        auto info = std::make_unique<Profiler::OptionalProcessInfo>();
        info->ParentProcessID = instance.ParentProcessID;
        const double end = ToMs(std::min(instance.End, mLastTime));
        mProcessIDs[i] = mSession
                             .AddProcess(instance.ProcessID, gGetShownName(instance), instance.Path, true, std::move(info),
                                         ToMs(instance.Start), end)
                             .ID;
    }
}

Profiler::ProcessID SessionBuilder::GetProcessID(uint32_t inInstance)
{
    mProcessIDs.resize(mTimeline.GetInstances().size(), sNotEntered);
    Profiler::ProcessID& id = mProcessIDs[inInstance];
    if (id == sNotEntered)
    {
        const ProcessInstance& instance = mTimeline.GetInstances()[inInstance];
        id = mSession
                 .AddNonCapturedProcess(instance.ProcessID, gGetShownName(instance), instance.Path, true, nullptr,
                                        ToMs(instance.Start), EndToMs(instance.End))
                 .ID;
    }
    return id;
}

void SessionBuilder::AddModules(const PerfFile& inFile)
{
    Profiler::ModuleDatabase& modules = mSession.GetModuleDatabase();
    std::vector<Profiler::NativeModuleInstance> instances;
    AddKernel(inFile, instances);

    constexpr uint32_t noModule = std::numeric_limits<uint32_t>::max();
    std::vector<uint32_t> moduleIndices(mTimeline.GetFiles().size(), noModule);
    for (const FileMapping& mapping : mTimeline.GetMappings())
    {
        // A process that isn't captured has no stacks to resolve.
        const Profiler::ProcessID process = mapping.Process < mProcessIDs.size() ? mProcessIDs[mapping.Process] : sNotEntered;
        const bool isInTime = mapping.LoadTime <= mLastTime && mapping.UnloadTime >= mFirstTime;
        if (process >= 0 || !isInTime)
            continue;
        uint32_t& index = moduleIndices[mapping.File];
        if (index == noModule)
        {
            const MappedFile& file = mTimeline.GetFiles()[mapping.File];
            index = modules.AddNativeModule(std::make_unique<ElfModule>(mSymbols, file.Path, gToImageSize(file.Size), file.ID))
                        .GetIndex();
        }
        instances.push_back({.ImageBase = mapping.ImageBase,
                             .LoadTimeMs = ToMs(mapping.LoadTime),
                             .UnloadTimeMs = EndToMs(mapping.UnloadTime),
                             .ProcessID = process,
                             .NativeModuleIndex = index});
    }
    modules.SetNativeModuleInstances(std::move(instances));
}

void SessionBuilder::AddKernel(const PerfFile& inFile, std::vector<Profiler::NativeModuleInstance>& ioInstances)
{
    const KernelMapping& kernel = mTimeline.GetKernel();
    if (!kernel.IsKnown)
        return;
    KernelSymbolsRequest request;
    request.ReferenceName = kernel.ReferenceName;
    request.ReferenceAddress = kernel.ReferenceAddress;
    for (const PerfBuildID& entry : inFile.GetBuildIDs())
        if (entry.Path == sKernelBuildIDPath)
            request.RecordedID = BuildID::sFromHex(entry.BuildID);

    const Profiler::NativeModule& kernelModule = mSession.GetModuleDatabase().AddNativeModule(
        std::make_unique<KernelModule>(std::move(request), kernel.TextAddress, gToImageSize(kernel.End - kernel.TextAddress)));
    for (const Profiler::Process& process : mSession.GetProcessList())
        ioInstances.push_back({.ImageBase = kernel.TextAddress,
                               .LoadTimeMs = 0.0,
                               .UnloadTimeMs = sOpenEnd,
                               .ProcessID = process.ID,
                               .NativeModuleIndex = kernelModule.GetIndex()});
}

} // namespace Host
