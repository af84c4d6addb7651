// The summary as tables for a terminal, and as JSON for programs.
#pragma once

#include <string>

namespace Host
{

struct Summary;

// Tables with one row per thread, the longest bars and the capture's health.
[[nodiscard]] std::string gFormatSummary(const Summary& inSummary);

// One object with the members "capture", "length_ms", "threads", "longest_bars" and "health".
[[nodiscard]] std::string gFormatSummaryAsJSON(const Summary& inSummary);

} // namespace Host
