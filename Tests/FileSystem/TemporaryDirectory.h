// A directory of its own for one test, which goes with everything in it.
#pragma once

#include "Tests/Support/TemporaryFolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

class TemporaryDirectoryTest : public testing::Test
{
protected:
    TemporaryDirectoryTest() { SetMode("", 0777); }

    // The full path of something in the directory.
    [[nodiscard]] std::string At(std::string_view inName) const { return mFolder.At(inName); }

    void WriteFile(std::string_view inName, std::string_view inContent = "content") const { mFolder.Write(inName, inContent); }

    [[nodiscard]] std::string ReadFile(std::string_view inName) const
    {
        std::ifstream file(At(inName), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    void MakeDirectory(std::string_view inName) const { std::filesystem::create_directories(At(inName)); }

    void MakeLink(std::string_view inName, std::string_view inTarget) const
    {
        std::filesystem::create_directory_symlink(At(inTarget), At(inName));
    }

    void SetMode(std::string_view inName, mode_t inMode) const { EXPECT_EQ(chmod(At(inName).c_str(), inMode), 0) << inName; }

    [[nodiscard]] mode_t GetMode(std::string_view inName) const
    {
        struct stat status
        {
        };
        return stat(At(inName).c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }

    // Names of everything in a directory, links included, sorted.
    [[nodiscard]] std::vector<std::string> List(std::string_view inName) const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(At(inName)))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    // Runs the operation as a user to whom permissions apply, also where the tests run as root.
    template <class Operation>
    static auto AsOrdinaryUser(Operation inOperation)
    {
        const uid_t nobody = 65534;
        const bool isRoot = geteuid() == 0;
        EXPECT_TRUE(!isRoot || seteuid(nobody) == 0);
        auto result = inOperation();
        EXPECT_TRUE(!isRoot || seteuid(0) == 0);
        return result;
    }

private:
    const TemporaryFolder mFolder;
};
