// Turns the linker's names of C++ functions into readable ones.
// Threads: any.
#pragma once

#include <string>
#include <string_view>

namespace Host
{

// The declaration that a C++ name stands for; a suffix behind '@' stays. Any other name, and one that is damaged or longer than
// any real one, comes back unchanged.
[[nodiscard]] std::string gDemangle(std::string_view inName);

} // namespace Host
