// The monotonic clock of the system. Its zero means nothing; only differences do.
// Threads: any.
#pragma once

namespace Utility
{

[[nodiscard]] double gGetMonotonicSeconds();
[[nodiscard]] double gGetMonotonicMs();

} // namespace Utility
