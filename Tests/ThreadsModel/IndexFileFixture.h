// What it takes to make files that end with a footer by hand, and to damage them.
#pragma once

#include "Serialization/ReaderErrorState.h"
#include "Tests/FileSystem/TemporaryDirectory.h"
#include "Tests/Support/ByteWriter.h"

#include <gtest/gtest.h>
#include <xxhash.h>
#include <zstd.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

inline std::string gToText(const Host::ByteWriter& inBytes)
{
    return {inBytes.Bytes.begin(), inBytes.Bytes.end()};
}

inline uint64_t gHash(std::string_view inBytes)
{
    return XXH64(inBytes.data(), inBytes.size(), 0);
}

inline std::string gCompress(const std::string& inContent)
{
    std::string frame(ZSTD_compressBound(inContent.size()), '\0');
    frame.resize(ZSTD_compress(frame.data(), frame.size(), inContent.data(), inContent.size(), 1));
    return frame;
}

// The last 40 bytes of a file, changed in the uint64 at the place, and under a right hash again.
inline std::string gChangeFooter(const std::string& inFile, size_t inPlace, uint64_t inAdded)
{
    std::string footer = inFile.substr(inFile.size() - 40, 32);
    uint64_t value = 0;
    std::memcpy(&value, footer.data() + inPlace, sizeof(value));
    value += inAdded;
    std::memcpy(footer.data() + inPlace, &value, sizeof(value));
    return inFile.substr(0, inFile.size() - 40) + gToText(Host::ByteWriter().AddText(footer).Add(gHash(footer)));
}

// The words of the only failure; empty if there was none.
inline std::string gGetOnlyError(const Utility::ErrorList& inErrors)
{
    const std::vector<Utility::ErrorEntry>& entries = inErrors.GetEntries();
    EXPECT_TRUE(entries.empty() || (entries.size() == 1 && entries[0].Code == 0)) << GetErrorText(inErrors);
    return entries.empty() ? std::string() : entries[0].Message;
}

class IndexFileTest : public TemporaryDirectoryTest
{
protected:
    using Load = std::function<bool(const std::string& inPath, Serialization::ReaderErrorState& ioErrors)>;

    // Expects that a file of each content is refused with the words behind it.
    void ExpectRefused(const std::vector<std::pair<std::string, std::string>>& inCases, const Load& inLoad) const
    {
        for (size_t i = 0; i < inCases.size(); ++i)
        {
            SCOPED_TRACE(i);
            WriteFile("damaged", inCases[i].first);
            ExpectRefused(inCases[i].second, inLoad);
        }
    }
    // The same of a path where nothing is, where a directory is, and where a file is that may not be read.
    void ExpectUnreadable(const std::string& inMissing, const std::string& inDirectory, const std::string& inForbidden,
                          const Load& inLoad) const
    {
        ExpectRefused(inMissing, inLoad);
        MakeDirectory("damaged/" + std::string(100, 'n')); // some file systems count names for a directory's size
        ExpectRefused(inDirectory, inLoad);
        std::filesystem::remove_all(At("damaged"));
        WriteFile("damaged", std::string(40, '\0'));
        SetMode("damaged", 0);
        ExpectRefused(inForbidden, inLoad);
        SetMode("damaged", 0644);
    }
    void ExpectRefused(const std::string& inText, const Load& inLoad) const
    {
        Serialization::ReaderErrorState errors;
        EXPECT_FALSE(AsOrdinaryUser([&] { return inLoad(At("damaged"), errors); }));
        EXPECT_EQ(gGetOnlyError(errors), inText);
    }
};
