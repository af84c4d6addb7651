// The identity that a linker writes into a program, library or kernel, and the places it is read from.
//
// Threads: a BuildID is a plain value; the readers may be called from any thread. Invariant: at most sMaxSize bytes, and the
// bytes behind the size are zero, so that comparing and hashing need not look at the size first.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Host
{

class BuildID
{
public:
    // What a capture has room for. Longer ids are cut here on both sides.
    static constexpr size_t sMaxSize = 20;

    BuildID() = default;

    // From raw bytes, cut to sMaxSize. No bytes give the empty id.
    [[nodiscard]] static BuildID sFromBytes(std::span<const uint8_t> inBytes);

    // From pairs of hexadecimal digits, any case. Text that isn't that gives the empty id.
    [[nodiscard]] static BuildID sFromHex(std::string_view inText);

    [[nodiscard]] bool IsEmpty() const { return mSize == 0; }
    [[nodiscard]] std::span<const uint8_t> GetBytes() const { return {mBytes.data(), mSize}; }

    // Two lower-case digits per byte.
    [[nodiscard]] std::string ToHex() const;

    // Whether both may name one file: older captures pad short ids with zeros to sMaxSize, so zeros at the end count for nothing.
    // An empty id matches only another empty one.
    [[nodiscard]] bool Matches(const BuildID& inOther) const
    {
        return IsEmpty() == inOther.IsEmpty() && mBytes == inOther.mBytes;
    }

    friend auto operator<=>(const BuildID&, const BuildID&) = default;

private:
    std::array<uint8_t, sMaxSize> mBytes{};
    uint8_t mSize = 0;
};

struct BuildIDHash
{
    [[nodiscard]] size_t operator()(const BuildID& inID) const noexcept;
};

// The id among the notes in inNotes, little-endian as the kernel and the linker write them, each padded to inAlignment (4 or 8).
// Empty if there is none or the notes are damaged.
[[nodiscard]] BuildID gFindBuildIDNote(std::span<const uint8_t> inNotes, size_t inAlignment = 4);

// The id of the running kernel; empty if inNotesPath can't be read.
[[nodiscard]] BuildID gReadKernelBuildID(const std::string& inNotesPath = "/sys/kernel/notes");

} // namespace Host
