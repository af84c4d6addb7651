// Where the built fixture files lie, and scratch folders for tests that make files of their own.
#pragma once

#include "Host/Linux/BuildID.h"
#include "Host/Linux/SymbolTable.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Utility/LogCapture.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace Host
{

inline const std::string sFixtureFolder = ELF_FIXTURE_FOLDER;
inline const BuildID sFixtureID = BuildID::sFromHex(ELF_FIXTURE_ID);
inline const BuildID sOtherID = BuildID::sFromHex("ffeeddccbbaa99887766554433221100ffeeddcc");
inline const std::string sFixtureDebugFile = sFixtureFolder + "/roots/.build-id/" + std::string(ELF_FIXTURE_ID, 2) + "/" +
                                             std::string(std::string_view(ELF_FIXTURE_ID).substr(2)) + ".debug";

// For files of the fixture where a test wants them.
class ScratchFolder : public TemporaryFolder
{
public:
    std::string Copy(const std::string& inSource, const std::string& inName) const
    {
        std::filesystem::create_directories(std::filesystem::path(At(inName)).parent_path());
        std::filesystem::copy_file(inSource, At(inName), std::filesystem::copy_options::overwrite_existing);
        return At(inName);
    }
};

inline std::string gReadText(const std::string& inPath)
{
    std::ifstream file(inPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The readable name of what covers an address, "-" if nothing does.
inline std::string gNameAt(const SymbolTable& inTable, uint64_t inAddress)
{
    const Symbol* symbol = inTable.Find(inAddress);
    return symbol != nullptr ? inTable.GetDisplayName(*symbol) : "-";
}

// The symbol with a display name, null if there is none.
inline const Symbol* gFindByName(const SymbolTable& inTable, std::string_view inName)
{
    for (const Symbol& symbol : inTable.GetSymbols())
        if (inTable.GetDisplayName(symbol) == inName)
            return &symbol;
    return nullptr;
}

} // namespace Host
