// A build of some program: the classes that it registered, and what it writes and reads with them.
#pragma once

#include "Serialization/BinaryFileReader.h"
#include "Serialization/BinaryMemoryStreamReader.h"
#include "Serialization/BinaryWriter.h"
#include "Serialization/JSON.h"
#include "Tests/Support/TestRegistry.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

// Declares a class under a name of its own, so that one program can have the class as it was and as it is.
#define DECLARE_AS(inType, inName)                                                                                               \
    template <>                                                                                                                  \
    struct RTTI::TypeTable<inType>                                                                                               \
    {                                                                                                                            \
        using Reflected = inType;                                                                                                \
        static constexpr std::string_view sSpelledName = inName;                                                                 \
        static const ::RTTI::Type sType;                                                                                         \
    }

namespace Serialization
{

using Objects = std::vector<std::unique_ptr<RTTI::Object>>;

class Build
{
public:
    template <class... Types>
    static Build With()
    {
        return Build(gMakeRegistry<Types...>());
    }

    RTTI::Registry& GetRegistry() { return *mRegistry; }
    TypeCreators& GetCreators() { return mCreators; }
    CompatibilityHandlers& GetHandlers() { return mHandlers; }
    void SetMode(ReadObjectMode inMode) { mMode = inMode; }

    static std::vector<uint8_t> Write(std::vector<const RTTI::Object*> inObjects)
    {
        Utility::ByteBuffer buffer;
        Utility::ErrorState errors;
        EXPECT_TRUE(gWriteObjectsToBuffer(buffer, inObjects, errors)) << Utility::GetErrorText(errors);
        return {buffer.GetData(), buffer.GetData() + buffer.GetSize()};
    }
    static std::vector<uint8_t> Write(const RTTI::Object& inObject) { return Write(std::vector{&inObject}); }

    [[nodiscard]] bool Read(const std::vector<uint8_t>& inBytes, Objects& outObjects, ReaderErrorState& ioErrors) const
    {
        MemoryReadStream stream(inBytes.data(), inBytes.size());
        return gReadObjectsFromBuffer(stream, *mRegistry, mCreators, mHandlers, mMode, outObjects, ioErrors);
    }

    // The one object, which must be there and of that class.
    template <class T>
    [[nodiscard]] std::unique_ptr<T> ReadOne(const std::vector<uint8_t>& inBytes) const
    {
        Objects objects;
        ReaderErrorState errors;
        EXPECT_TRUE(Read(inBytes, objects, errors)) << Utility::GetErrorText(errors);
        return objects.size() == 1 ? std::unique_ptr<T>(dynamic_cast<T*>(objects.front().release())) : nullptr;
    }

    // "code: message" of the first error of a read that must fail.
    [[nodiscard]] std::string ReadError(const std::vector<uint8_t>& inBytes) const
    {
        Objects objects;
        ReaderErrorState errors;
        EXPECT_FALSE(Read(inBytes, objects, errors));
        return GetFirstError(errors);
    }

    [[nodiscard]] BinaryFileReader MakeFileReader() const { return {*mRegistry, mCreators, mHandlers, mMode}; }

    static std::string GetFirstError(const Utility::ErrorList& inErrors)
    {
        if (inErrors.GetEntries().empty())
            return "no error";
        return std::to_string(inErrors.GetEntries().front().Code) + ": " + inErrors.GetEntries().front().Message;
    }

private:
    explicit Build(std::unique_ptr<RTTI::Registry> inRegistry) : mRegistry(std::move(inRegistry)) {}

    std::unique_ptr<RTTI::Registry> mRegistry;
    TypeCreators mCreators;
    CompatibilityHandlers mHandlers;
    ReadObjectMode mMode = ReadObjectMode::Strict;
};

} // namespace Serialization
