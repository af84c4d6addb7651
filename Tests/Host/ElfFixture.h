// Where the built fixture files lie, and scratch folders for tests that make files of their own.
#pragma once

#include "Host/Linux/BuildID.h"
#include "Host/Linux/SymbolTable.h"
#include "Utility/Log.h"

#include <unistd.h>

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

// A folder that is there for as long as the object.
class ScratchFolder
{
public:
    ScratchFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "symbolsXXXXXX").string();
        mPath = mkdtemp(pattern.data());
    }
    ~ScratchFolder() { std::filesystem::remove_all(mPath); }

    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    [[nodiscard]] std::string GetPath(const std::string& inName) const { return mPath + "/" + inName; }

    std::string Copy(const std::string& inSource, const std::string& inName) const
    {
        std::filesystem::create_directories(std::filesystem::path(GetPath(inName)).parent_path());
        std::filesystem::copy_file(inSource, GetPath(inName), std::filesystem::copy_options::overwrite_existing);
        return GetPath(inName);
    }

    std::string Write(const std::string& inName, std::string_view inContent) const
    {
        std::filesystem::create_directories(std::filesystem::path(GetPath(inName)).parent_path());
        std::ofstream(GetPath(inName), std::ios::binary) << inContent;
        return GetPath(inName);
    }

private:
    std::string mPath;
};

inline std::string gReadText(const std::string& inPath)
{
    std::ifstream file(inPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Collects log lines for as long as it lives.
class LogCapture
{
public:
    LogCapture() : mSinks(Utility::gGetLogSinks())
    {
        Utility::gSetLogSinks({{[](const char* inText, void* ioText) { *static_cast<std::string*>(ioText) += inText; }, &mText}});
    }
    ~LogCapture() { Utility::gSetLogSinks(mSinks); }

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    [[nodiscard]] const std::string& GetText() const { return mText; }

private:
    std::vector<Utility::LogSink> mSinks;
    std::string mText;
};

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
