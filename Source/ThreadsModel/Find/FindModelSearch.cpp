// Starting and ending searches.
#include "ThreadsModel/Find/FindMatching.h"
#include "ThreadsModel/Find/FindModel.h"
#include "ThreadsModel/Find/FindSearch.h"
#include "ThreadsModel/ThreadsModel.h"

#include <algorithm>

namespace Profiler
{
namespace
{

std::vector<ResolvedAddress> gGetLeaves(const std::vector<ResolvedCallstack>& inCallstacks)
{
    std::vector<ResolvedAddress> leaves;
    leaves.reserve(inCallstacks.size());
    for (const ResolvedCallstack& stack : inCallstacks)
        leaves.push_back(stack.empty() ? ResolvedAddress() : stack.back()); // a stack without frames matches no bar
    return leaves;
}

} // namespace

FindVisitorRegistration::~FindVisitorRegistration()
{
    if (mModel != nullptr)
        mModel->RemoveVisitor(*mVisitor);
}

// All here and not in FindModel.cpp, which mustn't know searches: these know the model.
FindModel::FindModel(const ThreadsModel& inModel, ThreadStreamingManager& ioManager, System::JobScheduler& ioScheduler)
    : mModel(inModel),
      mManager(ioManager),
      mScheduler(ioScheduler)
{
}

FindModel::~FindModel()
{
    CancelAllFinds();
}

FindVisitorRegistration FindModel::AddVisitor(IFindVisitor& ioVisitor)
{
    mVisitors.push_back(&ioVisitor);
    return {*this, ioVisitor};
}

void FindModel::RemoveVisitor(IFindVisitor& ioVisitor)
{
    const auto found = std::find(mVisitors.begin(), mVisitors.end(), &ioVisitor);
    if (found != mVisitors.end())
        mVisitors.erase(found);
}

void FindModel::FindFunctions(const FindFunctionsQuery& inQuery)
{
    const auto query = std::make_shared<const FindFunctionsQuery>(inQuery);
    FindRequest request{.Query = query, .Functions = query->Functions, .Matcher = {}};
    request.Matcher = [query](auto&&... inArguments) { gFindFunctionsInChunk(*query, inArguments...); };
    Find(std::move(request));
}

void FindModel::FindCallstacks(const FindCallstacksQuery& inQuery)
{
    const auto query = std::make_shared<const FindCallstacksQuery>(inQuery);
    FindRequest request{.Query = query, .Functions = gGetLeaves(query->Callstacks), .Matcher = {}};
    request.Matcher = [query, flags = gGetNestedFlags(query->Callstacks)](auto&&... inArguments)
    { gFindCallstacksInChunk(*query, flags, inArguments...); };
    Find(std::move(request));
}

// The job takes the group of the one before, which must have ended by the time it starts, since both use the set's stream.
void FindModel::Find(FindRequest inRequest)
{
    inRequest.ID = ++mFindCounter;
    System::JobHandle& job = GetJob(inRequest.Query->FindSet);
    mScheduler.CancelMatchingJobs(System::ECancelMatch::Group, job);

    const auto request = std::make_shared<const FindRequest>(std::move(inRequest));
    System::JobDescription description;
    description.Group = job.Group;
    description.Priority = 1;
    description.Work = [this, request](System::Job&, const bool& inIsCanceled)
    { FindSearch(*this, mManager, mModel.GetDetailLOD(0), *request, inIsCanceled).Run(); };
    description.OnEvent = [this, request](System::EJobEvent inEvent, System::Job&)
    {
        if (inEvent != System::EJobEvent::Canceled)
            return;
        for (IFindVisitor* visitor : mVisitors)
            visitor->OnFindCancelled(*request->Query, request->ID);
    };
    job = mScheduler.ScheduleJob(std::move(description));
}

void FindModel::WaitForFind()
{
    mScheduler.WaitForJobs(mFindJobs);
}

// Also those that a later search has cancelled, and that haven't come to their end: they are of the group.
void FindModel::CancelAllFinds()
{
    for (const System::JobHandle& job : mFindJobs)
        mScheduler.CancelMatchingJobsAndWait(System::ECancelMatch::Group, job);
}

void FindModel::CancelFind(EFindSet inSet, std::function<void()> inOnDone)
{
    const System::JobHandle find = GetJob(inSet);
    if (!find.IsValid())
    {
        if (inOnDone)
            inOnDone();
        return;
    }
    System::JobDescription description;
    description.Work = [&scheduler = mScheduler, find, onDone = std::move(inOnDone)](System::Job&, const bool&)
    {
        scheduler.CancelJobsAndWait(find);
        if (onDone)
            onDone();
    };
    mScheduler.ScheduleJob(std::move(description));
}

} // namespace Profiler
