#include "Session/Modules/ThreadNaming.h"

#include "FileSystem/Path.h"
#include "Session/Modules/ModuleDatabase.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

namespace Profiler
{

const std::array<const char*, 10> ThreadClassName = {"Worker", "Main",    "CLR Worker",     "Thread Pool", "GDI",
                                                     "RPC",    "OLE/RPC", "Concurrency RT", "WinSock",     "Debugger Helper"};

namespace
{

enum EThreadClass : uint8_t // NOLINT(performance-enum-size): indices into ThreadClassName
{
    Worker = 0,
    Main = 1,
    CLRWorker = 2,
    ThreadPool = 3,
    GDI = 4,
    RPC = 5,
    OLERPC = 6,
    ConcurrencyRT = 7,
    WinSock = 8,
    DebuggerHelper = 9,
};

// A text to look for in the name of the start function, and the class that it shows.
struct ThreadClassRule
{
    std::string_view Text;
    EThreadClass Class;
};

struct ModuleRules
{
    std::string_view ModuleFileName;
    std::span<const ThreadClassRule> Rules;
};

constexpr ThreadClassRule sCLRRules[] = {
    {"Thread::intermediateThreadProc", CLRWorker}, {"SockAsyncThread", WinSock}, {"DebuggerRCThread", DebuggerHelper}};
constexpr ThreadClassRule sNTRules[] = {{"TppWorkerThread", ThreadPool}};
constexpr ThreadClassRule sGDIPlusRules[] = {{"BackgroundThreadPro", GDI}};
constexpr ThreadClassRule sRPCRules[] = {{"ThreadStartRoutine", RPC}};
constexpr ThreadClassRule sSocketRules[] = {{"RpcWorkerThreadEntry", OLERPC}};
constexpr ThreadClassRule sConcurrencyRules[] = {{"ConcurrencyInternals", ConcurrencyRT}};
constexpr ThreadClassRule sOtherRules[] = {{"mainCRTStartup", Main}, {"wmainCRTStartup", Main}, {"COM+_Entry_Point", Main}};

constexpr ModuleRules sModuleRules[] = {
    {"clr.dll", sCLRRules},
    {"mscorwks.dll", sCLRRules},
    {"ntdll.dll", sNTRules},
    {"gdiplus.dll", sGDIPlusRules},
    {"rpcrt4.dll", sRPCRules},
    {"mswsock.dll", sSocketRules},
    {"msvcr100.dll", sConcurrencyRules},
    {"msvcr100d.dll", sConcurrencyRules},
};

// File names are compared as they stand, without folding case.
std::span<const ThreadClassRule> gGetRules(std::string_view inModuleFileName)
{
    const auto* found =
        std::find_if(std::begin(sModuleRules), std::end(sModuleRules),
                     [inModuleFileName](const ModuleRules& inRules) { return inRules.ModuleFileName == inModuleFileName; });
    return found != std::end(sModuleRules) ? found->Rules : std::span<const ThreadClassRule>(sOtherRules);
}

uint64_t gGetStartAddress(const TraceEvent& inEvent)
{
    if (const auto* start = inEvent.As<ThreadStartEvent>())
        return start->StartAddress;
    if (const auto* start = inEvent.As<ThreadStartDisplayEvent>())
        return start->StartAddress;
    return 0;
}

} // namespace

std::string gGetThreadNameFromStart(const TraceEvent& inEvent, ModuleDatabase& inModules, PlatformSession* inPlatform)
{
    const ResolvedFrame frame = inModules.ResolveFrame(gGetStartAddress(inEvent), inEvent.ProcessID, inEvent.TimeMs, inPlatform);
    const uint32_t frameClass = frame.ResolveIndex.GetClass();
    if (frameClass == ResolveIndex::sUnknownModuleClass)
        return {};
    if (frameClass != ResolveIndex::sNativeClass || frame.FunctionRelativeAddress == sNoAddress)
        return frame.Module->Name;

    // Class 0 is a native module by definition.
    const auto& nativeModule = static_cast<const NativeModule&>(*frame.Module);
    const std::string functionName =
        inModules.GetResolvedFunction(frame.FunctionRelativeAddress, frame.ResolveIndex).FunctionName;
    for (const ThreadClassRule& rule : gGetRules(FileSystem::gGetFileName(nativeModule.Path)))
        if (functionName.find(rule.Text) != std::string::npos)
            return ThreadClassName[rule.Class];
    return ThreadClassName[Worker];
}

} // namespace Profiler
