#include "Session/Processes/ThreadState.h"

#include <cmath>

namespace Profiler
{

const std::array<const char*, sNumTimedThreadStates> ThreadStateName = {
    "UnknownWaitState", "Executing", "IO", "MemoryManagement", "Sleep", "Preemption", "Synchronization", "Idle"};

const std::array<const char*, sNumTimedThreadStates> ThreadStateDescription = {
    "Thread is in wait state. Thread started before profiling session started so the type of wait state is undetermined.",
    "Executing",
    "IO",
    "MemoryManagement",
    "Sleep",
    "Preemption",
    "Synchronization",
    "Idle"};

namespace
{

constexpr ThreadState sWaitReasonStates[] = {
    ThreadState::IO,               // 0
    ThreadState::MemoryManagement, // 1
    ThreadState::MemoryManagement, // 2
    ThreadState::MemoryManagement, // 3
    ThreadState::Sleep,            // 4
    ThreadState::Sleep,            // 5
    ThreadState::Synchronization,  // 6
    ThreadState::IO,               // 7
    ThreadState::MemoryManagement, // 8
    ThreadState::MemoryManagement, // 9
    ThreadState::MemoryManagement, // 10
    ThreadState::Sleep,            // 11
    ThreadState::Sleep,            // 12
    ThreadState::Idle,             // 13
    ThreadState::Synchronization,  // 14
    ThreadState::Synchronization,  // 15
    ThreadState::Synchronization,  // 16
    ThreadState::Synchronization,  // 17
    ThreadState::MemoryManagement, // 18
    ThreadState::MemoryManagement, // 19
    ThreadState::Synchronization,  // 20
    ThreadState::Synchronization,  // 21
    ThreadState::Idle,             // 22
    ThreadState::IO,               // 23
    ThreadState::Synchronization,  // 24
    ThreadState::MemoryManagement, // 25
    ThreadState::Synchronization,  // 26
    ThreadState::Synchronization,  // 27
    ThreadState::Synchronization,  // 28
    ThreadState::Synchronization,  // 29
    ThreadState::Preemption,       // 30
    ThreadState::Preemption,       // 31
    ThreadState::Preemption,       // 32
    ThreadState::Sleep,            // 33
    ThreadState::Synchronization,  // 34
    ThreadState::Synchronization,  // 35
    ThreadState::Synchronization,  // 36
    ThreadState::Synchronization,  // 37
};
static_assert(std::size(sWaitReasonStates) == 38);

// Hue in degrees, saturation and value from 0 to 1.
struct HSV
{
    float Hue;
    float Saturation;
    float Value;
};

constexpr int sNumThemesWithColors = 2;
constexpr int sNumThemes = 3;

constexpr HSV sStateColors[sNumThemesWithColors][sNumTimedThreadStates] = {
    {{356, 0.32F, 0.93F},
     {120, 0.5F, 0.65F},
     {55, 0.23F, 0.92F},
     {55, 0.23F, 0.85F},
     {211, 0.23F, 0.9F},
     {211, 0.23F, 0.85F},
     {356, 0.32F, 1.0F},
     {0, 0, 0.85F}},
    {{356, 0.51F, 0.80F},
     {111, 0.4F, 0.94F},
     {211, 0.4F, 0.57F},
     {211, 0.4F, 0.7F},
     {280, 0.28F, 0.5F},
     {211, 0.4F, 0.85F},
     {356, 0.51F, 0.62F},
     {0, 0, 0.5F}},
};

Color gMakeColor(const HSV& inColor)
{
    constexpr float degreesPerSector = 60.0F;
    const float sector = inColor.Hue / degreesPerSector;
    const float chroma = inColor.Value * inColor.Saturation;
    const float second = chroma * (1.0F - std::fabs(std::fmod(sector, 2.0F) - 1.0F));
    const float base = inColor.Value - chroma;
    float red = 0.0F;
    float green = 0.0F;
    float blue = 0.0F;
    switch (static_cast<int>(sector))
    {
    case 0:
        red = chroma, green = second;
        break;
    case 1:
        red = second, green = chroma;
        break;
    case 2:
        green = chroma, blue = second;
        break;
    case 3:
        green = second, blue = chroma;
        break;
    case 4:
        red = second, blue = chroma;
        break;
    default:
        red = chroma, blue = second;
        break;
    }
    return {red + base, green + base, blue + base, 1.0F};
}

using ColorTable = std::array<std::array<Color, sNumTimedThreadStates>, sNumThemes>;

ColorTable gMakeColorTable()
{
    ColorTable table{};
    for (int theme = 0; theme < sNumThemesWithColors; ++theme)
        for (int state = 0; state < sNumTimedThreadStates; ++state)
            table[theme][state] = gMakeColor(sStateColors[theme][state]);
    return table;
}

} // namespace

ThreadState WaitReasonToState(uint8_t inWaitReason)
{
    return inWaitReason < std::size(sWaitReasonStates) ? sWaitReasonStates[inWaitReason] : ThreadState::Idle;
}

const Color& ThreadStateColor(EThemeType inTheme, ThreadState inState)
{
    static const ColorTable sTable = gMakeColorTable();
    return sTable[static_cast<size_t>(inTheme)][static_cast<size_t>(inState)];
}

} // namespace Profiler
