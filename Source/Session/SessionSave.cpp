// Writing a session.
#include "FileSystem/File.h"
#include "Serialization/BinaryWriter.h"
#include "Session/Pass/Model.h"
#include "Session/Session.h"
#include "Session/SharedModel.h"

#include <array>

namespace Profiler
{

bool Session::SaveSession(Utility::ErrorState& ioErrors)
{
    // A pass that was broken off has left nothing that could be trusted, and without a shared model stored models aren't either.
    if (mIsSharedModelSound && !(SaveSharedModel(ioErrors) && SaveModels(ioErrors)))
        return false;
    // Whoever saves a session ahead of any pass may be the first to write; what can't be made is told by the first file.
    static_cast<void>(FileSystem::gCreateDirectories(GetDirectory()));
    return mEventStream->FlushStream(ioErrors) && SaveCallstacks(ioErrors) && SaveSessionFile(ioErrors);
}

bool Session::SaveModels(Utility::ErrorState& ioErrors)
{
    while (!mModelsToSave.empty())
    {
        if (!mModelsToSave.front()->SaveModel(ioErrors))
            return false;
        mModelsToSave.erase(mModelsToSave.begin());
    }
    return true;
}

bool Session::SaveCallstacks(Utility::ErrorState& ioErrors) const
{
    return !mCallstackTrie.IsInitialized() || mCallstackTrie.SaveCallstacks(gGetCallstackTriePath(GetDirectory()), ioErrors);
}

// The info stands first, so that it can be read without the rest.
bool Session::SaveSessionFile(Utility::ErrorState& ioErrors) const
{
    const std::array<const RTTI::Object*, 2> objects{mInfo.get(), this};
    return Serialization::gReplaceFileWithObjects(mPath, objects, ioErrors);
}

} // namespace Profiler
