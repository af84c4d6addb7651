// A folder of its own for one test, which goes with everything in it.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        mRoot = testing::TempDir() + "ProfilerTest.XXXXXX";
        mRoot = mkdtemp(mRoot.data()) != nullptr ? mRoot : std::string();
    }

    ~TemporaryFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(mRoot, error);
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // The full path of something in the folder.
    [[nodiscard]] std::string At(std::string_view inName) const
    {
        return inName.empty() ? mRoot : mRoot + '/' + std::string(inName);
    }

    // Makes the folders above the file as well. Gives its full path.
    std::string Write(std::string_view inName, std::string_view inContent) const
    {
        std::filesystem::create_directories(std::filesystem::path(At(inName)).parent_path());
        std::ofstream(At(inName), std::ios::binary) << inContent;
        return At(inName);
    }

private:
    std::string mRoot;
};
