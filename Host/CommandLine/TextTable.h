// A table for a terminal: columns as wide as their widest cell.
//
// Threads: one. Ownership: a value.
#pragma once

#include <string>
#include <vector>

namespace Host
{

class TextTable
{
public:
    enum class EAlign
    {
        Left,
        Right
    };

    struct Column
    {
        std::string Title;
        EAlign Align = EAlign::Left;
    };

    explicit TextTable(std::vector<Column> inColumns);

    // REQUIRES: one cell per column.
    void AddRow(std::vector<std::string> inCells);

    [[nodiscard]] bool IsEmpty() const { return mRows.empty(); }

    // Title, rows, each line with a newline and no blanks at its end. Control characters in cells are shown as '?'.
    [[nodiscard]] std::string Format() const;

private:
    std::vector<Column> mColumns;
    std::vector<std::vector<std::string>> mRows;
};

} // namespace Host
