// A second, slow implementation of what a pass makes of a session's events, which a finished timeline is compared with.
//
// It shares with the real one plain records, the states of wait reasons, and the OpenBarProcessor, which has a twin of its own.
// All else is told anew: nothing is handed over or streamed, levels are built on the spot, and a step of the method is a step of
// the code. Threads: the test's. Ownership: none.
#pragma once

#include "Session/Session.h"
#include "ThreadsModel/ThreadsModel.h"

#include <string>
#include <vector>

namespace Profiler
{

// How the timeline came about.
struct TimelineTwinPass
{
    // Only events of captured processes count, and threads are known from the start as the session has them. The pass of a new
    // capture takes all events, and learns of its threads from them.
    bool IsRebuild = false;
    // The session's, as they were ahead of the pass of a new capture.
    std::vector<Thread> ThreadsBefore;
    // The model was built and not loaded, so it knows what it left out.
    bool HasCounts = false;
};

// A line or two for each difference, and nothing if there is none. Threads of the session are left as they are; its zones are
// entered once more. REQUIRES: the model is finished or was loaded, no pass runs, and
// the session's scheduler has workers.
[[nodiscard]] std::string gFindTimelineDifferences(Session& ioSession, ThreadsModel& ioModel, const TimelineTwinPass& inPass);

} // namespace Profiler
