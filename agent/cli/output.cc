#include "agent/cli/output.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

#include "agent/common/alert_text.h"

namespace cli {

bool IsTerminal()
{
    return isatty(STDOUT_FILENO) == 1;
}

size_t DisplayWidth(const std::string &text)
{
    // Characters, not bytes. Names here are hardly ever wide or combining ones.
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
    }));
}

namespace {

void PrintAligned(const std::vector<std::string> &row, const std::vector<size_t> &widths)
{
    std::string line;
    for (size_t column = 0; column < row.size(); ++column) {
        const std::string cell = agent::Printable(row[column]);
        line += cell;
        if (column + 1 < row.size())
            line += std::string(widths[column] - DisplayWidth(cell) + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    printf("%s\n", line.c_str());
}

void PrintPlain(const std::vector<std::string> &row)
{
    for (size_t column = 0; column < row.size(); ++column) {
        std::string cell = agent::Printable(row[column]);
        std::replace(cell.begin(), cell.end(), '\t', ' ');
        printf("%s%s", column == 0 ? "" : "\t", cell.c_str());
    }
    printf("\n");
}

} // namespace

void Table::Print() const
{
    if (!IsTerminal()) {
        for (const auto &row : rows_)
            PrintPlain(row);
        return;
    }
    std::vector<size_t> widths;
    for (size_t column = 0; column < heads_.size(); ++column) {
        size_t width = DisplayWidth(heads_[column]);
        for (const auto &row : rows_)
            width = std::max(width, DisplayWidth(row[column]));
        widths.push_back(width);
    }
    PrintAligned(heads_, widths);
    for (const auto &row : rows_)
        PrintAligned(row, widths);
}

void PrintJson(nlohmann::json object)
{
    object["version"] = kJsonVersion;
    // Log lines may hold bytes that are no UTF-8; JSON text may not.
    const std::string text = object.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
    printf("%s\n", text.c_str());
}

} // namespace cli
