#include "Host/CommandLine/SymbolsAhead.h"

#include "Host/Linux/KernelModule.h"
#include "System/JobScheduler.h"

namespace Host
{

SymbolsAhead::SymbolsAhead(Profiler::Session& ioSession) : mSession(ioSession)
{
    for (const std::unique_ptr<Profiler::NativeModule>& module : ioSession.GetModuleDatabase().GetNativeModules())
    {
        if (!RTTI::gIsDerivedFrom(module->GetType(), RTTI::gTypeOf<KernelModule>()))
            continue;
        System::JobDescription job;
        job.Work = [kernel = module.get()](System::Job&, const bool&) { kernel->EnsureSymbols({}, {}, 0, nullptr); };
        mJob = ioSession.GetJobScheduler().ScheduleJob(std::move(job));
        return;
    }
}

SymbolsAhead::~SymbolsAhead()
{
    if (mJob.IsValid())
        mSession.GetJobScheduler().WaitForJobs(mJob);
}

} // namespace Host
