// An open ELF file: a program, library, debug file, or an image in memory.
//
// Threads: one at a time. Ownership: owns its descriptor and libelf's handle; what it gives lives as long as it does. Invariant:
// the file is read, never mapped, because a mapped file that someone cuts off takes the process down with it.
#pragma once

#include "Host/Linux/BuildID.h"
#include "Host/Linux/DebugLink.h"
#include "Host/Linux/SymbolLoadResult.h"

#include <libelf.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Host
{

// What makes a file the same file for as long as nobody changes it.
struct FileIdentity
{
    uint64_t Size = 0;
    int64_t ModifiedSeconds = 0;
    int64_t ModifiedNanoseconds = 0;
};

class ElfFile
{
public:
    ElfFile() = default;
    ~ElfFile() { Close(); }

    ElfFile(const ElfFile&) = delete;
    ElfFile& operator=(const ElfFile&) = delete;

    // Opens a regular file. False with the reason (FileMissing, NotElf or Damaged) if that can't be done.
    // REQUIRES: nothing is open.
    [[nodiscard]] bool Open(const std::string& inPath, ESymbolLoadResult& outReason);

    // Takes over the bytes of a whole ELF file. Failure as above.
    // REQUIRES: nothing is open.
    [[nodiscard]] bool OpenImage(std::vector<uint8_t> inImage, ESymbolLoadResult& outReason);

    // Takes a descriptor over whose file is ELF compressed as a whole, or plain. Failure as above.
    // REQUIRES: nothing is open.
    [[nodiscard]] bool OpenCompressed(int inDescriptor, ESymbolLoadResult& outReason);

    void Close();

    [[nodiscard]] Elf* GetHandle() const { return mHandle; }
    [[nodiscard]] const FileIdentity& GetIdentity() const { return mIdentity; }

    // Empty if there is none.
    [[nodiscard]] BuildID ReadBuildID() const;

    // With an empty file name if there is none.
    [[nodiscard]] DebugLink ReadDebugLink() const;

private:
    [[nodiscard]] bool CheckHandle(bool inHasMagic, ESymbolLoadResult& outReason);

    int mDescriptor = -1;
    Elf* mHandle = nullptr;
    std::vector<uint8_t> mImage; // of OpenImage
    FileIdentity mIdentity;      // of Open
};

// The id of the ELF file at inPath; empty if it can't be read, isn't ELF or has none.
[[nodiscard]] BuildID gReadFileBuildID(const std::string& inPath);

} // namespace Host
