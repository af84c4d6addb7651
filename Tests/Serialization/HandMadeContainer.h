// Containers put together byte by byte from the description of the format, not by the writer.
#pragma once

#include "Tests/Support/ByteWriter.h"
#include "Utility/Hash.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Serialization
{

using Bytes = std::vector<uint8_t>;

inline Bytes gString(std::string_view inText)
{
    return Host::ByteWriter().Add(uint64_t{inText.size()}).AddText(inText).Bytes;
}

template <class T>
Bytes gNumber(T inNumber)
{
    return Host::ByteWriter().Add(inNumber).Bytes;
}

inline Bytes gJoin(const std::vector<Bytes>& inParts)
{
    Host::ByteWriter writer;
    for (const Bytes& part : inParts)
        writer.AddBytes(part);
    return writer.Bytes;
}

// With the size in front, as compounds have it.
inline Bytes gSized(const std::vector<Bytes>& inParts)
{
    const Bytes content = gJoin(inParts);
    return gJoin({gNumber(uint64_t{content.size()}), content});
}

// With size and count in front, as arrays, maps and sets have them.
inline Bytes gCounted(uint64_t inCount, const std::vector<Bytes>& inParts)
{
    return gSized({gNumber(inCount), gJoin(inParts)});
}

// The encoded value, size included, of the last root of a container, which is of that class.
inline Bytes gTakeLastCompound(const Bytes& inContainer, std::string_view inTypeName)
{
    const Bytes name = gString(inTypeName);
    const auto place = std::find_end(inContainer.begin(), inContainer.end(), name.begin(), name.end());
    return {place + static_cast<ptrdiff_t>(name.size()), inContainer.end()};
}

struct RootObject
{
    std::string TypeName;
    Bytes Compound;             // with its size
    std::string TableName = {}; // what the table says instead, if anything

    [[nodiscard]] Bytes GetBytes() const { return gJoin({gString(TypeName), Compound}); }
};

struct HandMadeContainer
{
    uint32_t Magic = 0xF450C25D;
    uint32_t Version = 4;
    std::string SchemaText;
    std::vector<RootObject> Objects = {};

    // Versions 3 and 4.
    [[nodiscard]] Bytes Build() const
    {
        const Bytes block = BuildHeaderBlock();
        const uint64_t hash = Utility::gHash64(block.data(), block.size());
        return gJoin({BuildWord(), gNumber(uint64_t{block.size() + sizeof(hash)}), block, gNumber(hash), BuildData()});
    }

    // Versions 1 and 2.
    [[nodiscard]] Bytes BuildWithoutTable() const
    {
        const Bytes file = gJoin({BuildWord(), gString(SchemaText), BuildData()});
        const uint64_t sum =
            Version == 1 ? Utility::gCRC64(file.data(), file.size(), 0) : Utility::gHash64(file.data(), file.size());
        return gJoin({file, gNumber(sum)});
    }

private:
    [[nodiscard]] Bytes BuildWord() const { return gJoin({gNumber(Magic), gNumber(Version)}); }

    [[nodiscard]] Bytes BuildData() const
    {
        std::vector<Bytes> parts{gNumber(uint64_t{Objects.size()})};
        for (const RootObject& object : Objects)
            parts.push_back(object.GetBytes());
        return gJoin(parts);
    }

    [[nodiscard]] Bytes BuildHeaderBlock() const
    {
        std::vector<Bytes> parts{gString(SchemaText), gNumber(uint64_t{Objects.size()})};
        uint64_t offset = sizeof(uint64_t); // behind the root count
        for (const RootObject& object : Objects)
        {
            const Bytes bytes = object.GetBytes();
            const uint64_t size = bytes.size();
            parts.push_back(gJoin({gString(object.TableName.empty() ? object.TypeName : object.TableName), gNumber(offset),
                                   gNumber(size), gNumber(uint64_t{1}), gNumber(uint64_t{0}), gNumber(size),
                                   gNumber(Utility::gHash64(bytes.data(), bytes.size()))}));
            offset += size;
        }
        return gJoin(parts);
    }
};

} // namespace Serialization
