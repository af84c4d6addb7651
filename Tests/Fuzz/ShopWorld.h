// The classes of the shop, registered, and checks that hold for whatever a fuzz target made of them.
#pragma once

#include "Serialization/BinaryMemoryStreamReader.h"
#include "Serialization/BinaryWriter.h"
#include "Serialization/JSON.h"
#include "Tests/Fuzz/Expect.h"
#include "Tests/Serialization/ShopRandom.h"
#include "Tests/Support/TestRegistry.h"

#include <memory>
#include <vector>

namespace Fuzz
{

using Objects = std::vector<std::unique_ptr<RTTI::Object>>;

inline const RTTI::Registry& gGetShopRegistry()
{
    static const std::unique_ptr<RTTI::Registry> sRegistry = gMakeRegistry<Shop::Shelf, Shop::Tool>();
    return *sRegistry;
}

inline bool gReadContainer(const uint8_t* inData, size_t inSize, Serialization::ReadObjectMode inMode, Objects& outObjects,
                           Serialization::ReaderErrorState& ioErrors)
{
    Serialization::MemoryReadStream stream(inData, inSize);
    return Serialization::gReadObjectsFromBuffer(stream, gGetShopRegistry(), Serialization::TypeCreators(),
                                                 Serialization::CompatibilityHandlers(), inMode, outObjects, ioErrors);
}

inline std::vector<const RTTI::Object*> gList(const Objects& inObjects)
{
    std::vector<const RTTI::Object*> list;
    for (const std::unique_ptr<RTTI::Object>& object : inObjects)
        list.push_back(object.get());
    return list;
}

// Whatever was read can be written, and what was written can be read.
inline void gExpectRoundTrip(const Objects& inObjects)
{
    Utility::ByteBuffer buffer;
    Utility::ErrorState writeErrors;
    gExpect(Serialization::gWriteObjectsToBuffer(buffer, gList(inObjects), writeErrors));
    Objects again;
    Serialization::ReaderErrorState readErrors;
    gExpect(gReadContainer(buffer.GetData(), buffer.GetSize(), Serialization::ReadObjectMode::Strict, again, readErrors));
    gExpect(again.size() == inObjects.size());
}

} // namespace Fuzz
