// Which process a pid meant at which time, and what was mapped where: the side-band records of a capture, replayed in time order.
//
// Collect records while the capture is scanned, then build once. Process numbers are reused and programs replace one another
// within a process, so every answer is one for a time. Threads: one. Ownership: a value; keeps copies of all it needs. Invariant:
// instances are in order of their start, and those of one pid don't overlap.
#pragma once

#include "Host/Import/PerfFile.h"
#include "Host/Import/PerfRecords.h"
#include "Host/Linux/BuildID.h"

#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Host
{

// Times of the capture's clock, in nanoseconds. 0: before the capture began.
inline constexpr uint64_t sNeverEnded = std::numeric_limits<uint64_t>::max();

struct ProcessInstance
{
    int32_t ProcessID = 0;
    int32_t ParentProcessID = 0;
    uint64_t Start = 0;
    uint64_t End = sNeverEnded;
    std::string Name; // of the last program that it ran
    std::string Path; // of the first file that its last program mapped
    bool IsKernelThread = false;
};

// One file as it was mapped, whatever processes mapped it.
struct MappedFile
{
    std::string Path;
    BuildID ID;        // empty if the capture doesn't tell
    uint64_t Size = 0; // bytes from file offset 0 to the end of the furthest executable mapping
};

// A file in a process for a time.
struct FileMapping
{
    uint32_t Process = 0; // index of the instance
    uint32_t File = 0;
    uint64_t ImageBase = 0; // where file offset 0 would lie
    uint64_t LoadTime = 0;
    uint64_t UnloadTime = sNeverEnded;
};

// The kernel's own text, and that of its modules, which begin and end with the machine.
struct KernelMapping
{
    bool IsKnown = false;
    uint64_t TextAddress = 0;
    uint64_t End = 0;              // of the text or the last module
    uint64_t ReferenceAddress = 0; // of the symbol that tells how far the kernel has moved
    std::string ReferenceName;
};

class ProcessTimeline
{
public:
    // Takes a copy of what it needs of a side-band record; ignores all others. Counts what can't be used.
    void Collect(const PerfRecord& inRecord, PerfHealth& ioHealth);

    // Replays what was collected. inBuildIDs supplies identities for mappings that carry none.
    void Build(const std::vector<PerfBuildID>& inBuildIDs);

    static constexpr uint32_t sNoInstance = std::numeric_limits<uint32_t>::max();

    // The instance that the pid named at the time; sNoInstance if none did.
    [[nodiscard]] uint32_t FindInstance(int32_t inProcessID, uint64_t inTime) const;

    // The pid that side-band records give for a thread ID at the time, 0 if none ever does.
    [[nodiscard]] int32_t FindProcessOfThread(int32_t inThreadID, uint64_t inTime) const;

    // True if an EXIT record tells of the thread's end at the time or later.
    [[nodiscard]] bool HasExitFrom(int32_t inThreadID, uint64_t inTime) const;

    // Adds an instance for a process that has events but no side-band record.
    uint32_t AddUnknownProcess(int32_t inProcessID);

    [[nodiscard]] const std::vector<ProcessInstance>& GetInstances() const { return mInstances; }
    [[nodiscard]] const std::vector<MappedFile>& GetFiles() const { return mFiles; }
    [[nodiscard]] const std::vector<FileMapping>& GetMappings() const { return mMappings; }
    [[nodiscard]] const KernelMapping& GetKernel() const { return mKernel; }

    // Mappings that forks would have inherited beyond what is kept; 0 in any capture that a real machine made.
    [[nodiscard]] uint64_t GetNumMappingsLeftOut() const { return mMappingsLeftOut; }

private:
    enum class EKind : uint8_t
    {
        Fork,
        Exit,
        Exec,
        Name,
        Map
    };

    // A side-band record, reduced to what matters.
    struct Change
    {
        uint64_t Time;
        EKind Kind;
        int32_t ProcessID;
        int32_t ThreadID;
        int32_t Parent = 0;
        int32_t ParentThread = 0;
        uint32_t Text = 0; // index into mTexts: name or path
        uint64_t Address = 0;
        uint64_t Length = 0;
        uint64_t FileOffset = 0;
        BuildID ID;
    };

    // Executable addresses of a file that haven't been unloaded, by where they begin in LiveProcess::Mappings.
    struct LiveMapping
    {
        uint64_t End;
        uint32_t Index; // into mMappings, where each has an entry of its own
    };

    // What is alive while the changes are replayed.
    struct LiveProcess
    {
        uint32_t Instance;
        std::unordered_set<int32_t> Threads;      // that were told of and haven't ended
        std::map<uint64_t, LiveMapping> Mappings; // they don't overlap
    };

    void CollectMmap(const PerfRecord& inRecord, PerfHealth& ioHealth);
    void CollectKernelMmap(const PerfMmap& inMmap);
    void CollectTask(const PerfRecord& inRecord, PerfHealth& ioHealth);
    uint32_t AddText(std::string_view inText);

    void Replay(const Change& inChange);
    void NoteThread(const Change& inChange);
    void Fork(const Change& inChange);
    void ForkProcess(const Change& inChange);
    void Inherit(const LiveProcess& inParent, LiveProcess& ioChild, uint64_t inTime);
    void Exit(const Change& inChange);
    void Name(const Change& inChange);
    void Map(const Change& inChange);
    void Cover(LiveProcess& ioProcess, const Change& inChange, bool inKeepsRest);
    bool AddMapping(LiveProcess& ioProcess, uint64_t inBegin, uint64_t inEnd, const FileMapping& inMapping);
    LiveProcess& GetLive(int32_t inProcessID, uint64_t inTime);
    void EndProcess(LiveProcess& ioProcess, uint64_t inTime);
    void UnloadMappings(LiveProcess& ioProcess, uint64_t inTime);
    uint32_t GetFile(const std::string& inPath, const BuildID& inID);

    std::vector<Change> mChanges;
    std::vector<std::string> mTexts;
    std::unordered_map<std::string, uint32_t> mTextIndices;
    std::unordered_map<std::string, BuildID> mBuildIDs; // by path
    // By thread ID: since when it is of which pid, in order of time.
    std::unordered_map<int32_t, std::vector<std::pair<uint64_t, int32_t>>> mThreadProcesses;
    std::unordered_map<int32_t, uint64_t> mLastExits; // by thread ID

    std::unordered_map<int32_t, LiveProcess> mLive; // by pid, while building
    std::vector<ProcessInstance> mInstances;
    std::unordered_map<int32_t, std::vector<uint32_t>> mInstancesByPid; // in order of start
    std::vector<MappedFile> mFiles;
    std::unordered_map<std::string, uint32_t> mFileIndices; // by path and build id
    std::vector<FileMapping> mMappings;
    KernelMapping mKernel;
    uint64_t mMappingsLeftOut = 0;
};

} // namespace Host
