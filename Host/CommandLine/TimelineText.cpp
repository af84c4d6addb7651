#include "Host/CommandLine/TimelineText.h"

#include "Utility/Format.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

namespace Host
{

using namespace Profiler;

namespace
{

// Of the upper half of the address space.
bool gIsKernelAddress(uint64_t inAddress)
{
    return inAddress >> 63 != 0;
}

// Where the kernel comes in for an interrupt, by the names that it has for these places on its processors.
bool gIsInterruptEntry(std::string_view inFunction)
{
    constexpr std::array<std::string_view, 4> entries = {"asm_sysvec_", "asm_common_interrupt", "el1h_64_irq", "el0t_64_irq"};
    return std::any_of(entries.begin(), entries.end(),
                       [inFunction](std::string_view inEntry) { return inFunction.starts_with(inEntry); });
}

} // namespace

FunctionText gDescribeFunction(const ResolvedFunctionInfo& inInfo)
{
    FunctionText text;
    text.IsNamed = inInfo.FunctionRelativeAddress != sNoAddress || inInfo.ResolveIndex.IsUnknownClass();
    text.Function =
        text.IsNamed ? inInfo.FunctionName : Utility::gFormat("0x%llx", static_cast<unsigned long long>(inInfo.RelativeAddress));
    if (inInfo.Module != nullptr)
        text.Module = inInfo.Module->Name;
    return text;
}

FunctionText gDescribeFunction(const ModuleDatabase& inModules, const ResolvedAddress& inFunction)
{
    return gDescribeFunction(inModules.GetResolvedFunction(inFunction.RelativeAddress, inFunction.ResolveIndex));
}

std::vector<ResolvedAddress> gFindByPathElement(const ModuleDatabase& inModules, const std::string& inElement)
{
    std::vector<ResolvedAddress> functions;
    for (const ModuleDatabase::FoundFunction& found :
         inModules.FindFunctions([&inElement](const std::string& inName) { return inName == inElement; }))
        functions.push_back(found.Address);
    const ResolvedAddress root{sPlaceholderAddress, {ResolveIndex::sUnknownClass}};
    if (gDescribeFunction(inModules, root).Function == inElement)
        functions.push_back(root);

    const size_t plus = inElement.rfind("+0x");
    if (plus == std::string::npos)
        return functions;
    const std::string module = inElement.substr(0, plus);
    const uint64_t address = std::strtoull(inElement.c_str() + plus + 1, nullptr, 0);
    if (inModules.GetUnknownModule().Name == module)
        functions.push_back({address, {ResolveIndex::sUnknownModuleClass}});
    for (const std::unique_ptr<NativeModule>& native : inModules.GetNativeModules())
    {
        if (native != nullptr && native->Name == module)
            functions.push_back({address, {native->GetIndex()}});
    }
    return functions;
}

std::string LeafText::Format() const
{
    if (IsInterrupt)
        return Leaf + " < interrupt" + (UserLeaf.empty() ? "" : " of " + UserLeaf);
    return UserLeaf.empty() ? Leaf : Leaf + " < " + UserLeaf;
}

LeafText gDescribeLeaf(const Session& inSession, CallstackKey inStack, ThreadID inThread, double inTimeMs)
{
    const Callstack* stack = inStack != sNoCallstack ? inSession.GetCallstack(inStack) : nullptr;
    const Thread* thread = inSession.GetThread(inThread);
    if (stack == nullptr || stack->empty() || thread == nullptr)
        return {};
    const auto describe = [&](uint64_t inAddress) {
        return gDescribeFunction(inSession.GetModuleDatabase().FindKnownFunction(inAddress, thread->ProcessID, inTimeMs))
            .Function;
    };
    LeafText text{.Leaf = describe(stack->back()), .UserLeaf = {}};
    if (!gIsKernelAddress(stack->back()))
        return text;
    const auto user = std::find_if_not(stack->rbegin(), stack->rend(), gIsKernelAddress);
    text.IsInterrupt =
        std::any_of(stack->rbegin(), user, [&](uint64_t inAddress) { return gIsInterruptEntry(describe(inAddress)); });
    if (user != stack->rend())
        text.UserLeaf = describe(*user);
    return text;
}

std::string gDescribeThread(const Session& inSession, ThreadID inThread)
{
    const Thread* thread = inSession.GetThread(inThread);
    if (thread == nullptr)
        return "nobody";
    return Utility::gFormat("%s (%d)", thread->ThreadName.c_str(), thread->DisplayThreadID);
}

std::string gFormatMs(double inMs)
{
    return Utility::gFormat("%.3f", inMs);
}

std::string gDescribeState(ThreadState inState)
{
    return ThreadStateName[static_cast<size_t>(inState)];
}

void gWriteThread(JSONWriter& ioWriter, const Session& inSession, ThreadID inThread)
{
    const Thread* thread = inSession.GetThread(inThread);
    gWriteMember(ioWriter, "thread_key", inThread);
    if (thread == nullptr)
        return;
    gWriteMember(ioWriter, "thread", thread->DisplayThreadID);
    gWriteMember(ioWriter, "name", thread->ThreadName);
    if (const Process* process = inSession.GetProcess(thread->ProcessID))
    {
        gWriteMember(ioWriter, "process", process->DisplayID);
        gWriteMember(ioWriter, "process_name", process->Name);
    }
}

void gWriteLeaf(JSONWriter& ioWriter, const char* inName, const LeafText& inLeaf)
{
    ioWriter.Key(inName);
    ioWriter.StartObject();
    gWriteMember(ioWriter, "leaf", inLeaf.Leaf);
    gWriteMember(ioWriter, "user_leaf", inLeaf.UserLeaf);
    ioWriter.Key("interrupt");
    ioWriter.Bool(inLeaf.IsInterrupt);
    ioWriter.EndObject();
}

} // namespace Host
