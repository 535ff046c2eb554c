// Files that people write: read whole, turned into UTF-8, and complained about with line and
// column.
//
// The steps: ReadWholeFile gives the bytes, DecodeText the text and what is wrong with its
// characters; a reader of the text (rules, .reg files) adds to an IssueList of its own what it
// cannot use. Nothing of a file with an issue is taken: its author mends all of it in one go.
#ifndef AGENT_TEXT_TEXT_FILE_H
#define AGENT_TEXT_TEXT_FILE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace text {

// Both from 1. The column counts characters, as editors do.
struct Position {
    size_t line = 1;
    size_t column = 1;
    size_t file = 0; // which one, of several that are read together

    bool operator==(const Position &) const = default;
    bool operator<(const Position &other) const
    {
        return std::tie(file, line, column) < std::tie(other.file, other.line, other.column);
    }
};

// Something in a file that cannot be used.
struct Issue {
    Position at;
    std::string what;    // the thing, the cause, the next step
    size_t mistakes = 1; // for which it stands

    bool operator==(const Issue &) const = default;
};

// What is wrong with a text, and where. Positions are given as offsets into the text, in bytes, and
// become line and column at once: the text must outlive the list, and not what is taken from it.
class IssueList {
  public:
    // Issues that are kept: the first that are noted, wherever they are in the file. A file with
    // more of them is of another kind altogether.
    static constexpr size_t kMax = 200;

    //   file  the number of the text, for its positions
    explicit IssueList(std::string_view text, size_t file = 0);

    // Notes an issue. Beyond kMax they are only counted.
    void Add(size_t offset, std::string what);
    void Add(size_t offset, const std::string &thing, const std::string &cause,
             const std::string &next_step);

    [[nodiscard]] bool empty() const { return issues_.empty(); }
    [[nodiscard]] bool full() const { return issues_.size() >= kMax; }
    // Does this stand there, byte for byte?
    [[nodiscard]] bool Reads(size_t offset, std::string_view what) const
    {
        return offset < text_.size() && text_.substr(offset).starts_with(what);
    }
    // Of a byte of the text. Behind its end: the place where it ends.
    [[nodiscard]] Position At(size_t offset) const;

    // In the order of the file. The last one says how many are not there, and stands for them, if
    // some are not. Empties the list; call it once, at the end.
    [[nodiscard]] std::vector<Issue> Take();

  private:
    // Offsets at which a line begins, ascending: a position is looked up, not counted from the
    // head.
    std::string_view text_;
    size_t file_;
    std::vector<size_t> line_starts_;
    std::vector<Issue> issues_;
    // How many came when the list was full.
    size_t more_ = 0;
};

// The mistakes for which all issues stand.
size_t CountMistakes(const std::vector<Issue> &issues);

// A text from a file, shown in a message: in quotes, shortened, and harmless for a terminal. What
// is no UTF-8 stands as \xHH, what cannot be seen as "?".
std::string Shown(std::string_view text);

// What became of the bytes. With an issue, the text is for finding more of them, not for use.
struct DecodedText {
    std::string text; // UTF-8, without byte-order mark
    std::vector<Issue> issues;
};

// Turns the bytes of a file into text: UTF-8 with or without a byte-order mark, or UTF-16 of either
// byte order with one. Control characters are issues, except tabs, line feeds, and the carriage
// returns before these.
//   file  the number of the text, for the places of its issues
DecodedText DecodeText(std::string_view bytes, size_t file = 0);

// Reads a file, or standard input for "-". Throws host::Error when it cannot be read, is no file or
// pipe, or has more than `max_bytes`, which bounds the memory that a wrong name can cost.
std::string ReadWholeFile(const std::string &path, size_t max_bytes);

// How the file is called in messages: its path, or "standard input".
std::string ShownName(const std::string &path);

} // namespace text

#endif // AGENT_TEXT_TEXT_FILE_H
