// The formats of the scheduler's tracepoints for built files, and raw data that follows them.
#include "Tests/Support/ByteWriter.h"
#include "Tests/Support/PerfFileBuilder.h"

namespace Host
{
namespace
{

constexpr uint64_t sFirstTracepointID = 370;
constexpr size_t sCommSize = 16;

constexpr const char* sCommonFields = "\tfield:unsigned short common_type;\toffset:0;\tsize:2;\tsigned:0;\n"
                                      "\tfield:unsigned char common_flags;\toffset:2;\tsize:1;\tsigned:0;\n"
                                      "\tfield:unsigned char common_preempt_count;\toffset:3;\tsize:1;\tsigned:0;\n"
                                      "\tfield:int common_pid;\toffset:4;\tsize:4;\tsigned:1;\n\n";
constexpr const char* sSwitchFields = "\tfield:char prev_comm[16];\toffset:8;\tsize:16;\tsigned:0;\n"
                                      "\tfield:pid_t prev_pid;\toffset:24;\tsize:4;\tsigned:1;\n"
                                      "\tfield:int prev_prio;\toffset:28;\tsize:4;\tsigned:1;\n"
                                      "\tfield:long prev_state;\toffset:32;\tsize:8;\tsigned:1;\n"
                                      "\tfield:char next_comm[16];\toffset:40;\tsize:16;\tsigned:0;\n"
                                      "\tfield:pid_t next_pid;\toffset:56;\tsize:4;\tsigned:1;\n"
                                      "\tfield:int next_prio;\toffset:60;\tsize:4;\tsigned:1;\n";
constexpr const char* sThreadFields = "\tfield:char comm[16];\toffset:8;\tsize:16;\tsigned:0;\n"
                                      "\tfield:pid_t pid;\toffset:24;\tsize:4;\tsigned:1;\n"
                                      "\tfield:int prio;\toffset:28;\tsize:4;\tsigned:1;\n";
constexpr const char* sTargetField = "\tfield:int target_cpu;\toffset:32;\tsize:4;\tsigned:1;\n";

uint64_t gGetID(EBuilderEvent inEvent)
{
    return sFirstTracepointID + static_cast<uint64_t>(inEvent);
}

void gAddFormat(ByteWriter& ioWriter, EBuilderEvent inEvent, const std::string& inName, const std::string& inFields)
{
    const std::string text = "name: " + inName + "\nID: " + std::to_string(gGetID(inEvent)) + "\nformat:\n" + sCommonFields +
                             inFields + "\nprint fmt: \"pid=%d\", REC->pid\n";
    ioWriter.Add(static_cast<uint64_t>(text.size())).AddText(text);
}

ByteWriter gBeginRaw(EBuilderEvent inEvent)
{
    ByteWriter raw;
    raw.Add(static_cast<uint16_t>(gGetID(inEvent))).Add(uint16_t{0}).Add(int32_t{0});
    return raw;
}

} // namespace

std::vector<uint8_t> gMakeTracingData()
{
    ByteWriter writer;
    writer.AddText(std::string_view("\x17\x08\x44tracing", 10)).AddText(std::string_view("0.6\0", 4));
    writer.Add(uint8_t{0}).Add(static_cast<uint8_t>(sizeof(uint64_t))).Add(uint32_t{4096});
    writer.AddText(std::string_view("header_page\0", 12)).Add(uint64_t{4}).AddText("page");
    writer.AddText(std::string_view("header_event\0", 13)).Add(uint64_t{5}).AddText("event");
    writer.Add(uint32_t{0}).Add(uint32_t{1}).AddText(std::string_view("sched\0", 6)).Add(uint32_t{5});
    const std::string threadFields = sThreadFields;
    gAddFormat(writer, EBuilderEvent::SchedSwitch, "sched_switch", sSwitchFields);
    gAddFormat(writer, EBuilderEvent::SchedWakeup, "sched_wakeup", threadFields + sTargetField);
    gAddFormat(writer, EBuilderEvent::SchedWakeupNew, "sched_wakeup_new", threadFields + sTargetField);
    gAddFormat(writer, EBuilderEvent::SchedWaking, "sched_waking", threadFields + sTargetField);
    gAddFormat(writer, EBuilderEvent::SchedProcessExit, "sched_process_exit", threadFields);
    writer.Add(uint32_t{0}).Add(uint32_t{0}).Add(uint64_t{0});
    return writer.Bytes;
}

std::vector<uint8_t> gMakeSwitchRaw(int32_t inPreviousThread, uint64_t inState, int32_t inNextThread)
{
    ByteWriter raw = gBeginRaw(EBuilderEvent::SchedSwitch);
    raw.AddPadded("thread" + std::to_string(inPreviousThread), sCommSize).Add(inPreviousThread).Add(int32_t{120}).Add(inState);
    raw.AddPadded("thread" + std::to_string(inNextThread), sCommSize).Add(inNextThread).Add(int32_t{120}).Add(uint32_t{0});
    return raw.Bytes;
}

std::vector<uint8_t> gMakeWakeupRaw(EBuilderEvent inEvent, int32_t inThread, int32_t inCpu)
{
    ByteWriter raw = gBeginRaw(inEvent);
    raw.AddPadded("thread" + std::to_string(inThread), sCommSize).Add(inThread).Add(int32_t{120}).Add(inCpu);
    return raw.Bytes;
}

std::vector<uint8_t> gMakeExitRaw(int32_t inThread)
{
    ByteWriter raw = gBeginRaw(EBuilderEvent::SchedProcessExit);
    raw.AddPadded("thread" + std::to_string(inThread), sCommSize).Add(inThread).Add(int32_t{120}).Add(uint32_t{1});
    return raw.Bytes;
}

} // namespace Host
