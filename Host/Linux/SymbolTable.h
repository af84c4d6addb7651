// The functions of one module, found by relative address. Relative addresses are file offsets (kernel: absolute addresses).
//
// Threads: immutable once built, so any number may search it. Ownership: shared by whoever got it from a SymbolCache; symbols and
// names live as long as the table. Invariant: sorted by start, one symbol per start, every size above 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Host
{

struct Symbol
{
    uint64_t Start = 0;
    uint64_t Size = 0; // bytes; for symbols without one, up to where the next begins
    uint32_t NameOffset = 0;
    uint32_t NameLength = 0;
    uint32_t Owner = 0;     // index for GetOwnerName
    uint32_t Enclosing = 0; // the nearest earlier symbol that ends behind this one, sNone if there is none

    static constexpr uint32_t sNone = UINT32_MAX;
};

class SymbolTable
{
public:
    // The symbol that covers the address; where several do, the one that starts last. Null if none covers it.
    [[nodiscard]] const Symbol* Find(uint64_t inRelativeAddress) const;

    // The name as the linker knows it.
    [[nodiscard]] std::string_view GetName(const Symbol& inSymbol) const
    {
        return std::string_view(mNames).substr(inSymbol.NameOffset, inSymbol.NameLength);
    }

    // The name as a person reads it. Worked out anew with each call; call it once per function that is shown.
    [[nodiscard]] std::string GetDisplayName(const Symbol& inSymbol) const;

    // The kernel module that a kernel symbol belongs to, without brackets; empty for the kernel itself and in tables of files.
    [[nodiscard]] std::string_view GetOwnerName(const Symbol& inSymbol) const;

    [[nodiscard]] std::span<const Symbol> GetSymbols() const { return mSymbols; }

private:
    friend class SymbolTableBuilder;

    std::vector<Symbol> mSymbols;
    std::string mNames; // all names one behind the other, without terminators
    std::vector<std::string> mOwners;
};

enum class ESymbolBinding : uint8_t
{
    Global,
    Weak,
    Local
};

// One symbol on its way into a table.
struct SymbolInput
{
    static constexpr uint64_t sNoLimit = UINT64_MAX;

    uint64_t Start = 0;
    uint64_t Size = 0;         // 0 if unknown
    uint64_t Limit = sNoLimit; // where a symbol of unknown size ends at the latest: the end of its section
    std::string_view Name;
    ESymbolBinding Binding = ESymbolBinding::Global;
    bool IsFunction = true; // false for a bare label
    bool IsStub = false;    // calls the function of this name through the linkage table; shown with "@plt" behind the name
    uint32_t Owner = 0;
};

// Collects symbols in any order and makes a table of them.
//
// Threads: one. Of several names for one start a fixed order decides: global, weak, local; functions before labels; names without
// leading underscores; shorter names; lower bytes. The start's size is the largest of them.
class SymbolTableBuilder
{
public:
    void Reserve(size_t inCount) { mInputs.reserve(inCount); }

    // REQUIRES: the bytes of the name stay where they are until Build.
    void Add(const SymbolInput& inSymbol) { mInputs.push_back(inSymbol); }

    // The index for SymbolInput::Owner. Index 0 is the table's own module.
    [[nodiscard]] uint32_t AddOwner(std::string_view inName);

    [[nodiscard]] bool IsEmpty() const { return mInputs.empty(); }

    // Empties the builder.
    [[nodiscard]] SymbolTable Build();

private:
    std::vector<SymbolInput> mInputs;
    std::vector<std::string> mOwners{std::string()};
};

} // namespace Host
