// A program to record: named threads that contend for a lock, pass a token back and forth, sleep and compute, for two seconds or
// for as many milliseconds as the first argument says.
//
// What each thread does is a function of its own that isn't inlined, so that it shows as a bar.
#include <pthread.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <numeric>
#include <thread>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;

constexpr auto sRunTime = std::chrono::milliseconds(2000);
constexpr auto sSleepTime = std::chrono::milliseconds(20);
constexpr auto sShortSleepTime = std::chrono::milliseconds(2);
constexpr uint64_t sShortWork = 100'000;
constexpr uint64_t sLongWork = 400'000;

// What the threads share. Each function that a thread runs gives a sum of its work, which is used in the end: work without a use
// would be left out by the compiler.
class Workload
{
public:
    explicit Workload(std::chrono::milliseconds inRunTime) : mEnd(Clock::now() + inRunTime) {}

    [[gnu::noinline]] uint64_t ContendForLock();
    [[gnu::noinline]] uint64_t PassToken(uint32_t inOwnTurn);
    [[gnu::noinline]] uint64_t SleepAndWork() const;
    [[gnu::noinline]] uint64_t Compute() const;

private:
    static constexpr uint32_t sNumTurns = 2;

    [[nodiscard]] bool IsTimeLeft() const { return Clock::now() < mEnd; }

    const Clock::time_point mEnd;

    std::mutex mLock;
    uint64_t mSum = 0; // under mLock

    std::mutex mTokenLock;
    std::condition_variable mTokenPassed;
    uint32_t mTurn = 0; // whose turn it is, under mTokenLock
};

[[gnu::noinline]] uint64_t gHashNumbers(uint64_t inCount)
{
    constexpr uint64_t multiplier = 0x9E3779B97F4A7C15;
    uint64_t hash = inCount;
    for (uint64_t i = 0; i < inCount; ++i)
        hash = (hash ^ i) * multiplier;
    return hash;
}

[[gnu::noinline]] uint64_t gFoldNumbers(uint64_t inCount)
{
    std::vector<uint64_t> numbers(inCount);
    std::iota(numbers.begin(), numbers.end(), gHashNumbers(inCount));
    for (uint64_t half = inCount / 2; half > 0; half /= 2)
        for (uint64_t i = 0; i < half; ++i)
            numbers[i] ^= numbers[i + half];
    return numbers.front();
}

uint64_t Workload::ContendForLock()
{
    uint64_t sum = 0;
    while (IsTimeLeft())
    {
        {
            const std::lock_guard lock(mLock);
            mSum += gHashNumbers(sLongWork);
            sum = mSum;
        }
        std::this_thread::sleep_for(sShortSleepTime);
    }
    return sum;
}

uint64_t Workload::PassToken(uint32_t inOwnTurn)
{
    uint64_t sum = 0;
    while (IsTimeLeft())
    {
        std::unique_lock lock(mTokenLock);
        // The other thread may have left already, so the wait has an end.
        mTokenPassed.wait_for(lock, sSleepTime, [this, inOwnTurn] { return mTurn == inOwnTurn; });
        sum += gHashNumbers(sShortWork);
        mTurn = (inOwnTurn + 1) % sNumTurns;
        mTokenPassed.notify_one();
    }
    return sum;
}

uint64_t Workload::SleepAndWork() const
{
    uint64_t sum = 0;
    while (IsTimeLeft())
    {
        std::this_thread::sleep_for(sSleepTime);
        sum += gFoldNumbers(sLongWork);
    }
    return sum;
}

uint64_t Workload::Compute() const
{
    uint64_t sum = 0;
    while (IsTimeLeft())
        sum += gHashNumbers(sLongWork) + gFoldNumbers(sLongWork);
    return sum;
}

} // namespace

int main(int inArgumentCount, char** inArguments)
{
    constexpr std::array<const char*, 3> lockNames = {"lock-a", "lock-b", "lock-c"};

    const bool hasRunTime = inArgumentCount > 1;
    Workload workload(hasRunTime ? std::chrono::milliseconds(std::strtoul(inArguments[1], nullptr, 10)) : sRunTime);
    std::atomic<uint64_t> total = 0;
    std::vector<std::thread> threads;
    // The kernel takes names of up to 15 characters.
    const auto start = [&threads, &total](const char* inName, const auto& inFunction)
    {
        threads.emplace_back(
            [&total, inName, inFunction]
            {
                pthread_setname_np(pthread_self(), inName);
                total += inFunction();
            });
    };
    for (const char* name : lockNames)
        start(name, [&workload] { return workload.ContendForLock(); });
    start("token-ping", [&workload] { return workload.PassToken(0); });
    start("token-pong", [&workload] { return workload.PassToken(1); });
    start("sleeper", [&workload] { return workload.SleepAndWork(); });
    start("compute", [&workload] { return workload.Compute(); });
    for (std::thread& thread : threads)
        thread.join();

    std::printf("%llu\n", static_cast<unsigned long long>(total.load()));
    return 0;
}
