// Results in rows and columns: aligned for people on a terminal, separated by tabs for programs in a pipe.
#ifndef AGENT_CLI_TABLE_H
#define AGENT_CLI_TABLE_H

#include <cstddef>
#include <string>
#include <vector>

namespace cli {

class Table {
  public:
    // The heads say how many columns there are: each row must have as many. They are shown on a
    // terminal only.
    explicit Table(std::vector<std::string> heads) : heads_(std::move(heads)) {}
    void Add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    // Aligned, with heads, on a terminal; otherwise one line per row, columns separated by tabs. Cells that would make it
    // wider than the terminal go on below themselves, so that nothing of them is hidden and nothing leaves its column.
    void Print() const;

  private:
    void PrintAligned(size_t columns) const;

    std::vector<std::string> heads_;
    std::vector<std::vector<std::string>> rows_;
};

// The widths that columns of these widths have in a table of at most `total`, blanks between them included: the widest give
// way, none below its `least`. Where that is not enough they stay as they are.
std::vector<size_t> FittedWidths(std::vector<size_t> widths, const std::vector<size_t> &least,
                                 size_t total);

// A text in lines of at most `width` columns, broken at blanks where there are any, at least one line. Not a character is lost
// but the blanks at which it was broken.
std::vector<std::string> BrokenInLines(const std::string &text, size_t width);

} // namespace cli

#endif // AGENT_CLI_TABLE_H
