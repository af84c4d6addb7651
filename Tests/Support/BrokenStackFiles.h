// Broken ranges that a test tells, in files of its own, as a pass over events that had them would have left them.
#pragma once

#include "Session/Callstacks/BrokenStackHolder.h"
#include "Session/Callstacks/BrokenStackWriter.h"
#include "Tests/Support/SessionRegistry.h"
#include "Tests/Support/TemporaryFolder.h"

#include <map>
#include <vector>

class BrokenStackFiles
{
public:
    // Replaces the ranges of a thread.
    void SetRanges(Profiler::ThreadID inThread, std::vector<Profiler::BrokenRange> inRanges)
    {
        mRanges[inThread] = std::move(inRanges);
        Utility::ErrorState errors;
        Profiler::BrokenStackWriter writer(mFolder.At(""));
        EXPECT_TRUE(writer.Open(errors));
        for (const auto& [thread, ranges] : mRanges)
        {
            for (const Profiler::BrokenRange& range : ranges)
                EXPECT_TRUE(writer.AddStack(thread, false, 1, range.Start, errors) &&
                            writer.AddStack(thread, true, range.Stack, range.End, errors));
        }
        EXPECT_TRUE(writer.Finish(errors) && mHolder.Load(mRegistry, errors)) << Utility::GetErrorText(errors);
    }

    [[nodiscard]] Profiler::BrokenStackHolder& GetHolder() { return mHolder; }
    [[nodiscard]] std::string At(std::string_view inName) const { return mFolder.At(inName); }

private:
    const RTTI::Registry& mRegistry = gGetSessionRegistry();
    TemporaryFolder mFolder;
    Profiler::BrokenStackHolder mHolder{mFolder.At("")};
    std::map<Profiler::ThreadID, std::vector<Profiler::BrokenRange>> mRanges;
};
