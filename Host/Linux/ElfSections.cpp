#include "Host/Linux/ElfSections.h"

#include <algorithm>

namespace Host
{

ElfSections::ElfSections(Elf* inFile)
{
    size_t count = 0;
    size_t nameTable = 0;
    if (elf_getshdrnum(inFile, &count) != 0 || elf_getshdrstrndx(inFile, &nameTable) != 0)
    {
        mIsDamaged = true;
        return;
    }

    // A file that ends before its section headers counts as one without sections for the library.
    GElf_Ehdr header;
    mIsDamaged = gelf_getehdr(inFile, &header) == nullptr || (count == 0 && header.e_shoff != 0);

    // The count comes from the file; sections are only kept as far as they exist.
    for (size_t i = 0; i < count; ++i)
    {
        ElfSection section;
        section.Handle = elf_getscn(inFile, i);
        if (section.Handle == nullptr || gelf_getshdr(section.Handle, &section.Header) == nullptr)
        {
            mIsDamaged = true;
            return;
        }
        if (const char* name = elf_strptr(inFile, nameTable, section.Header.sh_name))
            section.Name = name;
        mSections.push_back(std::move(section));
    }
}

const ElfSection* ElfSections::FindByType(uint32_t inType) const
{
    const auto found = std::find_if(mSections.begin(), mSections.end(),
                                    [inType](const ElfSection& inSection) { return inSection.Header.sh_type == inType; });
    return found != mSections.end() ? &*found : nullptr;
}

const ElfSection* ElfSections::FindByName(std::string_view inName) const
{
    const auto found = std::find_if(mSections.begin(), mSections.end(),
                                    [inName](const ElfSection& inSection) { return inSection.Name == inName; });
    return found != mSections.end() ? &*found : nullptr;
}

const ElfSection* ElfSections::FindByIndex(size_t inIndex) const
{
    return inIndex < mSections.size() ? &mSections[inIndex] : nullptr;
}

Elf_Data* ElfSections::sGetData(const ElfSection& inSection)
{
    Elf_Data* data = elf_getdata(inSection.Handle, nullptr);
    return data != nullptr && data->d_buf != nullptr && data->d_size > 0 ? data : nullptr;
}

ElfSegments::ElfSegments(Elf* inFile)
{
    size_t count = 0;
    if (elf_getphdrnum(inFile, &count) != 0)
        return;
    for (size_t i = 0; i < count; ++i)
    {
        GElf_Phdr header;
        if (gelf_getphdr(inFile, static_cast<int>(i), &header) == nullptr)
            return;

        // A segment can only be mapped if its address and offset agree within a page. Debug files keep the header of a segment
        // whose bytes they left out, with an offset that means nothing.
        const uint64_t alignment = std::max<uint64_t>(header.p_align, 1);
        if (header.p_type == PT_LOAD && header.p_filesz > 0 && header.p_vaddr % alignment == header.p_offset % alignment)
            mSegments.push_back({header.p_vaddr, header.p_filesz, header.p_offset});
    }
}

std::optional<uint64_t> ElfSegments::ToFileOffset(uint64_t inAddress) const
{
    for (const Segment& segment : mSegments)
        if (inAddress >= segment.Address && inAddress - segment.Address < segment.FileSize)
            return inAddress - segment.Address + segment.Offset;
    return std::nullopt;
}

} // namespace Host
