#include "Session/Pass/FiberState.h"

#include "Utility/Hash.h"

#include <algorithm>
#include <iterator>

RTTI_BEGIN(Profiler::SavedBar, 1)
    RTTI_PROPERTY("InstrumentationContextID", InstrumentationContextID)
    RTTI_PROPERTY("LastAbsoluteAddress", LastAbsoluteAddress)
    RTTI_PROPERTY("ReturnAddress", ReturnAddress)
    RTTI_PROPERTY("Frame", Frame)
RTTI_END()

RTTI_BEGIN(Profiler::SavedFiberState, 1)
    RTTI_PROPERTY("Bars", Bars)
RTTI_END()

RTTI_BEGIN(Profiler::FiberEventData, 1)
    RTTI_PROPERTY("EventTimeMs", EventTimeMs)
    RTTI_PROPERTY("FiberStateIndex", FiberStateIndex)
RTTI_END()

RTTI_BEGIN(Profiler::OpenBarProcessorFiberState, 1)
    RTTI_PROPERTY("FiberStates", mFiberStates)
    RTTI_PROPERTY_AS("FiberEvents", mFiberEvents, "Map_uint64_t_To_Profiler::FiberEventList")
RTTI_END()

namespace Profiler
{

void OpenBarProcessorFiberState::AddFiberEvent(uint64_t inFiberID, const std::vector<SavedBar>& inBars, double inTime)
{
    const auto [entry, isNew] = mStateIndices.try_emplace(HashBars(inBars), static_cast<uint32_t>(mFiberStates.size()));
    if (isNew)
        mFiberStates.push_back({inBars});
    mFiberEvents[inFiberID].push_back({inTime, entry->second});
}

bool OpenBarProcessorFiberState::FindFiberState(uint64_t inFiberID, double inTime, std::vector<SavedBar>& outBars) const
{
    const auto fiber = mFiberEvents.find(inFiberID);
    if (fiber == mFiberEvents.end())
        return false;
    const FiberEventList& events = fiber->second;
    const auto above =
        std::upper_bound(events.begin(), events.end(), inTime,
                         [](double inValue, const FiberEventData& inEvent) { return inValue < inEvent.EventTimeMs; });
    if (above == events.begin())
        return false;
    // An index that a damaged file made up names no state.
    const uint32_t index = std::prev(above)->FiberStateIndex;
    if (index >= mFiberStates.size())
        return false;
    outBars = mFiberStates[index].Bars;
    return true;
}

uint64_t OpenBarProcessorFiberState::HashBars(const std::vector<SavedBar>& inBars)
{
    mHashedBytes.Clear();
    for (const SavedBar& bar : inBars)
    {
        mHashedBytes.AppendValue(bar.ReturnAddress);
        mHashedBytes.AppendValue(bar.Frame.RelativeAddress);
        mHashedBytes.AppendValue(bar.LastAbsoluteAddress);
        mHashedBytes.AppendValue(bar.Frame.ResolveIndex.Index);
        mHashedBytes.AppendValue(bar.InstrumentationContextID);
    }
    return Utility::gHash64(mHashedBytes.GetData(), mHashedBytes.GetSize());
}

} // namespace Profiler
