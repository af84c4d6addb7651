// The store of stacks of older sessions: each stack by its key, inside the session file. CallstackTrie is its successor.
#pragma once

#include "RTTI/Declare.h"
#include "Session/Callstacks/Callstack.h"
#include "Session/Events/TraceEvent.h"

#include <memory>
#include <unordered_map>

namespace Profiler
{

struct CallstackDatabase
{
    std::unordered_map<CallstackKey, std::unique_ptr<Callstack>> StacksByID;
};

} // namespace Profiler

RTTI_DECLARE(Profiler::CallstackDatabase);
