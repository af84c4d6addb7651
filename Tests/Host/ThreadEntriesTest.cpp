#include "Host/Linux/ThreadEntries.h"

#include <gtest/gtest.h>

namespace Host
{
namespace
{

TEST(ThreadEntries, AreKnownByTheirNames)
{
    for (const char* name :
         {"_start", "__libc_start_main", "__libc_start_main@@GLIBC_2.34", "__libc_start_main@GLIBC_2.2.5",
          "__libc_start_call_main", "clone", "__clone3", "start_thread", "runtime.goexit.abi0", "runtime.mstart"})
        EXPECT_TRUE(gIsThreadEntry(name)) << name;
    for (const char* name : {"", "@@GLIBC_2.34", "main", "_start_here", "my_start", "start_threads", "cloned", "clone.abi0.more",
                             "runtime.goexit.abi1", "Start_Thread"})
        EXPECT_FALSE(gIsThreadEntry(name)) << name;
}

TEST(ThreadEntries, LieInTheCLibraryAndTheLoader)
{
    for (const char* path : {"/usr/lib/x86_64-linux-gnu/libc.so.6", "/lib/libc-2.31.so", "/lib/libpthread-2.31.so",
                             "/lib64/ld-linux-x86-64.so.2", "/lib/ld-musl-x86_64.so.1", "ld.so"})
        EXPECT_TRUE(gHasThreadEntries(path)) << path;
    for (const char* path : {"", "/", "/usr/lib/libcrypto.so.3", "/usr/lib/libc++.so.1", "/libc.so.6/libother.so", "/opt/old",
                             "/usr/lib/libcap.so.2", "/usr/lib/mylibc.so.6"})
        EXPECT_FALSE(gHasThreadEntries(path)) << path;
}

} // namespace
} // namespace Host
