#include "Host/Linux/LinkageStubs.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace Host
{

namespace
{

constexpr std::array<std::string_view, 3> sStubSections = {".plt", ".plt.sec", ".plt.got"};

constexpr uint64_t sDefaultStubSize = 16;
constexpr uint64_t sShortStubSize = 8;

// "jmp *displacement(%rip)", possibly behind "endbr64" and a "bnd" prefix.
constexpr uint8_t sJumpOpcode[] = {0xff, 0x25};
constexpr size_t sJumpSize = sizeof(sJumpOpcode) + sizeof(int32_t);
constexpr uint8_t sBranchTarget[] = {0xf3, 0x0f, 0x1e, 0xfa};
constexpr uint8_t sBoundPrefix = 0xf2;

// A slot that a stub jumps through, and the name of what the loader puts there.
struct Slot
{
    uint64_t Address;
    std::string_view Target;
};

// A list of addresses with names, sorted for look-ups.
template <class Entry>
void gSortByAddress(std::vector<Entry>& ioEntries)
{
    std::stable_sort(ioEntries.begin(), ioEntries.end(),
                     [](const Entry& inA, const Entry& inB) { return inA.Address < inB.Address; });
}

template <class Entry>
const Entry* gFindByAddress(const std::vector<Entry>& inEntries, uint64_t inAddress)
{
    const auto found = std::lower_bound(inEntries.begin(), inEntries.end(), inAddress,
                                        [](const Entry& inEntry, uint64_t inValue) { return inEntry.Address < inValue; });
    return found != inEntries.end() && found->Address == inAddress ? &*found : nullptr;
}

// The names that relocations refer to by number.
class RelocationNames
{
public:
    RelocationNames(Elf* inFile, const ElfSections& inSections, const ElfSection& inRelocations) : mFile(inFile)
    {
        const ElfSection* table = inSections.FindByIndex(inRelocations.Header.sh_link);
        if (table == nullptr || (table->Header.sh_type != SHT_DYNSYM && table->Header.sh_type != SHT_SYMTAB))
            return;
        mSymbols = ElfSections::sGetData(*table);
        mNameSection = table->Header.sh_link;
    }

    [[nodiscard]] std::string_view Get(uint64_t inIndex) const
    {
        GElf_Sym symbol;
        if (mSymbols == nullptr || inIndex > INT32_MAX || gelf_getsym(mSymbols, static_cast<int>(inIndex), &symbol) == nullptr)
            return {};
        const char* name = elf_strptr(mFile, mNameSection, symbol.st_name);
        return name != nullptr ? std::string_view(name) : std::string_view();
    }

private:
    Elf* mFile;
    Elf_Data* mSymbols = nullptr;
    size_t mNameSection = 0;
};

void gReadSlots(Elf* inFile, const ElfSections& inSections, const ElfSection& inRelocations,
                const std::vector<ResolverFunction>& inResolvers, std::vector<Slot>& ioSlots)
{
    Elf_Data* data = ElfSections::sGetData(inRelocations);
    if (data == nullptr || data->d_type != ELF_T_RELA || inRelocations.Header.sh_entsize == 0)
        return;
    const RelocationNames names(inFile, inSections, inRelocations);
    const size_t count = data->d_size / inRelocations.Header.sh_entsize;
    for (size_t i = 0; i < count && i <= INT32_MAX; ++i)
    {
        GElf_Rela relocation;
        if (gelf_getrela(data, static_cast<int>(i), &relocation) == nullptr)
            return;
        const uint64_t type = GELF_R_TYPE(relocation.r_info);
        std::string_view name;
        if (type == R_X86_64_JUMP_SLOT || type == R_X86_64_GLOB_DAT)
            name = names.Get(GELF_R_SYM(relocation.r_info));
        else if (type == R_X86_64_IRELATIVE)
        {
            const auto* resolver = gFindByAddress(inResolvers, static_cast<uint64_t>(relocation.r_addend));
            name = resolver != nullptr ? resolver->Name : std::string_view();
        }
        if (!name.empty())
            ioSlots.push_back({relocation.r_offset, name});
    }
}

// The address of the slot that the stub in these bytes jumps through; 0 if they are no such stub.
uint64_t gGetSlotAddress(std::span<const uint8_t> inStub, uint64_t inAddress)
{
    size_t position = 0;
    if (inStub.size() >= sizeof(sBranchTarget) && std::memcmp(inStub.data(), sBranchTarget, sizeof(sBranchTarget)) == 0)
        position = sizeof(sBranchTarget);
    if (position < inStub.size() && inStub[position] == sBoundPrefix)
        ++position;
    if (inStub.size() - position < sJumpSize || std::memcmp(inStub.data() + position, sJumpOpcode, sizeof(sJumpOpcode)) != 0)
        return 0;
    int32_t displacement = 0;
    std::memcpy(&displacement, inStub.data() + position + sizeof(sJumpOpcode), sizeof(displacement));
    return inAddress + position + sJumpSize + static_cast<uint64_t>(static_cast<int64_t>(displacement));
}

void gReadStubs(const ElfSection& inSection, const std::vector<Slot>& inSlots, std::vector<LinkageStub>& ioStubs)
{
    const Elf_Data* data = inSection.IsExecutable() ? ElfSections::sGetData(inSection) : nullptr;
    if (data == nullptr || data->d_size > inSection.Header.sh_size)
        return;
    const uint64_t stubSize = inSection.Header.sh_entsize == sShortStubSize ? sShortStubSize : sDefaultStubSize;
    const std::span<const uint8_t> code(static_cast<const uint8_t*>(data->d_buf), data->d_size);
    for (size_t offset = 0; offset + stubSize <= code.size(); offset += stubSize)
    {
        const uint64_t address = inSection.Header.sh_addr + offset;
        if (const Slot* slot = gFindByAddress(inSlots, gGetSlotAddress(code.subspan(offset, stubSize), address)))
            ioStubs.push_back({address, stubSize, slot->Target});
    }
}

} // namespace

std::vector<LinkageStub> gFindLinkageStubs(Elf* inFile, const ElfSections& inSections, std::vector<ResolverFunction> inResolvers)
{
    GElf_Ehdr header;
    if (gelf_getehdr(inFile, &header) == nullptr || header.e_machine != EM_X86_64)
        return {};

    gSortByAddress(inResolvers);
    std::vector<Slot> slots;
    for (const ElfSection& section : inSections.GetSections())
        if (section.Header.sh_type == SHT_RELA && (section.Header.sh_flags & SHF_ALLOC) != 0)
            gReadSlots(inFile, inSections, section, inResolvers, slots);
    gSortByAddress(slots);

    std::vector<LinkageStub> stubs;
    for (const std::string_view name : sStubSections)
        if (const ElfSection* section = inSections.FindByName(name))
            gReadStubs(*section, slots, stubs);
    return stubs;
}

} // namespace Host
