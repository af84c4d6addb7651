// The timeline of a capture: the model that this library makes for every session.
//
// So far the model takes part in a pass without recording anything, and says so in one log line when it is made.
// Threads: as Model says. Ownership: the session's.
#pragma once

#include "RTTI/Declare.h"
#include "Serialization/ReaderErrorState.h"
#include "Session/Pass/Model.h"
#include "ThreadsModel/DetailLOD.h"

#include <memory>
#include <string>

namespace Profiler
{

class ThreadsModel : public Model
{
public:
    ThreadsModel(ModelPlugin& inPlugin, Session& inSession);
    ~ThreadsModel() override = default;

    // Opens the stored model of a session. False, with outModel left alone, if there is none that can be read.
    [[nodiscard]] static bool sLoad(ModelPlugin& inPlugin, Session& inSession, std::unique_ptr<ThreadsModel>& outModel,
                                    Serialization::ReaderErrorState& ioErrors);

    const RTTI::Type& GetType() const override;

    // REQUIRES: inLevel is one of the levels, which a new model has nine of.
    [[nodiscard]] DetailLOD& GetDetailLOD(int32_t inLevel) const { return *mThreadDetailLODs[static_cast<size_t>(inLevel)]; }

    // The coarsest level whose buckets aren't wider than the span, in milliseconds.
    [[nodiscard]] const DetailLOD& GetDetailLODForWidth(double inStart, double inEnd) const
    {
        return gFindDetailLODForWidth(mThreadDetailLODs, inStart, inEnd);
    }

    ThreadProcessingState* CreateThreadProcessingState(OpenBarProcessor& inProcessor) override;
    [[nodiscard]] bool FinishThread(OpenBarProcessor& inProcessor, Utility::ErrorState& ioErrors) override;
    [[nodiscard]] bool ProcessEvent(const TraceEvent& inEvent, ThreadProcessingState* ioState,
                                    Utility::ErrorState& ioErrors) override;
    [[nodiscard]] bool BeginProcessing(Utility::ErrorState& ioErrors) override;
    void StopProcessing() override;
    [[nodiscard]] bool FinishProcessing(Utility::ErrorState& ioErrors, const bool& inIsCanceled) override;
    [[nodiscard]] bool PrepareReprocess(Utility::ErrorState& ioErrors) override;
    [[nodiscard]] bool SaveModel(Utility::ErrorState& ioErrors) override;

private:
    DetailLODList mThreadDetailLODs;
};

} // namespace Profiler

RTTI_DECLARE(Profiler::ThreadsModel);
