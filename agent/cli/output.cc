#include "agent/cli/output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "agent/host/error.h"
#include "agent/text/printable.h"

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

// Two blanks between columns; none behind the last one, which may be long.
void PrintAligned(const std::vector<std::string> &row, const std::vector<size_t> &widths)
{
    std::string line;
    for (size_t column = 0; column < row.size(); ++column) {
        const std::string cell = text::Printable(row[column]);
        line += cell;
        if (column + 1 < row.size())
            line += std::string(widths[column] - DisplayWidth(cell) + 2, ' ');
    }
    // Nothing behind the last word: a line that is full to the edge would be broken on a narrow
    // terminal.
    line.erase(line.find_last_not_of(' ') + 1);
    printf("%s\n", line.c_str());
}

void PrintPlain(const std::vector<std::string> &row)
{
    for (size_t column = 0; column < row.size(); ++column) {
        std::string cell = text::Printable(row[column]);
        // Tabs separate the columns.
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
    // Also of an empty table: it shows what there would be.
    PrintAligned(heads_, widths);
    for (const auto &row : rows_)
        PrintAligned(row, widths);
}

void PrintValue(const std::string &text)
{
    printf("%s\n", IsTerminal() ? text::Printable(text).c_str() : text.c_str());
}

void PrintError(const std::string &text)
{
    fprintf(stderr, "syslogmon: %s\n", text::Printable(text).c_str());
}

void FlushOutput()
{
    // A write that failed earlier has left its mark on the stream, but no error number.
    errno = 0;
    const bool flushed = fflush(stdout) == 0;
    if (!flushed || ferror(stdout) != 0)
        throw host::Error("cannot write on standard output",
                          errno != 0 ? strerror(errno) : "a part of it was not taken",
                          "what was written is not complete: make room, and try again");
}

void PrintJson(nlohmann::json object)
{
    object["version"] = kJsonVersion;
    // Log lines may hold bytes that are no UTF-8; JSON text may not.
    const std::string text = object.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
    printf("%s\n", text.c_str());
}

} // namespace cli
