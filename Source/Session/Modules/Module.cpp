#include "Session/Modules/Module.h"

#include <utility>

RTTI_BEGIN(Profiler::Module, 2)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("Name", Name)
RTTI_END()

namespace Profiler
{

Module::Module(std::string inName) : Name(std::move(inName)) {}

const RTTI::Type& Module::GetType() const
{
    return RTTI::gTypeOf<Module>();
}

void Module::OnLoaded(Session&) {}

std::string Module::GetDescription() const
{
    return {};
}

const char* Module::GetModuleTypeText() const
{
    return "Unknown";
}

std::vector<ModuleProperty> Module::GetProperties() const
{
    return {{"Name", Name, EModulePropertyKind::Text}};
}

std::vector<std::string> Module::GetSymbolSearchPaths() const
{
    return {};
}

std::vector<std::string> Module::GetSymbolLog() const
{
    return {};
}

std::vector<std::string> Module::GetSourceFiles() const
{
    return {};
}

System::JobHandle Module::ResolveFunctionData(const FunctionDataCallback& inOnData, const FunctionLineDataCallback& inOnLines)
{
    inOnData(FunctionData());
    inOnLines(FunctionLineData());
    return {};
}

System::JobHandle Module::QuerySourceText(const TextCallback& inOnText)
{
    inOnText(std::string());
    return {};
}

} // namespace Profiler
