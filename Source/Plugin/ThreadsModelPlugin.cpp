#include "Plugin/ThreadsModelPlugin.h"

#include "LLMTools/LLMThreadsModel.h"
#include "Plugin/TypeRegistration.h"
#include "RTTI/Registry.h"
#include "Serialization/ReaderErrorState.h"
#include "ThreadsModel/ThreadsModel.h"
#include "Utility/Log.h"

#include <cstdlib>

namespace Profiler
{
namespace
{

const char* gRequireText(const char* inText)
{
    if (inText == nullptr)
    {
        Utility::gLog("The threads model plugin was created with a null text");
        std::abort();
    }
    return inText;
}

} // namespace

ThreadsModelPlugin::ThreadsModelPlugin(const char* inFirst, const char* inSecond, void* inHost, RTTI::Registry* inRegistry)
    : ModelPlugin(gRequireText(inFirst), gRequireText(inSecond), inHost, inRegistry, sThreadsModelID)
{
    const RTTI::CurrentModuleScope scope(*inRegistry, RTTI::gThreadsModelPluginModuleKey());
    gRegisterTypes(*inRegistry);
}

std::unique_ptr<Model> ThreadsModelPlugin::CreateModel(Session& inSession)
{
    return std::make_unique<ThreadsModel>(*this, inSession);
}

std::unique_ptr<Model> ThreadsModelPlugin::LoadModel(Session& inSession)
{
    Serialization::ReaderErrorState errors;
    std::unique_ptr<Model> model;
    if (ThreadsModel::sLoad(*this, inSession, model, errors))
        return model;
    Utility::gLog("Error loading threads model: %s", Utility::GetErrorText(errors).c_str());
    return nullptr;
}

std::unique_ptr<ILLMModel> ThreadsModelPlugin::CreateLLMModel(std::string& outKey)
{
    outKey = Utility::gFormatGUID(sThreadsModelID, true);
    return std::make_unique<LLMThreadsModel>();
}

void ThreadsModelPlugin::RegisterLLMTools(IToolRegistry&)
{
    // Tools join here, in a fixed order, when their classes do.
}

} // namespace Profiler
