// What the library expects of the host's language-model session.
//
// Threads: the host's tool thread. Ownership: the host owns the registry and the manager.
#pragma once

#include "Session/Events/TraceEvent.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace RTTI
{
struct Type;
}

namespace Profiler
{

class Session;
struct ResolvedAddress;

// What a language model reads about one parameter of a tool.
struct ToolParameter
{
    std::string Description;
    bool Required = false;
    bool Reserved = false;
};

// The static description of a tool, beside its request and response types. A tool's identity is its group and name together.
struct ToolDescription
{
    uint32_t Group = 0;
    std::string Name;
    std::string Description;
    std::unordered_map<std::string, ToolParameter> Parameters; // one per property of the request
};

// The texts that a language model reads about a type's fields, by property name.
using TypeDocs = std::unordered_map<std::string, std::string>;

class IToolRegistry
{
public:
    virtual ~IToolRegistry() = default;

    // Both records are static: the registry may keep the pointers.
    virtual void RegisterTool(const RTTI::Type& inRequestType, const RTTI::Type& inResponseType,
                              const ToolDescription* inTool) = 0;
    virtual void RegisterTypeDocs(const RTTI::Type& inType, const TypeDocs* inDocs) = 0;
};

// What a plugin keeps for a language model between tool calls. It serves all sessions.
class ILLMModel
{
public:
    virtual ~ILLMModel() = default;

    // The host closed a session: whatever belongs to it goes.
    virtual void CloseSession(int32_t inSessionKey) = 0;
};

class ILLMSessionManager
{
public:
    virtual ~ILLMSessionManager() = default;

    // Null for an unknown key. The session stays valid during the tool call.
    [[nodiscard]] virtual Session* GetSession(int32_t inSessionKey) = 0;
    // inModelKey is the text of the model's GUID, with dashes. Null for an unknown key.
    [[nodiscard]] virtual ILLMModel* GetLLMModel(const std::string& inModelKey) = 0;
};

// A query of the host's call-graph model.
struct CallGraphQuery
{
    int32_t SessionKey = -1;
    Profiler::Session* Session = nullptr;
    double StartTime = 0.0; // milliseconds
    double EndTime = 0.0;
    std::vector<ThreadID> Threads; // that the query covers
};

class ICallGraphLLMModel : public ILLMModel
{
public:
    // Of a call graph or a function list; null for an unknown key.
    [[nodiscard]] virtual CallGraphQuery* GetCallGraphQuery(int32_t inKey) = 0;
    // The node's stack, root first; false for an unknown node.
    [[nodiscard]] virtual bool GetNodeCallstack(int32_t inCallGraphKey, int32_t inNodeKey,
                                                std::vector<ResolvedAddress>& outStack) = 0;
    // Null for an unknown function.
    [[nodiscard]] virtual ResolvedAddress* GetFunctionAddress(int32_t inFunctionListKey, int32_t inFunctionKey) = 0;
};

} // namespace Profiler
