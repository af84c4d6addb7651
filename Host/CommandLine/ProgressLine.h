// One line on standard error that tells how far long work has come, where that is a terminal; nothing elsewhere.
//
// Threads: one. Invariant: the line is wiped when the work ends, so that what follows begins on a clean line.
#pragma once

#include <string>

namespace Host
{

class ProgressLine
{
public:
    explicit ProgressLine(std::string inLabel);
    ~ProgressLine();

    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    // inFraction from 0 to 1.
    void Show(float inFraction);

private:
    std::string mLabel;
    bool mIsTerminal;
    bool mIsShown = false;
};

} // namespace Host
