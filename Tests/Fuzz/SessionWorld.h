// Sound files of a small session, of which a fuzz target replaces one, and what it takes to open the session.
//
// The session has two processes, the threads A, B and T, functions of native and of generated code, several chunks of events with
// all kinds among them, broken stacks, and a fiber that went on elsewhere.
#pragma once

#include "Tests/Fuzz/Files.h"
#include "Tests/Support/SessionFixture.h"

#include <memory>
#include <string>
#include <vector>

namespace Fuzz
{

// The classes of a session, one of generated code among them.
[[nodiscard]] const RTTI::Registry& gGetSessionRegistry();

class SessionWorld
{
public:
    // Leaves the files in the folder, which outlives it.
    explicit SessionWorld(const Folder& inFolder);

    [[nodiscard]] const Folder& GetFolder() const { return mFolder; }
    [[nodiscard]] const Files& GetSoundFiles() const { return mSoundFiles; }

    // Opens what lies in the folder. A failure has told why and changed no file.
    std::unique_ptr<Profiler::Session> Load(uint32_t& outFlags);

    // What loads of models give from now on: loaded ones, or none.
    void SetModelsLoadable(bool inAreLoadable) { mFirst.IsLoadable = mSecond.IsLoadable = inAreLoadable; }

    static constexpr const char* sSessionFile = "game.session";
    static constexpr const char* sSharedModelFile = "Shared/Model.dat";

private:
    void AddModules();
    void StoreEvents();

    const Folder& mFolder;
    CallList mCalls;
    FakeModelPlugin mFirst{"first", mCalls, {{1}}};
    FakeModelPlugin mSecond{"second", mCalls, {{2}}};
    FakePlatformPlugin mPlatform;
    SessionFixture mFixture;
    Files mSoundFiles;
};

// The two files of a stream whose only chunk lies at the start of events.dat: the index for that many bytes and events.
[[nodiscard]] Bytes gMakeEventIndex(uint32_t inEventDataVersion, uint64_t inSize, uint64_t inNumEvents);

// One record of the plain layout of events.dat.
[[nodiscard]] Bytes gMakePlainRecord(const Profiler::TraceEvent& inEvent);
// All events of the stream in a folder, as such records.
[[nodiscard]] Bytes gMakePlainRecords(const Folder& inFolder);

// The bytes as a chunk of events.dat or stacks.dat.
[[nodiscard]] Bytes gCompress(const Bytes& inContent);
[[nodiscard]] Bytes gDecompress(const uint8_t* inFrame, size_t inSize);

} // namespace Fuzz
