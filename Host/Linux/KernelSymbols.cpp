#include "Host/Linux/KernelSymbols.h"

#include "Host/Linux/ReadFile.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <unordered_map>
#include <utility>

namespace Host
{

namespace
{

constexpr std::string_view sTextTypes = "tTwW";

// A line of the list takes about this many bytes; only used to reserve memory.
constexpr size_t sTypicalLineLength = 45;

// One line: "ffffffff81000000 T name", with a tab and "[module]" behind it for symbols of modules.
struct Line
{
    uint64_t Address = 0;
    char Type = 0;
    std::string_view Name;
    std::string_view Module;

    [[nodiscard]] bool IsText() const { return sTextTypes.find(Type) != std::string_view::npos; }
};

std::optional<Line> gParseLine(std::string_view inText)
{
    Line line;
    const char* end = inText.data() + inText.size();
    const auto [rest, error] = std::from_chars(inText.data(), end, line.Address, 16);
    constexpr size_t sTypeAndSpaces = 3;
    if (error != std::errc() || static_cast<size_t>(end - rest) <= sTypeAndSpaces || rest[0] != ' ' || rest[2] != ' ')
        return std::nullopt;
    line.Type = rest[1];

    const std::string_view names(rest + sTypeAndSpaces, static_cast<size_t>(end - rest) - sTypeAndSpaces);
    const size_t nameEnd = std::min(names.find_first_of("\t "), names.size());
    line.Name = names.substr(0, nameEnd);
    const size_t open = names.find('[', nameEnd);
    if (open != std::string_view::npos && names.back() == ']')
        line.Module = names.substr(open + 1, names.size() - open - 2);
    if (line.Name.empty())
        return std::nullopt;
    return line;
}

// Takes the first line off ioText.
std::string_view gTakeLine(std::string_view& ioText)
{
    const size_t end = std::min(ioText.find('\n'), ioText.size());
    const std::string_view line = ioText.substr(0, end);
    ioText.remove_prefix(std::min(end + 1, ioText.size()));
    return line;
}

// The address that the list gives a symbol of the kernel itself.
std::optional<uint64_t> gFindAddress(std::string_view inList, std::string_view inName)
{
    if (inName.empty())
        return std::nullopt;
    const std::string pattern = " " + std::string(inName) + "\n";
    const size_t found = inList.find(pattern);
    if (found == std::string_view::npos)
        return std::nullopt;
    const size_t lineStart = inList.rfind('\n', found) + 1; // npos + 1 is the start of the text
    const std::optional<Line> line = gParseLine(inList.substr(lineStart, found + pattern.size() - 1 - lineStart));
    return line ? std::optional(line->Address) : std::nullopt;
}

// Gives out one owner index per module name. Symbols of a module follow each other, so the last one is asked first.
class ModuleOwners
{
public:
    [[nodiscard]] uint32_t Get(SymbolTableBuilder& ioBuilder, std::string_view inModule)
    {
        if (inModule.empty())
            return 0;
        if (inModule != mLastModule)
        {
            const auto [entry, isNew] = mOwners.try_emplace(inModule, 0);
            if (isNew)
                entry->second = ioBuilder.AddOwner(inModule);
            mLastModule = inModule;
            mLastOwner = entry->second;
        }
        return mLastOwner;
    }

private:
    std::unordered_map<std::string_view, uint32_t> mOwners;
    std::string_view mLastModule;
    uint32_t mLastOwner = 0;
};

// Adds the list's functions, moved by inShift. Gives the number of functions whose address the kernel hid.
size_t gAddFunctions(std::string_view inList, uint64_t inShift, SymbolTableBuilder& ioBuilder)
{
    ModuleOwners owners;
    size_t numHidden = 0;
    while (!inList.empty())
    {
        const std::optional<Line> line = gParseLine(gTakeLine(inList));
        if (!line || !line->IsText() || line->Name.front() == '$' || line->Name.front() == '.')
            continue;
        if (line->Address == 0)
            ++numHidden;
        else if (inShift == 0 || line->Module.empty())
            ioBuilder.Add({.Start = line->Address + inShift,
                           .Name = line->Name,
                           .Binding = line->Type == 't'   ? ESymbolBinding::Local
                                      : line->Type == 'T' ? ESymbolBinding::Global
                                                          : ESymbolBinding::Weak,
                           .Owner = owners.Get(ioBuilder, line->Module)});
    }
    return numHidden;
}

} // namespace

KernelSymbols gParseKernelSymbols(std::string_view inList, std::string_view inReferenceName, uint64_t inReferenceAddress)
{
    uint64_t shift = 0;
    const std::optional<uint64_t> listed = gFindAddress(inList, inReferenceName);
    if (inReferenceAddress != 0 && !inReferenceName.empty())
    {
        if (!listed)
            return {ESymbolLoadResult::Damaged, nullptr};
        if (*listed == 0)
            return {ESymbolLoadResult::Restricted, nullptr};
        shift = inReferenceAddress - *listed;
    }

    SymbolTableBuilder builder;
    builder.Reserve(inList.size() / sTypicalLineLength);
    const size_t numHidden = gAddFunctions(inList, shift, builder);
    if (builder.IsEmpty())
        return {numHidden > 0 ? ESymbolLoadResult::Restricted : ESymbolLoadResult::NoSymbols, nullptr};
    return {ESymbolLoadResult::Loaded, std::make_shared<const SymbolTable>(builder.Build())};
}

KernelSymbols gLoadKernelSymbols(const KernelSymbolsRequest& inRequest)
{
    if (!inRequest.RecordedID.IsEmpty() && !gReadKernelBuildID(inRequest.NotesPath).Matches(inRequest.RecordedID))
        return {ESymbolLoadResult::BuildIDMismatch, nullptr};
    std::string list;
    if (!gReadWholeFile(inRequest.ListPath, list))
        return {ESymbolLoadResult::FileMissing, nullptr};
    return gParseKernelSymbols(list, inRequest.ReferenceName, inRequest.ReferenceAddress);
}

} // namespace Host
