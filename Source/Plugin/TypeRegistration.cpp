#include "Plugin/TypeRegistration.h"

#include "RTTI/Primitives.h"
#include "RTTI/Registry.h"
#include "Serialization/Schema.h"
#include "Serialization/SerializableGUID.h"
#include "Session/Events/TraceEventStream.h"
#include "Session/Session.h"
#include "Session/Settings/AnimatableValues.h"
#include "Session/Settings/CaptureMethod.h"
#include "Session/Settings/ChildProcessRules.h"
#include "Session/Settings/GeneralSettings.h"
#include "Session/Settings/SymbolSettings.h"
#include "Session/SharedModel.h"
#include "ThreadsModel/DetailLOD.h"
#include "ThreadsModel/ThreadsModel.h"

namespace Profiler
{
namespace
{

template <class... Types>
void gRegisterAll(RTTI::Registry& ioRegistry)
{
    (ioRegistry.Register(RTTI::gTypeOf<Types>()), ...);
}

void gRegisterSessionTypes(RTTI::Registry& ioRegistry)
{
    gRegisterAll<SessionInfo, Session, TraceEventStream, BrokenStackIndex, SharedModel, Process, OptionalProcessInfo,
                 CPUUsageSample, Thread, CallstackDatabase, Module, NativeModule, JITModule, Function, NativeModuleInstance,
                 JITModuleInstance, JITFunctionInstance, JITExtraDataStorage, ModuleDatabase, InstrumentationDatabase,
                 InstrumentationData, ResolveIndex, ResolvedAddress, PlatformSession, OpenBarProcessorFiberState, SavedFiberState,
                 SavedBar, FiberEventData>(ioRegistry);
}

void gRegisterSettings(RTTI::Registry& ioRegistry)
{
    gRegisterAll<SharedSymbolSettings, GeneralSettings, ChildProcessRules, Rule, SerializedAnimatableInt,
                 SerializedAnimatableFloat, SerializedAnimatableDouble, CaptureMethodConfiguration, CaptureInitProgress>(
        ioRegistry);
}

void gRegisterSerializationTypes(RTTI::Registry& ioRegistry)
{
    gRegisterAll<Serialization::SerializableGUID, Serialization::Schema>(ioRegistry);
}

void gRegisterTimelineTypes(RTTI::Registry& ioRegistry)
{
    gRegisterAll<ThreadsModel, ThreadData, DetailLOD, DetailLODThread, ChunkTable, ChunkDescription, ChunkLayout, FindQuery,
                 FindQuery::SearchItem, FindFunctionsQuery, FindCallstacksQuery>(ioRegistry);
}

} // namespace

void gRegisterTypes(RTTI::Registry& ioRegistry)
{
    // A later registration of a name replaces the earlier one, so the order is part of what a host sees.
    RTTI::gRegisterFundamentalTypes(ioRegistry);
    gRegisterSessionTypes(ioRegistry);
    gRegisterSettings(ioRegistry);
    gRegisterSerializationTypes(ioRegistry);
    gRegisterTimelineTypes(ioRegistry);
}

} // namespace Profiler
