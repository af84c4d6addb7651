#include "Session/SharedModel.h"

RTTI_BEGIN(Profiler::SharedModel, 5)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("OpenBarProcessorFiberState", mFiberState)
RTTI_END()

namespace Profiler
{

const RTTI::Type& SharedModel::GetType() const
{
    return RTTI::gTypeOf<SharedModel>();
}

} // namespace Profiler
