#include "Host/Import/PerfRecordingGaps.h"

#include "Host/Import/PerfRecords.h"

#include <algorithm>
#include <cinttypes>
#include <utility>

namespace Host
{
namespace
{

class GapFinder
{
public:
    GapFinder(const PerfFile& inFile, const Tracepoints& inTracepoints, const PerfHealth& inHealth)
        : mEvents(inFile.GetEvents()),
          mTracepoints(inTracepoints),
          mHealth(inHealth),
          mHasTracingData(!inFile.GetTracingData().empty())
    {
    }

    std::vector<PerfGap> Find()
    {
        const bool hasExecutionSamples = HasEvent([](const PerfEvent& inEvent) { return inEvent.IsExecutionSample(); });
        const bool hasTracepoints = HasEvent([](const PerfEvent& inEvent) { return inEvent.Kind == EPerfEventKind::Tracepoint; });
        AddIf(!hasExecutionSamples, EPerfGap::NoExecutionSamples,
              "no samples of where threads execute: record with -e cpu-clock/period=250000/");
        AddIf(HasEvent([](const PerfEvent& inEvent) { return inEvent.IsExecutionSample() && !inEvent.Layout.HasCallchain; }),
              EPerfGap::NoCallchains, "samples without stacks: record with -g");
        AddIf(!HasSwitches(), EPerfGap::NoContextSwitches,
              "no context switches, so when threads wait is unknown: record with -e sched:sched_switch, or with --switch-events");
        AddIf(!mTracepoints.Has(ETracepoint::SchedWakeup) && !mTracepoints.Has(ETracepoint::SchedWaking), EPerfGap::NoWakeups,
              "no wake-ups, so who woke a thread is unknown: record with -e sched:sched_wakeup -e sched:sched_wakeup_new");
        AddThinnedOut();
        AddIf(
            hasTracepoints && !mHasTracingData, EPerfGap::NoTracepointFormats,
            "the file lacks the formats of its tracepoints, which are skipped: let perf record finish, and copy the whole file");
        AddIf(!IsSystemWide(), EPerfGap::OnlySomeThreads, "only some processes were recorded: record the whole system with -a");
        AddIf(mHealth.LostEvents + mHealth.LostSamples != 0, EPerfGap::EventsLost,
              Utility::gFormat("%" PRIu64 " events were lost while recording: record with a larger buffer, as -m 16M",
                               mHealth.LostEvents + mHealth.LostSamples));
        return std::move(mGaps);
    }

private:
    template <class Predicate>
    [[nodiscard]] bool HasEvent(Predicate inPredicate) const
    {
        return std::any_of(mEvents.begin(), mEvents.end(), inPredicate);
    }

    [[nodiscard]] bool HasSwitches() const
    {
        return mTracepoints.Has(ETracepoint::SchedSwitch) ||
               HasEvent([](const PerfEvent& inEvent) { return inEvent.HasContextSwitch; }) ||
               mHealth.GetRecordCount(EPerfRecordType::Switch) + mHealth.GetRecordCount(EPerfRecordType::SwitchCpuWide) != 0;
    }

    // The list of recorded threads decides. Older versions of perf don't write it: then a clock that tells no processor, or one
    // that starts with a program, gives a capture of some processes away.
    [[nodiscard]] bool IsSystemWide() const
    {
        if (mHealth.HasThreadMap)
            return mHealth.RecordedAllThreads;
        return !HasEvent([](const PerfEvent& inEvent)
                         { return inEvent.IsEnabledOnExec || (inEvent.IsExecutionSample() && inEvent.Layout.Cpu == 0); });
    }

    void AddThinnedOut()
    {
        for (const PerfEvent& event : mEvents)
        {
            if (mTracepoints.GetKind(event) <= ETracepoint::Other || (!event.IsFrequency && event.PeriodOrFrequency <= 1))
                continue;
            const char* how = event.IsFrequency ? "samples per second" : "events for each sample";
            AddIf(true, EPerfGap::TracepointsThinnedOut,
                  Utility::gFormat("most events of %s are missing (%" PRIu64
                                   " %s): record without -F and -c, and give the clock its own "
                                   "rate as in -e cpu-clock/period=250000/",
                                   event.Name.c_str(), event.PeriodOrFrequency, how));
        }
    }

    void AddIf(bool inIsGap, EPerfGap inKind, std::string inText)
    {
        if (inIsGap)
            mGaps.push_back({inKind, std::move(inText)});
    }

    const std::vector<PerfEvent>& mEvents;
    const Tracepoints& mTracepoints;
    const PerfHealth& mHealth;
    bool mHasTracingData;
    std::vector<PerfGap> mGaps;
};

} // namespace

std::vector<PerfGap> gFindRecordingGaps(const PerfFile& inFile, const Tracepoints& inTracepoints, const PerfHealth& inHealth)
{
    return GapFinder(inFile, inTracepoints, inHealth).Find();
}

} // namespace Host
