// Any text as the schema of a container whose hashes fit and whose data are those of a random object.
#include "Tests/Fuzz/ShopWorld.h"
#include "Tests/Serialization/HandMadeContainer.h"

namespace
{

using namespace Serialization;

Bytes gMakeCompound()
{
    constexpr uint32_t seed = 5;
    const auto shelf = Shop::RandomShop(seed).MakeShelf();
    const RTTI::Object* object = shelf.get();
    Utility::ByteBuffer buffer;
    Utility::ErrorState errors;
    static_cast<void>(Fuzz::gGetShopRegistry());
    Fuzz::gExpect(gWriteObjectsToBuffer(buffer, {&object, 1}, errors));
    return gTakeLastCompound(Bytes(buffer.GetData(), buffer.GetData() + buffer.GetSize()), "Shop::Shelf");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize)
{
    static const Bytes sCompound = gMakeCompound();
    const HandMadeContainer container{.SchemaText = std::string(inData, inData + inSize),
                                      .Objects = {{"Shop::Shelf", sCompound}}};
    const Bytes bytes = container.Build();
    for (const ReadObjectMode mode : {ReadObjectMode::Strict, ReadObjectMode::SkipUnknownTypes})
    {
        Fuzz::Objects objects;
        ReaderErrorState errors;
        if (Fuzz::gReadContainer(bytes.data(), bytes.size(), mode, objects, errors))
            Fuzz::gExpectRoundTrip(objects);
        else
            Fuzz::gExpect(mode != ReadObjectMode::Strict || !errors.GetEntries().empty());
    }
    return 0;
}
