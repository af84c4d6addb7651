// The modules of a session, when each lay where, and the lookups that turn absolute addresses into functions.
//
// Threads: lookups from any thread; the lists are set by one thread before a pass, or grown during one by the pass's own thread.
// Ownership: owns its modules, which never move and live as long as it does. Locks: mMutex guards the lists and is never held
// while a module's own lock is taken or the platform is called. Invariant: NativeModules[i] has the index i; instances are sorted
// by ImageBase. After OnLoaded every index between the lists leads to something, whatever was in the file.
#pragma once

#include "Session/Modules/InstrumentationDatabase.h"
#include "Session/Modules/JITModule.h"
#include "Session/Modules/NativeModule.h"
#include "System/Mutex.h"

#include <limits>
#include <memory>
#include <optional>
#include <span>

namespace Profiler
{

// Where and when a native module was present: from LoadTimeMs to UnloadTimeMs, both included.
struct NativeModuleInstance
{
    uint64_t ImageBase = 0;
    double LoadTimeMs = 0.0;
    double UnloadTimeMs = 0.0;
    int32_t ProcessID = -1;
    uint32_t NativeModuleIndex = 0;
};

// What a caller needs to show a function or a frame.
struct ResolvedFunctionInfo
{
    const Profiler::Module* Module = nullptr;
    uint64_t FunctionRelativeAddress = sNoAddress;
    uint64_t FunctionSize = 0;
    uint64_t RelativeAddress = sNoAddress;
    Profiler::ResolveIndex ResolveIndex;
    std::string FunctionName;
    uint64_t AbsoluteAddress = sNoAddress;
    uint64_t FunctionAbsoluteAddress = sNoAddress; // sNoAddress when unknown
};

struct ResolvedJITFunction
{
    JITFunctionInstance Instance;
    const Profiler::Function* Function;
    const JITModule* Module;
    Profiler::ResolveIndex ResolveIndex;
};

class ModuleDatabase
{
    RTTI_FRIEND()

public:
    // As a time: any time.
    static constexpr double sAnyTime = std::numeric_limits<double>::lowest();

    ModuleDatabase();
    ~ModuleDatabase();

    ModuleDatabase(const ModuleDatabase&) = delete;
    ModuleDatabase& operator=(const ModuleDatabase&) = delete;

    // --- Native modules ---

    // Appends a module, sets its index and gives it back.
    NativeModule& AddNativeModule(std::unique_ptr<NativeModule> inModule);

    // Replaces the list, and sorts it by ImageBase.
    void SetNativeModuleInstances(std::vector<NativeModuleInstance> inInstances);

    // The instance of the process that holds the address at the time. An address just ahead of its module's load time still finds
    // it.
    [[nodiscard]] std::optional<NativeModuleInstance> FindNativeModuleInstance(uint64_t inAddress, int32_t inProcessID,
                                                                               double inTimeMs) const;

    // --- Modules generated at run time ---

    // Replaces all data of run-time generated code. inFunctionInstances are sorted by AbsoluteAddress, inModuleInstances by
    // ModuleID. REQUIRES: no lookup runs, nor are results of one in use.
    void SetJITData(std::vector<Function> inFunctions, std::vector<JITFunctionInstance> inFunctionInstances,
                    JITFunctionAddressMap inAddressMap, std::vector<std::unique_ptr<JITModule>> inModules,
                    std::vector<JITModuleInstance> inModuleInstances,
                    std::vector<std::unique_ptr<JITExtraDataStorage>> inExtraDataStorage);

    [[nodiscard]] std::optional<ResolvedJITFunction> TryResolveJIT(uint64_t inAddress, int32_t inProcessID,
                                                                   double inTimeMs) const;

    // --- Resolving ---

    // Fills one frame per address and gives the count of frames: the number of addresses, or the position of the frame at which
    // the platform's stop rule ended the walk. ioFrames keeps the frames of the caller's last stack between calls.
    int32_t ResolveFrames(std::span<const uint64_t> inAddresses, int32_t inProcessID, EResolveFlag inFlag,
                          PlatformSession* inPlatform, std::vector<ResolvedFrame>& ioFrames, double inTimeMs);

    // One address, without the stop rule.
    [[nodiscard]] ResolvedFrame ResolveFrame(uint64_t inAddress, int32_t inProcessID, double inTimeMs,
                                             PlatformSession* inPlatform);

    // The function at an absolute address, of those that are known so far. Fetches no symbols.
    [[nodiscard]] ResolvedFunctionInfo FindKnownFunction(uint64_t inAddress, int32_t inProcessID, double inTimeMs) const;

    // The function of a stored address. A class that doesn't exist gives an empty record with the index all ones.
    [[nodiscard]] ResolvedFunctionInfo GetResolvedFunction(uint64_t inRelativeAddress, ResolveIndex inIndex) const;

    // Back from relative to absolute, for the instance that is loaded at the time (its unload excluded), or the only one.
    // sNoAddress if that leaves none.
    [[nodiscard]] uint64_t ToAbsoluteAddress(uint64_t inRelativeAddress, ResolveIndex inIndex, double inTimeMs) const;

    struct FoundFunction
    {
        std::string FunctionName;
        std::string ModuleName;
        ResolvedAddress Address;
    };

    // All functions known so far whose names satisfy the predicate, native ones first. REQUIRES: inPredicate calls nothing here.
    [[nodiscard]] std::vector<FoundFunction> FindFunctions(const std::function<bool(const std::string&)>& inPredicate) const;

    // --- Life ---

    // Runs after the session file was read, and before the first lookup. Whatever else the file holds, lookups are safe
    // afterwards: records that refer to nothing are left out, which is told in the log, and what is searched is sorted.
    void OnLoaded(Session& inSession);

    // What the upgrade of an old file made; OnLoaded sorts it.
    void SetUpgradedJITFunctionInstances(std::vector<JITFunctionInstance> inInstances);
    void SetUpgradedJITModuleInstances(std::vector<JITModuleInstance> inInstances);

    // Gives each native module its position as its index.
    void NumberNativeModules();

    [[nodiscard]] InstrumentationDatabase& GetInstrumentationDatabase() { return mInstrumentationDatabase; }
    [[nodiscard]] const InstrumentationDatabase& GetInstrumentationDatabase() const { return mInstrumentationDatabase; }
    // Null stands for a module of the session file that nobody here could read: the others keep their positions.
    [[nodiscard]] const std::vector<std::unique_ptr<NativeModule>>& GetNativeModules() const NO_THREAD_SAFETY_ANALYSIS
    {
        return mNativeModules;
    }
    [[nodiscard]] const Module& GetUnknownModule() const { return mUnknownModule; }

private:
    struct FoundInstance
    {
        uint64_t ImageBase;
        NativeModule* Module;
    };

    // Neighbouring addresses of a stack that lie in one module, or one address that lies in none (Module is null then).
    struct FrameRun
    {
        size_t Start;
        size_t End;
        FoundInstance Found;
    };

    // Where each process's instances stand, in the order of the sorted list. Lookups would otherwise walk over those of all
    // processes.
    using ProcessInstances = std::unordered_map<int32_t, std::vector<uint32_t>>;

    [[nodiscard]] std::span<const uint32_t> GetInstancesOf(int32_t inProcessID) const REQUIRES(mMutex);
    [[nodiscard]] const NativeModuleInstance* FindInstance(std::span<const uint32_t> inInstances, uint64_t inAddress,
                                                           double inTimeMs) const REQUIRES(mMutex);
    [[nodiscard]] const JITFunctionInstance* FindJITFunctionInstance(uint64_t inAddress, int32_t inProcessID,
                                                                     double inTimeMs) const REQUIRES(mMutex);
    [[nodiscard]] FrameRun FindRun(std::span<const uint32_t> inInstances, std::span<const uint64_t> inAddresses, size_t inStart,
                                   double inTimeMs) const REQUIRES(mMutex);
    [[nodiscard]] size_t FindRuns(std::span<const uint64_t> inAddresses, size_t inStart, int32_t inProcessID, double inTimeMs,
                                  std::span<FrameRun> outRuns) const;
    void SortNativeModuleInstances() REQUIRES(mMutex);
    void LeaveOutUnusableRecords() REQUIRES(mMutex);
    [[nodiscard]] size_t LeaveOutNativeModuleInstances() REQUIRES(mMutex);
    [[nodiscard]] size_t LeaveOutJITModuleInstances() REQUIRES(mMutex);
    [[nodiscard]] size_t DetachJITFunctions() REQUIRES(mMutex);
    [[nodiscard]] size_t LeaveOutJITFunctionInstances(std::vector<uint32_t>& outNewIndices) REQUIRES(mMutex);
    [[nodiscard]] size_t RenumberJITFunctionAddressMap(std::span<const uint32_t> inNewIndices) REQUIRES(mMutex);
    void FillFrameOutsideNativeModules(ResolvedFrame& outFrame, uint64_t inAddress, int32_t inProcessID, double inTimeMs) const;
    [[nodiscard]] static ResolvedFunctionInfo sMakeInfo(const Module& inModule, const Function& inFunction,
                                                        uint64_t inRelativeAddress, ResolveIndex inIndex);

    const Module mUnknownModule;
    const Function mUnknownFunction;
    const Module mRootModule;
    const Function mRootFunction;
    InstrumentationDatabase mInstrumentationDatabase; // of the pass's thread

    mutable System::Mutex mMutex;
    std::vector<std::unique_ptr<NativeModule>> mNativeModules GUARDED_BY(mMutex); // null: see GetNativeModules
    std::vector<NativeModuleInstance> mNativeModuleInstances GUARDED_BY(mMutex);  // by ImageBase
    ProcessInstances mProcessInstances GUARDED_BY(mMutex);
    std::vector<std::unique_ptr<JITModule>> mJITModules GUARDED_BY(mMutex);
    std::vector<JITModuleInstance> mJITModuleInstances GUARDED_BY(mMutex); // by ModuleID
    std::vector<Function> mJITFunctions GUARDED_BY(mMutex);
    std::vector<JITFunctionInstance> mJITFunctionInstances GUARDED_BY(mMutex); // by AbsoluteAddress
    JITFunctionAddressMap mJITFunctionAddressMap GUARDED_BY(mMutex);
    std::vector<std::unique_ptr<JITExtraDataStorage>> mJITExtraDataStorage GUARDED_BY(mMutex);
};

// What to show for a frame: the function's name, or the absolute address in hexadecimal where nobody knows the function.
[[nodiscard]] std::string gGetFrameDisplayName(const ResolvedFunctionInfo& inFrame);

} // namespace Profiler

RTTI_DECLARE(Profiler::NativeModuleInstance);
RTTI_DECLARE(Profiler::ModuleDatabase);
