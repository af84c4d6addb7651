// Files for fuzz targets that read what lies on a disk.
#pragma once

#include "FileSystem/File.h"
#include "Tests/Fuzz/Expect.h"

#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Fuzz
{

using Bytes = std::vector<uint8_t>;
using Files = std::map<std::string, Bytes>; // by their path below the folder

// A folder of its own for one process, in memory where the system has such a place. Goes with its contents, unless the process
// crashes.
class Folder
{
public:
    Folder()
    {
        std::error_code error;
        const std::filesystem::path memory = "/dev/shm";
        mRoot = (std::filesystem::is_directory(memory, error) ? memory : std::filesystem::temp_directory_path()) / "Fuzz.XXXXXX";
        gExpect(mkdtemp(mRoot.data()) != nullptr);
    }
    ~Folder()
    {
        std::error_code error;
        std::filesystem::remove_all(mRoot, error);
    }

    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    [[nodiscard]] const std::string& GetPath() const { return mRoot; }
    [[nodiscard]] std::string At(std::string_view inName) const { return mRoot + '/' + std::string(inName); }

    void Write(std::string_view inName, const Bytes& inBytes) const
    {
        const std::string path = At(inName);
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream file(path, std::ios::binary);
        file.write(reinterpret_cast<const char*>(inBytes.data()), static_cast<std::streamsize>(inBytes.size()));
        file.close();
        gExpect(file.good());
    }
    // Empty for a file that isn't there.
    [[nodiscard]] Bytes Read(std::string_view inName) const
    {
        Bytes bytes;
        static_cast<void>(FileSystem::gReadFile(At(inName), bytes));
        return bytes;
    }

    [[nodiscard]] Files ReadAll() const
    {
        Files files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(mRoot))
        {
            const std::string name = entry.path().string().substr(mRoot.size() + 1);
            if (entry.is_regular_file())
                files[name] = Read(name);
        }
        return files;
    }

    // Leaves exactly these files.
    void ReplaceAll(const Files& inFiles) const
    {
        for (const auto& entry : std::filesystem::directory_iterator(mRoot))
            std::filesystem::remove_all(entry.path());
        for (const auto& [name, bytes] : inFiles)
            Write(name, bytes);
    }

private:
    std::string mRoot;
};

} // namespace Fuzz
