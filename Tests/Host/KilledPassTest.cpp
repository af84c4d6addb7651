// Passes that don't come to their end: the program is killed, the disk is full, the user ends the work. Whatever happens, the
// next command finds all that came from the capture, knows whether the timeline is whole, and makes the same one as if nothing
// had happened.
#include "Host/CommandLine/PassStopper.h"
#include "Tests/Host/SessionCommandFixture.h"
#include "Tests/Host/SmallDisk.h"
#include "Tests/Support/SessionFixture.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <future>
#include <random>
#include <thread>

namespace Host
{
namespace
{

using namespace testing;
using namespace std::chrono_literals;

// What the program is called for, and the folder in which it begins to change something.
struct Work
{
    const char* Command;
    const char* Option;
    std::string Path;
    std::string Folder;
};

// When the program is ended: in the write that would make a file longer than this, or by a signal so long after it began to
// change something.
struct Death
{
    using Duration = std::chrono::steady_clock::duration;

    rlim_t FileSize = RLIM_INFINITY;
    Duration Time = Duration::max();
    int Signal = SIGKILL;
};

class KilledPassTest : public SessionCommandTest
{
protected:
    static constexpr size_t sDeaths = 40; // of each kind

    // Whether the program came to its end.
    static bool Run(const Work& inWork, const Death& inDeath, Death::Duration* outLength = nullptr)
    {
        const auto before = std::filesystem::last_write_time(inWork.Folder);
        const pid_t program = Start(inWork, inDeath.FileSize);
        if (inDeath.Time != Death::Duration::max() || outLength != nullptr)
            for (size_t i = 0; i < 10'000'000 && std::filesystem::last_write_time(inWork.Folder) == before; ++i)
                std::this_thread::yield();
        auto begin = std::chrono::steady_clock::now();
        if (inDeath.Time != Death::Duration::max())
        {
            std::this_thread::sleep_for(inDeath.Time);
            kill(program, inDeath.Signal);
            begin = std::chrono::steady_clock::now();
        }
        int status = 0;
        EXPECT_EQ(waitpid(program, &status, 0), program);
        const Death::Duration length = std::chrono::steady_clock::now() - begin;
        EXPECT_LT(length, 10s);
        if (outLength != nullptr)
            *outLength = length;
        const bool isDone = WIFEXITED(status) && WEXITSTATUS(status) == 0;
        const bool isInterrupted = WIFEXITED(status) && WEXITSTATUS(status) == 1 && inDeath.Signal == SIGINT;
        EXPECT_TRUE(isDone || isInterrupted || WIFSIGNALED(status)) << status;
        return isDone;
    }

    static pid_t Start(const Work& inWork, rlim_t inFileSize)
    {
        const pid_t program = fork();
        if (program != 0)
            return program;
        const int output = open("/dev/null", O_WRONLY);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        const rlimit noCore{0, 0};
        const rlimit limit{inFileSize, inFileSize};
        setrlimit(RLIMIT_CORE, &noCore);
        setrlimit(RLIMIT_FSIZE, &limit);
        execl(PROGRAM, PROGRAM, inWork.Command, inWork.Option, inWork.Path.c_str(), nullptr);
        _exit(127);
    }

    // Calls inTry with deaths all over the time of the work, and in files of all sizes up to the given one.
    static void TryDeaths(const Work& inWork, uintmax_t inLargestFile, const std::function<void(const Death&)>& inTry)
    {
        Death::Duration length{};
        ASSERT_TRUE(Run(inWork, {}, &length));
        std::mt19937 random(20261123);
        std::uniform_real_distribution<double> fraction(0.0, 1.0);
        for (size_t i = 0; i < sDeaths && !HasFailure(); ++i)
        {
            const double part = (static_cast<double>(i) + fraction(random)) / sDeaths;
            // Most files are small.
            const auto size = static_cast<rlim_t>(static_cast<double>(inLargestFile) * part * part);
            const Death::Duration time(static_cast<int64_t>(static_cast<double>(length.count()) * part));
            {
                SCOPED_TRACE(Message() << "killed at " << size << " bytes");
                inTry({.FileSize = size});
            }
            for (const int signal : {SIGKILL, SIGINT})
            {
                SCOPED_TRACE(Message() << "signal " << signal << " after " << time.count() << " ns");
                inTry({.Time = time, .Signal = signal});
            }
        }
    }

    [[nodiscard]] static Files GetCaptured(Files inFiles)
    {
        std::erase_if(inFiles, [](const auto& inFile)
                      { return inFile.first.find('/') != std::string::npos || inFile.first.starts_with("stacks."); });
        return inFiles;
    }
    [[nodiscard]] static Files WithoutBrokenStacks(Files inFiles)
    {
        std::erase_if(inFiles, [](const auto& inFile) { return inFile.first.starts_with("stacks."); });
        return inFiles;
    }
};

TEST_F(KilledPassTest, AKilledRebuildIsMadeGoodByTheNext)
{
    Import(WriteCapture());
    const Files expected = WithoutBrokenStacks(ReadStores("shop"));
    size_t numUnfinished = 0;
    const Work work{"process", "--rebuild", At("shop"), At("shop")};
    TryDeaths(work, std::filesystem::file_size(At("shop/shop.session")),
              [&](const Death& inDeath)
              {
                  static_cast<void>(Run(work, inDeath));
                  const std::string text = Process(At("shop"));
                  ASSERT_FALSE(IsFailure(text)) << text;
                  numUnfinished += text != "Nothing to do\n" ? 1 : 0;
                  EXPECT_THAT(FindDifferences(WithoutBrokenStacks(ReadStores("shop")), expected), IsEmpty());
                  EXPECT_THAT(GetInfo(At("shop")).GetFaultyStores(), IsEmpty());
              });
    EXPECT_GT(numUnfinished, sDeaths / 2) << "hardly any pass was killed";
}

TEST_F(KilledPassTest, AKilledImportLeavesTheOldSessionOrTheNewOne)
{
    std::filesystem::copy(SMALL_CAPTURE, At("small.data"));
    Import(At("small.data"));
    const Files expected = ReadStores("small");
    size_t numKilled = 0;
    const Work work{"import", "--force", At("small.data"), At("")};
    TryDeaths(work, std::filesystem::file_size(At("small/Threads/Threads.dat")),
              [&](const Death& inDeath)
              {
                  const Files before = ReadFiles("small");
                  const bool isDone = Run(work, inDeath);
                  numKilled += isDone ? 0 : 1;
                  EXPECT_TRUE(isDone || ReadFiles("small") == before || FindDifferences(ReadStores("small"), expected).empty());
                  ASSERT_FALSE(IsFailure(ImportAnew(At("small.data"))));
                  EXPECT_THAT(FindDifferences(ReadStores("small"), expected), IsEmpty());
                  EXPECT_THAT(List(""), ElementsAre("small", "small.data"));
              });
    EXPECT_GT(numKilled, sDeaths / 2) << "hardly any import was killed";
}

TEST_F(KilledPassTest, AFullDiskEndsAPassAndHarmsNothing)
{
    std::filesystem::copy(SAMPLE_SESSION, At("workload"), std::filesystem::copy_options::recursive);
    Process(At("workload"), true);
    const Files expected = WithoutBrokenStacks(ReadStores("workload"));
    const Files captured = GetCaptured(ReadFiles("workload"));
    constexpr size_t step = 65536;
    size_t numFullTimelines = 0;
    for (size_t size = 5 * step;; size += step)
    {
        SCOPED_TRACE(size);
        SmallDisk disk(At("disk"), size);
        std::filesystem::copy(SAMPLE_SESSION, At("disk/workload"), std::filesystem::copy_options::recursive);
        const std::string text = Process(At("disk/workload"), true);
        if (!IsFailure(text))
            break;
        EXPECT_THAT(text, Not(HasSubstr("\n")));
        const std::string failure = "Error during write of file " + At("disk/workload/Threads/Threads.dat") + ": ";
        if (text.find(failure) != std::string::npos)
        {
            ++numFullTimelines;
            EXPECT_THAT(text, AnyOf(HasSubstr(failure + "No space left on device"), HasSubstr(failure + "File too large")));
        }
        EXPECT_THAT(FindDifferences(GetCaptured(ReadFiles("disk/workload")), captured), IsEmpty());
        disk.Grow(100 * step);
        EXPECT_FALSE(IsFailure(Process(At("disk/workload"))));
        ASSERT_THAT(FindDifferences(WithoutBrokenStacks(ReadStores("disk/workload")), expected), IsEmpty());
    }
    EXPECT_GT(numFullTimelines, 5U);
}

// A pass that waits doesn't look at the flag that an interrupt sets.
TEST(PassStopperTest, AnInterruptReachesAPassThatWaits)
{
    CallList calls;
    FakeModelPlugin plugin("model", calls);
    std::promise<void> stopped;
    plugin.OnCall = [&](const std::string& inCall)
    {
        if (inCall == "stop")
            stopped.set_value();
    };
    SessionFixture world;
    world.GetPluginManager().ModelPlugins = {&plugin};
    Utility::ErrorState errors;
    ASSERT_TRUE(world.GetSession().CreateModels(errors));
    bool isCanceled = false;
    {
        const PassStopper stopper(world.GetSession(), isCanceled);
    }
    EXPECT_THAT(calls, Not(Contains(HasSubstr("stop"))));
    const PassStopper stopper(world.GetSession(), isCanceled);
    __atomic_store_n(&isCanceled, true, __ATOMIC_RELEASE);
    EXPECT_EQ(stopped.get_future().wait_for(10s), std::future_status::ready);
}

} // namespace
} // namespace Host
