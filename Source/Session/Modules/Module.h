// A body of code that frames can lie in. Concrete modules come from the platform side of the host; the plain class serves as the
// placeholder for code that nobody knows.
//
// Threads: as each operation says. Ownership: a ModuleDatabase owns its modules. The order of the virtual operations is part of
// the contract with the host.
#pragma once

#include "RTTI/Declare.h"
#include "RTTI/Object.h"
#include "System/Job.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Profiler
{

class Session;

// What a viewer shows about a function beyond its name, and its lines. The platform derives from them; the base is empty.
struct FunctionData
{
    virtual ~FunctionData() = default;
};

struct FunctionLineData
{
    virtual ~FunctionLineData() = default;
};

// How a viewer shows a row of a module's properties.
enum class EModulePropertyKind : int32_t
{
    Number = 1,
    Text = 2,
    Path = 3,
};

struct ModuleProperty
{
    std::string Label;
    std::string Value;
    EModulePropertyKind Kind;
};

class Module : public RTTI::Object
{
public:
    using FunctionDataCallback = std::function<void(const FunctionData&)>;
    using FunctionLineDataCallback = std::function<void(const FunctionLineData&)>;
    using TextCallback = std::function<void(const std::string&)>;

    Module() = default;
    explicit Module(std::string inName);
    ~Module() override = default;

    const RTTI::Type& GetType() const override;

    // Runs after the module was read from a session file.
    virtual void OnLoaded(Session& inSession);

    // A text about the module, for a viewer's tooltip.
    [[nodiscard]] virtual std::string GetDescription() const;

    [[nodiscard]] virtual const char* GetModuleTypeText() const;
    [[nodiscard]] virtual std::vector<ModuleProperty> GetProperties() const;

    // Where symbols were looked for, what came of it, and the source files they name.
    [[nodiscard]] virtual std::vector<std::string> GetSymbolSearchPaths() const;
    [[nodiscard]] virtual std::vector<std::string> GetSymbolLog() const;
    [[nodiscard]] virtual std::vector<std::string> GetSourceFiles() const;

    // Gathers what is known about a function and its lines, maybe on a job; gives that job's handle, invalid if it is done
    // already.
    virtual System::JobHandle ResolveFunctionData(const FunctionDataCallback& inOnData,
                                                  const FunctionLineDataCallback& inOnLines);

    // Asks for a source text, maybe on a job, as above.
    virtual System::JobHandle QuerySourceText(const TextCallback& inOnText);

    std::string Name;
};

} // namespace Profiler

RTTI_DECLARE(Profiler::Module);
