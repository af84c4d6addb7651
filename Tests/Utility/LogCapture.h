// Gathers what goes to the log while it lives, in place of the sinks that were there before. Any thread may log; what was
// gathered is read when no other thread does any more.
#pragma once

#include "Utility/Log.h"

#include <mutex>
#include <string>
#include <vector>

class LogCapture
{
public:
    LogCapture() : mSinksBefore(Utility::gGetLogSinks()) { Utility::gSetLogSinks({{&sReceive, this}}); }
    ~LogCapture() { Utility::gSetLogSinks(mSinksBefore); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    [[nodiscard]] const std::vector<std::string>& GetTexts() const { return mTexts; }

    [[nodiscard]] std::string GetText() const
    {
        std::string all;
        for (const std::string& text : mTexts)
            all += text;
        return all;
    }

    // Where the latest text lay in memory when the sink got it.
    [[nodiscard]] const void* GetLastAddress() const { return mLastAddress; }

    // The messages of all lines, without the time in front and the newline behind.
    [[nodiscard]] std::vector<std::string> GetMessages() const
    {
        std::vector<std::string> messages;
        for (const std::string& text : mTexts)
        {
            const size_t begin = text.find("]: ") + 3;
            messages.push_back(text.substr(begin, text.size() - begin - 1));
        }
        return messages;
    }

private:
    static void sReceive(const char* inText, void* inCapture)
    {
        auto* capture = static_cast<LogCapture*>(inCapture);
        const std::lock_guard<std::mutex> lock(capture->mMutex);
        capture->mTexts.emplace_back(inText);
        capture->mLastAddress = inText;
    }

    std::vector<Utility::LogSink> mSinksBefore;
    std::mutex mMutex;
    std::vector<std::string> mTexts;
    const void* mLastAddress = nullptr;
};
