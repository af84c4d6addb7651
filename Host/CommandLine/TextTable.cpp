#include "Host/CommandLine/TextTable.h"

#include <algorithm>
#include <utility>

namespace Host
{
namespace
{

constexpr const char* sColumnGap = "  ";

// Columns of a terminal: code points, not bytes.
size_t gGetWidth(const std::string& inText)
{
    return static_cast<size_t>(std::count_if(inText.begin(), inText.end(),
                                             [](char inByte) { return (static_cast<unsigned char>(inByte) & 0xC0) != 0x80; }));
}

// Names come from the recorded machine; none of them may steer the terminal.
std::string gMakePrintable(std::string inText)
{
    for (char& byte : inText)
        if (static_cast<unsigned char>(byte) < ' ' || byte == 0x7F)
            byte = '?';
    return inText;
}

} // namespace

TextTable::TextTable(std::vector<Column> inColumns) : mColumns(std::move(inColumns)) {}

void TextTable::AddRow(std::vector<std::string> inCells)
{
    std::transform(inCells.begin(), inCells.end(), inCells.begin(), gMakePrintable);
    mRows.push_back(std::move(inCells));
}

std::string TextTable::Format() const
{
    std::vector<size_t> widths;
    for (size_t column = 0; column < mColumns.size(); ++column)
    {
        size_t width = gGetWidth(mColumns[column].Title);
        for (const std::vector<std::string>& row : mRows)
            width = std::max(width, gGetWidth(row[column]));
        widths.push_back(width);
    }

    std::string text;
    const auto addLine = [&](const auto& inGetCell)
    {
        std::string line;
        for (size_t column = 0; column < mColumns.size(); ++column)
        {
            const std::string& cell = inGetCell(column);
            const std::string padding(widths[column] - gGetWidth(cell), ' ');
            line += column == 0 ? "" : sColumnGap;
            line += mColumns[column].Align == EAlign::Left ? cell + padding : padding + cell;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + '\n';
    };
    addLine([&](size_t inColumn) -> const std::string& { return mColumns[inColumn].Title; });
    for (const std::vector<std::string>& row : mRows)
        addLine([&](size_t inColumn) -> const std::string& { return row[inColumn]; });
    return text;
}

} // namespace Host
