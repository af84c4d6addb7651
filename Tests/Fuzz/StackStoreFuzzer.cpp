// Any bytes as the file of a CallstackTrie, as they are and with a checksum that was made to fit.
#include "Session/Callstacks/CallstackTrie.h"
#include "Tests/Fuzz/Files.h"
#include "Utility/Hash.h"

#include <cstring>

namespace
{

using namespace Profiler;
using Fuzz::Bytes;
using Fuzz::gExpect;

constexpr size_t sChecksumPlace = sizeof(uint32_t);
constexpr size_t sHeaderSize = 24;

void gMakeChecksumFit(Bytes& ioFile)
{
    if (ioFile.size() < sHeaderSize)
        return;
    const uint64_t checksum = Utility::gHash64(ioFile.data() + sHeaderSize, ioFile.size() - sHeaderSize);
    std::memcpy(ioFile.data() + sChecksumPlace, &checksum, sizeof(checksum));
}

// Every key has a stack, the same for each way to ask, and no other key has one.
void gLookUpAll(const CallstackTrie& inTrie)
{
    Callstack stack;
    CallstackCursor cursor;
    const uint64_t count = inTrie.GetNodeCount();
    for (CallstackKey key = 0; key < count; ++key)
    {
        gExpect(inTrie.GetCallstack(key, stack) && stack.size() <= key);
        gExpect(inTrie.GetCallstack(key, cursor) && cursor.Addresses == stack);
        // There and back, so that the cursor has much to drop.
        gExpect(inTrie.GetCallstack(count - 1 - key, cursor));
    }
    for (const CallstackKey key : {count, count + 1, sNoCallstack})
    {
        gExpect(!inTrie.GetCallstack(key, stack) && stack.empty());
        gExpect(!inTrie.GetCallstack(key, cursor) && cursor.Addresses.empty());
    }
}

void gTry(const Bytes& inFile)
{
    static const Fuzz::Folder sFolder;
    sFolder.Write("stacks", inFile);
    CallstackTrie trie;
    Serialization::ReaderErrorState errors;
    const bool isLoaded = trie.LoadCallstacks(sFolder.At("stacks"), errors);
    gExpect(isLoaded == errors.GetEntries().empty() && isLoaded == trie.IsInitialized());
    gLookUpAll(trie);
    if (!isLoaded)
        return;

    // What was read is what is written, but for the version, which readers pass over.
    Utility::ErrorState writeErrors;
    gExpect(trie.SaveCallstacks(sFolder.At("copy"), writeErrors));
    Bytes copy = sFolder.Read("copy");
    gExpect(copy.size() == inFile.size());
    std::memcpy(copy.data(), inFile.data(), sChecksumPlace);
    gExpect(copy == inFile);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize)
{
    Fuzz::gExpectNoAssertions();
    Bytes file(inData, inData + inSize);
    gTry(file);
    gMakeChecksumFit(file);
    gTry(file);
    return 0;
}
