// Parses JSON texts into documents of RapidJSON.
//
// Its own parser of numbers reads beyond its tables for some that lie near zero, and is off by the last bit for others; here they
// are worked out by the C library. Threads: any.
#pragma once

#include <rapidjson/document.h>

#include <string_view>

namespace Serialization
{

struct JSONParseError
{
    const char* Message = nullptr; // RapidJSON's, in English
    int Line = 0;                  // counted from 1
};

// False with the first error. Whole numbers that 64 bits hold are kept as such, others as the nearest double. Deep documents
// don't use up the stack.
[[nodiscard]] bool gParseJSON(std::string_view inText, rapidjson::Document& outDocument, JSONParseError& outError);

} // namespace Serialization
