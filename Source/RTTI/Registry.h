// All reflected types, by module and full name.
//
// Threads: registering and Finalize happen on one thread during start-up; afterwards the registry is read-only, and any thread
// may ask. Ownership: the host owns the registry; it refers to static tables of the modules, which must stay loaded. Invariant: a
// type that a registered type reaches is registered too, so a module registers only the roots of its types.
#pragma once

#include "RTTI/Type.h"
#include "Utility/Hash.h"

#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace RTTI
{

struct TextHasher
{
    using is_transparent = void; // NOLINT(readability-identifier-naming): the standard library's name

    size_t operator()(std::string_view inText) const { return static_cast<size_t>(Utility::gHash64(inText)); }
};

template <class Mapped>
using TextTable = std::unordered_map<std::string, Mapped, TextHasher, std::equal_to<>>;

// From a stored name to the name that replaces it.
using RenameTable = TextTable<std::string>;

// The key of the plugin whose types every look-up prefers.
[[nodiscard]] uint64_t gThreadsModelPluginModuleKey();

class Registry
{
public:
    static constexpr uint64_t sNoModule = ~uint64_t{0};

    struct Module
    {
        TextTable<const Type*> Types;   // by full name
        TextTable<const Type*> Aliases; // by former name
    };

    // Between the two calls, Register enters types in the module of that key. sNoModule ends it.
    void SetCurrentModuleKey(uint64_t inKey) { mCurrentModuleKey = inKey; }
    uint64_t GetCurrentModuleKey() const { return mCurrentModuleKey; }

    // Enters the type, and whatever it reaches, in the module of the current key. A later type of the same name replaces an
    // earlier one of the module. REQUIRES: a current module key.
    void Register(const Type& inType);

    // The type of that name or former name: that of the preferred plugin, or else of the first other module that has it. Null
    // when there is none, and always before the preferred plugin has registered.
    [[nodiscard]] const Type* FindType(std::string_view inName) const;

    // Whether a stored name begins with the full name of the type.
    [[nodiscard]] bool TypeMatchesName(const Type& inType, const std::string& inName) const;

    // Fills what the tables left open: hashes, and the numbers of the class tree. To be called after all modules have registered
    // and before the first read or write; may be repeated when another module has registered.
    void Finalize();

    // The table stays with the caller and must outlive the registry; null for none.
    void SetRenameTable(const RenameTable* inTable) { mRenameTable = inTable; }

    const std::unordered_map<uint64_t, Module>& GetModules() const { return mModules; }

private:
    void RegisterReached(const Type& inType, std::unordered_set<const Type*>& ioSeen);
    void RegisterAliases(const Type& inType, const char* const* inAliases, uint32_t inCount);

    std::unordered_map<uint64_t, Module> mModules;
    uint64_t mCurrentModuleKey = sNoModule;
    const RenameTable* mRenameTable = nullptr;
};

// Makes a module the current one for the time of a block.
class CurrentModuleScope
{
public:
    CurrentModuleScope(Registry& ioRegistry, uint64_t inKey) : mRegistry(ioRegistry) { mRegistry.SetCurrentModuleKey(inKey); }
    ~CurrentModuleScope() { mRegistry.SetCurrentModuleKey(Registry::sNoModule); }

    CurrentModuleScope(const CurrentModuleScope&) = delete;
    CurrentModuleScope& operator=(const CurrentModuleScope&) = delete;

private:
    Registry& mRegistry;
};

} // namespace RTTI
