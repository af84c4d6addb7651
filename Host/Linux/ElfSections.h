// The parts of an ELF file's layout that its symbols are judged by: its sections and its loaded segments.
//
// Threads: one per file. Ownership: plain copies of headers; section bytes belong to the file. Invariant: section indices are the
// file's own, so that a symbol's index finds its section.
#pragma once

#include <gelf.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Host
{

struct ElfSection
{
    Elf_Scn* Handle = nullptr;
    GElf_Shdr Header = {};
    std::string Name;

    [[nodiscard]] bool IsExecutable() const
    {
        return (Header.sh_flags & SHF_EXECINSTR) != 0 && (Header.sh_flags & SHF_ALLOC) != 0;
    }
    [[nodiscard]] bool Contains(uint64_t inAddress) const
    {
        return inAddress >= Header.sh_addr && inAddress - Header.sh_addr < Header.sh_size;
    }
};

class ElfSections
{
public:
    explicit ElfSections(Elf* inFile);

    [[nodiscard]] const std::vector<ElfSection>& GetSections() const { return mSections; }

    // Whether some header couldn't be read.
    [[nodiscard]] bool IsDamaged() const { return mIsDamaged; }

    // Null if there is none.
    [[nodiscard]] const ElfSection* FindByType(uint32_t inType) const;
    [[nodiscard]] const ElfSection* FindByName(std::string_view inName) const;
    [[nodiscard]] const ElfSection* FindByIndex(size_t inIndex) const;

    // The section's content in this machine's byte order; null if the file doesn't hold it whole.
    [[nodiscard]] static Elf_Data* sGetData(const ElfSection& inSection);

private:
    std::vector<ElfSection> mSections;
    bool mIsDamaged = false;
};

// Turns the addresses that a linker gave into offsets in the file.
class ElfSegments
{
public:
    explicit ElfSegments(Elf* inFile);

    // Nothing if no segment takes this address from the file.
    [[nodiscard]] std::optional<uint64_t> ToFileOffset(uint64_t inAddress) const;

    [[nodiscard]] bool IsEmpty() const { return mSegments.empty(); }

private:
    struct Segment
    {
        uint64_t Address;
        uint64_t FileSize;
        uint64_t Offset;
    };

    std::vector<Segment> mSegments;
};

} // namespace Host
