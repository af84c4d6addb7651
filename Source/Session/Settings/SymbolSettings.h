// The settings for symbols that all sessions share.
//
// Threads: one at a time. Ownership: the host's, which also stores the record and decides when it is validated.
#pragma once

#include "RTTI/Declare.h"
#include "RTTI/Object.h"

#include <string>
#include <string_view>

namespace Utility
{
class ErrorState;
}

namespace Profiler
{

class SharedSymbolSettings : public RTTI::Object
{
    RTTI_FRIEND()

public:
    // With a directory in the user's cache folder, which is made where it is missing. Whether that works, Validate tells.
    SharedSymbolSettings();
    ~SharedSymbolSettings() override = default;
    const RTTI::Type& GetType() const override;

    // Where downloaded and converted symbols are kept.
    [[nodiscard]] const std::string& GetSymbolCacheDirectory() const { return mSymbolCacheDirectory; }

    // Takes either separator, and keeps forward slashes. Nothing is made on the disk.
    void SetSymbolCacheDirectory(std::string_view inDirectory);

    // Whether the directory is an absolute path and exists or can be made; it then exists. False, with an entry, otherwise.
    [[nodiscard]] bool Validate(Utility::ErrorState& ioErrors);

private:
    std::string mSymbolCacheDirectory;
};

} // namespace Profiler

RTTI_DECLARE(Profiler::SharedSymbolSettings);
