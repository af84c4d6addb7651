// How fast objects get into containers and out of them again.
//
//   CopyAndHash         memcpy into fresh memory plus XXH64, of the 256 MiB that the next two move: what they are measured by
//   WritePlainArray     a class with an array of 256 MiB of plain numbers, into a buffer
//   ReadPlainArray      the same read back
//   WriteSmallObjects   a million objects behind unique pointers, into a buffer; items are objects
//   ReadSmallObjects    the same read back
//   OpenFile            Open of a file, by the size of its data block in MiB
#include "RTTI/Declare.h"
#include "RTTI/Object.h"
#include "Serialization/BinaryFileReader.h"
#include "Serialization/BinaryMemoryStreamReader.h"
#include "Serialization/BinaryWriter.h"
#include "Tests/Support/TestRegistry.h"
#include "Utility/Hash.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

namespace Parcels
{

class Crate final : public RTTI::Object
{
public:
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Crate>(); }
    std::vector<uint64_t> Numbers;
};

class Parcel final : public RTTI::Object
{
public:
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Parcel>(); }
    uint64_t ID = 0;
    double Weight = 0;
};

class Truck final : public RTTI::Object
{
public:
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Truck>(); }
    std::vector<std::unique_ptr<Parcel>> Parcels;
};

} // namespace Parcels

RTTI_DECLARE(Parcels::Crate);
RTTI_DECLARE(Parcels::Parcel);
RTTI_DECLARE(Parcels::Truck);

RTTI_BEGIN(Parcels::Crate, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("Numbers", Numbers)
RTTI_END()

RTTI_BEGIN(Parcels::Parcel, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("ID", ID)
    RTTI_PROPERTY("Weight", Weight)
RTTI_END()

RTTI_BEGIN(Parcels::Truck, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("Parcels", Parcels)
RTTI_END()

namespace Serialization
{
namespace
{

constexpr uint64_t sMiB = 1u << 20;
constexpr uint64_t sCrateSize = 256 * sMiB;
constexpr uint64_t sNumParcels = 1'000'000;

const RTTI::Registry& gGetRegistry()
{
    static const std::unique_ptr<RTTI::Registry> sRegistry = gMakeRegistry<Parcels::Crate, Parcels::Parcel, Parcels::Truck>();
    return *sRegistry;
}

Parcels::Crate gMakeCrate(uint64_t inSize)
{
    Parcels::Crate crate;
    crate.Numbers.resize(inSize / sizeof(uint64_t));
    for (size_t i = 0; i < crate.Numbers.size(); ++i)
        crate.Numbers[i] = i * i;
    return crate;
}

Parcels::Truck gMakeTruck()
{
    Parcels::Truck truck;
    truck.Parcels.reserve(sNumParcels);
    for (uint64_t i = 0; i < sNumParcels; ++i)
    {
        truck.Parcels.push_back(std::make_unique<Parcels::Parcel>());
        truck.Parcels.back()->ID = i;
    }
    return truck;
}

bool gWrite(const RTTI::Object& inObject, Utility::ByteBuffer& ioBuffer)
{
    Utility::ErrorState errors;
    const RTTI::Object* object = &inObject;
    return gWriteObjectsToBuffer(ioBuffer, {&object, 1}, errors);
}

bool gRead(const Utility::ByteBuffer& inBuffer, std::vector<std::unique_ptr<RTTI::Object>>& ioObjects)
{
    MemoryReadStream stream(inBuffer.GetData(), inBuffer.GetSize());
    ReaderErrorState errors;
    return gReadObjectsFromBuffer(stream, gGetRegistry(), TypeCreators(), CompatibilityHandlers(), ReadObjectMode::Strict,
                                  ioObjects, errors);
}

void MeasureWrite(benchmark::State& ioState, const RTTI::Object& inObject)
{
    gGetRegistry();
    for ([[maybe_unused]] auto iteration : ioState)
    {
        Utility::ByteBuffer buffer;
        if (!gWrite(inObject, buffer))
            ioState.SkipWithError("not written");
        benchmark::DoNotOptimize(buffer.GetData());
    }
}

void MeasureRead(benchmark::State& ioState, const RTTI::Object& inObject)
{
    gGetRegistry();
    Utility::ByteBuffer buffer;
    static_cast<void>(gWrite(inObject, buffer));
    for ([[maybe_unused]] auto iteration : ioState)
    {
        std::vector<std::unique_ptr<RTTI::Object>> objects;
        if (!gRead(buffer, objects))
            ioState.SkipWithError("not read");
        ioState.PauseTiming(); // destroying the objects is no part of reading them
        objects.clear();
        ioState.ResumeTiming();
    }
}

void CopyAndHash(benchmark::State& ioState)
{
    const Parcels::Crate crate = gMakeCrate(sCrateSize);
    for ([[maybe_unused]] auto iteration : ioState)
    {
        Utility::ByteBuffer buffer;
        buffer.Append(crate.Numbers.data(), sCrateSize);
        benchmark::DoNotOptimize(Utility::gHash64(buffer.GetData(), buffer.GetSize()));
    }
    ioState.SetBytesProcessed(ioState.iterations() * static_cast<int64_t>(sCrateSize));
}
BENCHMARK(CopyAndHash)->Unit(benchmark::kMillisecond);

void WritePlainArray(benchmark::State& ioState)
{
    MeasureWrite(ioState, gMakeCrate(sCrateSize));
    ioState.SetBytesProcessed(ioState.iterations() * static_cast<int64_t>(sCrateSize));
}
BENCHMARK(WritePlainArray)->Unit(benchmark::kMillisecond);

void ReadPlainArray(benchmark::State& ioState)
{
    MeasureRead(ioState, gMakeCrate(sCrateSize));
    ioState.SetBytesProcessed(ioState.iterations() * static_cast<int64_t>(sCrateSize));
}
BENCHMARK(ReadPlainArray)->Unit(benchmark::kMillisecond);

void WriteSmallObjects(benchmark::State& ioState)
{
    MeasureWrite(ioState, gMakeTruck());
    ioState.SetItemsProcessed(ioState.iterations() * static_cast<int64_t>(sNumParcels));
}
BENCHMARK(WriteSmallObjects)->Unit(benchmark::kMillisecond);

void ReadSmallObjects(benchmark::State& ioState)
{
    MeasureRead(ioState, gMakeTruck());
    ioState.SetItemsProcessed(ioState.iterations() * static_cast<int64_t>(sNumParcels));
}
BENCHMARK(ReadSmallObjects)->Unit(benchmark::kMillisecond);

void OpenFile(benchmark::State& ioState)
{
    gGetRegistry();
    const std::filesystem::path path = std::filesystem::temp_directory_path() / "SerializationBenchmark.dat";
    {
        Utility::ErrorState errors;
        const Parcels::Crate crate = gMakeCrate(static_cast<uint64_t>(ioState.range(0)) * sMiB);
        const RTTI::Object* object = &crate;
        if (!gWriteObjectsToFile(path.string(), {&object, 1}, errors))
            ioState.SkipWithError("not written");
    }
    const TypeCreators creators;
    const CompatibilityHandlers handlers;
    for ([[maybe_unused]] auto iteration : ioState)
    {
        BinaryFileReader reader(gGetRegistry(), creators, handlers, ReadObjectMode::Strict);
        ReaderErrorState errors;
        if (!reader.Open(path.string(), errors) || !reader.ContainsObject(RTTI::gTypeOf<Parcels::Crate>()))
            ioState.SkipWithError("not opened");
    }
    std::filesystem::remove(path);
}
BENCHMARK(OpenFile)->Arg(1)->Arg(1024)->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace Serialization
