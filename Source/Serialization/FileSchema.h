// The schema that a container brought along, and how its types meet those of this build.
//
// Threads: one at a time. Ownership: a reader owns it. Invariant: the plan of a compound goes with the one run-time class that
// the registry finds under the compound's name; its targets are fields of that class and of no other.
#pragma once

#include "RTTI/Registry.h"
#include "Serialization/PrimitiveKind.h"
#include "Serialization/Schema.h"

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Serialization
{

// One property of a file's compound, and the field that it goes to.
struct PropertyPlan
{
    const PropertySchema* Schema;
    const RTTI::Property* Target; // null for a field that the class no longer has
    bool IsMatched = false;       // the two types were found to be the same
};

// How a compound of the file is read.
struct CompoundPlan
{
    std::string_view Name; // in the file
    const CompoundSchema* Schema;
    const RTTI::Type* Type; // null for a class that nobody registered
    std::vector<PropertyPlan> Properties;
};

// How an enumeration of the file is read.
struct EnumPlan
{
    EPrimitive SizeType;                                    // the integer that holds it; Unknown for one that nobody registered
    std::unordered_map<uint64_t, const std::string*> Names; // the first of each number
};

class FileSchema
{
public:
    explicit FileSchema(const RTTI::Registry& inRegistry) : mRegistry(inRegistry) {}

    // Takes the schema over and works out the plans.
    void Set(std::unique_ptr<Schema> inSchema);

    [[nodiscard]] const Schema& Get() const { return *mSchema; }

    // Null for a name that the schema lacks, or that stands there without a record.
    [[nodiscard]] CompoundPlan* FindCompound(std::string_view inName);

    // Null for a name that the schema lacks.
    [[nodiscard]] const EnumPlan* FindEnum(std::string_view inName) const;

    // Whether a value of the file's type is one of the run-time type, under its name or a former one. Class and enumeration names
    // inside the names of containers count too.
    [[nodiscard]] bool IsSameType(const RTTI::Type& inType, const TypeSchema& inFileType) const;

private:
    [[nodiscard]] CompoundPlan MakePlan(std::string_view inName, const CompoundSchema& inSchema) const;
    [[nodiscard]] EnumPlan MakePlan(const EnumSchema& inSchema) const;
    [[nodiscard]] bool IsSameUnderFormerNames(const RTTI::Type& inType, const TypeSchema& inFileType) const;

    const RTTI::Registry& mRegistry;
    std::unique_ptr<Schema> mSchema = std::make_unique<Schema>();
    RTTI::TextTable<CompoundPlan> mCompounds;
    RTTI::TextTable<EnumPlan> mEnums;
};

} // namespace Serialization
