#include "agent/events/expressions.h"

#include <algorithm>
#include <iterator>
#include <regex.h>

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
