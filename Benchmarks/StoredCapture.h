// A generated capture in a folder of its own, and what it takes to run passes over it and to open it.
//
// Threads: one at a time, and the workers of its scheduler. Ownership: sessions that it opened must go before. Invariant: the
// capture is stored before there are other threads, by a process of its own, so that its memory isn't counted as ours.
#pragma once

#include "Benchmarks/CaptureGenerator.h"
#include "FileSystem/Delete.h"
#include "Session/SessionPaths.h"
#include "Tests/ThreadsModel/TimelineFixture.h"

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

inline void gCheck(bool inIsDone, const Utility::ErrorState& inErrors = Utility::ErrorState())
{
    if (!inIsDone)
        throw std::runtime_error("the capture can't be processed: " + Utility::GetErrorText(inErrors));
}

class StopWatch
{
public:
    [[nodiscard]] double GetSeconds() const
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
    }

private:
    std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
};

// The greatest memory that the process has had in use.
inline double gGetPeakMiB()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
    {
        if (line.starts_with("VmHWM:"))
            return std::stod(line.substr(line.find(':') + 1)) / 1024.0;
    }
    return 0.0;
}

// A folder for the capture and what is made of it.
class CaptureFolder
{
public:
    explicit CaptureFolder(const CaptureSettings& inSettings) : mSettings(inSettings)
    {
        gCheck(mkdtemp(mPath.data()) != nullptr);
    }

    ~CaptureFolder()
    {
        Utility::ErrorState errors;
        static_cast<void>(FileSystem::gDeleteDirectory(mPath, errors));
    }

    CaptureFolder(const CaptureFolder&) = delete;
    CaptureFolder& operator=(const CaptureFolder&) = delete;

    [[nodiscard]] std::string GetSessionPath() const { return mPath + "/capture.session"; }

    // In a process of its own, so that its memory isn't counted as ours. REQUIRES: this one has no other thread.
    [[nodiscard]] bool StoreCapture() const
    {
        const pid_t child = fork();
        if (child == 0)
        {
            Utility::ErrorState errors;
            const bool isStored = gStoreCapture(GetSessionPath(), mSettings, gGetTimelineRegistry(), errors);
            if (!isStored)
                std::fprintf(stderr, "%s\n", Utility::GetErrorText(errors).c_str());
            _exit(isStored ? EXIT_SUCCESS : EXIT_FAILURE);
        }
        int status = 0;
        return child > 0 && waitpid(child, &status, 0) == child && status == EXIT_SUCCESS;
    }

    void DeleteTimeline() const
    {
        for (const char* folder : {Profiler::sThreadsFolder, Profiler::sSharedFolder})
        {
            Utility::ErrorState errors;
            gCheck(FileSystem::gDeleteDirectory(mPath + '/' + folder, errors) == FileSystem::EDeleteResult::Success, errors);
        }
    }

private:
    CaptureSettings mSettings;
    std::string mPath = (std::filesystem::temp_directory_path() / "StoredCapture.XXXXXX").string();
};

// The stored capture, and all that it takes to work with it.
class StoredCapture
{
public:
    // Workers of the scheduler: as many as the figures are meant for.
    static constexpr uint32_t sNumWorkers = 2;

    explicit StoredCapture(const CaptureSettings& inSettings) : mFolder(inSettings)
    {
        gCheck(mIsStored);
        mPlugins.ModelPlugins = {&mPlugin};
        mFrontEnd.Platform = &mPlatform;
    }

    // outFlags say what is to be done before it can be used.
    [[nodiscard]] std::unique_ptr<Profiler::Session> Open(uint32_t& outFlags)
    {
        std::unique_ptr<Profiler::Session> session;
        Profiler::PlatformPlugin* platform = nullptr;
        Serialization::ReaderErrorState errors;
        const bool isOpen = Profiler::Session::sLoad(mFolder.GetSessionPath(), mRegistry, mScheduler, mPlugins, mFrontEnd,
                                                     session, outFlags, platform, errors);
        gCheck(isOpen);
        mNumEvents = session->GetEventStream().GetNumEvents();
        return session;
    }

    // With its timeline.
    [[nodiscard]] std::unique_ptr<Profiler::Session> OpenFinished()
    {
        uint32_t flags = 0;
        std::unique_ptr<Profiler::Session> session = Open(flags);
        gCheck(flags == Profiler::NothingToReprocess);
        return session;
    }

    [[nodiscard]] std::unique_ptr<Profiler::Session> OpenUnfinished()
    {
        mFolder.DeleteTimeline();
        uint32_t flags = 0;
        std::unique_ptr<Profiler::Session> session = Open(flags);
        gCheck(flags == Profiler::ReprocessAllModels);
        return session;
    }

    void RunPass(Profiler::Session& ioSession)
    {
        const StopWatch watch;
        Utility::ErrorState errors;
        const bool isCanceled = false;
        gCheck(ioSession.Reprocess(false, errors, isCanceled, {}), errors);
        mPassSeconds += watch.GetSeconds();
        ++mNumPasses;
        mPeakMiB = gGetPeakMiB();
    }

    // For those who measure what a pass has left.
    void EnsurePass()
    {
        if (mNumPasses == 0)
            RunPass(*OpenUnfinished());
    }

    // Of all passes so far. REQUIRES: there was one.
    [[nodiscard]] double GetMeanPassSeconds() const { return mPassSeconds / mNumPasses; }
    [[nodiscard]] double GetPeakMiB() const { return mPeakMiB; }
    [[nodiscard]] uint64_t GetNumEvents() const { return mNumEvents; }

private:
    CaptureFolder mFolder;
    const bool mIsStored = mFolder.StoreCapture(); // before there are workers
    RTTI::Registry& mRegistry = gGetTimelineRegistry();
    System::JobScheduler mScheduler{sNumWorkers};
    TimelinePlugin mPlugin{mRegistry};
    FakePlatformPlugin mPlatform;
    Profiler::PluginManagerCommon mPlugins;
    FakePluginManagerFrontEnd mFrontEnd;
    uint64_t mNumEvents = 0;
    double mPassSeconds = 0.0;
    int mNumPasses = 0;
    double mPeakMiB = 0.0; // when the last pass ended
};
