// How threads, functions and stacks of a timeline are told to people.
//
// Threads: any. Ownership: plain values.
#pragma once

#include "Host/CommandLine/JSONOutput.h"
#include "Session/Processes/ThreadState.h"
#include "Session/Session.h"

#include <string>
#include <vector>

namespace Host
{

// A function and its module, by name; the address where nobody knows the function.
struct FunctionText
{
    std::string Function;
    std::string Module;
    bool IsNamed = true;

    // What names it in a stack: its name, or the module and the address in it.
    [[nodiscard]] std::string GetPathElement() const { return IsNamed ? Function : Module + "+" + Function; }
};

// The functions that a path element names: all with that name.
[[nodiscard]] std::vector<Profiler::ResolvedAddress> gFindByPathElement(const Profiler::ModuleDatabase& inModules,
                                                                        const std::string& inElement);

[[nodiscard]] FunctionText gDescribeFunction(const Profiler::ResolvedFunctionInfo& inInfo);
[[nodiscard]] FunctionText gDescribeFunction(const Profiler::ModuleDatabase& inModules,
                                             const Profiler::ResolvedAddress& inFunction);

// Where a stack stands: its innermost function, and, where that is of the kernel, the innermost one of the program. Empty if
// there is no such stack or function.
struct LeafText
{
    std::string Leaf;
    std::string UserLeaf;
    bool IsInterrupt = false; // what stands innermost has nothing to do with the thread, which was interrupted in the rest

    [[nodiscard]] std::string Format() const; // "Leaf < UserLeaf"
};

[[nodiscard]] LeafText gDescribeLeaf(const Profiler::Session& inSession, Profiler::CallstackKey inStack,
                                     Profiler::ThreadID inThread, double inTimeMs);

// "name (number)" of the operating system; "nobody" for a thread that isn't one.
[[nodiscard]] std::string gDescribeThread(const Profiler::Session& inSession, Profiler::ThreadID inThread);

[[nodiscard]] std::string gFormatMs(double inMs);

// The state's name. REQUIRES: it is one of 0 to 7.
[[nodiscard]] std::string gDescribeState(Profiler::ThreadState inState);

// Members "thread_key", "thread", "name", "process" and "process_name".
void gWriteThread(JSONWriter& ioWriter, const Profiler::Session& inSession, Profiler::ThreadID inThread);

// An object with the members "leaf", "user_leaf" and "interrupt".
void gWriteLeaf(JSONWriter& ioWriter, const char* inName, const LeafText& inLeaf);

} // namespace Host
