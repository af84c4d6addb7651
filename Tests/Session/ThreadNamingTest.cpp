#include "Session/Modules/ThreadNaming.h"

#include "Session/Modules/ModuleDatabase.h"
#include "Tests/Session/FakeNativeModule.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

namespace
{

using namespace Profiler;

constexpr int32_t sProcess = static_cast<int32_t>(0x80000000);
constexpr uint64_t sImageBase = 0x10000;
constexpr uint64_t sStartAddress = sImageBase + 0x104;

class ThreadNamingTest : public testing::Test
{
protected:
    // The name of a thread that starts in the function, which the module's symbols know.
    [[nodiscard]] static std::string Name(const std::string& inPath, const std::string& inFunctionName)
    {
        ModuleDatabase modules;
        auto module = std::make_unique<FakeNativeModule>(inPath, 0x1000);
        module->AddSymbol(0x100, 0x20, 0x20, inFunctionName);
        Load(modules, std::move(module));
        return gGetThreadNameFromStart(Start(sStartAddress), modules, nullptr);
    }

    static void Load(ModuleDatabase& ioModules, std::unique_ptr<NativeModule> inModule)
    {
        ioModules.AddNativeModule(std::move(inModule));
        ioModules.SetNativeModuleInstances({{sImageBase, 0, 100, sProcess, 0}});
    }

    [[nodiscard]] static TraceEvent Start(uint64_t inAddress, int32_t inProcess = sProcess)
    {
        return {5, inProcess, 0, ThreadStartEvent{0, inAddress}};
    }
};

TEST_F(ThreadNamingTest, WellKnownStartFunctionsNameTheirThreads)
{
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"C:\\Windows\\clr.dll", "clr!Thread::intermediateThreadProc", "CLR Worker"},
        {"clr.dll", "SockAsyncThreadStart", "WinSock"},
        {"clr.dll", "DebuggerRCThread::ThreadProc", "Debugger Helper"},
        {"x/mscorwks.dll", "Thread::intermediateThreadProc", "CLR Worker"},
        {"x/mscorwks.dll", "SockAsyncThread", "WinSock"},
        {"x/mscorwks.dll", "DebuggerRCThread", "Debugger Helper"},
        {"ntdll.dll", "TppWorkerThread", "Thread Pool"},
        {"gdiplus.dll", "BackgroundThreadProc", "GDI"},
        {"rpcrt4.dll", "ThreadStartRoutine", "RPC"},
        {"mswsock.dll", "RpcWorkerThreadEntry", "OLE/RPC"},
        {"msvcr100.dll", "ConcurrencyInternals", "Concurrency RT"},
        {"msvcr100d.dll", "ConcurrencyInternals", "Concurrency RT"},
        {"app.exe", "mainCRTStartup", "Main"},
        {"app.exe", "wmainCRTStartup", "Main"},
        {"/usr/bin/app", "COM+_Entry_Point", "Main"},
    };
    for (const auto& [path, function, name] : cases)
        EXPECT_EQ(Name(path, function), name) << path << " " << function;
}

TEST_F(ThreadNamingTest, AnyOtherStartFunctionMakesAWorker)
{
    EXPECT_EQ(Name("/usr/bin/app", "start_thread"), "Worker");
    EXPECT_EQ(Name("ntdll.dll", "mainCRTStartup"), "Worker") << "a known module has only its own rules";
    EXPECT_EQ(Name("NTDLL.dll", "TppWorkerThread"), "Worker") << "case counts";
    EXPECT_EQ(Name("/clr.dll/app", "SockAsyncThread"), "Worker") << "only the file name counts";
    EXPECT_EQ(Name("app", "tppworkerthread"), "Worker");
}

TEST_F(ThreadNamingTest, WithoutAFunctionTheModuleGivesTheName)
{
    ModuleDatabase modules;
    Load(modules, std::make_unique<FakeNativeModule>("/usr/lib/libfoo.so", 0x1000));
    EXPECT_EQ(gGetThreadNameFromStart(Start(sStartAddress), modules, nullptr), "libfoo.so");
    EXPECT_EQ(gGetThreadNameFromStart(Start(0x5000), modules, nullptr), "");
    EXPECT_EQ(gGetThreadNameFromStart(Start(sStartAddress, sProcess + 1), modules, nullptr), "");
}

TEST_F(ThreadNamingTest, TheAddressComesFromBothKindsOfStart)
{
    ModuleDatabase modules;
    auto module = std::make_unique<FakeNativeModule>("app", 0x1000);
    module->AddFunction(0x100, 0x20, "mainCRTStartup");
    module->SortFunctions();
    Load(modules, std::move(module));
    const auto name = [&modules](TraceEvent::Payload inPayload) {
        return gGetThreadNameFromStart({5, sProcess, 0, std::move(inPayload)}, modules, nullptr);
    };
    EXPECT_EQ(name(ThreadStartEvent{1, sStartAddress}), "Main");
    EXPECT_EQ(name(ThreadStartDisplayEvent{7, 0, sStartAddress}), "Main");
    EXPECT_EQ(name(SampleEvent{sStartAddress}), "") << "other kinds have the address 0";
}

} // namespace
