#include "Host/CommandLine/PassStopper.h"

#include "System/Job.h"
#include "System/Thread.h"

#include <chrono>
#include <system_error>

namespace Host
{
namespace
{

// A signal handler can wake nobody, so the flag is looked at this often.
constexpr std::chrono::milliseconds sInterval(50);

} // namespace

PassStopper::PassStopper(Profiler::Session& ioSession, const bool& inIsCanceled) : mSession(ioSession), mIsCanceled(inIsCanceled)
{
    try
    {
        mThread = std::thread([this] { Watch(); });
    }
    catch (const std::system_error&)
    {
        // The system has no thread left to give: the pass then ends at its next event.
    }
}

PassStopper::~PassStopper()
{
    {
        const System::MutexLock lock(mMutex);
        mHasEnded = true;
        mEndCondition.NotifyOne();
    }
    if (mThread.joinable())
        mThread.join();
}

void PassStopper::Watch()
{
    System::gSetThreadName("PassStopper");
    {
        const System::MutexLock lock(mMutex);
        while (!System::gIsCanceled(mIsCanceled))
        {
            if (mHasEnded)
                return;
            mEndCondition.WaitFor(mMutex, sInterval);
        }
    }
    mSession.StopProcessing();
}

} // namespace Host
