// Lets standard error be a terminal for as long as it lives, and calls a function whenever a line of progress is shown there:
// what a user can do while a command runs, a test does at the same place each time.
//
// Threads: the test's; the function runs on the thread that shows the line.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>
#include <utility>

class TerminalWatcher
{
public:
    explicit TerminalWatcher(std::function<void(const std::string&)> inOnShown) : mOnShown(std::move(inOnShown))
    {
        OpenTerminal();
        std::fflush(stderr);
        mStream = fopencookie(this, "w", {nullptr, &sWrite, nullptr, nullptr});
        mStreamBefore = std::exchange(stderr, mStream);
        mDescriptorBefore = dup(STDERR_FILENO);
        EXPECT_GE(dup2(mTerminal, STDERR_FILENO), 0);
        EXPECT_NE(isatty(STDERR_FILENO), 0);
    }

    ~TerminalWatcher()
    {
        std::fflush(mStream);
        stderr = mStreamBefore;
        dup2(mDescriptorBefore, STDERR_FILENO);
        std::fclose(mStream);
        for (const int descriptor : {mDescriptorBefore, mTerminal, mController})
            close(descriptor);
    }

    TerminalWatcher(const TerminalWatcher&) = delete;
    TerminalWatcher& operator=(const TerminalWatcher&) = delete;

private:
    void OpenTerminal()
    {
        mController = posix_openpt(O_RDWR | O_NOCTTY);
        ASSERT_TRUE(mController >= 0 && grantpt(mController) == 0 && unlockpt(mController) == 0);
        mTerminal = open(ptsname(mController), O_RDWR | O_NOCTTY);
        ASSERT_GE(mTerminal, 0);
    }

    static ssize_t sWrite(void* inWatcher, const char* inText, size_t inSize)
    {
        const std::string text(inText, inSize);
        if (text.find('%') != std::string::npos)
            static_cast<TerminalWatcher*>(inWatcher)->mOnShown(text);
        return static_cast<ssize_t>(inSize);
    }

    std::function<void(const std::string&)> mOnShown;
    std::FILE* mStream = nullptr;
    std::FILE* mStreamBefore = nullptr;
    int mController = -1;
    int mTerminal = -1;
    int mDescriptorBefore = -1;
};
