#include "LLMTools/LLMThreadsModel.h"

#include <utility>

namespace Profiler
{

void LLMThreadsModel::CloseSession(int32_t inSessionKey)
{
    std::erase_if(mOpenInstances, [inSessionKey](const auto& inEntry) { return inEntry.second->SessionKey == inSessionKey; });
}

const InstancesRecord* LLMThreadsModel::GetInstances(int32_t inKey) const
{
    const auto found = mOpenInstances.find(inKey);
    return found != mOpenInstances.end() ? found->second.get() : nullptr;
}

bool LLMThreadsModel::CloseInstances(int32_t inKey)
{
    return mOpenInstances.erase(inKey) != 0;
}

int32_t LLMThreadsModel::AddInstances(std::unique_ptr<InstancesRecord> inRecord)
{
    const auto key = static_cast<int32_t>(++mNextKey);
    mOpenInstances[key] = std::move(inRecord);
    return key;
}

} // namespace Profiler
