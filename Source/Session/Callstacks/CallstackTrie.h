// Interns stacks as nodes of a prefix tree: a node is a frame address with its caller's node as parent, and its ID is the key of
// the stack that ends in it.
//
// Stacks of a thread mostly share their outer frames, so adding compares with the thread's last stack before it asks the hash
// table. Shared prefixes are stored once, at 10 to 12 bytes a node, and the hash table goes when adding ends. Threads: adding is
// for one thread at a time. Lookups run on any number of threads while nothing is added; with ELookups::WhileAdding they may also
// run during adding. Ownership: owns all nodes; blocks never move. Invariant: a node's parent has a lower ID than the node, and a
// key is only handed out once its node is complete.
#pragma once

#include "Serialization/ReaderErrorState.h"
#include "Session/Callstacks/Callstack.h"
#include "Session/Events/TraceEvent.h"
#include "System/Mutex.h"
#include "Utility/ErrorState.h"

#include <atomic>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace Profiler
{

struct TrieBlock;

// A stack that is read again and again by one reader. Neighbouring stacks of a thread share their outer frames, and a cursor only
// walks the frames that differ from the stack before. Threads: one at a time. Invariant: belongs to the first trie that filled
// it; Nodes[i] is the node of Addresses[i].
struct CallstackCursor
{
    Callstack Addresses;             // outermost frame first
    std::vector<CallstackKey> Nodes; // of the trie
};

class CallstackTrie
{
public:
    static constexpr CallstackKey sRoot = 0; // the empty stack

    enum class ELookups
    {
        AfterAdding, // lookups take no lock
        WhileAdding, // lookups and the growth of the list of blocks exclude each other
    };

    explicit CallstackTrie(ELookups inLookups = ELookups::AfterAdding);
    ~CallstackTrie();

    CallstackTrie(const CallstackTrie&) = delete;
    CallstackTrie& operator=(const CallstackTrie&) = delete;

    // Makes the store ready for adding. REQUIRES: not initialized.
    void InitializeCallstacks();

    // The key of a stack of the given thread, outermost frame first; equal stacks have equal keys, whichever thread adds them.
    // REQUIRES: InitializeCallstacks has run and FinishCallstacks hasn't.
    CallstackKey AddCallstack(ThreadID inThread, std::span<const uint64_t> inStack);

    // Fills outStack with the addresses, outermost frame first. False, with outStack empty, for a key that was never given out.
    bool GetCallstack(CallstackKey inKey, Callstack& outStack) const;

    // The same with a reader's cursor; an unknown key leaves it empty.
    bool GetCallstack(CallstackKey inKey, CallstackCursor& ioCursor) const;

    // Drops what only adding needs. Nothing can be added afterwards.
    void FinishCallstacks();

    // Whether this store answers lookups; if not, the session's CallstackDatabase does.
    [[nodiscard]] bool IsInitialized() const { return mIsInitialized; }

    // Nodes in the store, the root included.
    [[nodiscard]] uint64_t GetNodeCount() const { return mNodeCount.load(std::memory_order_acquire); }

    // Bytes held by the blocks, without the table and the last stacks that only adding needs.
    [[nodiscard]] size_t GetBlockBytes() const;

    // Writes the store to a file, which Docs/StackStore.md describes. A file that is there stays whole until the new one is.
    [[nodiscard]] bool SaveCallstacks(const std::string& inPath, Utility::ErrorState& ioErrors) const;

    // Takes over what SaveCallstacks wrote; afterwards the store answers lookups, and nothing can be added. On failure it stays
    // as it was. REQUIRES: not initialized.
    [[nodiscard]] bool LoadCallstacks(const std::string& inPath, Serialization::ReaderErrorState& ioErrors);

private:
    struct StackNode
    {
        uint64_t Address;
        CallstackKey Node;
    };
    using LastStack = std::vector<StackNode>;

    LastStack& GetLastStack(ThreadID inThread);
    CallstackKey FindOrAddNode(uint64_t inAddress, CallstackKey inParent);
    CallstackKey AppendNode(uint64_t inAddress, CallstackKey inParent);
    void GrowHashTable();
    void InsertIntoHashTable(uint64_t inAddress, CallstackKey inParent, CallstackKey inNode);
    void CollectStack(CallstackKey inKey, Callstack& outStack) const;
    void MoveCursor(CallstackKey inKey, CallstackCursor& ioCursor) const;

    std::unordered_map<ThreadID, LastStack> mLastStacks;
    LastStack* mRecentLastStack = nullptr; // of mRecentThread: events of one thread come in runs
    ThreadID mRecentThread = 0;

    std::vector<TrieBlock> mBlocks; // growth and concurrent lookups are guarded by mMutex where mLookups asks for it
    std::atomic<uint64_t> mNodeCount = 0;
    bool mIsInitialized = false;
    ELookups mLookups;
    mutable System::Mutex mMutex;

    std::vector<CallstackKey> mHashTable; // open addressing; 0, the root, marks a free slot; the size is a power of two
    uint64_t mHashTableUsed = 0;
};

// The store's file in the folder of a session.
[[nodiscard]] std::string gGetCallstackTriePath(const std::string& inDirectory);

} // namespace Profiler
