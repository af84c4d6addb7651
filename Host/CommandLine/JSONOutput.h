// Writing JSON for programs: members of an object by name.
//
// Threads: one. Ownership: refers to the writer, which the caller keeps.
#pragma once

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace Host
{

using JSONWriter = rapidjson::PrettyWriter<rapidjson::StringBuffer, rapidjson::UTF8<>, rapidjson::UTF8<>>;

// The document that inWriteMembers fills, with a newline at its end.
template <class Function>
[[nodiscard]] std::string gFormatJSON(const Function& inWriteMembers)
{
    constexpr int indent = 2;
    rapidjson::StringBuffer buffer;
    JSONWriter writer(buffer);
    writer.SetIndent(' ', indent);
    writer.StartObject();
    inWriteMembers(writer);
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize()) + '\n';
}

inline void gWriteText(JSONWriter& ioWriter, std::string_view inText)
{
    ioWriter.String(inText.data(), static_cast<rapidjson::SizeType>(inText.size()));
}

inline void gWriteMember(JSONWriter& ioWriter, const char* inName, std::string_view inText)
{
    ioWriter.Key(inName);
    gWriteText(ioWriter, inText);
}

inline void gWriteMember(JSONWriter& ioWriter, const char* inName, uint64_t inNumber)
{
    ioWriter.Key(inName);
    ioWriter.Uint64(inNumber);
}

inline void gWriteMember(JSONWriter& ioWriter, const char* inName, int32_t inNumber)
{
    ioWriter.Key(inName);
    ioWriter.Int(inNumber);
}

inline void gWriteMember(JSONWriter& ioWriter, const char* inName, double inNumber)
{
    ioWriter.Key(inName);
    ioWriter.Double(inNumber);
}

// An array of what inWriteElement writes for each element.
template <class Elements, class Function>
void gWriteArray(JSONWriter& ioWriter, const char* inName, const Elements& inElements, const Function& inWriteElement)
{
    ioWriter.Key(inName);
    ioWriter.StartArray();
    for (const auto& element : inElements)
        inWriteElement(element);
    ioWriter.EndArray();
}

} // namespace Host
