// Answers where functions and stacks ran. Find.dat tells in which chunks to look; a search is a job that loads those, and no
// others, and hands what it finds to the visitors. Docs/Find.md tells the steps, Docs/FindIndex.md describes the file.
//
// Threads: LoadIndex on the one that owns the model; searches are started and cancelled by one thread at a time. A find set, the
// stream and work space of one kind of search, is for one thread at a time: the search that runs for it, if there is one.
// Different sets are independent of each other. Visitors change only while no search runs. Ownership: the ThreadsModel, which
// outlives it with its manager and the scheduler. Invariant: searches of one set never run at the same time.
//
// FindModelSearch.cpp starts searches, which know the model; FindModel.cpp has what they need of the file.
#pragma once

#include "Serialization/ReaderErrorState.h"
#include "Session/Modules/ResolvedAddress.h"
#include "System/JobScheduler.h"
#include "ThreadsModel/Find/FindIndexFile.h"
#include "ThreadsModel/Find/FindQuery.h"
#include "Utility/ByteBuffer.h"
#include "Utility/Compression.h"

#include <array>
#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Profiler
{

// Where the chunks of one function are told.
struct FindFunctionEntry
{
    ResolvedAddress Function;
    uint64_t BlockOffset = 0; // in the file
    uint64_t BlockSize = 0;   // bytes of the frame
    uint32_t NumRanges = 0;
    uint32_t NumChunks = 0;
};

class FindModel;
class IFindVisitor;
class ThreadStreamingManager;
class ThreadsModel;
struct FindRequest;

// A visitor is told of what is found as long as this lives.
class FindVisitorRegistration
{
public:
    FindVisitorRegistration(FindModel& ioModel, IFindVisitor& ioVisitor) : mModel(&ioModel), mVisitor(&ioVisitor) {}
    ~FindVisitorRegistration();

    FindVisitorRegistration(FindVisitorRegistration&& ioOther) noexcept
        : mModel(std::exchange(ioOther.mModel, nullptr)),
          mVisitor(ioOther.mVisitor)
    {
    }
    FindVisitorRegistration& operator=(FindVisitorRegistration&&) = delete;

private:
    FindModel* mModel; // null in one that was moved from
    IFindVisitor* mVisitor;
};

class FindModel
{
public:
    // Opens nothing.
    FindModel(const ThreadsModel& inModel, ThreadStreamingManager& ioManager, System::JobScheduler& ioScheduler);
    ~FindModel();

    FindModel(const FindModel&) = delete;
    FindModel& operator=(const FindModel&) = delete;

    // Opens the file for both sets and reads which threads it has. False, with the model as if nothing was loaded, if the file
    // isn't one or is damaged.
    [[nodiscard]] bool LoadIndex(const std::string& inPath, Serialization::ReaderErrorState& ioErrors);

    // The functions of a thread, sorted by address and then by the bits of the resolve index that comparisons look at. Empty for
    // a thread that isn't in the file, and for a damaged one.
    [[nodiscard]] std::vector<FindFunctionEntry> ReadThreadFunctions(EFindSet inSet, ThreadID inThread);

    // What a frame of the file holds. False if it can't be read or decompressed.
    [[nodiscard]] bool ReadBlock(EFindSet inSet, uint64_t inOffset, uint64_t inSize, Utility::ByteBuffer& outContent);

    [[nodiscard]] const std::vector<FindIndexSection>& GetSections() const { return mSections; }

    // Visitors are called in the order in which they were added.
    [[nodiscard]] FindVisitorRegistration AddVisitor(IFindVisitor& ioVisitor);
    void RemoveVisitor(IFindVisitor& ioVisitor);
    [[nodiscard]] const std::vector<IFindVisitor*>& GetVisitors() const { return mVisitors; }

    // Start a search and return at once. It cancels the one of the same set that runs, and waits for its end, in its job.
    void FindFunctions(const FindFunctionsQuery& inQuery);
    void FindCallstacks(const FindCallstacksQuery& inQuery);

    // Returns when no search runs. May be called from inside a job.
    void WaitForFind();

    // Cancels all searches, and returns when they have ended.
    void CancelAllFinds();

    // Cancels the search of a set and calls inOnDone, which may be empty, when it has ended: from a job, or, if none was ever
    // started, from inside this call. Returns at once.
    void CancelFind(EFindSet inSet, std::function<void()> inOnDone);

private:
    // What one kind of search needs of the file.
    struct FindSet
    {
        std::ifstream File;
        Utility::Decompressor Decompressor;
        Utility::ByteBuffer Compressed;
        Utility::ByteBuffer Content; // work space of ReadThreadFunctions
    };

    [[nodiscard]] bool Load(const std::string& inPath, Serialization::ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadFooter(const std::string& inPath, FindIndexFooter& outFooter,
                                  Serialization::ReaderErrorState& ioErrors);
    [[nodiscard]] bool ParseThreadTable(const Utility::ByteBuffer& inTable);

    void Find(FindRequest inRequest);
    [[nodiscard]] System::JobHandle& GetJob(EFindSet inSet) { return mFindJobs[static_cast<size_t>(inSet)]; }

    const ThreadsModel& mModel;
    ThreadStreamingManager& mManager;
    System::JobScheduler& mScheduler;
    uint64_t mFileSize = 0;
    std::vector<FindIndexSection> mSections; // by ThreadID
    uint32_t mFindCounter = 0;               // of both sets
    std::vector<IFindVisitor*> mVisitors;
    std::array<System::JobHandle, sNumFindSets> mFindJobs; // by set
    std::array<FindSet, sNumFindSets> mSets;
};

} // namespace Profiler
