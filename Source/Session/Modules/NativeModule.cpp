#include "Session/Modules/NativeModule.h"

#include "FileSystem/Path.h"
#include "Session/Host/PlatformSession.h"

#include <algorithm>
#include <iterator>
#include <utility>

RTTI_ENUM_BEGIN(Profiler::EResolveStatus)
    RTTI_VALUE("Resolved", Profiler::EResolveStatus::Resolved)
    RTTI_VALUE("Unresolved", Profiler::EResolveStatus::Unresolved)
    RTTI_VALUE("Unused", Profiler::EResolveStatus::Unused)
    RTTI_VALUE("OldCapture", Profiler::EResolveStatus::OldCapture)
RTTI_ENUM_END()

RTTI_ENUM_BEGIN(Profiler::ESymbolLookupAddressMode)
    RTTI_VALUE("Relative", Profiler::ESymbolLookupAddressMode::Relative)
    RTTI_VALUE("Absolute", Profiler::ESymbolLookupAddressMode::Absolute)
RTTI_ENUM_END()

RTTI_BEGIN(Profiler::NativeModule, 2)
    RTTI_BASE(Profiler::Module)
    RTTI_PROPERTY("Path", Path)
    RTTI_PROPERTY("ImageSize", ImageSize)
    RTTI_PROPERTY("Functions", mFunctions)
    RTTI_PROPERTY("RuntimeFunctions", mRuntimeFunctions)
    RTTI_PROPERTY("ResolveStatus", ResolveStatus)
    RTTI_PROPERTY("SymbolLookupAddressMode", SymbolLookupAddressMode)
RTTI_END()

namespace Profiler
{
namespace
{

// Modules have up to hundreds of thousands of functions; growing in steps of this size keeps the list from doubling.
constexpr size_t sFunctionGrowth = 1025;

// Size of the range that a lookup of one address asks for.
constexpr uint64_t sSingleAddress = 1;

// A search below this many is faster than remembering what it gave.
constexpr size_t sFewFunctions = 256;

constexpr int sRecentLookupsLog2 = 12;
constexpr size_t sRecentLookups = size_t(1) << sRecentLookupsLog2;
constexpr uint64_t sGoldenRatio64 = 0x9E3779B97F4A7C15;

bool gIsBelow(const Function& inFirst, const Function& inSecond)
{
    return inFirst.RelativeAddress < inSecond.RelativeAddress;
}

// Whether the platform's rule ends a stack at this frame.
bool gStopsAt(const PlatformSession* inStopRule, const ResolvedFrame& inFrame)
{
    return inStopRule != nullptr && inFrame.Module == inStopRule->StopModule &&
           std::binary_search(inStopRule->StopAddresses.begin(), inStopRule->StopAddresses.end(), inFrame.GetIdentity());
}

// Whether the frame was filled for the same address, or its function covers the new one: it then only takes the address. That
// holds whichever module the function was found in; within one thread it is nearly always right, and it spares most frames the
// search.
bool gKeepsFunction(ResolvedFrame& ioFrame, uint64_t inAddress, uint64_t inBase)
{
    const bool isSameAddress = ioFrame.Module != nullptr && ioFrame.AbsoluteAddress == inAddress;
    const bool isSameFunction =
        ioFrame.FunctionAbsoluteAddress != sNoAddress && inAddress - ioFrame.FunctionAbsoluteAddress < ioFrame.FunctionSize;
    if (!isSameAddress && !isSameFunction)
        return false;
    ioFrame.RelativeAddress = inAddress - inBase;
    ioFrame.AbsoluteAddress = inAddress;
    return true;
}

} // namespace

NativeModule::NativeModule(std::string inPath, int32_t inImageSize, ESymbolLookupAddressMode inMode)
    : Module(FileSystem::gGetFileName(inPath)),
      Path(std::move(inPath)),
      ImageSize(inImageSize),
      ResolveStatus(EResolveStatus::Unused),
      SymbolLookupAddressMode(inMode)
{
}

const RTTI::Type& NativeModule::GetType() const
{
    return RTTI::gTypeOf<NativeModule>();
}

void NativeModule::OnLoaded(Session&)
{
    Name = FileSystem::gGetFileName(Path);
    const System::MutexLock lock(mMutex);
    // Files are sorted as a rule, but a lookup must not rest on it.
    SortAndFold();
}

void NativeModule::MakeFunctionsRelative(uint64_t inImageBase, uint32_t inModuleIndex)
{
    const System::MutexLock lock(mMutex);
    for (std::vector<Function>* functions : {&mFunctions, &mRuntimeFunctions})
    {
        for (Function& function : *functions)
        {
            function.RelativeAddress -= inImageBase;
            function.ModuleIndex = inModuleIndex;
        }
    }
    RebuildFunctionStarts();
}

const char* NativeModule::GetModuleTypeText() const
{
    return "Native";
}

std::vector<ModuleProperty> NativeModule::GetProperties() const
{
    std::vector<ModuleProperty> properties = Module::GetProperties();
    properties.push_back({"Path", Path, EModulePropertyKind::Path});
    properties.push_back({"Image size", std::to_string(ImageSize), EModulePropertyKind::Number});
    return properties;
}

std::string NativeModule::GetBuildIDText() const
{
    return {};
}

void NativeModule::EnsureSymbols(std::span<const uint64_t>, std::span<const ResolvedFrame>, uint64_t, PlatformSession*) {}

bool NativeModule::ResolveAddress(uint64_t, uint64_t, Function&)
{
    return false;
}

void NativeModule::AddFunction(uint64_t inRelativeAddress, uint64_t inSize, std::string inName)
{
    const System::MutexLock lock(mMutex);
    if (!mAddedAddresses.insert(inRelativeAddress).second)
        return;
    mRecentLookups.clear();
    if (mFunctions.size() == mFunctions.capacity())
        mFunctions.reserve(mFunctions.size() + sFunctionGrowth);
    Function& function = mFunctions.emplace_back();
    function.RelativeAddress = inRelativeAddress;
    function.Size = inSize;
    function.Name = std::move(inName);
    function.ModuleIndex = mIndex;
}

void NativeModule::SortFunctions()
{
    const System::MutexLock lock(mMutex);
    SortAndFold();
    mAddedAddresses.clear();
}

// A function may have been found on its own before it was added: the addresses that were added are all that AddFunction knows.
void NativeModule::SortAndFold()
{
    if (!std::is_sorted(mFunctions.begin(), mFunctions.end(), gIsBelow))
        std::stable_sort(mFunctions.begin(), mFunctions.end(), gIsBelow);
    size_t count = 0;
    for (Function& function : mFunctions)
    {
        if (count != 0 && mFunctions[count - 1].RelativeAddress == function.RelativeAddress)
            mFunctions[count - 1].Size = std::max(mFunctions[count - 1].Size, function.Size);
        else if (&mFunctions[count++] != &function)
            mFunctions[count - 1] = std::move(function);
    }
    mFunctions.resize(count);
    RebuildFunctionStarts();
}

int32_t NativeModule::ResolveAddresses(std::span<const uint64_t> inAddresses, std::span<ResolvedFrame> ioFrames, uint64_t inBase,
                                       PlatformSession* inPlatform, EResolveFlag inFlag)
{
    const bool mayStop = inPlatform != nullptr && inPlatform->StopModule != nullptr && !inPlatform->StopAddresses.empty();
    const PlatformSession* stopRule = mayStop ? inPlatform : nullptr;

    if (inFlag == EResolveFlag::FetchSymbols)
        EnsureSymbols(inAddresses, ioFrames, inBase, inPlatform);

    size_t firstMiss = inAddresses.size();
    const int32_t stop = ResolveFromCache(inAddresses, ioFrames, inBase, stopRule, inFlag, firstMiss);
    if (inFlag == EResolveFlag::CacheOnly)
        return stop;

    const size_t end = stop == sNotStopped ? inAddresses.size() : static_cast<size_t>(stop);
    if (firstMiss >= end)
        return stop;
    std::vector<Function> found;
    const int32_t earlierStop = ResolveMisses(ioFrames.first(end), inBase, stopRule, firstMiss, found);
    if (!found.empty())
        MergeFunctions(found);
    return earlierStop != sNotStopped ? earlierStop : stop;
}

// Fills the frames that need no symbols fetched. With EResolveFlag::FetchSymbols a miss is marked by the relative address
// sNoAddress, and outFirstMiss becomes the lowest such position.
int32_t NativeModule::ResolveFromCache(std::span<const uint64_t> inAddresses, std::span<ResolvedFrame> ioFrames, uint64_t inBase,
                                       const PlatformSession* inStopRule, EResolveFlag inFlag, size_t& outFirstMiss) const
{
    // Most stacks are like the one before: frames that keep their function need no look at the cache, and so no lock.
    size_t next = 0;
    for (; next < inAddresses.size() && gKeepsFunction(ioFrames[next], inAddresses[next], inBase); ++next)
        if (gStopsAt(inStopRule, ioFrames[next]))
            return static_cast<int32_t>(next);
    if (next == inAddresses.size())
        return sNotStopped;

    const System::MutexLock lock(mMutex);
    for (; next < inAddresses.size(); ++next)
    {
        ResolvedFrame& frame = ioFrames[next];
        if (!gKeepsFunction(frame, inAddresses[next], inBase))
        {
            FillFrame(frame, FindFunction(inAddresses[next] - inBase), inAddresses[next], inBase);
            if (inFlag == EResolveFlag::FetchSymbols && frame.FunctionRelativeAddress == sNoAddress)
            {
                frame.RelativeAddress = sNoAddress;
                outFirstMiss = std::min(outFirstMiss, next);
            }
        }
        if (gStopsAt(inStopRule, frame))
            return static_cast<int32_t>(next);
    }
    return sNotStopped;
}

// Asks the platform for the functions of the marked frames, without the lock because that can be slow.
int32_t NativeModule::ResolveMisses(std::span<ResolvedFrame> ioFrames, uint64_t inBase, const PlatformSession* inStopRule,
                                    size_t inFirstMiss, std::vector<Function>& outFound)
{
    for (size_t i = inFirstMiss; i < ioFrames.size(); ++i)
    {
        ResolvedFrame& frame = ioFrames[i];
        if (frame.RelativeAddress != sNoAddress)
            continue;
        const uint64_t relativeAddress = frame.AbsoluteAddress - inBase;
        Function function;
        if (ResolveAddress(relativeAddress, sSingleAddress, function))
        {
            // Symbols without a size still cover the address that they were found for.
            function.Size = std::max(function.Size, relativeAddress - function.RelativeAddress + 1);
            FillFrame(frame, function, frame.AbsoluteAddress, inBase);
            outFound.push_back(std::move(function));
        }
        else
            FillFrame(frame, mDefaultFunction, frame.AbsoluteAddress, inBase);
        if (gStopsAt(inStopRule, frame))
            return static_cast<int32_t>(i);
    }
    return sNotStopped;
}

void NativeModule::MergeFunctions(std::vector<Function>& ioFound)
{
    const System::MutexLock lock(mMutex);
    // Functions may just be added by another thread, which hasn't sorted them yet.
    if (mFunctionStarts.size() != mFunctions.size())
        SortAndFold();
    mRecentLookups.clear();
    for (Function& function : ioFound)
    {
        const auto place = std::lower_bound(mFunctions.begin(), mFunctions.end(), function, gIsBelow);
        if (place != mFunctions.end() && place->RelativeAddress == function.RelativeAddress)
            place->Size = std::max(place->Size, function.Size);
        else
        {
            mFunctionStarts.insert(mFunctionStarts.begin() + (place - mFunctions.begin()), function.RelativeAddress);
            mFunctions.insert(place, std::move(function));
        }
    }
}

void NativeModule::FillFrame(ResolvedFrame& outFrame, const Function& inFunction, uint64_t inAddress, uint64_t inBase) const
{
    outFrame.Module = this;
    outFrame.FunctionRelativeAddress = inFunction.RelativeAddress;
    outFrame.FunctionSize = inFunction.Size;
    outFrame.RelativeAddress = inAddress - inBase;
    outFrame.ResolveIndex.Index = mIndex;
    outFrame.AbsoluteAddress = inAddress;
    outFrame.FunctionAbsoluteAddress = inFunction.IsKnown() ? inFunction.RelativeAddress + inBase : sNoAddress;
}

const Function& NativeModule::FindFunction(uint64_t inRelativeAddress) const
{
    if (mFunctionStarts.size() < sFewFunctions)
        return SearchFunction(inRelativeAddress);
    if (mRecentLookups.empty())
        mRecentLookups.resize(sRecentLookups);
    RecentLookup& recent = mRecentLookups[(inRelativeAddress * sGoldenRatio64) >> (64 - sRecentLookupsLog2)];
    if (recent.Found == nullptr || recent.RelativeAddress != inRelativeAddress)
        recent = {inRelativeAddress, &SearchFunction(inRelativeAddress)};
    return *recent.Found;
}

const Function& NativeModule::SearchFunction(uint64_t inRelativeAddress) const
{
    const auto above = std::upper_bound(mFunctionStarts.begin(), mFunctionStarts.end(), inRelativeAddress);
    if (above == mFunctionStarts.begin())
        return mDefaultFunction;
    const Function& function = mFunctions[static_cast<size_t>(above - mFunctionStarts.begin()) - 1];
    return function.Covers(inRelativeAddress) ? function : mDefaultFunction;
}

void NativeModule::RebuildFunctionStarts()
{
    mRecentLookups.clear();
    mFunctionStarts.clear();
    mFunctionStarts.reserve(mFunctions.size());
    for (const Function& function : mFunctions)
        mFunctionStarts.push_back(function.RelativeAddress);
}

Function NativeModule::FindCachedFunction(uint64_t inRelativeAddress) const
{
    const System::MutexLock lock(mMutex);
    return FindFunction(inRelativeAddress);
}

void NativeModule::ForEachCachedFunction(const std::function<void(const Function&)>& inCallback) const
{
    const System::MutexLock lock(mMutex);
    for (const Function& function : mFunctions)
        inCallback(function);
}

} // namespace Profiler
