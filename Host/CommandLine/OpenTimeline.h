// A stored session whose timeline is finished, opened for questions.
//
// Threads: the main thread; the model's own rules hold for what it gives. Ownership: owns everything it gives.
#pragma once

#include "Host/CommandLine/Workspace.h"
#include "Session/Session.h"
#include "ThreadsModel/ThreadsModel.h"
#include "Utility/ErrorState.h"

#include <memory>
#include <string>

namespace Host
{

class OpenTimeline
{
public:
    // inSession: a session file, a session folder or a capture. Null, with the reason in ioErrors, if there is no session, or one
    // that has to be processed first.
    [[nodiscard]] static std::unique_ptr<OpenTimeline> sOpen(const std::string& inSession, const std::string& inPluginPath,
                                                             Utility::ErrorState& ioErrors);

    [[nodiscard]] Profiler::Session& GetSession() const { return *mSession; }
    [[nodiscard]] Profiler::ThreadsModel& GetModel() const { return *mModel; }

    // The thread with the key. Null, with the reason in ioErrors, if there is none.
    [[nodiscard]] const Profiler::Thread* FindThread(Profiler::ThreadID inKey, Utility::ErrorState& ioErrors) const;

private:
    OpenTimeline() = default;

    std::unique_ptr<Workspace> mWorkspace;
    std::unique_ptr<Profiler::Session> mSession;
    Profiler::ThreadsModel* mModel = nullptr; // the session's
};

} // namespace Host
