// Makes sessions in a folder of the test's own by the functions of the commands, and looks at what lies there afterwards.
#pragma once

#include "Host/CommandLine/FailureText.h"
#include "Host/CommandLine/ImportCommand.h"
#include "Host/CommandLine/InfoCommand.h"
#include "Host/CommandLine/ProcessCommand.h"
#include "Host/CommandLine/SummarizeCommand.h"
#include "Tests/FileSystem/TemporaryDirectory.h"
#include "Tests/Host/StoredTimeline.h"
#include "Tests/Support/PerfFileBuilder.h"

#include <gmock/gmock.h>
#include <rapidjson/document.h>

#include <map>
#include <string>
#include <vector>

namespace Host
{

class SessionCommandTest : public TemporaryDirectoryTest
{
protected:
    // The content of files by their path below a folder; folders have none, and a '/' behind their path.
    using Files = std::map<std::string, std::string>;

    // A server with two threads and a client, which wake each other; one stack is cut short. The capture lasts 0.02 ms.
    static constexpr const char* sServerAndClient = "0 comm 10/10 server\n"
                                                    "0 comm 10/11 worker\n"
                                                    "0 comm 20/20 client\n"
                                                    "0 mmap 10/10 0x400000 0x10000 /opt/server-main\n"
                                                    "0 mmap 10/10 0x500000 0x10000 /opt/library.so\n"
                                                    "0 mmap 20/20 0x400000 0x10000 /opt/client\n"
                                                    "1000 cpu0 clock 10/10 0x400010;0x400020\n"
                                                    "2000 cpu1 clock 20/20 0x400030;0x400020\n"
                                                    "3000 cpu0 waking 10/10 11\n"
                                                    "4000 cpu0 switch 10/10 S 10/11\n"
                                                    "5000 cpu0 clock 10/11 0x400050;0x400060\n"
                                                    "6000 cpu1 waking 20/20 10\n"
                                                    "7000 cpu1 clock 20/20 0x400030;0x400020\n"
                                                    "8000 cpu0 switch 10/11 S 10/10\n"
                                                    "9000 cpu0 clock 10/10 0x400018;0x400020\n"
                                                    "10000 cpu0 waking 10/10 20\n"
                                                    "11000 cpu1 switch 20/20 S 0/0\n"
                                                    "12000 cpu0 clock 10/10 0x500010;0x500020\n"
                                                    "13000 cpu1 switch 0/0 R 20/20\n"
                                                    "15000 cpu1 clock 20/20 0x400038;0x400020\n"
                                                    "21000 cpu0 clock 10/10 0x400010;0x400020\n";

    // Gives the path of the capture.
    std::string WriteCapture(const std::string& inRecords = sServerAndClient, const std::string& inName = "shop.data") const
    {
        return WriteCapture(PerfFileBuilder(inRecords), inName);
    }
    std::string WriteCapture(const PerfFileBuilder& inBuilder, const std::string& inName = "shop.data") const
    {
        const std::vector<uint8_t> image = inBuilder.Build();
        WriteFile(inName, {reinterpret_cast<const char*>(image.data()), image.size()});
        return At(inName);
    }

    // The commands give their text, or the first failure behind "FAILED: ", which is all that a user sees of it.

    static std::string Import(const std::string& inCapture, ImportOptions inOptions = {})
    {
        inOptions.CapturePath = inCapture;
        inOptions.PluginPath = PLUGIN_LIBRARY;
        return Call(gImport, inOptions);
    }
    static ImportOptions MakeOptions(const std::string& inOutputFolder, bool inReplaces = false)
    {
        ImportOptions options;
        options.OutputFolder = inOutputFolder;
        options.Replaces = inReplaces;
        return options;
    }
    static std::string ImportAnew(const std::string& inCapture) { return Import(inCapture, MakeOptions("", true)); }
    static std::string Process(const std::string& inSession, bool inRebuilds = false)
    {
        return Call(gProcess, ProcessOptions{inSession, PLUGIN_LIBRARY, inRebuilds});
    }
    static std::string Summarize(const std::string& inPath, bool inAsJSON = false, const char* inPlugin = PLUGIN_LIBRARY)
    {
        return Call(gSummarize, SummarizeOptions{inPath, inPlugin, inAsJSON});
    }

    static bool IsFailure(const std::string& inText) { return inText.starts_with("FAILED: "); }

    struct Info
    {
        std::string Failure; // empty if the session can be opened
        rapidjson::Document JSON;

        // Of a store: empty if it is sound, else what is wrong with it.
        [[nodiscard]] std::string GetFault(const std::string& inStore) const
        {
            for (const auto& store : JSON["stores"].GetArray())
                if (store["name"].GetString() == inStore)
                    return store["sound"].GetBool() ? "" : store["text"].GetString();
            return "not listed";
        }
        [[nodiscard]] std::vector<std::string> GetFaultyStores() const
        {
            std::vector<std::string> names;
            for (const auto& store : JSON["stores"].GetArray())
                if (!store["sound"].GetBool())
                    names.emplace_back(store["name"].GetString());
            return names;
        }
    };

    static Info GetInfo(const std::string& inSession)
    {
        Info info;
        Utility::ErrorState errors;
        std::string text;
        if (!gShowInfo({inSession, PLUGIN_LIBRARY, true}, text, errors))
            info.Failure = gGetFailureText(errors);
        info.JSON.Parse(text.c_str());
        return info;
    }

    // Everything below a folder.
    [[nodiscard]] Files ReadFiles(const std::string& inFolder = "") const
    {
        Files files;
        const std::string start = At(inFolder) + '/';
        for (const auto& entry : std::filesystem::recursive_directory_iterator(At(inFolder)))
        {
            const std::string name = entry.path().string().substr(start.size());
            if (entry.is_directory())
                files[name + '/'];
            else
                files[name] = ReadFile(inFolder.empty() ? name : inFolder + '/' + name);
        }
        return files;
    }

    // The same of a session, with what its timeline says instead of the files of that; what a program that was killed left
    // beside the files that it wrote anew doesn't count.
    [[nodiscard]] Files ReadStores(const std::string& inFolder) const
    {
        Files files = ReadFiles(inFolder);
        std::erase_if(files,
                      [](const auto& inFile) { return inFile.first.starts_with("Threads/") || inFile.first.ends_with(".new"); });
        files.merge(StoredTimeline::sRead(At(inFolder)));
        return files;
    }

    // The names of what isn't the same in both.
    [[nodiscard]] static std::vector<std::string> FindDifferences(const Files& inOne, const Files& inOther)
    {
        std::vector<std::string> names;
        for (const auto& [name, content] : inOne)
            if (const auto found = inOther.find(name); found == inOther.end() || found->second != content)
                names.push_back(name);
        for (const auto& [name, content] : inOther)
            if (!inOne.contains(name))
                names.push_back(name);
        return names;
    }

    [[nodiscard]] static std::vector<std::string> GetNames(const Files& inFiles)
    {
        std::vector<std::string> names;
        for (const auto& [name, content] : inFiles)
            names.push_back(name);
        return names;
    }

    template <class Options>
    static std::string Call(bool (*inCommand)(const Options&, std::string&, Utility::ErrorState&), const Options& inOptions)
    {
        Utility::ErrorState errors;
        std::string text;
        if (inCommand(inOptions, text, errors))
            return text;
        EXPECT_FALSE(errors.GetEntries().empty());
        return "FAILED: " + gGetFailureText(errors);
    }
};

} // namespace Host
