// Makes the first inputs of the fuzz targets whose format this system writes itself, with its own writers:
//
//     FuzzSeeds FOLDER    writes FOLDER/<target>/<number> for each of them
#include "Tests/Fuzz/SeedFolder.h"
#include "Tests/Fuzz/SessionSeeds.h"
#include "Tests/Fuzz/ShopWorld.h"
#include "Tests/Serialization/HandMadeContainer.h"

#include <cstdio>
#include <filesystem>
#include <string>

namespace
{

using namespace Serialization;
using Fuzz::SeedFolder;

std::string gMakeJSON(std::vector<const RTTI::Object*> inObjects)
{
    std::string text;
    Utility::ErrorState errors;
    Fuzz::gExpect(gWriteObjectsToJSON(inObjects, text, errors));
    return text;
}

std::string gMakeSchemaText(const RTTI::Type& inType)
{
    Schema schema;
    schema.Add(inType);
    return gMakeJSON({&schema});
}

Utility::ByteBuffer gMakeContainer(std::vector<const RTTI::Object*> inObjects)
{
    Utility::ByteBuffer buffer;
    Utility::ErrorState errors;
    Fuzz::gExpect(gWriteObjectsToBuffer(buffer, inObjects, errors));
    return buffer;
}

void gMakeShopSeeds(const std::filesystem::path& inFolder)
{
    static_cast<void>(Fuzz::gGetShopRegistry());
    SeedFolder containers(inFolder / "ContainerFuzzer");
    SeedFolder schemas(inFolder / "SchemaFuzzer");
    SeedFolder documents(inFolder / "JSONFuzzer");

    constexpr uint32_t shopCount = 4;
    for (uint32_t seed = 0; seed < shopCount; ++seed)
    {
        Shop::RandomShop random(seed);
        Shop::Tool tool;
        tool.Spare = random.MakeItem();
        const auto shelf = random.MakeShelf();
        const Utility::ByteBuffer container = gMakeContainer({shelf.get(), &tool});
        containers.Add(container.GetData(), container.GetSize());
        documents.Add(gMakeJSON({shelf.get(), &tool}));
        documents.Add(gMakeJSON({&tool}));
    }
    const Utility::ByteBuffer empty = gMakeContainer({});
    containers.Add(empty.GetData(), empty.GetSize());
    // An item without a label, in the versions that nobody writes any more.
    const Bytes item = gSized({gString(""), gNumber(int64_t{7})});
    for (const uint32_t version : {FirstContainerVersion, HashedContainerVersion})
    {
        const Bytes old = HandMadeContainer{.Version = version,
                                            .SchemaText = gMakeSchemaText(RTTI::gTypeOf<Shop::Item>()),
                                            .Objects = {{"Shop::Item", item}}}
                              .BuildWithoutTable();
        containers.Add(old.data(), old.size());
    }
    schemas.Add(gMakeSchemaText(RTTI::gTypeOf<Shop::Shelf>()));
    schemas.Add(gMakeSchemaText(RTTI::gTypeOf<Shop::Item>()));
}

} // namespace

int main(int inCount, char** inArguments)
{
    if (inCount != 2)
    {
        std::fputs("usage: FuzzSeeds FOLDER\n", stderr);
        return 1;
    }
    gMakeShopSeeds(inArguments[1]);
    Fuzz::gMakeSessionSeeds(inArguments[1]);
    return 0;
}
