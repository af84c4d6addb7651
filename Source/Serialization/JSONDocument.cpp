#include "Serialization/JSONDocument.h"

#include <rapidjson/encodedstream.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>

namespace Serialization
{
namespace
{

constexpr unsigned sParseFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag;

// The nearest double, infinite for a number beyond all of them. The host's locale may write numbers with a comma.
double gToDouble(const char* inText)
{
    static const locale_t sPlainLocale = newlocale(LC_ALL_MASK, "C", nullptr);
    return strtod_l(inText, nullptr, sPlainLocale);
}

// Builds the document, with numbers from their texts.
class DocumentBuilder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, DocumentBuilder>
{
public:
    explicit DocumentBuilder(rapidjson::Document& outDocument) : mDocument(outDocument) {}

    bool Null() { return mDocument.Null(); }
    bool Bool(bool inValue) { return mDocument.Bool(inValue); }
    bool String(const char* inText, rapidjson::SizeType inLength, bool inCopy)
    {
        return mDocument.String(inText, inLength, inCopy);
    }
    bool Key(const char* inText, rapidjson::SizeType inLength, bool inCopy) { return mDocument.Key(inText, inLength, inCopy); }
    bool StartObject() { return mDocument.StartObject(); }
    bool EndObject(rapidjson::SizeType inCount) { return mDocument.EndObject(inCount); }
    bool StartArray() { return mDocument.StartArray(); }
    bool EndArray(rapidjson::SizeType inCount) { return mDocument.EndArray(inCount); }

    // The one step that can fail, for a number that no double holds. inText ends with a zero.
    bool RawNumber(const char* inText, rapidjson::SizeType inLength, bool /*inCopy*/)
    {
        const std::string_view text(inText, inLength);
        if (text.find_first_of(".eE") == std::string_view::npos)
        {
            if (int64_t number = 0; ReadWhole(text, number))
                return mDocument.Int64(number);
            if (uint64_t number = 0; ReadWhole(text, number))
                return mDocument.Uint64(number);
        }
        const double number = gToDouble(inText);
        return std::isfinite(number) && mDocument.Double(number);
    }

private:
    template <class T>
    static bool ReadWhole(std::string_view inText, T& outNumber)
    {
        const char* end = inText.data() + inText.size();
        const auto [place, error] = std::from_chars(inText.data(), end, outNumber);
        return error == std::errc() && place == end;
    }

    rapidjson::Document& mDocument;
};

} // namespace

bool gParseJSON(std::string_view inText, rapidjson::Document& outDocument, JSONParseError& outError)
{
    rapidjson::MemoryStream bytes(inText.data(), inText.size());
    rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> stream(bytes);
    rapidjson::Reader reader;
    rapidjson::ParseResult result;
    const auto parse = [&](rapidjson::Document& outTarget)
    {
        DocumentBuilder builder(outTarget);
        result = reader.Parse<sParseFlags>(stream, builder);
        return !result.IsError();
    };
    outDocument.Populate(parse);
    if (!result.IsError())
        return true;

    const bool isNumberTooBig = result.Code() == rapidjson::kParseErrorTermination;
    const size_t offset = std::min(result.Offset(), inText.size());
    outError.Message = rapidjson::GetParseError_En(isNumberTooBig ? rapidjson::kParseErrorNumberTooBig : result.Code());
    outError.Line = 1 + static_cast<int>(std::count(inText.begin(), inText.begin() + static_cast<ptrdiff_t>(offset), '\n'));
    return false;
}

} // namespace Serialization
