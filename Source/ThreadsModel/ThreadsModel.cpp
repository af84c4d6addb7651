#include "ThreadsModel/ThreadsModel.h"

#include "FileSystem/File.h"
#include "FileSystem/Path.h"
#include "Session/Session.h"
#include "Utility/Log.h"

RTTI_BEGIN(Profiler::ThreadsModel, 43)
    RTTI_BASE(Profiler::Model)
RTTI_END()

namespace Profiler
{

ThreadsModel::ThreadsModel(ModelPlugin& inPlugin, Session& inSession)
    : Model(inPlugin, inSession),
      mThreadDetailLODs(gMakeDetailLODs(inSession))
{
    Utility::gLog("The threads model records no timeline in this version");
}

bool ThreadsModel::sLoad(ModelPlugin&, Session& inSession, std::unique_ptr<ThreadsModel>&,
                         Serialization::ReaderErrorState& ioErrors)
{
    using Serialization::EReaderError;
    const std::string path = FileSystem::gCombinePath(FileSystem::gCombinePath(inSession.GetDirectory(), "Threads"), "Model.dat");
    const Utility::ErrorContextScope context(&ioErrors, path);
    if (!Utility::Check(ioErrors, FileSystem::gExists(path), static_cast<uint32_t>(EReaderError::FileNotFound),
                        "Unable to open file"))
        return false;
    ioErrors.AddError(static_cast<uint32_t>(EReaderError::Incompatible), "This version records no timeline and can't read one");
    return false;
}

const RTTI::Type& ThreadsModel::GetType() const
{
    return RTTI::gTypeOf<ThreadsModel>();
}

ThreadProcessingState* ThreadsModel::CreateThreadProcessingState(OpenBarProcessor&)
{
    return nullptr;
}

bool ThreadsModel::FinishThread(OpenBarProcessor&, Utility::ErrorState&)
{
    return true;
}

bool ThreadsModel::ProcessEvent(const TraceEvent&, ThreadProcessingState*, Utility::ErrorState&)
{
    return true;
}

bool ThreadsModel::BeginProcessing(Utility::ErrorState&)
{
    return true;
}

void ThreadsModel::StopProcessing() {}

bool ThreadsModel::FinishProcessing(Utility::ErrorState&, const bool&)
{
    return true;
}

bool ThreadsModel::PrepareReprocess(Utility::ErrorState&)
{
    return true;
}

bool ThreadsModel::SaveModel(Utility::ErrorState&)
{
    return true;
}

} // namespace Profiler
