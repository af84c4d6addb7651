// Any text as a JSON document of objects.
#include "Tests/Fuzz/ShopWorld.h"

namespace
{

using namespace Serialization;

bool gRead(std::string_view inText, ReadObjectMode inMode, Fuzz::Objects& outObjects)
{
    ReaderErrorState errors;
    return gReadObjectsFromJSON(inText, Fuzz::gGetShopRegistry(), TypeCreators(), inMode, outObjects, errors);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize)
{
    const std::string_view text(reinterpret_cast<const char*>(inData), inSize);
    for (const ReadObjectMode mode : {ReadObjectMode::Strict, ReadObjectMode::SkipUnknownTypes})
    {
        Fuzz::Objects objects;
        if (!gRead(text, mode, objects))
            continue;
        Fuzz::gExpectRoundTrip(objects);
        // A large number may have become infinite in single precision, which has no JSON form.
        std::string written;
        Utility::ErrorState errors;
        Fuzz::Objects again;
        if (gWriteObjectsToJSON(Fuzz::gList(objects), written, errors))
            Fuzz::gExpect(gRead(written, ReadObjectMode::Strict, again) && again.size() == objects.size());
    }
    return 0;
}
