#include "Host/Linux/SymbolTable.h"

#include "Host/Linux/Demangle.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace Host
{

namespace
{

constexpr std::string_view sStubSuffix = "@plt";

// A symbol of unknown size without a limit that is the last of its owner reaches to the end of the page behind its own.
constexpr uint64_t sPageSize = 4096;

size_t gCountUnderscores(std::string_view inName)
{
    return std::min(inName.find_first_not_of('_'), inName.size());
}

// Whether the first of two names for one start is the one to be shown.
bool gIsPreferred(const SymbolInput& inA, const SymbolInput& inB)
{
    const auto rank = [](const SymbolInput& inSymbol)
    {
        return std::tuple(inSymbol.Owner, inSymbol.IsStub, inSymbol.Binding, !inSymbol.IsFunction,
                          gCountUnderscores(inSymbol.Name), inSymbol.Name.size(), inSymbol.Name);
    };
    return rank(inA) < rank(inB);
}

// No addition of two numbers from a file may run over.
uint64_t gGetEnd(uint64_t inStart, uint64_t inSize)
{
    return inSize > UINT64_MAX - inStart ? UINT64_MAX : inStart + inSize;
}

// Makes one symbol of those with one start: the first one's name, the largest size, the farthest limit.
void gMergeAliases(std::vector<SymbolInput>& ioSymbols)
{
    size_t count = 0;
    for (const SymbolInput& symbol : ioSymbols)
    {
        if (count == 0 || ioSymbols[count - 1].Start != symbol.Start)
        {
            ioSymbols[count++] = symbol;
            continue;
        }
        SymbolInput& kept = ioSymbols[count - 1];
        kept.Size = std::max(kept.Size, symbol.Size);
        kept.Limit = std::max(kept.Limit, symbol.Limit);
    }
    ioSymbols.resize(count);
}

// Takes out symbols of unknown size that lie within one of known size: a label in a function isn't another function.
void gRemoveInnerLabels(std::vector<SymbolInput>& ioSymbols)
{
    uint64_t coveredEnd = 0;
    std::erase_if(ioSymbols,
                  [&](const SymbolInput& inSymbol)
                  {
                      const bool isInner = inSymbol.Size == 0 && inSymbol.Start < coveredEnd;
                      coveredEnd = std::max(coveredEnd, gGetEnd(inSymbol.Start, inSymbol.Size));
                      return isInner;
                  });
}

// Gives symbols of unknown size the bytes up to the next symbol or their limit.
void gExtendToNext(std::vector<SymbolInput>& ioSymbols)
{
    for (size_t i = 0; i < ioSymbols.size(); ++i)
    {
        SymbolInput& symbol = ioSymbols[i];
        if (symbol.Size != 0)
            continue;
        uint64_t end = symbol.Limit;
        const bool hasNext = i + 1 < ioSymbols.size();
        if (hasNext)
            end = std::min(end, ioSymbols[i + 1].Start);
        if (symbol.Limit == SymbolInput::sNoLimit && (!hasNext || ioSymbols[i + 1].Owner != symbol.Owner))
            end = std::min(end, gGetEnd(symbol.Start | (sPageSize - 1), sPageSize + 1));
        symbol.Size = end > symbol.Start ? end - symbol.Start : 0;
    }
    std::erase_if(ioSymbols, [](const SymbolInput& inSymbol) { return inSymbol.Size == 0; });
}

// Points each symbol to the nearest earlier one that ends behind it. Whoever covers an address that a symbol with an earlier or
// equal start doesn't is among these, so a search goes along them and meets the innermost first.
void gLinkEnclosing(std::vector<Symbol>& ioSymbols)
{
    for (uint32_t i = 0; i < ioSymbols.size(); ++i)
    {
        const uint64_t end = gGetEnd(ioSymbols[i].Start, ioSymbols[i].Size);
        uint32_t outer = i == 0 ? Symbol::sNone : i - 1;
        while (outer != Symbol::sNone && gGetEnd(ioSymbols[outer].Start, ioSymbols[outer].Size) <= end)
            outer = ioSymbols[outer].Enclosing;
        ioSymbols[i].Enclosing = outer;
    }
}

} // namespace

const Symbol* SymbolTable::Find(uint64_t inRelativeAddress) const
{
    const auto next = std::upper_bound(mSymbols.begin(), mSymbols.end(), inRelativeAddress,
                                       [](uint64_t inAddress, const Symbol& inSymbol) { return inAddress < inSymbol.Start; });
    if (next == mSymbols.begin())
        return nullptr;

    const Symbol* symbol = &*std::prev(next);
    while (inRelativeAddress - symbol->Start >= symbol->Size)
    {
        if (symbol->Enclosing == Symbol::sNone)
            return nullptr;
        symbol = &mSymbols[symbol->Enclosing];
    }
    return symbol;
}

std::string SymbolTable::GetDisplayName(const Symbol& inSymbol) const
{
    return gDemangle(GetName(inSymbol));
}

std::string_view SymbolTable::GetOwnerName(const Symbol& inSymbol) const
{
    return inSymbol.Owner < mOwners.size() ? std::string_view(mOwners[inSymbol.Owner]) : std::string_view();
}

uint32_t SymbolTableBuilder::AddOwner(std::string_view inName)
{
    mOwners.emplace_back(inName);
    return static_cast<uint32_t>(mOwners.size() - 1);
}

SymbolTable SymbolTableBuilder::Build()
{
    // Lists that come from a linker or the kernel are mostly in order already.
    const auto comesBefore = [](const SymbolInput& inA, const SymbolInput& inB)
    { return inA.Start != inB.Start ? inA.Start < inB.Start : gIsPreferred(inA, inB); };
    if (!std::is_sorted(mInputs.begin(), mInputs.end(), comesBefore))
        std::sort(mInputs.begin(), mInputs.end(), comesBefore);
    gMergeAliases(mInputs);
    gRemoveInnerLabels(mInputs);
    gExtendToNext(mInputs);

    size_t nameBytes = 0;
    for (const SymbolInput& input : mInputs)
        nameBytes += input.Name.size() + (input.IsStub ? sStubSuffix.size() : 0);

    SymbolTable table;
    table.mNames.reserve(nameBytes);
    table.mSymbols.reserve(mInputs.size());
    for (const SymbolInput& input : mInputs)
    {
        const size_t length = input.Name.size() + (input.IsStub ? sStubSuffix.size() : 0);
        if (length > UINT32_MAX - table.mNames.size() || table.mSymbols.size() >= Symbol::sNone)
            break;
        table.mSymbols.push_back({input.Start, input.Size, static_cast<uint32_t>(table.mNames.size()),
                                  static_cast<uint32_t>(length), input.Owner, Symbol::sNone});
        table.mNames.append(input.Name);
        if (input.IsStub)
            table.mNames.append(sStubSuffix);
    }
    gLinkEnclosing(table.mSymbols);

    table.mOwners = std::move(mOwners);
    mInputs.clear();
    mOwners.assign(1, std::string());
    return table;
}

} // namespace Host
