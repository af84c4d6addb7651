#include "Utility/Signal.h"

#include "Tests/Utility/LogCapture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <vector>

using namespace testing;
using Utility::SignalRegistration;

namespace
{

class SignalTest : public testing::Test
{
protected:
    SignalRegistration Connect(int inName)
    {
        return mSignal.Connect([this, inName](int) { mCalls.push_back(inName); });
    }

    // The names of the connections, in the order in which they are called.
    std::vector<int> Call()
    {
        mCalls.clear();
        mSignal(0);
        return mCalls;
    }

    Utility::Signal<void(int)> mSignal;
    std::vector<int> mCalls;
};

TEST_F(SignalTest, CallsEveryConnectionWithItsArguments)
{
    Utility::Signal<void(int, const std::string&)> signal;
    std::string received;
    const SignalRegistration first =
        signal.Connect([&](int inNumber, const std::string& inText) { received += inText + std::to_string(inNumber); });
    const SignalRegistration second =
        signal.Connect([&](int inNumber, const std::string& inText) { received += std::to_string(inNumber) + inText; });
    signal(1, "a");
    EXPECT_EQ(received, "a11a");
    EXPECT_EQ(signal.GetNumConnections(), 2);
}

TEST_F(SignalTest, RegistrationsMayEndInAnyOrder)
{
    std::array<int, 4> order = {0, 1, 2, 3};
    do
    {
        std::array<std::optional<SignalRegistration>, order.size()> registrations;
        for (int i = 0; i < static_cast<int>(order.size()); ++i)
            registrations[static_cast<size_t>(i)] = Connect(i);
        std::vector<int> expected = {0, 1, 2, 3};
        for (const int next : order)
        {
            registrations[static_cast<size_t>(next)].reset();
            std::erase(expected, next);
            EXPECT_EQ(Call(), expected);
        }
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(SignalTest, MovingKeepsTheConnectionAndClearsTheSource)
{
    const LogCapture log;
    std::vector<SignalRegistration> registrations;
    for (int i = 0; i < 20; ++i)
        registrations.push_back(Connect(i));
    EXPECT_EQ(mSignal.GetNumConnections(), 20) << "growing the vector moves its registrations";

    SignalRegistration target(std::move(registrations[3]));
    EXPECT_TRUE(target.IsConnected());
    EXPECT_FALSE(registrations[3].IsConnected());
    registrations.clear();
    EXPECT_THAT(Call(), ElementsAre(3));
    EXPECT_THAT(log.GetTexts(), IsEmpty());
}

TEST_F(SignalTest, OverwritingEndsWhatTheTargetHeld)
{
    SignalRegistration target = Connect(1);
    target = Connect(2);
    EXPECT_THAT(Call(), ElementsAre(2));
    SignalRegistration& itself = target;
    target = std::move(itself);
    EXPECT_THAT(Call(), ElementsAre(2));
    target = SignalRegistration();
    EXPECT_EQ(mSignal.GetNumConnections(), 0);
}

TEST_F(SignalTest, SignalMayEndBeforeItsRegistrations)
{
    auto signal = std::make_unique<Utility::Signal<void()>>();
    SignalRegistration registration = signal->Connect([] {});
    const SignalRegistration moved = std::move(registration);
    signal.reset();
    EXPECT_FALSE(moved.IsConnected());
}

// The callback is destroyed when its connection has left the list, and what it holds can move the registration at that very time.
TEST_F(SignalTest, MovingARegistrationWhoseConnectionIsGoneAsserts)
{
    const LogCapture log;
    const SignalRegistration other = Connect(1);
    SignalRegistration registration;
    SignalRegistration moved;
    auto onDestruction = std::shared_ptr<void>(nullptr, [&](void*) { moved = std::move(registration); });
    registration = mSignal.Connect([holder = std::move(onDestruction)](int) {});
    registration.Disconnect();

    EXPECT_THAT(log.GetMessages(), ElementsAre(MatchesRegex("\"false\" assertion failed at Utility/Signal \\([0-9]+\\):"),
                                               "Could not move registration"));
    EXPECT_TRUE(moved.IsConnected()) << "it stays as the move left it";
    moved.Disconnect();
    EXPECT_FALSE(moved.IsConnected());
    EXPECT_THAT(Call(), ElementsAre(1)) << "ending it leaves the other connections alone";
}

TEST_F(SignalTest, CallbackMayOwnAnotherConnectionOfTheSameSignal)
{
    const SignalRegistration before = Connect(1);
    auto owned = std::make_shared<SignalRegistration>(Connect(2));
    SignalRegistration owner = mSignal.Connect([owned](int) {});
    owned.reset();
    const SignalRegistration after = Connect(3);
    owner.Disconnect();
    EXPECT_THAT(Call(), ElementsAre(1, 3));
}

} // namespace
