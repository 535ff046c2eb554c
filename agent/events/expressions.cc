#include "agent/events/expressions.h"

#include <algorithm>
#include <iterator>
#include <regex.h>
#include <vector>

namespace events {

namespace {

// Compiled by the same library as in the monitor, so its answer is the monitor's; never run.
// REG_NOSUB: what a group matches is asked by nobody here.
std::string WhyItDoesNotCompile(const std::string &pattern)
{
    regex_t expression;
    const int result = regcomp(&expression, pattern.c_str(), REG_EXTENDED | REG_NOSUB);
    if (result == 0) {
        regfree(&expression);
        return {};
    }
    char text[128];
    regerror(result, &expression, text, sizeof text);
    return text;
}

// The end of the bracket expression that begins at `open`: behind its ]. A backslash means nothing
// in it, and a ] at its head, or in [:class:], does not end it.
size_t EndOfBrackets(const std::string &text, size_t open)
{
    size_t at = open + 1;
    for (const char head : {'^', ']'}) {
        if (at < text.size() && text[at] == head)
            ++at;
    }
    while (at < text.size() && text[at] != ']') {
        const char kind = text[at] == '[' && at + 1 < text.size() ? text[at + 1] : '\0';
        const bool is_class = kind == ':' || kind == '.' || kind == '=';
        const size_t end = is_class ? text.find(std::string{kind, ']'}, at + 2) : std::string::npos;
        at = end != std::string::npos ? end + 2 : at + 1;
    }
    return at + 1;
}

} // namespace

std::string WhyNoExpression(const std::string &keyword)
{
    // By itself, and as the monitor wraps it: what is around it can close what is open in it.
    const std::string alone = WhyItDoesNotCompile(keyword);
    return !alone.empty() ? alone
                          : WhyItDoesNotCompile("([[:space:]]*)" + keyword + "([[:space:]]*)");
}

// A backslash makes a digit a reference; behind one in brackets it does not, nor behind one that is
// itself behind a backslash. So the text is walked through as the library reads it.
bool HasBackReference(const std::string &keyword)
{
    for (size_t i = 0; i < keyword.size();) {
        if (keyword[i] == '[') {
            i = EndOfBrackets(keyword, i);
        } else if (keyword[i] == '\\') {
            const char next = i + 1 < keyword.size() ? keyword[i + 1] : '\0';
            // There is no group 0 to refer to.
            if (next >= '1' && next <= '9')
                return true;
            i += 2;
        } else {
            ++i;
        }
    }
    return false;
}

namespace {

// Larger than any bound, and small enough to be multiplied.
constexpr size_t kHuge = size_t{1} << 40U;
constexpr size_t kMostOfRepeat = 0xFFFF; // the library takes no more than half of it

// The repeat "{3}", "{3,}" or "{3,5}" at a place: how often the library writes it out, at least once, and where it ends. Of
// an open one it writes a last time for all that may follow. Nothing: there is none, and the brace stands for itself.
struct Repeat {
    size_t times;
    size_t end;
};
std::optional<Repeat> RepeatAt(const std::string &text, size_t open)
{
    size_t times = 1;
    size_t number = 0;
    for (size_t at = open + 1; at < text.size(); ++at) {
        const char c = text[at];
        if (c >= '0' && c <= '9') {
            number = std::min(number * 10 + static_cast<size_t>(c - '0'), kMostOfRepeat);
            times = std::max(times, number);
        } else if (c == ',') {
            number = 0;
        } else if (c == '}' && at > open + 1) {
            const bool is_open = text[at - 1] == ',';
            return Repeat{is_open ? times + 1 : times, at + 1};
        } else {
            break;
        }
    }
    return std::nullopt;
}

// A part of an expression that one sign behind it repeats, and all that stands before it in its group.
struct Size {
    size_t before = 0;
    size_t last = 0;

    void Add(size_t size)
    {
        before = std::min(before + last, kHuge);
        last = size;
    }
    [[nodiscard]] size_t All() const { return std::min(before + last, kHuge); }
};

} // namespace

size_t WrittenOut(const std::string &keyword)
{
    std::vector<Size> groups(1); // those that are open, the outermost first
    for (size_t i = 0; i < keyword.size();) {
        const char c = keyword[i];
        if (c == '{') {
            if (const auto repeat = RepeatAt(keyword, i)) {
                groups.back().last = std::min(groups.back().last * repeat->times, kHuge);
                i = repeat->end;
                continue;
            }
        }
        if (c == '(') {
            groups.emplace_back();
        } else if (c == ')' && groups.size() > 1) {
            const size_t size = groups.back().All();
            groups.pop_back();
            groups.back().Add(std::max<size_t>(size, 1));
        } else if (c == '+') { // once, and as often as it likes
            groups.back().last = std::min(groups.back().last * 2, kHuge);
        } else if (c != '*' && c != '?' && c != '|') {
            groups.back().Add(1);
        }
        if (c == '[')
            i = EndOfBrackets(keyword, i);
        else
            i += c == '\\' ? 2 : 1;
    }
    size_t all = 0;
    for (const Size &group : groups)
        all = std::min(all + group.All(), kHuge);
    return all;
}

bool LooksLikeExpression(const std::string &keyword)
{
    if (keyword.empty())
        return false;
    // What hardly stands in a line of a log, and often in an expression. Brackets and points alone
    // are in too many lines to tell anything. Some are not even understood by the library, such as
    // \d, and show all the more what was meant.
    constexpr const char *kSigns[] = {".*",  ".+",  "[0-9", "[a-z", "[A-Z", "[[:", "[^", "\\.",
                                      "\\[", "\\(", "\\*",  "\\d",  "\\s",  "\\w", "\\b"};
    return keyword.front() == '^' || (keyword.size() > 1 && keyword.back() == '$') ||
           std::any_of(std::begin(kSigns), std::end(kSigns),
                       [&](const char *sign) { return keyword.find(sign) != std::string::npos; });
}

std::optional<ExpressionFault> FaultOfExpression(const std::string &keyword)
{
    // Looked for first: such a keyword compiles, mostly, and is refused for what it costs.
    if (HasBackReference(keyword))
        return ExpressionFault{"it refers back to a group of itself (\\1), which can take the "
                               "monitor seconds for one line",
                               "write out what the line shows"};
    if (const std::string why = WhyNoExpression(keyword); !why.empty())
        return ExpressionFault{
            "it is not a regular expression that can be used on a fault-tolerant "
            "server: " +
                why,
            "put a backslash before a bracket or sign that is meant as it "
            "stands"};
    return std::nullopt;
}

} // namespace events
