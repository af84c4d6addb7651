#include "Host/Linux/OwnVDSO.h"

#include <elf.h>
#include <link.h>
#include <sys/auxv.h>

#include <algorithm>
#include <cstring>

namespace Host
{

std::vector<uint8_t> gCopyOwnVDSO()
{
    // An integer that is an address, as the kernel hands it over.
    const auto* image = reinterpret_cast<const uint8_t*>(getauxval(AT_SYSINFO_EHDR)); // NOLINT(performance-no-int-to-ptr)
    if (image == nullptr || std::memcmp(image, ELFMAG, SELFMAG) != 0)
        return {};

    // The kernel maps it whole and doesn't tell its size; the section headers and segments do.
    const auto* header = reinterpret_cast<const ElfW(Ehdr)*>(image);
    size_t size = header->e_shoff + size_t{header->e_shnum} * header->e_shentsize;
    const auto* segments = reinterpret_cast<const ElfW(Phdr)*>(image + header->e_phoff);
    for (size_t i = 0; i < header->e_phnum; ++i)
        if (segments[i].p_type == PT_LOAD)
            size = std::max<size_t>(size, segments[i].p_offset + segments[i].p_filesz);
    return {image, image + size};
}

} // namespace Host
