// What a pass stores for several models, and what must outlive it: the bars that fibers had open.
//
// Threads: the pass's thread. Ownership: the session, one at a time; a pass starts with an empty one. Stored as Shared/Model.dat
// in the session's folder, by the operations of Session.
#pragma once

#include "RTTI/Declare.h"
#include "RTTI/Object.h"
#include "Session/Pass/FiberState.h"

namespace Profiler
{

class Session;

class SharedModel final : public RTTI::Object
{
    RTTI_FRIEND()

public:
    explicit SharedModel(Session& inSession) : mSession(inSession) {}

    SharedModel(const SharedModel&) = delete;
    SharedModel& operator=(const SharedModel&) = delete;

    const RTTI::Type& GetType() const override;

    [[nodiscard]] Session& GetSession() const { return mSession; }
    [[nodiscard]] OpenBarProcessorFiberState& GetFiberState() { return mFiberState; }
    [[nodiscard]] const OpenBarProcessorFiberState& GetFiberState() const { return mFiberState; }

private:
    Session& mSession;
    OpenBarProcessorFiberState mFiberState;
};

} // namespace Profiler

RTTI_DECLARE(Profiler::SharedModel);
