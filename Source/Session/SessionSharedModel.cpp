// The session's shared model on disk.
#include "FileSystem/Delete.h"
#include "FileSystem/File.h"
#include "FileSystem/Path.h"
#include "Serialization/BinaryFileReader.h"
#include "Serialization/BinaryWriter.h"
#include "Session/Session.h"
#include "Session/SessionPaths.h"
#include "Session/SharedModel.h"

namespace Profiler
{
namespace
{

constexpr uint32_t sNoCode = 0;

std::string gGetSharedFolder(const Session& inSession)
{
    return FileSystem::gCombinePath(inSession.GetDirectory(), sSharedFolder);
}

std::string gGetSharedModelPath(const Session& inSession)
{
    return FileSystem::gCombinePath(gGetSharedFolder(inSession), "Model.dat");
}

} // namespace

std::unique_ptr<SharedModel> Session::LoadSharedModel(const RTTI::Registry& inRegistry, Serialization::ReaderErrorState& ioErrors)
{
    using Serialization::EReaderError;
    const std::string path = gGetSharedModelPath(*this);
    const Utility::ErrorContextScope context(&ioErrors, path);
    if (!Serialization::Check(ioErrors, FileSystem::gExists(path), EReaderError::FileNotFound, "Unable to open file"))
        return nullptr;

    const RTTI::Type& type = RTTI::gTypeOf<SharedModel>();
    Serialization::TypeCreators creators;
    creators.AddTypeCreator(type, [this] { return RTTI::OwnedValue(RTTI::gTypeOf<SharedModel>(), new SharedModel(*this)); });
    std::vector<std::unique_ptr<RTTI::Object>> objects;
    const size_t numErrors = ioErrors.GetEntries().size();
    const bool isRead = Serialization::gReadObjectsFromFile(path, inRegistry, creators, {},
                                                            Serialization::ReadObjectMode::SkipUnknownTypes, objects, ioErrors);
    // A file of unknown classes alone ends the read without a word.
    if (!isRead && ioErrors.GetEntries().size() != numErrors)
        return nullptr;
    for (std::unique_ptr<RTTI::Object>& object : objects)
    {
        if (RTTI::gIsDerivedFrom(object->GetType(), type))
            return std::unique_ptr<SharedModel>(static_cast<SharedModel*>(object.release()));
    }
    ioErrors.AddError(EReaderError::Corrupt, "The file does not appear to be a SharedModel file");
    return nullptr;
}

bool Session::SaveSharedModel(Utility::ErrorState& ioErrors) const
{
    const std::string folder = gGetSharedFolder(*this);
    if (!Utility::Check(ioErrors, FileSystem::gCreateDirectories(folder), sNoCode, "Could not model path %s", folder))
        return false;
    const RTTI::Object* model = mSharedModel.get();
    return Serialization::gReplaceFileWithObjects(gGetSharedModelPath(*this), {&model, 1}, ioErrors);
}

bool Session::ResetSharedModel(Utility::ErrorState& ioErrors) const
{
    const std::string folder = gGetSharedFolder(*this);
    return !FileSystem::gExists(folder) ||
           FileSystem::gDeleteDirectoryContents(folder, ioErrors) == FileSystem::EDeleteResult::Success;
}

} // namespace Profiler
