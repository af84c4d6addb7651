#include "Host/Linux/ThreadEntries.h"

#include <algorithm>
#include <array>

namespace Host
{

bool gIsThreadEntry(std::string_view inFunctionName)
{
    static constexpr std::array<std::string_view, 20> sEntries{
        "_start",
        "_start_c",
        "_dl_start_user",
        "_dl_start",
        "__libc_start_main",
        "__libc_start_main_impl", // programs
        "__libc_start_call_main",
        "generic_start_main", // their main function
        "clone",
        "__clone",
        "__GI___clone",
        "clone3",
        "__clone3",
        "__GI___clone3", // threads
        "start_thread",
        "thread_start",
        "__pthread_start", // and their first function
        "_Fork",
        "runtime.goexit",
        "runtime.mstart", // where forked processes go on; the threads and routines of Go
    };
    std::string_view name = inFunctionName.substr(0, inFunctionName.find('@'));
    constexpr std::string_view assembly = ".abi0";
    if (name.ends_with(assembly))
        name.remove_suffix(assembly.size());
    return std::find(sEntries.begin(), sEntries.end(), name) != sEntries.end();
}

bool gHasThreadEntries(std::string_view inModulePath)
{
    const std::string_view name = inModulePath.substr(inModulePath.rfind('/') + 1);
    static constexpr std::array<std::string_view, 5> sBeginnings{"libc.so", "libc-", "libpthread", "ld-", "ld.so"};
    return std::any_of(sBeginnings.begin(), sBeginnings.end(),
                       [name](std::string_view inBeginning) { return name.starts_with(inBeginning); });
}

} // namespace Host
