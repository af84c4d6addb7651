#include "FileSystem/TextFile.h"

#include "Tests/FileSystem/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

using namespace std::string_view_literals;

namespace
{

class TextFileTest : public TemporaryDirectoryTest
{
protected:
    // The text of a file with these bytes.
    std::optional<std::string> ReadBack(std::string_view inBytes)
    {
        WriteFile("file", inBytes);
        std::string text = "left over";
        if (!FileSystem::gReadTextFile(At("file"), text))
            return std::nullopt;
        return text;
    }
};

TEST_F(TextFileTest, TextWithoutMarkIsTakenAsItStands)
{
    for (const std::string_view bytes :
         {""sv, "\xFF"sv, "a"sv, "\xFE\xFF\0a"sv, "\xEF\xBB"sv, "\xEF\xBBx"sv, "a\r\n\0\x80\xC3\xA4"sv})
        EXPECT_EQ(ReadBack(bytes), bytes);
}

TEST_F(TextFileTest, MarkOfUTF8IsDropped)
{
    EXPECT_EQ(ReadBack("\xEF\xBB\xBF"sv), "");
    EXPECT_EQ(ReadBack("\xEF\xBB\xBF\xC3\xA4\xFF"sv), "\xC3\xA4\xFF");
}

TEST_F(TextFileTest, UTF16IsConverted)
{
    EXPECT_EQ(ReadBack("\xFF\xFE"sv), "");
    EXPECT_EQ(ReadBack("\xFF\xFE"
                       "a\0\xAC\x20\x3D\xD8\x00\xDE"sv),
              "a\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(ReadBack("\xFF\xFE"
                       "a\0\x3D\xD8"sv),
              "a\xEF\xBF\xBD")
        << "half a pair at the end";
    EXPECT_EQ(ReadBack("\xFF\xFE"
                       "a\0b"sv),
              "a\xEF\xBF\xBD")
        << "half a unit at the end";
    EXPECT_EQ(ReadBack("\xFF\xFE\0"sv), "\xEF\xBF\xBD") << "too short for the mark of UTF-32";
}

TEST_F(TextFileTest, UTF32IsConverted)
{
    EXPECT_EQ(ReadBack("\xFF\xFE\0\0"sv), "");
    EXPECT_EQ(ReadBack("\xFF\xFE\0\0"
                       "a\0\0\0\x00\xF6\x01\x00"sv),
              "a\xF0\x9F\x98\x80");
    EXPECT_EQ(ReadBack("\xFF\xFE\0\0\x00\xD8\0\0\x00\x00\x11\x00"
                       "a\0"sv),
              "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST_F(TextFileTest, AbsentFileFails)
{
    std::string text = "left over";
    EXPECT_FALSE(FileSystem::gReadTextFile(At("absent"), text));
    EXPECT_EQ(text, "left over");
}

} // namespace
