// Random monitoring tables, and lines that nearly match them.
#ifndef TESTS_SUPPORT_RANDOM_LOG_H
#define TESTS_SUPPORT_RANDOM_LOG_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/campaign.h"

namespace test {

// A keyword, and a text that it matches (as an expression, where it is one that compiles).
struct RandomKeyword {
    std::string text;
    std::string sample;
};

// An expression of any operator, now and then with an error in it.
RandomKeyword RandomExpression(Random &random);

// A keyword without purpose: empty, short, long, of odd bytes.
RandomKeyword RandomPlainKeyword(Random &random);

// What a table is made of.
struct TableShape {
    size_t entries = 0;
    bool expressions = false; // some keywords are expressions
    bool shared = false;      // a few keywords serve hundreds of entries
    bool only_empty = false;
};
TableShape RandomShape(Random &random);

// Fills the monitoring table by hand, and makes lines for it. The entries belong to the module.
class RandomTable {
  public:
    RandomTable(Random &random, const TableShape &shape);

    // A line that holds the keywords of an entry, whole or with a small edit, among other words. It
    // begins with `head` and has `length` bytes when that is not 0.
    [[nodiscard]] std::string Line(Random &random, const std::string &head,
                                   size_t length = 0) const;

  private:
    void AddEntry(Random &random, const std::array<RandomKeyword, 3> &keywords);
    RandomKeyword Keyword(Random &random) const;
    RandomKeyword Relative(Random &random) const;

    TableShape shape_;
    std::vector<RandomKeyword> pool_; // of keywords that are used again
    std::vector<std::array<RandomKeyword, 3>> keywords_;
};

// Empties the table that was filled by hand.
void EmptyTable();

// A text changed in one byte: replaced, left out, doubled, or of other case.
std::string Edited(Random &random, std::string text);

// The head of a line, mostly one that can be matched. `now` is the clock of the module.
std::string RandomHead(Random &random, time_t now);

// Lengths of lines that matter: around 3328 and around a block, among ordinary ones.
size_t RandomLineLength(Random &random);

// A whole log: lines with stamps that mostly grow, of lengths around 3328 and around the borders of blocks,
// zero bytes, carriage returns, empty lines, an end without newline.
struct LogShape {
    size_t least_bytes = 0;
    bool zero_bytes = true;
    bool long_lines = true; // also longer than a block
    bool always_stamped = false;
};
std::string RandomLog(Random &random, time_t begin, const LogShape &shape);

} // namespace test

#endif // TESTS_SUPPORT_RANDOM_LOG_H
