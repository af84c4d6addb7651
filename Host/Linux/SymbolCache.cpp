#include "Host/Linux/SymbolCache.h"

#include "Host/Linux/ElfFile.h"
#include "Host/Linux/ElfSymbols.h"
#include "Host/Linux/OwnVDSO.h"
#include "System/Mutex.h"
#include "Utility/Format.h"
#include "Utility/Log.h"

#include <atomic>
#include <unordered_map>
#include <utility>

namespace Host
{

namespace
{

constexpr std::string_view sDeletedSuffix = " (deleted)";
constexpr std::string_view sVDSOPath = "[vdso]";

// Work that is done by whoever asks first; others wait for it.
struct Entry
{
    System::Mutex Lock;
    bool IsDone GUARDED_BY(Lock) = false;
    LoadedSymbols Symbols GUARDED_BY(Lock);
};

// Entries by key. The lock of the map is never held while an entry is worked on.
class EntryMap
{
public:
    template <class Load>
    [[nodiscard]] LoadedSymbols Get(const std::string& inKey, const Load& inLoad)
    {
        Entry& entry = FindOrAdd(inKey);
        const System::MutexLock lock(entry.Lock);
        if (!entry.IsDone)
            entry.Symbols = inLoad();
        entry.IsDone = true;
        return entry.Symbols;
    }

private:
    Entry& FindOrAdd(const std::string& inKey)
    {
        const System::MutexLock lock(mLock);
        std::unique_ptr<Entry>& entry = mEntries[inKey];
        if (entry == nullptr)
            entry = std::make_unique<Entry>();
        return *entry;
    }

    System::Mutex mLock;
    std::unordered_map<std::string, std::unique_ptr<Entry>> mEntries GUARDED_BY(mLock);
};

// A recorded path, taken apart.
struct RecordedModule
{
    explicit RecordedModule(std::string_view inPath) : IsDeleted(inPath.ends_with(sDeletedSuffix)), IsVDSO(inPath == sVDSOPath)
    {
        Path = inPath.substr(0, inPath.size() - (IsDeleted ? sDeletedSuffix.size() : 0));
    }

    // Anonymous memory and the like have names in brackets or with slashes in unusual places, but no file.
    [[nodiscard]] bool MayBeFile() const { return Path.starts_with('/') && !Path.starts_with("//"); }

    bool IsDeleted;
    bool IsVDSO;
    std::string Path;
};

} // namespace

struct SymbolCache::Contents
{
    explicit Contents(DebugFileFinder inFinder) : Finder(std::move(inFinder)) {}

    [[nodiscard]] LoadedSymbols LoadModule(const RecordedModule& inModule, const BuildID& inRecordedID);
    [[nodiscard]] LoadedSymbols LoadFile(const ElfFile& inFile, const std::string& inPath);
    [[nodiscard]] LoadedSymbols ParseFile(const ElfFile& inFile, const std::string& inPath, const BuildID& inID);
    [[nodiscard]] LoadedSymbols LoadFromDebugFile(const BuildID& inID, ESymbolLoadResult inReason);
    [[nodiscard]] LoadedSymbols ParseLoneDebugFile(const std::string& inPath);

    const DebugFileFinder Finder;
    EntryMap Requests; // by path and id as recorded
    EntryMap Files;    // by what the file is: build id, identity, or path of a debug file that stands alone
    std::atomic<size_t> NumParsed{0};
};

// Names from the separate debug file of a module that isn't there as it was recorded; inReason says why it isn't.
LoadedSymbols SymbolCache::Contents::LoadFromDebugFile(const BuildID& inID, ESymbolLoadResult inReason)
{
    const std::string path = Finder.FindByBuildID(inID);
    if (path.empty())
        return {inReason, nullptr, {}};
    const LoadedSymbols symbols = Files.Get(path, [&] { return ParseLoneDebugFile(path); });
    return gHasSymbols(symbols.Result) ? symbols : LoadedSymbols{inReason, nullptr, {}};
}

LoadedSymbols SymbolCache::Contents::ParseLoneDebugFile(const std::string& inPath)
{
    ElfFile file;
    ESymbolLoadResult reason{};
    if (!file.Open(inPath, reason))
        return {reason, nullptr, {}};
    ++NumParsed;
    ElfSymbols symbols = gReadElfSymbols(file, nullptr);
    return {symbols.Result, std::move(symbols.Table), inPath};
}

LoadedSymbols SymbolCache::Contents::ParseFile(const ElfFile& inFile, const std::string& inPath, const BuildID& inID)
{
    ++NumParsed;
    ElfFile debugFile;
    std::string debugPath;
    ESymbolLoadResult reason{};
    bool hasDebugFile = false;
    if (!gHasFullSymbolTable(inFile))
    {
        debugPath = Finder.Find(inPath, inID, inFile.ReadDebugLink());
        hasDebugFile = !debugPath.empty() && debugFile.Open(debugPath, reason) && gHasFullSymbolTable(debugFile);
    }
    ElfSymbols symbols = gReadElfSymbols(inFile, hasDebugFile ? &debugFile : nullptr);
    return {symbols.Result, std::move(symbols.Table), hasDebugFile ? debugPath : inPath};
}

LoadedSymbols SymbolCache::Contents::LoadFile(const ElfFile& inFile, const std::string& inPath)
{
    const BuildID id = inFile.ReadBuildID();
    const FileIdentity& identity = inFile.GetIdentity();
    const std::string key =
        !id.IsEmpty() ? id.ToHex()
                      : Utility::gFormat("%s|%llu|%lld.%lld", inPath.c_str(), static_cast<unsigned long long>(identity.Size),
                                         static_cast<long long>(identity.ModifiedSeconds),
                                         static_cast<long long>(identity.ModifiedNanoseconds));
    return Files.Get(key, [&] { return ParseFile(inFile, inPath, id); });
}

LoadedSymbols SymbolCache::Contents::LoadModule(const RecordedModule& inModule, const BuildID& inRecordedID)
{
    // A deleted file's place may have been taken by another one, which only a build id would tell.
    if (!inModule.IsVDSO && (!inModule.MayBeFile() || (inModule.IsDeleted && inRecordedID.IsEmpty())))
        return {ESymbolLoadResult::FileMissing, nullptr, {}};

    ElfFile file;
    ESymbolLoadResult reason{};
    const bool isOpen = inModule.IsVDSO ? file.OpenImage(gCopyOwnVDSO(), reason) : file.Open(inModule.Path, reason);
    if (!isOpen)
        return LoadFromDebugFile(inRecordedID, inModule.IsVDSO ? ESymbolLoadResult::FileMissing : reason);

    const BuildID id = file.ReadBuildID();
    if (inRecordedID.IsEmpty() || id.Matches(inRecordedID))
        return LoadFile(file, inModule.Path);
    if (inModule.IsDeleted)
        return LoadFromDebugFile(inRecordedID, ESymbolLoadResult::FileMissing);
    Utility::gLog("%s is of build %s, recorded was %s: file not used", inModule.Path.c_str(),
                  id.IsEmpty() ? "(none)" : id.ToHex().c_str(), inRecordedID.ToHex().c_str());
    return LoadFromDebugFile(inRecordedID, ESymbolLoadResult::BuildIDMismatch);
}

SymbolCache::SymbolCache(DebugFileFinder inFinder) : mContents(std::make_unique<Contents>(std::move(inFinder))) {}

SymbolCache::~SymbolCache() = default;

LoadedSymbols SymbolCache::Load(std::string_view inRecordedPath, const BuildID& inRecordedID)
{
    std::string key(inRecordedPath);
    key.append(1, '\0').append(inRecordedID.ToHex());
    return mContents->Requests.Get(key, [&] { return mContents->LoadModule(RecordedModule(inRecordedPath), inRecordedID); });
}

size_t SymbolCache::GetNumParsed() const
{
    return mContents->NumParsed;
}

} // namespace Host
