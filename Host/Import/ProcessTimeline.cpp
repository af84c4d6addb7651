#include "Host/Import/ProcessTimeline.h"

#include <algorithm>
#include <utility>

namespace Host
{
namespace
{

constexpr int32_t sKernelThreadParent = 2; // kthreadd
constexpr std::string_view sKernelTextPrefix = "[kernel.kallsyms]";

// A process inherits its parent's mappings, so forks can multiply them. No machine gets near this number; a made-up file might.
constexpr size_t sMaxMappings = 4'000'000;

// Executable memory without a file behind it. What lies in it is no module.
bool gIsAnonymous(std::string_view inPath)
{
    return inPath.empty() || inPath.starts_with("//anon") || inPath.starts_with("[heap]") || inPath.starts_with("[stack") ||
           inPath.starts_with("/dev/zero") || inPath.starts_with("/SYSV") || inPath.starts_with("[anon");
}

} // namespace

void ProcessTimeline::Collect(const PerfRecord& inRecord, PerfHealth& ioHealth)
{
    switch (inRecord.Type)
    {
    case EPerfRecordType::Mmap:
    case EPerfRecordType::Mmap2:
        CollectMmap(inRecord, ioHealth);
        break;
    case EPerfRecordType::Comm:
    {
        PerfComm comm;
        const EPerfSkip skip = gDecodeComm(inRecord, comm);
        if (skip != EPerfSkip::None)
            return ioHealth.CountSkip(skip);
        mThreadProcesses[comm.ThreadID] = comm.ProcessID;
        mChanges.push_back({.Time = inRecord.Time,
                            .Kind = comm.IsExec ? EKind::Exec : EKind::Name,
                            .ProcessID = comm.ProcessID,
                            .ThreadID = comm.ThreadID,
                            .Text = AddText(comm.Name),
                            .ID = {}});
        break;
    }
    case EPerfRecordType::Fork:
    case EPerfRecordType::Exit:
        CollectTask(inRecord, ioHealth);
        break;
    default:
        break;
    }
}

void ProcessTimeline::CollectMmap(const PerfRecord& inRecord, PerfHealth& ioHealth)
{
    PerfMmap mmap;
    const EPerfSkip skip = gDecodeMmap(inRecord, mmap);
    if (skip != EPerfSkip::None)
        return ioHealth.CountSkip(skip);
    if (mmap.IsKernel || mmap.ProcessID == -1)
        return CollectKernelMmap(mmap);
    if (!mmap.IsExecutable || mmap.Length == 0 || mmap.Address + mmap.Length < mmap.Address)
        return;
    mChanges.push_back({.Time = inRecord.Time,
                        .Kind = EKind::Map,
                        .ProcessID = mmap.ProcessID,
                        .ThreadID = mmap.ThreadID,
                        .Text = AddText(mmap.Path),
                        .Address = mmap.Address,
                        .Length = mmap.Length,
                        .FileOffset = mmap.FileOffset,
                        .ID = BuildID::sFromBytes(mmap.BuildID)});
}

// The first mapping of the kernel's text tells where it lies; all further ones are of modules and only make it longer.
void ProcessTimeline::CollectKernelMmap(const PerfMmap& inMmap)
{
    const uint64_t end = inMmap.Address + inMmap.Length;
    if (end < inMmap.Address)
        return;
    if (inMmap.Path.starts_with(sKernelTextPrefix))
    {
        mKernel.IsKnown = true;
        mKernel.TextAddress = inMmap.Address;
        mKernel.ReferenceAddress = inMmap.FileOffset;
        mKernel.ReferenceName = inMmap.Path.substr(sKernelTextPrefix.size());
    }
    mKernel.End = std::max(mKernel.End, end);
}

void ProcessTimeline::CollectTask(const PerfRecord& inRecord, PerfHealth& ioHealth)
{
    PerfTask task;
    const EPerfSkip skip = gDecodeTask(inRecord, task);
    if (skip != EPerfSkip::None)
        return ioHealth.CountSkip(skip);
    mThreadProcesses[task.ThreadID] = task.ProcessID;
    mChanges.push_back({.Time = inRecord.Time,
                        .Kind = inRecord.Type == EPerfRecordType::Fork ? EKind::Fork : EKind::Exit,
                        .ProcessID = task.ProcessID,
                        .ThreadID = task.ThreadID,
                        .Parent = task.ParentProcessID,
                        .ID = {}});
}

uint32_t ProcessTimeline::AddText(std::string_view inText)
{
    const auto [place, isNew] = mTextIndices.try_emplace(std::string(inText), static_cast<uint32_t>(mTexts.size()));
    if (isNew)
        mTexts.emplace_back(inText);
    return place->second;
}

void ProcessTimeline::Build(const std::vector<PerfBuildID>& inBuildIDs)
{
    for (const PerfBuildID& entry : inBuildIDs)
        mBuildIDs.try_emplace(entry.Path, BuildID::sFromHex(entry.BuildID));

    // Records of one time keep the order of the file, which is the order in which perf wrote down a process that ran already.
    std::stable_sort(mChanges.begin(), mChanges.end(),
                     [](const Change& inFirst, const Change& inSecond) { return inFirst.Time < inSecond.Time; });
    for (const Change& change : mChanges)
    {
        switch (change.Kind)
        {
        case EKind::Fork:
            Fork(change);
            break;
        case EKind::Exit:
            Exit(change);
            break;
        case EKind::Exec:
        case EKind::Name:
            Name(change);
            break;
        case EKind::Map:
            Map(change);
            break;
        }
    }
    mLive.clear();
    std::vector<Change>().swap(mChanges);
}

ProcessTimeline::LiveProcess& ProcessTimeline::GetLive(int32_t inProcessID, uint64_t inTime)
{
    const auto [place, isNew] = mLive.try_emplace(inProcessID);
    if (isNew)
    {
        place->second.Instance = static_cast<uint32_t>(mInstances.size());
        mInstancesByPid[inProcessID].push_back(place->second.Instance);
        ProcessInstance& instance = mInstances.emplace_back();
        instance.ProcessID = inProcessID;
        instance.Start = inTime;
        instance.IsKernelThread = inProcessID == sKernelThreadParent;
    }
    return place->second;
}

void ProcessTimeline::Fork(const Change& inChange)
{
    if (inChange.ProcessID == inChange.Parent)
    {
        ++GetLive(inChange.ProcessID, inChange.Time).ThreadCount;
        return;
    }

    const auto live = mLive.find(inChange.ProcessID);
    if (live != mLive.end())
    {
        // perf writes down the processes that run while new ones are already being recorded, so one can be told of twice.
        ProcessInstance& instance = mInstances[live->second.Instance];
        if (instance.Start == 0)
        {
            instance.Start = inChange.Time;
            instance.ParentProcessID = inChange.Parent;
            return;
        }
        // The pid was reused, and the end of its former owner wasn't recorded.
        EndProcess(live->second, inChange.Time);
        mLive.erase(live);
    }

    LiveProcess& child = GetLive(inChange.ProcessID, inChange.Time);
    child.ThreadCount = 1;
    mInstances[child.Instance].ParentProcessID = inChange.Parent;
    mInstances[child.Instance].IsKernelThread |= inChange.Parent == sKernelThreadParent;

    const auto parent = mLive.find(inChange.Parent);
    if (parent == mLive.end())
        return;
    if (mInstances[child.Instance].Name.empty())
        mInstances[child.Instance].Name = mInstances[parent->second.Instance].Name;
    if (inChange.Time == 0)
        return; // processes that ran before have their own mappings written down
    for (const uint32_t mapping : parent->second.Mappings)
    {
        if (mMappings.size() >= sMaxMappings)
        {
            ++mMappingsLeftOut;
            continue;
        }
        FileMapping copy = mMappings[mapping];
        copy.Process = child.Instance;
        copy.LoadTime = inChange.Time;
        copy.UnloadTime = sNeverEnded;
        child.Mappings.push_back(static_cast<uint32_t>(mMappings.size()));
        mMappings.push_back(copy);
    }
}

void ProcessTimeline::Exit(const Change& inChange)
{
    const auto live = mLive.find(inChange.ProcessID);
    if (live == mLive.end())
        return;
    // A process lives until its last thread has ended. Threads that were never told of don't count.
    if (--live->second.ThreadCount > 0)
        return;
    EndProcess(live->second, inChange.Time);
    mLive.erase(live);
}

void ProcessTimeline::Name(const Change& inChange)
{
    if (inChange.ThreadID != inChange.ProcessID)
        return;
    LiveProcess& process = GetLive(inChange.ProcessID, inChange.Time);
    ProcessInstance& instance = mInstances[process.Instance];
    instance.Name = mTexts[inChange.Text];
    if (inChange.Kind != EKind::Exec)
        return;
    // A new program: nothing of the old address space is left.
    UnloadMappings(process, inChange.Time);
    process.HasExecuted = true;
    instance.IsKernelThread = false;
    instance.Path.clear();
}

void ProcessTimeline::Map(const Change& inChange)
{
    const std::string& path = mTexts[inChange.Text];
    LiveProcess& process = GetLive(inChange.ProcessID, inChange.Time);
    const uint64_t end = inChange.Address + inChange.Length;

    // What was mapped there before is gone, whether or not its end was recorded.
    std::erase_if(process.Mappings,
                  [&](uint32_t inMapping)
                  {
                      FileMapping& old = mMappings[inMapping];
                      const bool overlaps = old.Begin < end && inChange.Address < old.End;
                      if (overlaps)
                          old.UnloadTime = inChange.Time;
                      return overlaps;
                  });
    if (gIsAnonymous(path) || inChange.FileOffset > inChange.Address)
        return;
    if (mMappings.size() >= sMaxMappings)
    {
        ++mMappingsLeftOut;
        return;
    }

    ProcessInstance& instance = mInstances[process.Instance];
    instance.IsKernelThread = false;
    if (instance.Path.empty() && path.starts_with('/'))
        instance.Path = path;
    const uint32_t file = GetFile(path, inChange.ID);
    mFiles[file].Size = std::max(mFiles[file].Size, inChange.FileOffset + inChange.Length);
    process.Mappings.push_back(static_cast<uint32_t>(mMappings.size()));
    mMappings.push_back({.Process = process.Instance,
                         .File = file,
                         .ImageBase = inChange.Address - inChange.FileOffset,
                         .Begin = inChange.Address,
                         .End = end,
                         .LoadTime = inChange.Time});
}

void ProcessTimeline::EndProcess(LiveProcess& ioProcess, uint64_t inTime)
{
    mInstances[ioProcess.Instance].End = inTime;
    UnloadMappings(ioProcess, inTime);
}

void ProcessTimeline::UnloadMappings(LiveProcess& ioProcess, uint64_t inTime)
{
    for (const uint32_t mapping : ioProcess.Mappings)
        mMappings[mapping].UnloadTime = inTime;
    ioProcess.Mappings.clear();
}

uint32_t ProcessTimeline::GetFile(const std::string& inPath, const BuildID& inID)
{
    BuildID id = inID;
    if (id.IsEmpty())
        if (const auto known = mBuildIDs.find(inPath); known != mBuildIDs.end())
            id = known->second;
    const auto [place, isNew] = mFileIndices.try_emplace(inPath + '\n' + id.ToHex(), static_cast<uint32_t>(mFiles.size()));
    if (isNew)
        mFiles.push_back({inPath, id, 0});
    return place->second;
}

uint32_t ProcessTimeline::FindInstance(int32_t inProcessID, uint64_t inTime) const
{
    const auto found = mInstancesByPid.find(inProcessID);
    if (found == mInstancesByPid.end())
        return sNoInstance;
    const std::vector<uint32_t>& instances = found->second;
    const auto later =
        std::upper_bound(instances.begin(), instances.end(), inTime,
                         [this](uint64_t inValue, uint32_t inInstance) { return inValue < mInstances[inInstance].Start; });
    // An event just ahead of its process's first record belongs to it all the same; so does one behind the end, the last switch.
    return later == instances.begin() ? instances.front() : *std::prev(later);
}

int32_t ProcessTimeline::FindProcessOfThread(int32_t inThreadID) const
{
    const auto found = mThreadProcesses.find(inThreadID);
    return found != mThreadProcesses.end() ? found->second : 0;
}

uint32_t ProcessTimeline::AddUnknownProcess(int32_t inProcessID)
{
    const auto index = static_cast<uint32_t>(mInstances.size());
    ProcessInstance& instance = mInstances.emplace_back();
    instance.ProcessID = inProcessID;
    instance.Name = ":" + std::to_string(inProcessID);
    mInstancesByPid[inProcessID].push_back(index);
    return index;
}

} // namespace Host
