#include "Utility/Hash.h"

#include <xxhash.h>

#include <array>

namespace Utility
{
namespace
{

constexpr uint64_t sReflectedJonesPolynomial = 0x95AC9329AC4BC9B5;

constexpr std::array<uint64_t, 256> gMakeCRCTable()
{
    std::array<uint64_t, 256> table{};
    for (uint64_t byte = 0; byte < table.size(); ++byte)
    {
        uint64_t crc = byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) != 0 ? (crc >> 1) ^ sReflectedJonesPolynomial : crc >> 1;
        table[byte] = crc;
    }
    return table;
}

constexpr std::array<uint64_t, 256> sCRCTable = gMakeCRCTable();

} // namespace

uint64_t gHash64(const void* inData, size_t inSize)
{
    return XXH64(inData, inSize, 0);
}

Hash64Stream::Hash64Stream() : mState(XXH64_createState())
{
    XXH64_reset(mState.get(), 0);
}

void Hash64Stream::FreeState::operator()(XXH64_state_s* inState) const
{
    XXH64_freeState(inState);
}

void Hash64Stream::Add(const void* inData, size_t inSize)
{
    XXH64_update(mState.get(), inData, inSize);
}

uint64_t Hash64Stream::Get() const
{
    return XXH64_digest(mState.get());
}

uint64_t gCRC64(const void* inData, size_t inSize, uint64_t inInitial)
{
    const auto* bytes = static_cast<const uint8_t*>(inData);
    uint64_t crc = inInitial;
    for (size_t i = 0; i < inSize; ++i)
        crc = sCRCTable[(crc ^ bytes[i]) & 0xFF] ^ (crc >> 8);
    return crc;
}

} // namespace Utility
