// What a user is told of a failure: one line.
//
// Threads: any.
#pragma once

#include "Utility/ErrorState.h"

#include <string>

namespace Host
{

// The oldest entry, which says what went wrong; later ones say what that led to. With the file that it is about, if it has one.
[[nodiscard]] std::string gGetFailureText(const Utility::ErrorList& inErrors);

} // namespace Host
