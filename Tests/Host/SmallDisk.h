// A folder that holds so many bytes and no more: a file system of its own where the tests may mount one. Elsewhere no file may
// grow beyond half of that.
#pragma once

#include <sys/mount.h>
#include <sys/resource.h>

#include <csignal>
#include <cstddef>
#include <filesystem>
#include <string>
#include <utility>

class SmallDisk
{
public:
    SmallDisk(std::string inFolder, size_t inSize) : mFolder(std::move(inFolder))
    {
        std::filesystem::create_directories(mFolder);
        mIsMounted = mount("tmpfs", mFolder.c_str(), "tmpfs", 0, GetOption(inSize).c_str()) == 0;
        if (mIsMounted)
            return;
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &mLimitBefore);
        // The largest file has about half of all bytes.
        const rlimit limit{inSize / 2, mLimitBefore.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~SmallDisk()
    {
        if (mIsMounted)
            umount2(mFolder.c_str(), MNT_DETACH);
        else
            setrlimit(RLIMIT_FSIZE, &mLimitBefore);
    }

    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    // Makes room for inSize bytes in all.
    void Grow(size_t inSize)
    {
        if (!mIsMounted)
            setrlimit(RLIMIT_FSIZE, &mLimitBefore);
        else if (mount("tmpfs", mFolder.c_str(), "tmpfs", MS_REMOUNT, GetOption(inSize).c_str()) != 0)
            std::filesystem::remove_all(mFolder);
    }

private:
    static std::string GetOption(size_t inSize) { return "size=" + std::to_string(inSize); }

    std::string mFolder;
    bool mIsMounted = false;
    rlimit mLimitBefore{};
};
