// A multicast callback list with scoped connections.
//
// Threads: a signal has no lock; it is used from the thread that owns it. Ownership: a SignalRegistration ends its connection
// when it is destroyed; a signal that ends first clears the registrations that are left. Invariant: each connection knows the
// present address of its registration.
#pragma once

#include "Utility/Assert.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace Utility
{

class SignalRegistration;

// What a registration needs of its signal, whatever the signal's arguments are.
class SignalBase
{
public:
    SignalBase(const SignalBase&) = delete;
    SignalBase& operator=(const SignalBase&) = delete;

    [[nodiscard]] virtual int GetNumConnections() const = 0;

protected:
    SignalBase() = default;
    virtual ~SignalBase() = default;

private:
    friend class SignalRegistration;

    // Ends the connection with this id; nothing if there is none.
    virtual void Disconnect(uint32_t inID) = 0;

    // Tells the connection where its registration now lives; false if there is no such connection.
    virtual bool MoveRegistration(uint32_t inID, SignalRegistration* inRegistration) = 0;
};

class SignalRegistration
{
public:
    SignalRegistration() = default;
    ~SignalRegistration() { Disconnect(); }

    SignalRegistration(SignalRegistration&& ioOther) noexcept { TakeFrom(ioOther); }
    SignalRegistration& operator=(SignalRegistration&& ioOther) noexcept
    {
        if (this != &ioOther)
        {
            Disconnect();
            TakeFrom(ioOther);
        }
        return *this;
    }

    // Ends the connection, if there is one.
    void Disconnect()
    {
        if (mSignal != nullptr)
            mSignal->Disconnect(mID);
        mSignal = nullptr;
        mID = 0;
    }

    [[nodiscard]] bool IsConnected() const { return mSignal != nullptr; }

private:
    template <class Signature>
    friend class Signal;

    SignalRegistration(SignalBase* inSignal, uint32_t inID) : mSignal(inSignal), mID(inID)
    {
        [[maybe_unused]] const bool isKnown = mSignal->MoveRegistration(mID, this);
    }

    void TakeFrom(SignalRegistration& ioOther)
    {
        mSignal = std::exchange(ioOther.mSignal, nullptr);
        mID = std::exchange(ioOther.mID, 0);
        if (mSignal != nullptr && !mSignal->MoveRegistration(mID, this))
            PROFILER_ASSERT_AT("Utility/Signal", false, "Could not move registration");
    }

    SignalBase* mSignal = nullptr;
    uint32_t mID = 0;
};

template <class Signature>
class Signal;

template <class... Arguments>
class Signal<void(Arguments...)> final : public SignalBase
{
public:
    using Callback = std::function<void(Arguments...)>;

    Signal() = default;
    ~Signal() override
    {
        for (const Connection& connection : mConnections)
            if (connection.Registration != nullptr)
                connection.Registration->mSignal = nullptr;
    }

    [[nodiscard]] SignalRegistration Connect(Callback inCallback)
    {
        ++mLastID;
        mConnections.push_back({mLastID, std::move(inCallback), nullptr});
        return SignalRegistration(this, mLastID);
    }

    // Calls every connection in order of connecting. REQUIRES: no callback connects or disconnects.
    void operator()(Arguments... inArguments) const
    {
        for (const Connection& connection : mConnections)
            connection.Function(inArguments...);
    }

    [[nodiscard]] int GetNumConnections() const override { return static_cast<int>(mConnections.size()); }

private:
    struct Connection
    {
        uint32_t ID;
        Callback Function;
        SignalRegistration* Registration;
    };

    static auto HasID(uint32_t inID)
    {
        return [inID](const Connection& inConnection) { return inConnection.ID == inID; };
    }

    void Disconnect(uint32_t inID) override
    {
        // Short-lived connections are the latest ones, so the search starts at the back.
        const auto found = std::find_if(mConnections.rbegin(), mConnections.rend(), HasID(inID));
        if (found == mConnections.rend())
            return;
        // The callback goes last: what it holds may end other connections of this signal.
        const Callback callback = std::move(found->Function);
        mConnections.erase(std::next(found).base());
    }

    bool MoveRegistration(uint32_t inID, SignalRegistration* inRegistration) override
    {
        const auto found = std::find_if(mConnections.begin(), mConnections.end(), HasID(inID));
        if (found == mConnections.end())
            return false;
        found->Registration = inRegistration;
        return true;
    }

    std::vector<Connection> mConnections;
    uint32_t mLastID = 0;
};

} // namespace Utility
