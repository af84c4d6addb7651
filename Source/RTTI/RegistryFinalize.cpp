// Registry::Finalize: identities of types from their signatures, and the numbers of the class tree.
//
// The classes of all modules make one forest. A class that two modules know by tables of their own is one node of it, since both
// tables give the same signature. A class stands below each of its bases; with several, the numbers that it got last stay.

#include "RTTI/ReachedTypes.h"
#include "RTTI/Registry.h"
#include "Utility/Format.h"

#include <algorithm>
#include <cinttypes>
#include <memory>
#include <vector>

namespace RTTI
{
namespace
{

// All tables of one class.
struct Node
{
    std::vector<const Type*> Types;
    std::vector<Node*> Children;
    bool HasParent = false;
};

CompoundInfo& gGetWritableCompound(const Type& inType)
{
    return *static_cast<CompoundInfo*>(inType.Info);
}

// Writes the signatures of types, each only once however often it is part of another.
class SignatureWriter
{
public:
    const std::string& GetSignature(const Type& inType)
    {
        if (const auto found = mSignatures.find(&inType); found != mSignatures.end())
            return found->second;
        return mSignatures.emplace(&inType, Write(inType)).first->second;
    }

private:
    // Recurses only into what lies inside the type, which can't contain the type itself.
    std::string Write(const Type& inType)
    {
        std::string text = Utility::gFormat("%s%" PRIu64, inType.GetName().c_str(), inType.GetSize());
        const CompoundInfo* compound = inType.AsCompound();
        if (compound == nullptr)
            return text;
        const std::vector<const Property*> properties = gGetAllProperties(inType);
        text += std::to_string(properties.size());
        for (const Property* property : properties)
        {
            text += Utility::gFormat("%s:%s", property->Name, property->Type->GetName().c_str());
            if (property->Type->GetKind() == EKind::Compound)
                text += GetSignature(*property->Type);
        }
        text += std::to_string(compound->BaseCount);
        for (int32_t i = 0; i < compound->BaseCount; ++i)
            text += compound->Bases[i]->GetName();
        return text;
    }

    std::unordered_map<const Type*, std::string> mSignatures;
};

class Finalizer
{
public:
    // Gives the type, and whatever it reaches, its identity. What it reaches is in the registry already, unless another table of
    // the same name has replaced it there; it is in use all the same.
    void AddType(const Type& inType, uint64_t inModuleKey)
    {
        if (!mSeen.insert(&inType).second)
            return;
        const uint64_t hash = Utility::gHash64(mSignatures.GetSignature(inType));
        inType.Descriptor->Hash = hash;
        inType.Descriptor->ModuleKey = inModuleKey;
        if (inType.GetKind() == EKind::Compound)
            AddClass(inType);
        gForEachReachedType(inType, [&](const Type& inReached) { AddType(inReached, inModuleKey); });
    }

    // REQUIRES: all types are added; the bases of each class are then among them.
    void NumberClasses()
    {
        for (const std::unique_ptr<Node>& node : mNodes)
            LinkToBases(*node);
        uint32_t counter = 0;
        for (const std::unique_ptr<Node>& node : mNodes)
        {
            if (node->HasParent)
                continue;
            Number(*node, 0, counter);
            ++counter;
        }
    }

private:
    void AddClass(const Type& inType)
    {
        CompoundInfo& info = gGetWritableCompound(inType);
        info.FullVersion = sNotFinalized;
        info.TreeIndex = sNotRegistered;
        info.DescendantCount = sNotRegistered;

        Node*& node = mNodeByHash[inType.GetHash()];
        if (node == nullptr)
            node = mNodes.emplace_back(std::make_unique<Node>()).get();
        node->Types.push_back(&inType);
    }

    void LinkToBases(Node& ioNode)
    {
        for (const Type* type : ioNode.Types)
        {
            const CompoundInfo& info = *type->AsCompound();
            for (int32_t i = 0; i < info.BaseCount; ++i)
                AddChild(*mNodeByHash.find(info.Bases[i]->GetHash())->second, ioNode);
        }
    }

    static void AddChild(Node& ioParent, Node& ioChild)
    {
        ioChild.HasParent = true;
        if (std::find(ioParent.Children.begin(), ioParent.Children.end(), &ioChild) == ioParent.Children.end())
            ioParent.Children.push_back(&ioChild);
    }

    // Numbers the node and those below it. ioCounter is the node's index, and afterwards the last one given. Returns the number
    // of descendants.
    static uint32_t Number(Node& ioNode, uint64_t inParentFullVersion, uint32_t& ioCounter)
    {
        const uint32_t index = ioCounter;
        const int32_t version = ioNode.Types.front()->AsCompound()->Version;
        const uint64_t fullVersion = Utility::gCRC64(&version, sizeof(version), inParentFullVersion);
        auto descendantCount = static_cast<uint32_t>(ioNode.Children.size());
        for (Node* child : ioNode.Children)
        {
            ++ioCounter;
            descendantCount += Number(*child, fullVersion, ioCounter);
        }
        for (const Type* type : ioNode.Types)
        {
            CompoundInfo& info = gGetWritableCompound(*type);
            info.FullVersion = fullVersion;
            info.TreeIndex = index;
            info.DescendantCount = descendantCount;
        }
        return descendantCount;
    }

    SignatureWriter mSignatures;
    std::unordered_set<const Type*> mSeen;
    std::vector<std::unique_ptr<Node>> mNodes; // in the order of the registry
    std::unordered_map<uint64_t, Node*> mNodeByHash;
};

} // namespace

void Registry::Finalize()
{
    Finalizer finalizer;
    for (const auto& [key, module] : mModules)
    {
        for (const auto& [name, type] : module.Types)
        {
            finalizer.AddType(*type, key);
            type->Descriptor->ModuleKey = key;
        }
    }
    finalizer.NumberClasses();
}

} // namespace RTTI
