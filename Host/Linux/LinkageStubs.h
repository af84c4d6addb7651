// Finds the stubs through which a module calls functions of other modules. Profiles are full of them, and no symbol names them.
// Threads: one per file. Only x86-64 code is understood; other machines have no stubs here.
#pragma once

#include "Host/Linux/ElfSections.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace Host
{

struct LinkageStub
{
    uint64_t Address = 0; // as the linker gave it
    uint64_t Size = 0;
    std::string_view Target; // belongs to the file
};

// A function that chooses another one at load time; it stands for those that it chooses from.
struct ResolverFunction
{
    uint64_t Address = 0;
    std::string_view Name;
};

// All stubs whose target has a name. A stub of a local resolver function is called after it, from inResolvers in any order.
[[nodiscard]] std::vector<LinkageStub> gFindLinkageStubs(Elf* inFile, const ElfSections& inSections,
                                                         std::vector<ResolverFunction> inResolvers);

} // namespace Host
