#include "agent/cli/table.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

#include "agent/cli/output.h"
#include "agent/text/printable.h"
#include "agent/text/utf8.h"

namespace cli {

namespace {

constexpr size_t kBetween = 2; // blanks between two columns
constexpr size_t kNarrowestCell =
    8; // below that, a broken cell is worse to read than a broken line

// Columns of the terminal; of one that does not tell (a serial line), without a limit.
size_t TerminalColumns()
{
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return SIZE_MAX;
    return size.ws_col;
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

// One line of a row. Nothing behind the last word: a line that is full to the edge would be broken on a narrow terminal.
void PrintLine(const std::vector<std::vector<std::string>> &cells, size_t number,
               const std::vector<size_t> &widths)
{
    std::string line;
    size_t at = 0; // where the column begins
    size_t used = 0;
    for (size_t column = 0; column < cells.size(); ++column) {
        if (number < cells[column].size() && !cells[column][number].empty()) {
            line.append(at - used, ' ').append(cells[column][number]);
            used = at + DisplayWidth(cells[column][number]);
        }
        at += widths[column] + kBetween;
    }
    printf("%s\n", line.c_str());
}

void PrintRow(const std::vector<std::string> &row, const std::vector<size_t> &widths)
{
    std::vector<std::vector<std::string>> cells;
    size_t lines = 0;
    for (size_t column = 0; column < row.size(); ++column) {
        cells.push_back(BrokenInLines(text::Printable(row[column]), widths[column]));
        lines = std::max(lines, cells.back().size());
    }
    for (size_t number = 0; number < lines; ++number)
        PrintLine(cells, number, widths);
}

// Bytes of the text that take at most `width` columns: at least one character.
size_t BytesWithin(std::string_view text, size_t width)
{
    size_t bytes = 0;
    size_t columns = 0;
    while (bytes < text.size()) {
        const size_t next = std::max<size_t>(text::FirstCharacter(text.substr(bytes)).bytes, 1);
        columns += DisplayWidth(std::string(text.substr(bytes, next)));
        if (columns > width && bytes > 0)
            break;
        bytes += next;
    }
    return bytes;
}

} // namespace

std::vector<size_t> FittedWidths(std::vector<size_t> widths, const std::vector<size_t> &least,
                                 size_t total)
{
    const std::vector<size_t> natural = widths;
    size_t sum = std::accumulate(widths.begin(), widths.end(), kBetween * (widths.size() - 1));
    while (sum > total) {
        size_t widest = widths.size();
        for (size_t column = 0; column < widths.size(); ++column)
            if (widths[column] > least[column] &&
                (widest == widths.size() || widths[column] > widths[widest]))
                widest = column;
        if (widest == widths.size())
            return natural;
        --widths[widest];
        --sum;
    }
    return widths;
}

std::vector<std::string> BrokenInLines(const std::string &text, size_t width)
{
    std::vector<std::string> lines;
    std::string_view rest = text;
    while (DisplayWidth(std::string(rest)) > width) {
        const size_t fitting = BytesWithin(rest, width);
        if (fitting == rest.size())
            break; // a single character that is wider than that
        // A blank behind the last that fits is as good as one within.
        const size_t blank = rest.rfind(' ', fitting);
        const bool at_blank =
            blank != std::string_view::npos && rest.find_first_not_of(' ') < blank;
        const size_t end = at_blank ? blank : fitting;
        lines.emplace_back(rest.substr(0, end));
        rest.remove_prefix(end + (at_blank ? 1 : 0));
    }
    lines.emplace_back(rest);
    return lines;
}

void Table::Print() const
{
    if (IsTerminal()) {
        PrintAligned(TerminalColumns());
        return;
    }
    for (const auto &row : rows_)
        PrintPlain(row);
}

void Table::PrintAligned(size_t columns) const
{
    std::vector<size_t> widths;
    std::vector<size_t> least;
    for (size_t column = 0; column < heads_.size(); ++column) {
        // Heads are not broken.
        least.push_back(std::max(DisplayWidth(heads_[column]), kNarrowestCell));
        size_t width = DisplayWidth(heads_[column]);
        for (const auto &row : rows_)
            width = std::max(width, DisplayWidth(text::Printable(row[column])));
        widths.push_back(width);
    }
    widths = FittedWidths(std::move(widths), least, columns);
    // Also of an empty table: it shows what there would be.
    PrintRow(heads_, widths);
    for (const auto &row : rows_)
        PrintRow(row, widths);
}

} // namespace cli
