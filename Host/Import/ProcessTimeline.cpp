#include "Host/Import/ProcessTimeline.h"

#include <algorithm>
#include <iterator>
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

// For a process that nothing names.
std::string gMakeName(int32_t inProcessID)
{
    return ":" + std::to_string(inProcessID);
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
    if (inRecord.Type == EPerfRecordType::Exit)
        mLastExits[task.ThreadID] = std::max(mLastExits[task.ThreadID], inRecord.Time);
    mChanges.push_back({.Time = inRecord.Time,
                        .Kind = inRecord.Type == EPerfRecordType::Fork ? EKind::Fork : EKind::Exit,
                        .ProcessID = task.ProcessID,
                        .ThreadID = task.ThreadID,
                        .Parent = task.ParentProcessID,
                        .ParentThread = task.ParentThreadID,
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
        Replay(change);
    for (ProcessInstance& instance : mInstances)
        if (instance.Name.empty())
            instance.Name = gMakeName(instance.ProcessID);
    mLive.clear();
    std::vector<Change>().swap(mChanges);
}

void ProcessTimeline::Replay(const Change& inChange)
{
    NoteThread(inChange);
    switch (inChange.Kind)
    {
    case EKind::Fork:
        return Fork(inChange);
    case EKind::Exit:
        return Exit(inChange);
    case EKind::Exec:
    case EKind::Name:
        return Name(inChange);
    case EKind::Map:
        return Map(inChange);
    }
}

// Mappings aren't asked: where perf wrote them down for a process that ran already, they stand under its main thread.
void ProcessTimeline::NoteThread(const Change& inChange)
{
    if (inChange.Kind == EKind::Map)
        return;
    auto& processes = mThreadProcesses[inChange.ThreadID];
    if (processes.empty() || processes.back().second != inChange.ProcessID)
        processes.emplace_back(inChange.Time, inChange.ProcessID);
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

// A thread may be told of several times: by perf, which writes down what runs already while new ones are being recorded, and by
// the kernel.
void ProcessTimeline::Fork(const Change& inChange)
{
    if (inChange.ProcessID != inChange.Parent)
        return ForkProcess(inChange);
    LiveProcess& process = GetLive(inChange.ProcessID, inChange.Time);
    process.Threads.insert({inChange.ParentThread, inChange.ThreadID});
}

void ProcessTimeline::ForkProcess(const Change& inChange)
{
    const auto live = mLive.find(inChange.ProcessID);
    if (live != mLive.end())
    {
        ProcessInstance& instance = mInstances[live->second.Instance];
        if (instance.Start == 0)
        {
            instance.Start = inChange.Time;
            instance.ParentProcessID = inChange.Parent;
            instance.IsKernelThread |= inChange.Parent == sKernelThreadParent && instance.Path.empty();
            live->second.Threads.insert(inChange.ThreadID);
            return;
        }
        // The pid was reused, and the end of its former owner wasn't recorded.
        EndProcess(live->second, inChange.Time);
        mLive.erase(live);
    }

    LiveProcess& child = GetLive(inChange.ProcessID, inChange.Time);
    child.Threads.insert(inChange.ThreadID);
    mInstances[child.Instance].ParentProcessID = inChange.Parent;
    mInstances[child.Instance].IsKernelThread |= inChange.Parent == sKernelThreadParent;

    const auto parent = mLive.find(inChange.Parent);
    if (parent == mLive.end())
        return;
    mInstances[child.Instance].Name = mInstances[parent->second.Instance].Name;
    if (inChange.Time != 0) // processes that ran before have their own mappings written down
        Inherit(parent->second, child, inChange.Time);
}

void ProcessTimeline::Inherit(const LiveProcess& inParent, LiveProcess& ioChild, uint64_t inTime)
{
    if (mMappings.size() >= sMaxMappings)
    {
        mMappingsLeftOut += inParent.Mappings.size();
        return;
    }
    for (const auto& [begin, live] : inParent.Mappings)
    {
        FileMapping copy = mMappings[live.Index];
        copy.Process = ioChild.Instance;
        copy.LoadTime = inTime;
        AddMapping(ioChild, begin, live.End, copy);
    }
}

void ProcessTimeline::Exit(const Change& inChange)
{
    const auto live = mLive.find(inChange.ProcessID);
    if (live == mLive.end())
        return;
    // A process lives until the last thread that is known of it has ended. The end of one that was never told of says nothing
    // about the others.
    std::unordered_set<int32_t>& threads = live->second.Threads;
    if (threads.erase(inChange.ThreadID) == 0 || !threads.empty())
        return;
    EndProcess(live->second, inChange.Time);
    mLive.erase(live);
}

void ProcessTimeline::Name(const Change& inChange)
{
    LiveProcess& process = GetLive(inChange.ProcessID, inChange.Time);
    // A thread that begins a new program ends all others, and goes on under the main thread's ID.
    if (inChange.Kind == EKind::Exec)
        process.Threads.clear();
    process.Threads.insert(inChange.ThreadID);
    if (inChange.ThreadID != inChange.ProcessID)
        return;
    ProcessInstance& instance = mInstances[process.Instance];
    instance.Name = mTexts[inChange.Text];
    if (inChange.Kind != EKind::Exec)
        return;
    // A new program: nothing of the old address space is left.
    UnloadMappings(process, inChange.Time);
    instance.IsKernelThread = false;
    instance.Path.clear();
}

void ProcessTimeline::Map(const Change& inChange)
{
    const std::string& path = mTexts[inChange.Text];
    LiveProcess& process = GetLive(inChange.ProcessID, inChange.Time);
    process.Threads.insert(inChange.ThreadID);
    const bool isAnonymous = gIsAnonymous(path);
    Cover(process, inChange, isAnonymous);
    if (isAnonymous || inChange.FileOffset > inChange.Address)
        return;
    const uint32_t file = GetFile(path, inChange.ID);
    if (!AddMapping(process, inChange.Address, inChange.Address + inChange.Length,
                    {.Process = process.Instance,
                     .File = file,
                     .ImageBase = inChange.Address - inChange.FileOffset,
                     .LoadTime = inChange.Time}))
        return;
    mFiles[file].Size = std::max(mFiles[file].Size, inChange.FileOffset + inChange.Length);
    ProcessInstance& instance = mInstances[process.Instance];
    instance.IsKernelThread = false;
    if (instance.Path.empty() && path.starts_with('/'))
        instance.Path = path;
}

// Unloads what was mapped where something else is mapped now. That files are unmapped isn't recorded: one that another file
// comes into has gone as a whole. Anonymous memory takes its own addresses out of a file and leaves the rest.
void ProcessTimeline::Cover(LiveProcess& ioProcess, const Change& inChange, bool inKeepsRest)
{
    const uint64_t end = inChange.Address + inChange.Length;
    auto next = ioProcess.Mappings.upper_bound(inChange.Address);
    if (next != ioProcess.Mappings.begin() && std::prev(next)->second.End > inChange.Address)
        --next;
    while (next != ioProcess.Mappings.end() && next->first < end)
    {
        const auto [oldBegin, old] = *next;
        next = ioProcess.Mappings.erase(next);
        const bool keepsHead = inKeepsRest && oldBegin < inChange.Address;
        const bool keepsTail = inKeepsRest && end < old.End;
        if (keepsHead)
            ioProcess.Mappings.emplace_hint(next, oldBegin, LiveMapping{inChange.Address, old.Index});
        if (keepsHead && keepsTail)
            AddMapping(ioProcess, end, old.End, FileMapping(mMappings[old.Index]));
        else if (keepsTail)
            ioProcess.Mappings.emplace_hint(next, end, old);
        else if (!keepsHead)
            mMappings[old.Index].UnloadTime = inChange.Time;
    }
}

// False if there are too many to keep it.
bool ProcessTimeline::AddMapping(LiveProcess& ioProcess, uint64_t inBegin, uint64_t inEnd, const FileMapping& inMapping)
{
    if (mMappings.size() >= sMaxMappings)
    {
        ++mMappingsLeftOut;
        return false;
    }
    ioProcess.Mappings.emplace(inBegin, LiveMapping{inEnd, static_cast<uint32_t>(mMappings.size())});
    mMappings.push_back(inMapping);
    return true;
}

void ProcessTimeline::EndProcess(LiveProcess& ioProcess, uint64_t inTime)
{
    mInstances[ioProcess.Instance].End = inTime;
    UnloadMappings(ioProcess, inTime);
}

void ProcessTimeline::UnloadMappings(LiveProcess& ioProcess, uint64_t inTime)
{
    for (const auto& [begin, live] : ioProcess.Mappings)
        mMappings[live.Index].UnloadTime = inTime;
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

int32_t ProcessTimeline::FindProcessOfThread(int32_t inThreadID, uint64_t inTime) const
{
    const auto found = mThreadProcesses.find(inThreadID);
    if (found == mThreadProcesses.end())
        return 0;
    const auto& processes = found->second;
    const auto later = std::upper_bound(processes.begin(), processes.end(), inTime,
                                        [](uint64_t inValue, const auto& inSince) { return inValue < inSince.first; });
    // A thread that ran before the capture is told of late if its end is all that was recorded.
    return later == processes.begin() ? later->second : std::prev(later)->second;
}

bool ProcessTimeline::HasExitFrom(int32_t inThreadID, uint64_t inTime) const
{
    const auto found = mLastExits.find(inThreadID);
    return found != mLastExits.end() && found->second >= inTime;
}

uint32_t ProcessTimeline::AddUnknownProcess(int32_t inProcessID)
{
    const auto index = static_cast<uint32_t>(mInstances.size());
    ProcessInstance& instance = mInstances.emplace_back();
    instance.ProcessID = inProcessID;
    instance.Name = gMakeName(inProcessID);
    mInstancesByPid[inProcessID].push_back(index);
    return index;
}

} // namespace Host
