// Tables of stored classes whose properties are called as their members.
#pragma once

#include "RTTI/Declare.h"

// clang-format off
// A property for each member of a list: RTTI_PROPERTIES(First, Last). The preprocessor takes one of the list each time that it
// looks at the text again, which it does more often than any class here has properties.
#define RTTI_PROPERTIES(...) PROPERTIES_16X(PROPERTIES_16X(PROPERTIES_OF(__VA_ARGS__)))
#define PROPERTIES_16X(...) PROPERTIES_4X(PROPERTIES_4X(PROPERTIES_4X(PROPERTIES_4X(__VA_ARGS__))))
#define PROPERTIES_4X(...) PROPERTIES_1X(PROPERTIES_1X(PROPERTIES_1X(PROPERTIES_1X(__VA_ARGS__))))
#define PROPERTIES_1X(...) __VA_ARGS__
#define PROPERTIES_OF(inMember, ...) RTTI_PROPERTY(#inMember, inMember) __VA_OPT__(PROPERTIES_OF_REST PROPERTIES_EMPTY (__VA_ARGS__))
#define PROPERTIES_OF_REST() PROPERTIES_OF
#define PROPERTIES_EMPTY ()
// clang-format on
