// Saving and loading: chunks are on disk when a pass ends, so this is about what tells where they lie.
#include "FileSystem/File.h"
#include "Serialization/BinaryFileReader.h"
#include "Serialization/BinaryWriter.h"
#include "Session/Pass/ModelPlugin.h"
#include "Session/Session.h"
#include "ThreadsModel/ThreadsModel.h"

#include <algorithm>

namespace Profiler
{
namespace
{

using Serialization::EReaderError;

constexpr uint32_t sNoCode = 0;

} // namespace

bool ThreadsModel::SaveModel(Utility::ErrorState& ioErrors)
{
    if (!Utility::Check(ioErrors, mIsComplete, sNoCode, "The timeline isn't saved, since its pass was stopped") ||
        !FinishFiles(ioErrors))
        return false;
    mFindProcessing.reset();
    {
        const System::MutexLock lock(mStopMutex);
        mReadyProcessing.reset();
    }

    Serialization::ReaderErrorState local;
    if (!mFindModel.LoadIndex(GetPath("Find.dat"), local) || !mReadyThreadData.Load(GetPath("ReadyThreads.dat"), local))
    {
        ioErrors.AddError(sNoCode, local.GetEntries().empty() ? std::string() : local.GetEntries().front().Message);
        return false;
    }
    return mStreamingManager->OpenReadyThreadFile(ioErrors);
}

// Model.dat comes last: where it is, the others are complete. Nothing is left to do for a call after a failure behind this one.
bool ThreadsModel::FinishFiles(Utility::ErrorState& ioErrors)
{
    if (mFindProcessing == nullptr)
        return true;
    const RTTI::Object* object = this;
    return mFindProcessing->FinishIndexFile(ioErrors) && mReadyProcessing->WriteHeader(ioErrors) &&
           Serialization::gWriteObjectsToFile(GetPath("Model.dat"), {&object, 1}, ioErrors);
}

bool ThreadsModel::sLoad(ModelPlugin& inPlugin, Session& inSession, std::unique_ptr<Model>& outModel,
                         Serialization::ReaderErrorState& ioErrors)
{
    const std::string path = sGetPath(inSession, "Model.dat");
    const Utility::ErrorContextScope context(&ioErrors, path);
    struct NeededFile
    {
        const char* Name;
        const char* Message;
    };
    for (const NeededFile& file : {NeededFile{"Model.dat", "Unable to open file"},
                                   {"Find.dat", "Unable to open find data file"},
                                   {"ReadyThreads.dat", "Unable to open ready thread file"},
                                   {"Threads.dat", "Unable to open thread data file"}})
    {
        if (!Serialization::Check(ioErrors, FileSystem::gExists(sGetPath(inSession, file.Name)), EReaderError::FileNotFound,
                                  file.Message))
            return false;
    }

    const RTTI::Type& type = RTTI::gTypeOf<ThreadsModel>();
    Serialization::TypeCreators creators;
    creators.AddTypeCreator(type, [&]
                            { return RTTI::OwnedValue(RTTI::gTypeOf<ThreadsModel>(), new ThreadsModel(inPlugin, inSession)); });
    creators.AddTypeCreator(RTTI::gTypeOf<DetailLOD>(),
                            [&] { return RTTI::OwnedValue(RTTI::gTypeOf<DetailLOD>(), new DetailLOD(inSession)); });
    std::vector<std::unique_ptr<RTTI::Object>> objects;
    const size_t numErrors = ioErrors.GetEntries().size();
    const bool isRead = Serialization::gReadObjectsFromFile(path, *inPlugin.GetRegistry(), creators, {},
                                                            Serialization::ReadObjectMode::SkipUnknownTypes, objects, ioErrors);
    // A file of unknown classes alone ends the read without a word.
    if (!isRead && ioErrors.GetEntries().size() != numErrors)
        return false;
    std::unique_ptr<ThreadsModel> model;
    for (std::unique_ptr<RTTI::Object>& object : objects)
    {
        if (model == nullptr && RTTI::gIsDerivedFrom(object->GetType(), type))
            model.reset(static_cast<ThreadsModel*>(object.release()));
    }
    if (!Serialization::Check(ioErrors, model != nullptr, EReaderError::Corrupt,
                              "The file does not appear to be a ThreadsModel file (missing ThreadsModel object)") ||
        !Serialization::Check(ioErrors, model->IsSound(), EReaderError::Corrupt, "The timeline contradicts itself") ||
        !model->mFindModel.LoadIndex(model->GetPath("Find.dat"), ioErrors) ||
        !model->mReadyThreadData.Load(model->GetPath("ReadyThreads.dat"), ioErrors) || !model->FinishLoading(ioErrors))
        return false;
    outModel = std::move(model);
    return true;
}

// What everything else relies on: a level for every number, chunks in order, and a time for every state.
bool ThreadsModel::IsSound() const
{
    const bool hasStateTimes =
        std::all_of(mThreadData.begin(), mThreadData.end(),
                    [](const auto& inEntry) { return inEntry.second.StateTimes.size() == sNumTimedThreadStates; });
    if (mThreadDetailLODs.size() != sLODThresholds.size() || !hasStateTimes)
        return false;
    for (size_t i = 0; i < mThreadDetailLODs.size(); ++i)
    {
        const DetailLOD* level = mThreadDetailLODs[i].get();
        if (level == nullptr || level->GetLevel() != static_cast<int32_t>(i) || !level->IsSound())
            return false;
    }
    return true;
}

bool ThreadsModel::FinishLoading(Serialization::ReaderErrorState& ioErrors)
{
    const Utility::ErrorContextScope context(&ioErrors, GetPath("Threads.dat"));
    Utility::ErrorState local;
    if (!mStreamingManager->OpenChunkFile(false, local) || !mStreamingManager->OpenReadyThreadFile(local))
    {
        ioErrors.AddError(EReaderError::FileNotAccessible, Utility::GetErrorText(local));
        return false;
    }
    for (const std::unique_ptr<DetailLOD>& level : mThreadDetailLODs)
        level->BindThreads(*mStreamingManager);
    return true;
}

} // namespace Profiler
