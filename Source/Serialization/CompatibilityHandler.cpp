#include "Serialization/CompatibilityHandler.h"

#include <utility>

namespace Serialization
{

bool CompatibilityHandler::TryCreateObject(BinaryReader& /*ioReader*/, MemoryReadStream& /*ioStream*/,
                                           const RTTI::Type& /*inType*/, std::string_view /*inTypeName*/,
                                           const CompoundSchema& /*inSchema*/, RTTI::OwnedValue& /*outObject*/,
                                           ReaderErrorState& /*ioErrors*/)
{
    return true;
}

bool CompatibilityHandler::ReadRemovedProperty(BinaryReader& /*ioReader*/, MemoryReadStream& /*ioStream*/,
                                               const RTTI::Type& /*inType*/, void* /*ioObject*/, std::string_view /*inTypeName*/,
                                               const CompoundSchema& /*inSchema*/, const PropertySchema& /*inProperty*/,
                                               ReaderErrorState& /*ioErrors*/)
{
    return true;
}

bool CompatibilityHandler::OnCompoundRead(const RTTI::Type& /*inType*/, void* /*ioObject*/, const CompoundSchema& /*inSchema*/,
                                          ReaderErrorState& /*ioErrors*/)
{
    return true;
}

bool CompatibilityHandler::OnRootObjectRead(RTTI::Object& /*ioRoot*/, ReaderErrorState& /*ioErrors*/)
{
    return true;
}

void CompatibilityHandlers::AddCompatibilityHandler(const RTTI::Type& inType, std::unique_ptr<CompatibilityHandler> inHandler)
{
    mHandlers.insert_or_assign(&inType, std::move(inHandler));
}

CompatibilityHandler* CompatibilityHandlers::Find(const RTTI::Type& inType) const
{
    if (mHandlers.empty())
        return nullptr;
    const auto position = mHandlers.find(&inType);
    return position != mHandlers.end() ? position->second.get() : nullptr;
}

} // namespace Serialization
