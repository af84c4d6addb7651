// Any bytes as a container, as they are and with hashes that were made to fit: from memory, and from a file of any version.
#include "Serialization/BinaryFileReader.h"
#include "Tests/Fuzz/FitHashes.h"
#include "Tests/Fuzz/ShopWorld.h"

#include <sys/mman.h>
#include <unistd.h>

#include <string>

namespace
{

using namespace Serialization;
using Fuzz::gExpect;

void gRead(const std::vector<uint8_t>& inBytes, ReadObjectMode inMode)
{
    Fuzz::Objects objects;
    ReaderErrorState errors;
    if (Fuzz::gReadContainer(inBytes.data(), inBytes.size(), inMode, objects, errors))
        Fuzz::gExpectRoundTrip(objects);
    else
        gExpect(inMode != ReadObjectMode::Strict || !errors.GetEntries().empty());
}

// A file in memory that the reader opens by name.
class MemoryFile
{
public:
    MemoryFile() : mFile(memfd_create("container", MFD_CLOEXEC)), mPath("/proc/self/fd/" + std::to_string(mFile)) {}

    const std::string& Hold(const std::vector<uint8_t>& inBytes)
    {
        gExpect(ftruncate(mFile, 0) == 0 &&
                pwrite(mFile, inBytes.data(), inBytes.size(), 0) == static_cast<ssize_t>(inBytes.size()));
        return mPath;
    }

private:
    int mFile;
    std::string mPath;
};

void gReadFile(const std::vector<uint8_t>& inBytes)
{
    static MemoryFile sFile;
    static const TypeCreators sCreators;
    static const CompatibilityHandlers sHandlers;
    BinaryFileReader reader(Fuzz::gGetShopRegistry(), sCreators, sHandlers, ReadObjectMode::Strict);
    ReaderErrorState errors;
    if (!reader.Open(sFile.Hold(inBytes), errors))
    {
        gExpect(!errors.GetEntries().empty());
        return;
    }
    const std::unique_ptr<RTTI::Object> tool = reader.ReadObject(RTTI::gTypeOf<Shop::Tool>(), errors);
    gExpect(tool == nullptr || reader.ContainsObject(RTTI::gTypeOf<Shop::Tool>()));
    Fuzz::Objects objects;
    gExpect(reader.ReadObjects(objects, errors) || !errors.GetEntries().empty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize)
{
    std::vector<uint8_t> bytes(inData, inData + inSize);
    gRead(bytes, ReadObjectMode::Strict);
    Fuzz::gMakeHashesFit(bytes);
    gRead(bytes, ReadObjectMode::Strict);
    gRead(bytes, ReadObjectMode::SkipUnknownTypes);
    gReadFile(bytes);
    return 0;
}
