// What the system needs of threads beyond std::thread: a name, and pointers that each thread has one of.
#pragma once

#include <pthread.h>

namespace System
{

// Gives the calling thread its name. The kernel keeps the first 15 bytes.
void gSetThreadName(const char* inName);

// A pointer of which each thread has its own, null at first. The object holds the key, so every copy of the code in the process
// that reaches the object sees the same pointers; a thread_local variable would be another one in each copy. Threads: any.
// Ownership: the pointed-at objects belong to others. Invariant: without a key, which the process has a limited number of, every
// thread's pointer stays null.
class ThreadLocalPointer
{
public:
    ThreadLocalPointer();
    ~ThreadLocalPointer();

    ThreadLocalPointer(const ThreadLocalPointer&) = delete;
    ThreadLocalPointer& operator=(const ThreadLocalPointer&) = delete;

    [[nodiscard]] void* Get() const { return mHasKey ? pthread_getspecific(mKey) : nullptr; }
    void Set(const void* inPointer);

private:
    pthread_key_t mKey = 0;
    bool mHasKey;
};

} // namespace System
