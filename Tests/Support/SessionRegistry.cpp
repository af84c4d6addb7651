#include "Tests/Support/SessionRegistry.h"

#include "Session/Callstacks/BrokenStackIndex.h"
#include "Session/Events/TraceEventStream.h"
#include "Session/Session.h"
#include "Session/SharedModel.h"
#include "Tests/Support/SessionFixture.h"
#include "Tests/Support/TestRegistry.h"

const RTTI::Registry& gGetSessionRegistry()
{
    using namespace Profiler;
    static const std::unique_ptr<RTTI::Registry> sRegistry =
        gMakeRegistry<Session, SessionInfo, TraceEventStream, BrokenStackIndex, SharedModel, FakeModule, FakePlatformSession>();
    // The registry of another test may have numbered the classes since.
    sRegistry->Finalize();
    return *sRegistry;
}
