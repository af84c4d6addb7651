#include "Host/CommandLine/ProgressLine.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

namespace Host
{

ProgressLine::ProgressLine(std::string inLabel) : mLabel(std::move(inLabel)), mIsTerminal(isatty(STDERR_FILENO) != 0) {}

ProgressLine::~ProgressLine()
{
    if (mIsShown)
        std::fputs("\r\033[K", stderr);
}

void ProgressLine::Show(float inFraction)
{
    if (!mIsTerminal)
        return;
    constexpr float percent = 100.0F;
    std::fprintf(stderr, "\r%s %3.0f%%", mLabel.c_str(), static_cast<double>(inFraction * percent));
    std::fflush(stderr);
    mIsShown = true;
}

} // namespace Host
