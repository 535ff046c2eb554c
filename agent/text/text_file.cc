#include "agent/text/text_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <numeric>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/host/error.h"
#include "agent/host/waitable.h"
#include "agent/text/utf8.h"

namespace text {

namespace {

// Of a text in a message: so much tells which text it is, and leaves the message readable in one
// line of a terminal or two.
constexpr size_t kShownCharacters = 60; // of a text in a message

// A byte that does not begin a character of UTF-8.
bool IsContinuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

// Of a text that need not be UTF-8: each stray byte that looks like a beginning counts as one.
size_t CountCharacters(std::string_view text)
{
    return text.size() -
           static_cast<size_t>(std::count_if(text.begin(), text.end(), IsContinuation));
}

std::string Hex(unsigned number, int digits)
{
    char text[16];
    snprintf(text, sizeof text, "%0*X", digits, number);
    return text;
}

} // namespace

// ---- issues ----

IssueList::IssueList(std::string_view text, size_t file) : text_(text), file_(file), line_starts_{0}
{
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n')
            line_starts_.push_back(i + 1);
    }
}

Position IssueList::At(size_t offset) const
{
    offset = std::min(offset, text_.size());
    // The first line has a start, 0, so there is always one before it.
    const auto next = std::upper_bound(line_starts_.begin(), line_starts_.end(), offset);
    const size_t start = *(next - 1);
    return {static_cast<size_t>(next - line_starts_.begin()),
            CountCharacters(text_.substr(start, offset - start)) + 1, file_};
}

void IssueList::Add(size_t offset, std::string what)
{
    if (full())
        ++more_;
    else
        issues_.push_back({At(offset), std::move(what), 1});
}

// An issue is worded as every error is, but it is not thrown: all that is wrong with a file is told
// at once.
void IssueList::Add(size_t offset, const std::string &thing, const std::string &cause,
                    const std::string &next_step)
{
    Add(offset, host::Error(thing, cause, next_step).what());
}

std::vector<Issue> IssueList::Take()
{
    // A reader looks at a text more than once: for its characters, then for what they say. Issues
    // of one place stay in the order in which they were found.
    std::stable_sort(issues_.begin(), issues_.end(),
                     [](const Issue &a, const Issue &b) { return a.at < b.at; });
    if (more_ > 0)
        issues_.push_back({issues_.back().at,
                           std::to_string(more_) +
                               (more_ == 1 ? " more mistake is" : " more mistakes are") +
                               " not shown: is this the file that you meant?",
                           more_});
    return std::move(issues_);
}

size_t CountMistakes(const std::vector<Issue> &issues)
{
    return std::accumulate(issues.begin(), issues.end(), size_t{0},
                           [](size_t sum, const Issue &issue) { return sum + issue.mistakes; });
}

std::string Shown(std::string_view text)
{
    // Cut between characters, never within one. A byte that is no character is shown as YAML and C
    // write it.
    std::string shown = "\"";
    size_t characters = 0;
    while (!text.empty() && characters++ < kShownCharacters) {
        const Character character = FirstCharacter(text);
        const size_t bytes = std::max<size_t>(character.bytes, 1);
        if (character.bytes == 0)
            shown += "\\x" + Hex(static_cast<unsigned char>(text[0]), 2);
        else if (IsInvisible(character.code))
            shown += "?";
        else
            shown += text.substr(0, bytes);
        text.remove_prefix(bytes);
    }
    return shown + (text.empty() ? "\"" : "...\"");
}

// ---- character sets ----

namespace {

// What stands for half a character of UTF-16, so that the text is UTF-8 all the same and the places
// of other issues can be told.
constexpr char32_t kReplacement = 0xFFFD;

// The code units of UTF-16 as characters. A surrogate without its other half becomes U+FFFD, and
// its place in the text is noted.
std::string FromUtf16(std::string_view bytes, bool big_endian, std::vector<size_t> *broken)
{
    const auto unit = [&](size_t i) {
        const auto first = static_cast<unsigned char>(bytes[i]);
        const auto second = static_cast<unsigned char>(bytes[i + 1]);
        return static_cast<char32_t>(big_endian ? first << 8U | second : second << 8U | first);
    };
    std::string text;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        char32_t code = unit(i);
        // Behind the end there is 0, which is no second half.
        const char32_t next = i + 3 < bytes.size() ? unit(i + 2) : 0;
        if (code >= 0xD800 && code <= 0xDBFF && next >= 0xDC00 && next <= 0xDFFF) {
            code = 0x10000 + ((code - 0xD800) << 10U) + (next - 0xDC00);
            i += 2;
        } else if (code >= 0xD800 && code <= 0xDFFF) {
            broken->push_back(text.size());
            code = kReplacement;
        }
        AppendUtf8(code, &text);
    }
    // One byte too many: half a code unit.
    if (bytes.size() % 2 != 0)
        broken->push_back(text.size());
    return text;
}

// The registry, the log and the files of rules have lines and tabs and nothing else of this kind. A
// control character in a keyword would be seen by nobody, and found in no line.
void CheckCharacters(std::string_view text, IssueList *issues)
{
    for (size_t i = 0; i < text.size();) {
        const Character character = FirstCharacter(text.substr(i));
        const bool ends_line = character.code == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
        if (character.bytes == 0)
            issues->Add(i, "cannot read the text",
                        "the byte " + Hex(static_cast<unsigned char>(text[i]), 2) +
                            " is not part of UTF-8",
                        "save the file as UTF-8");
        // UTF-16 without a byte-order mark is UTF-8 with zero bytes; the advice is for that.
        else if (character.code == 0)
            issues->Add(i, "cannot read the text", "it holds a zero byte",
                        "save the file as UTF-8, or as UTF-16 with a byte-order mark");
        else if (character.code == '\r' && !ends_line)
            issues->Add(i, "cannot read the text", "it holds a carriage return without a line feed",
                        "save the file with line ends of Unix or of Windows");
        else if (character.code < ' ' && !ends_line && character.code != '\t' &&
                 character.code != '\n')
            issues->Add(i, "cannot read the text",
                        "it holds the control character U+" + Hex(character.code, 4),
                        "write it as an escape in quotes, \\x" + Hex(character.code, 2));
        i += std::max<size_t>(character.bytes, 1);
    }
}

} // namespace

DecodedText DecodeText(std::string_view bytes, size_t file)
{
    DecodedText decoded;
    std::vector<size_t> broken;
    // The mark alone decides; nothing is guessed from what the text looks like.
    if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF"))
        decoded.text = FromUtf16(bytes.substr(2), bytes[0] == '\xFE', &broken);
    else
        decoded.text = bytes.substr(bytes.starts_with("\xEF\xBB\xBF") ? 3 : 0);
    IssueList issues(decoded.text, file);
    for (const size_t offset : broken) {
        issues.Add(offset, "cannot read the text", "half of a character of UTF-16 is missing here",
                   "save the file as UTF-8");
    }
    CheckCharacters(decoded.text, &issues);
    decoded.issues = issues.Take();
    return decoded;
}

// ---- files ----

std::string ShownName(const std::string &path)
{
    return path == "-" ? "standard input" : path;
}

namespace {

host::Fd Open(const std::string &path)
{
    // A copy of standard input, so that one rule holds for both: it is closed at the end of its
    // life, and the process keeps its own. A terminal that is named must not become the process's
    // own, and the name of a FIFO is waited for until somebody writes.
    host::Fd file(path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                              : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (file.get() < 0)
        throw host::Error("cannot read " + ShownName(path), strerror(errno),
                          "name a file that you may read, or - for standard input");
    // A folder can be opened, and fails only when it is read, with words that say less.
    struct stat info {};
    if (fstat(file.get(), &info) == 0 && S_ISDIR(info.st_mode))
        throw host::Error("cannot read " + ShownName(path), "it is a folder", "name a file in it");
    return file;
}

} // namespace

std::string ReadWholeFile(const std::string &path, size_t max_bytes)
{
    // Its size is not asked beforehand: a pipe has none, and files of /proc say 0. So the limit is
    // looked at while it is read, and ends what has no end.
    const host::Fd file = Open(path);
    std::string bytes;
    std::string block(size_t{64} * 1024, '\0');
    for (;;) {
        const ssize_t got = read(file.get(), block.data(), block.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw host::Error("cannot read " + ShownName(path), strerror(errno),
                              "name a file that can be read");
        if (got == 0)
            return bytes;
        bytes.append(block, 0, static_cast<size_t>(got));
        if (bytes.size() > max_bytes)
            throw host::Error("cannot read " + ShownName(path),
                              "it has more than " + std::to_string(max_bytes >> 20U) + " MiB",
                              "is this the file that you meant?");
    }
}

} // namespace text
