#include "Host/Linux/ElfSymbols.h"

#include "Host/Linux/ElfSections.h"
#include "Host/Linux/LinkageStubs.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

namespace Host
{

namespace
{

// Symbol tables that are packed into a stripped module hold a few thousand names; anything larger isn't unpacked.
constexpr uint64_t sMaxPackedSize = 4 * 1024 * 1024;

// Collects the symbols of one module from one or more files.
class SymbolReader
{
public:
    explicit SymbolReader(const ElfSegments& inSegments) : mSegments(inSegments) {}

    [[nodiscard]] bool IsDamaged() const { return mIsDamaged; }
    [[nodiscard]] SymbolTableBuilder& GetBuilder() { return mBuilder; }
    [[nodiscard]] const std::vector<ResolverFunction>& GetResolvers() const { return mResolvers; }

    // Adds the functions of one table of a file; inTable may be null.
    void ReadTable(const ElfSections& inSections, const ElfSection* inTable);

    void AddStubs(const std::vector<LinkageStub>& inStubs);

private:
    void AddSymbol(const ElfSections& inSections, const GElf_Sym& inSymbol, size_t inSectionIndex, const Elf_Data& inNames);
    [[nodiscard]] std::optional<uint64_t> ToFileOffset(const ElfSection& inSection, uint64_t inAddress) const;

    const ElfSegments& mSegments;
    SymbolTableBuilder mBuilder;
    std::vector<ResolverFunction> mResolvers;
    bool mIsDamaged = false;
};

// Whether a symbol names code: functions always, bare labels where an assembler would have meant a function.
bool gNamesCode(const GElf_Sym& inSymbol, const ElfSection& inSection, std::string_view inName)
{
    if (!inSection.IsExecutable())
        return false;
    const int type = GELF_ST_TYPE(inSymbol.st_info);
    if (type == STT_FUNC || type == STT_GNU_IFUNC)
        return true;
    return type == STT_NOTYPE && inName.front() != '.' && inName.front() != '$';
}

ESymbolBinding gGetBinding(const GElf_Sym& inSymbol)
{
    switch (GELF_ST_BIND(inSymbol.st_info))
    {
    case STB_LOCAL:
        return ESymbolBinding::Local;
    case STB_WEAK:
        return ESymbolBinding::Weak;
    default:
        return ESymbolBinding::Global;
    }
}

// The text at an offset of a string table; empty if it isn't ended within the table.
std::string_view gGetText(const Elf_Data& inTexts, uint64_t inOffset)
{
    if (inOffset >= inTexts.d_size)
        return {};
    const char* text = static_cast<const char*>(inTexts.d_buf) + inOffset;
    const void* end = std::memchr(text, 0, inTexts.d_size - inOffset);
    return end != nullptr ? std::string_view(text, static_cast<size_t>(static_cast<const char*>(end) - text))
                          : std::string_view();
}

std::optional<uint64_t> SymbolReader::ToFileOffset(const ElfSection& inSection, uint64_t inAddress) const
{
    if (!mSegments.IsEmpty())
        return mSegments.ToFileOffset(inAddress);

    // Without segments nothing but the section itself tells where its bytes are.
    if (inSection.Header.sh_type == SHT_NOBITS || !inSection.Contains(inAddress))
        return std::nullopt;
    return inAddress - inSection.Header.sh_addr + inSection.Header.sh_offset;
}

void SymbolReader::AddSymbol(const ElfSections& inSections, const GElf_Sym& inSymbol, size_t inSectionIndex,
                             const Elf_Data& inNames)
{
    const ElfSection* section = inSections.FindByIndex(inSectionIndex);
    if (inSectionIndex == SHN_UNDEF || section == nullptr || !section->IsExecutable() || !section->Contains(inSymbol.st_value))
        return;
    const std::string_view name = gGetText(inNames, inSymbol.st_name);
    if (name.empty())
    {
        mIsDamaged |= inSymbol.st_name >= inNames.d_size;
        return;
    }
    const std::optional<uint64_t> start = ToFileOffset(*section, inSymbol.st_value);
    if (!start || !gNamesCode(inSymbol, *section, name))
        return;

    SymbolInput input;
    input.Start = *start;
    input.Limit = *start + (section->Header.sh_size - (inSymbol.st_value - section->Header.sh_addr));
    input.Size = std::min<uint64_t>(inSymbol.st_size, input.Limit - input.Start);
    input.Name = name;
    input.Binding = gGetBinding(inSymbol);
    input.IsFunction = GELF_ST_TYPE(inSymbol.st_info) != STT_NOTYPE;
    mBuilder.Add(input);
    if (GELF_ST_TYPE(inSymbol.st_info) == STT_GNU_IFUNC)
        mResolvers.push_back({inSymbol.st_value, name});
}

void SymbolReader::ReadTable(const ElfSections& inSections, const ElfSection* inTable)
{
    if (inTable == nullptr)
        return;
    const ElfSection* nameSection = inSections.FindByIndex(inTable->Header.sh_link);
    Elf_Data* symbols = ElfSections::sGetData(*inTable);
    const Elf_Data* names =
        nameSection != nullptr && nameSection->Header.sh_type == SHT_STRTAB ? ElfSections::sGetData(*nameSection) : nullptr;
    if (symbols == nullptr || symbols->d_type != ELF_T_SYM || names == nullptr || inTable->Header.sh_entsize == 0)
    {
        mIsDamaged = true;
        return;
    }

    const ElfSection* longIndexSection = inSections.FindByType(SHT_SYMTAB_SHNDX);
    Elf_Data* longIndices = longIndexSection != nullptr ? ElfSections::sGetData(*longIndexSection) : nullptr;
    const size_t count = symbols->d_size / inTable->Header.sh_entsize;
    mBuilder.Reserve(count);
    for (size_t i = 0; i < count && i <= INT32_MAX; ++i)
    {
        GElf_Sym symbol;
        Elf32_Word longIndex = 0;
        if (gelf_getsymshndx(symbols, longIndices, static_cast<int>(i), &symbol, &longIndex) == nullptr)
            break;
        AddSymbol(inSections, symbol, symbol.st_shndx == SHN_XINDEX ? longIndex : symbol.st_shndx, *names);
    }
}

void SymbolReader::AddStubs(const std::vector<LinkageStub>& inStubs)
{
    for (const LinkageStub& stub : inStubs)
        if (const std::optional<uint64_t> start = mSegments.ToFileOffset(stub.Address))
            mBuilder.Add({.Start = *start, .Size = stub.Size, .Limit = *start + stub.Size, .Name = stub.Target, .IsStub = true});
}

// Opens the symbol table that some distributions pack into stripped modules.
bool gOpenPackedSymbols(const ElfSections& inSections, ElfFile& outFile)
{
    const ElfSection* section = inSections.FindByName(".gnu_debugdata");
    if (section == nullptr || section->Header.sh_size > sMaxPackedSize)
        return false;
    const Elf_Data* packed = ElfSections::sGetData(*section);
    if (packed == nullptr)
        return false;

    // The unpacking part of the library takes a file only.
    const int descriptor = memfd_create("packed symbols", MFD_CLOEXEC);
    if (descriptor < 0)
        return false;
    const ssize_t written = pwrite(descriptor, packed->d_buf, packed->d_size, 0);
    if (written < 0 || static_cast<size_t>(written) != packed->d_size)
    {
        close(descriptor);
        return false;
    }
    ESymbolLoadResult reason{};
    return outFile.OpenCompressed(descriptor, reason);
}

} // namespace

bool gHasFullSymbolTable(const ElfFile& inFile)
{
    return ElfSections(inFile.GetHandle()).FindByType(SHT_SYMTAB) != nullptr;
}

ElfSymbols gReadElfSymbols(const ElfFile& inModule, const ElfFile* inDebugFile)
{
    const ElfSections sections(inModule.GetHandle());
    const ElfSegments segments(inModule.GetHandle());
    SymbolReader reader(segments);
    reader.ReadTable(sections, sections.FindByType(SHT_SYMTAB));
    if (inDebugFile != nullptr && reader.GetBuilder().IsEmpty())
    {
        const ElfSections debugSections(inDebugFile->GetHandle());
        reader.ReadTable(debugSections, debugSections.FindByType(SHT_SYMTAB));
    }
    bool isFull = !reader.GetBuilder().IsEmpty();

    // Names point into the open files, this one included, until the table is built.
    ElfFile packedFile;
    if (!isFull)
    {
        reader.ReadTable(sections, sections.FindByType(SHT_DYNSYM));
        if (gOpenPackedSymbols(sections, packedFile))
        {
            const ElfSections packedSections(packedFile.GetHandle());
            reader.ReadTable(packedSections, packedSections.FindByType(SHT_SYMTAB));
            isFull = packedSections.FindByType(SHT_SYMTAB) != nullptr;
        }
    }
    reader.AddStubs(gFindLinkageStubs(inModule.GetHandle(), sections, reader.GetResolvers()));

    auto table = std::make_shared<const SymbolTable>(reader.GetBuilder().Build());
    if (table->GetSymbols().empty())
        return {sections.IsDamaged() || reader.IsDamaged() ? ESymbolLoadResult::Damaged : ESymbolLoadResult::NoSymbols, nullptr};
    return {isFull ? ESymbolLoadResult::Loaded : ESymbolLoadResult::LoadedDynamicOnly, std::move(table)};
}

} // namespace Host
