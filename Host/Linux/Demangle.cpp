#include "Host/Linux/Demangle.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace Host
{

namespace
{

constexpr std::string_view sManglingPrefix = "_Z";

// The demangler works recursively on text that comes from a file.
constexpr size_t sMaxMangledLength = 16 * 1024;

struct FreeText
{
    void operator()(char* inText) const { std::free(inText); }
};

} // namespace

std::string gDemangle(std::string_view inName)
{
    const size_t suffix = std::min(inName.find('@'), inName.size());
    if (!inName.starts_with(sManglingPrefix) || suffix > sMaxMangledLength)
        return std::string(inName);

    const std::string mangled(inName.substr(0, suffix));
    int status = 0;
    const std::unique_ptr<char, FreeText> readable(abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status));
    if (readable == nullptr || status != 0)
        return std::string(inName);
    return std::string(readable.get()).append(inName.substr(suffix));
}

} // namespace Host
