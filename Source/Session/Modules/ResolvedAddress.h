// What the timeline stores instead of an absolute address: a function's address relative to its module, and an index that says
// which module, or which run-time generated function.
#pragma once

#include "RTTI/Declare.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Profiler
{

// Stands for "no function" and "no address" in relative and absolute addresses.
inline constexpr uint64_t sNoAddress = 0xFFFFFFFFFFFFFFFF;

// The address of the bar that stands for the frames that a cut-short stack lacks. Its index is of the unknown class.
inline constexpr uint64_t sPlaceholderAddress = 0xFFFFFFFFFFFFFFFE;

// A packed 32-bit index:
//
//    31 30 | 29    26 | 25           | 24             0
//    free  |  class   | instrumented | index
//
// The free bits belong to whoever uses the value (bars keep carry bits there); comparisons leave them out.
struct ResolveIndex
{
    static constexpr uint32_t sIndexMask = 0x01FFFFFF;
    static constexpr uint32_t sInstrumentedFlag = 0x02000000;
    static constexpr uint32_t sClassMask = 0x3C000000;
    static constexpr uint32_t sComparedMask = 0x3FFFFFFF;

    // The classes, in place.
    static constexpr uint32_t sNativeClass = 0x00000000;        // index into NativeModules
    static constexpr uint32_t sJITClass = 0x04000000;           // index into JITFunctions
    static constexpr uint32_t sUnknownModuleClass = 0x08000000; // the address lies in no known module
    static constexpr uint32_t sUnknownClass = 0x0C000000;       // a bar that stands for frames that nobody knows

    uint32_t Index = 0;

    [[nodiscard]] uint32_t GetClass() const { return Index & sClassMask; }
    [[nodiscard]] bool IsUnknownClass() const { return GetClass() == sUnknownClass; }
    [[nodiscard]] bool IsInstrumented() const { return !IsUnknownClass() && (Index & sInstrumentedFlag) != 0; }

    bool operator==(const ResolveIndex& inOther) const { return ((Index ^ inOther.Index) & sComparedMask) == 0; }
};

struct ResolvedAddress
{
    uint64_t RelativeAddress = sNoAddress;
    Profiler::ResolveIndex ResolveIndex;

    bool operator==(const ResolvedAddress& inOther) const = default;
};

struct ResolvedAddressHash
{
    size_t operator()(const ResolvedAddress& inAddress) const
    {
        return (inAddress.ResolveIndex.Index & ResolveIndex::sComparedMask) ^ inAddress.RelativeAddress;
    }
};

// The order in which functions are searched: by address, and then by the bits of the index that comparisons look at.
struct ResolvedAddressOrder
{
    bool operator()(const ResolvedAddress& inOne, const ResolvedAddress& inOther) const
    {
        if (inOne.RelativeAddress != inOther.RelativeAddress)
            return inOne.RelativeAddress < inOther.RelativeAddress;
        return (inOne.ResolveIndex.Index & ResolveIndex::sComparedMask) <
               (inOther.ResolveIndex.Index & ResolveIndex::sComparedMask);
    }
};

// Root first.
using ResolvedCallstack = std::vector<ResolvedAddress>;

class Module;

// What a lookup makes of one address of a stack.
struct ResolvedFrame
{
    const Profiler::Module* Module = nullptr;      // null only in a slot that was never filled
    uint64_t FunctionRelativeAddress = sNoAddress; // sNoAddress if the function is unknown
    uint64_t FunctionSize = 0;
    uint64_t RelativeAddress = sNoAddress;
    Profiler::ResolveIndex ResolveIndex;
    uint64_t AbsoluteAddress = sNoAddress;
    uint64_t FunctionAbsoluteAddress = sNoAddress;

    // The address that identifies a bar of this frame: its function's, or its own if the function is unknown.
    [[nodiscard]] uint64_t GetIdentity() const
    {
        return FunctionRelativeAddress != sNoAddress ? FunctionRelativeAddress : RelativeAddress;
    }
};

} // namespace Profiler

RTTI_DECLARE(Profiler::ResolveIndex);
RTTI_DECLARE(Profiler::ResolvedAddress);
