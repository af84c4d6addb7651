// Where the first inputs of one fuzz target go.
#pragma once

#include "Tests/Fuzz/Expect.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace Fuzz
{

class SeedFolder
{
public:
    explicit SeedFolder(std::filesystem::path inPath) : mPath(std::move(inPath)) { std::filesystem::create_directories(mPath); }

    void Add(const void* inData, size_t inSize)
    {
        std::ofstream file(mPath / std::to_string(mCount++), std::ios::binary);
        file.write(static_cast<const char*>(inData), static_cast<std::streamsize>(inSize));
        gExpect(file.good());
    }
    void Add(const std::string& inText) { Add(inText.data(), inText.size()); }

    // With a byte in front that says what the others are.
    void AddChosen(uint8_t inChoice, std::vector<uint8_t> inContent)
    {
        inContent.insert(inContent.begin(), inChoice);
        Add(inContent.data(), inContent.size());
    }

private:
    std::filesystem::path mPath;
    int mCount = 0;
};

} // namespace Fuzz
