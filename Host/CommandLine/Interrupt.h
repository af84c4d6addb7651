// Lets the user end long work: an interrupt or a termination of the process sets a flag, which the work looks at.
//
// Threads: the main thread makes the scope; the flag may be read by any. Invariant: while a scope lives, the first signal only
// sets the flag; the second one ends the process as if there were no scope.
#pragma once

namespace Host
{

class InterruptScope
{
public:
    InterruptScope();
    ~InterruptScope();

    InterruptScope(const InterruptScope&) = delete;
    InterruptScope& operator=(const InterruptScope&) = delete;

    // Becomes true at the first signal.
    [[nodiscard]] const bool& GetFlag() const;
};

} // namespace Host
