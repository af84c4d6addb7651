#include "System/Thread.h"

#include "Utility/Assert.h"

#include <sys/prctl.h>

namespace System
{

void gSetThreadName(const char* inName)
{
    prctl(PR_SET_NAME, inName, 0, 0, 0);
}

ThreadLocalPointer::ThreadLocalPointer() : mHasKey(pthread_key_create(&mKey, nullptr) == 0)
{
    PROFILER_ASSERT_AT("System/Thread", mHasKey, "No thread-local key is left");
}

ThreadLocalPointer::~ThreadLocalPointer()
{
    if (mHasKey)
        pthread_key_delete(mKey);
}

void ThreadLocalPointer::Set(const void* inPointer)
{
    const bool isSet = mHasKey && pthread_setspecific(mKey, inPointer) == 0;
    PROFILER_ASSERT_AT("System/Thread", isSet, "Could not store a thread-local pointer");
}

} // namespace System
