#include "Host/Linux/ElfFile.h"

#include <elfutils/libdwelf.h>
#include <fcntl.h>
#include <gelf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <span>
#include <utility>

namespace Host
{

namespace
{

// libelf refuses to work before it was told which version its user knows.
void gInitializeLibrary()
{
    [[maybe_unused]] static const unsigned sVersion = elf_version(EV_CURRENT);
}

bool gHasMagic(int inDescriptor)
{
    char magic[SELFMAG] = {};
    return pread(inDescriptor, magic, SELFMAG, 0) == SELFMAG && std::memcmp(magic, ELFMAG, SELFMAG) == 0;
}

} // namespace

bool ElfFile::Open(const std::string& inPath, ESymbolLoadResult& outReason)
{
    gInitializeLibrary();
    outReason = ESymbolLoadResult::FileMissing;

    // Recorded paths include devices and pipes; opening those must not wait for anything.
    mDescriptor = open(inPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat status = {};
    if (mDescriptor < 0 || fstat(mDescriptor, &status) != 0 || !S_ISREG(status.st_mode))
    {
        Close();
        return false;
    }
    mIdentity = {static_cast<uint64_t>(status.st_size), status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
    mHandle = elf_begin(mDescriptor, ELF_C_READ, nullptr);
    return CheckHandle(gHasMagic(mDescriptor), outReason);
}

bool ElfFile::OpenImage(std::vector<uint8_t> inImage, ESymbolLoadResult& outReason)
{
    gInitializeLibrary();
    mImage = std::move(inImage);
    const bool hasMagic = mImage.size() >= SELFMAG && std::memcmp(mImage.data(), ELFMAG, SELFMAG) == 0;
    if (hasMagic)
        mHandle = elf_memory(reinterpret_cast<char*>(mImage.data()), mImage.size());
    return CheckHandle(hasMagic, outReason);
}

bool ElfFile::OpenCompressed(int inDescriptor, ESymbolLoadResult& outReason)
{
    gInitializeLibrary();
    mDescriptor = inDescriptor;
    mHandle = dwelf_elf_begin(inDescriptor);
    return CheckHandle(false, outReason);
}

bool ElfFile::CheckHandle(bool inHasMagic, ESymbolLoadResult& outReason)
{
    GElf_Ehdr header;
    if (mHandle != nullptr && elf_kind(mHandle) == ELF_K_ELF && gelf_getehdr(mHandle, &header) != nullptr)
        return true;
    outReason = inHasMagic ? ESymbolLoadResult::Damaged : ESymbolLoadResult::NotElf;
    Close();
    return false;
}

void ElfFile::Close()
{
    if (mHandle != nullptr)
        elf_end(mHandle);
    if (mDescriptor >= 0)
        close(mDescriptor);
    mHandle = nullptr;
    mDescriptor = -1;
    mImage.clear();
}

BuildID ElfFile::ReadBuildID() const
{
    const void* bytes = nullptr;
    const ssize_t size = dwelf_elf_gnu_build_id(mHandle, &bytes);
    return size > 0 ? BuildID::sFromBytes({static_cast<const uint8_t*>(bytes), static_cast<size_t>(size)}) : BuildID();
}

DebugLink ElfFile::ReadDebugLink() const
{
    GElf_Word checksum = 0;
    const char* name = dwelf_elf_gnu_debuglink(mHandle, &checksum);
    return name != nullptr ? DebugLink{name, checksum} : DebugLink();
}

BuildID gReadFileBuildID(const std::string& inPath)
{
    ElfFile file;
    ESymbolLoadResult reason{};
    return file.Open(inPath, reason) ? file.ReadBuildID() : BuildID();
}

} // namespace Host
