#include "Host/Linux/DebugFileFinder.h"

#include "Host/Linux/ElfFile.h"
#include "Host/Linux/ReadFile.h"
#include "Utility/Format.h"
#include "Utility/Log.h"

#include <sys/stat.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <utility>

namespace Host
{

namespace
{

constexpr uint32_t sChecksumPolynomial = 0xEDB88320u;

constexpr std::array<uint32_t, 256> gMakeChecksumTable()
{
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < table.size(); ++i)
    {
        uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit)
            value = (value >> 1) ^ ((value & 1) != 0 ? sChecksumPolynomial : 0);
        table[i] = value;
    }
    return table;
}

constexpr std::array<uint32_t, 256> sChecksumTable = gMakeChecksumTable();

bool gIsRegularFile(const std::string& inPath)
{
    struct stat status = {};
    return stat(inPath.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// The folder part of a path without its slash; empty for a name alone and for files of the root.
std::string gGetFolder(const std::string& inPath)
{
    const size_t slash = inPath.rfind('/');
    return slash == std::string::npos ? std::string() : inPath.substr(0, slash);
}

struct FreeText
{
    void operator()(char* inText) const { std::free(inText); }
};

// The path without symbolic links; the path itself if that can't be told.
std::string gGetRealPath(const std::string& inPath)
{
    const std::unique_ptr<char, FreeText> path(realpath(inPath.c_str(), nullptr));
    return path != nullptr ? std::string(path.get()) : inPath;
}

// Where a debug file of this name may lie, best first.
std::vector<std::string> gListLinkTargets(const std::string& inModulePath, const std::string& inFileName,
                                          const std::vector<std::string>& inSearchRoots)
{
    const std::string folder = gGetFolder(inModulePath);
    const std::string realFolder = gGetFolder(gGetRealPath(inModulePath));
    std::vector<std::string> targets = {folder + "/" + inFileName, folder + "/.debug/" + inFileName};
    for (const std::string& root : inSearchRoots)
    {
        targets.push_back(Utility::gFormat("%s%s/%s", root.c_str(), folder.c_str(), inFileName.c_str()));
        if (realFolder != folder)
            targets.push_back(Utility::gFormat("%s%s/%s", root.c_str(), realFolder.c_str(), inFileName.c_str()));
    }
    return targets;
}

// Whether a file that the link names is the module's debug file. Build ids decide where both have one: they are as good as a
// checksum and don't need the whole file read.
bool gIsLinkedFile(const std::string& inPath, const BuildID& inID, uint32_t inChecksum)
{
    const BuildID id = gReadFileBuildID(inPath);
    if (!id.IsEmpty() && !inID.IsEmpty())
    {
        if (!id.Matches(inID))
            Utility::gLog("Debug file %s is of build %s, not %s: not used", inPath.c_str(), id.ToHex().c_str(),
                          inID.ToHex().c_str());
        return id.Matches(inID);
    }
    uint32_t checksum = 0;
    const bool isSame = gGetFileChecksum(inPath, checksum) && checksum == inChecksum;
    if (!isSame)
        Utility::gLog("Debug file %s has another checksum than its module notes: not used", inPath.c_str());
    return isSame;
}

} // namespace

DebugFileFinder::DebugFileFinder(std::vector<std::string> inSearchRoots) : mSearchRoots(std::move(inSearchRoots)) {}

std::string DebugFileFinder::Find(const std::string& inModulePath, const BuildID& inID, const DebugLink& inLink) const
{
    std::string path = FindByBuildID(inID);
    return path.empty() ? FindByLink(inModulePath, inID, inLink) : path;
}

std::string DebugFileFinder::FindByBuildID(const BuildID& inID) const
{
    // The first byte names a folder and the others the file, so there must be two.
    if (inID.GetBytes().size() < 2)
        return {};
    const std::string hex = inID.ToHex();
    for (const std::string& root : mSearchRoots)
    {
        std::string path = root + "/.build-id/" + hex.substr(0, 2) + "/" + hex.substr(2) + ".debug";
        if (!gIsRegularFile(path))
            continue;
        const BuildID id = gReadFileBuildID(path);
        if (id.Matches(inID))
            return path;
        Utility::gLog("Debug file %s is of build %s: not used", path.c_str(), id.IsEmpty() ? "(none)" : id.ToHex().c_str());
    }
    return {};
}

std::string DebugFileFinder::FindByLink(const std::string& inModulePath, const BuildID& inID, const DebugLink& inLink) const
{
    // A name with a folder could lead anywhere.
    if (inLink.FileName.empty() || inLink.FileName.find('/') != std::string::npos)
        return {};
    const std::string realModulePath = gGetRealPath(inModulePath);
    for (std::string& path : gListLinkTargets(inModulePath, inLink.FileName, mSearchRoots))
        if (gIsRegularFile(path) && gGetRealPath(path) != realModulePath && gIsLinkedFile(path, inID, inLink.Checksum))
            return std::move(path);
    return {};
}

bool gGetFileChecksum(const std::string& inPath, uint32_t& outChecksum)
{
    uint32_t checksum = ~0u;
    const bool isRead =
        gReadFileInPieces(inPath,
                          [&](std::span<const char> inPiece)
                          {
                              for (const char byte : inPiece)
                                  checksum = (checksum >> 8) ^ sChecksumTable[(checksum ^ static_cast<uint8_t>(byte)) & 0xff];
                          });
    outChecksum = ~checksum;
    return isRead;
}

} // namespace Host
