// The registry of a program that stores sessions of the fixture.
#pragma once

#include "RTTI/Registry.h"

// One for the whole program, to be asked for at the start of each test, since finalizing any registry numbers the classes in it.
[[nodiscard]] const RTTI::Registry& gGetSessionRegistry();
