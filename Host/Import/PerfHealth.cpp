#include "Host/Import/PerfHealth.h"

#include <algorithm>
#include <numeric>

namespace Host
{
namespace
{

struct RecordTypeName
{
    uint32_t Type;
    const char* Name;
};

constexpr RecordTypeName sRecordTypeNames[] = {{1, "MMAP"},
                                               {2, "LOST"},
                                               {3, "COMM"},
                                               {4, "EXIT"},
                                               {5, "THROTTLE"},
                                               {6, "UNTHROTTLE"},
                                               {7, "FORK"},
                                               {8, "READ"},
                                               {9, "SAMPLE"},
                                               {10, "MMAP2"},
                                               {11, "AUX"},
                                               {12, "ITRACE_START"},
                                               {13, "LOST_SAMPLES"},
                                               {14, "SWITCH"},
                                               {15, "SWITCH_CPU_WIDE"},
                                               {16, "NAMESPACES"},
                                               {17, "KSYMBOL"},
                                               {18, "BPF_EVENT"},
                                               {19, "CGROUP"},
                                               {20, "TEXT_POKE"},
                                               {21, "AUX_OUTPUT_HW_ID"},
                                               {64, "HEADER_ATTR"},
                                               {65, "HEADER_EVENT_TYPE"},
                                               {66, "TRACING_DATA"},
                                               {67, "BUILD_ID"},
                                               {68, "FINISHED_ROUND"},
                                               {69, "ID_INDEX"},
                                               {70, "AUXTRACE_INFO"},
                                               {71, "AUXTRACE"},
                                               {72, "AUXTRACE_ERROR"},
                                               {73, "THREAD_MAP"},
                                               {74, "CPU_MAP"},
                                               {75, "STAT_CONFIG"},
                                               {76, "STAT"},
                                               {77, "STAT_ROUND"},
                                               {78, "EVENT_UPDATE"},
                                               {79, "TIME_CONV"},
                                               {80, "HEADER_FEATURE"},
                                               {81, "COMPRESSED"},
                                               {82, "FINISHED_INIT"},
                                               {83, "COMPRESSED2"}};

// In the order of EPerfSkip.
constexpr const char* sSkipNames[] = {"used",
                                      "record ends before its fields do",
                                      "record ends before its time and thread",
                                      "names an unknown event",
                                      "claims more stack frames than it holds",
                                      "claims more counter values than it holds",
                                      "claims more tracepoint bytes than it holds",
                                      "text without an end",
                                      "tracepoint without its fields",
                                      "fields of another tracepoint",
                                      "tracepoint of unknown format",
                                      "tracepoint's fields are too short"};
static_assert(std::size(sSkipNames) == static_cast<size_t>(EPerfSkip::Count));

} // namespace

const char* gGetSkipName(EPerfSkip inReason)
{
    return sSkipNames[static_cast<size_t>(inReason)];
}

const char* gGetRecordTypeName(uint32_t inType)
{
    const auto* found = std::find_if(std::begin(sRecordTypeNames), std::end(sRecordTypeNames),
                                     [inType](const RecordTypeName& inName) { return inName.Type == inType; });
    return found != std::end(sRecordTypeNames) ? found->Name : "UNKNOWN";
}

uint64_t PerfHealth::GetTotalSkipped() const
{
    return std::accumulate(Skipped.begin(), Skipped.end(), uint64_t{0});
}

uint64_t PerfHealth::GetRecordCount(uint32_t inType) const
{
    return RecordsByType[std::min<size_t>(inType, sCountedTypes)];
}

} // namespace Host
