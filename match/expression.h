// What a keyword is as a regular expression.
#ifndef MATCH_EXPRESSION_H
#define MATCH_EXPRESSION_H

#include <cstddef>

#include <regex.h>

#include "platform/monitor_entry.h"

// A keyword as it is compiled: with optional white space on both sides. Both sides match the empty text, so
// the keyword matches anywhere in a line.
constexpr char kPatternBegin[] = "([[:space:]]*)";
constexpr char kPatternEnd[] = "([[:space:]]*)";
struct Pattern {
    char text[sizeof kPatternBegin + kKeywordSize + sizeof kPatternEnd - 2];
};
void MakePattern(const char *keyword, Pattern *pattern);

// Does the line match the pattern? One that does not compile matches nothing.
bool MatchesPattern(const char *line, const Pattern &pattern);

// A pattern compiled for lines without a line end in them, in the locale of that moment.
struct CompiledPattern {
    regex_t expression;
};

// False when it does not compile; there is nothing to free then.
bool Compile(const Pattern &pattern, CompiledPattern *compiled);
bool Matches(const char *line, const CompiledPattern &compiled);
void Free(CompiledPattern *compiled);

// Does the keyword hold a character with a meaning of its own in extended regular expressions? One
// that does not matches as an expression exactly where it occurs as plain text.
bool HasOperator(const char *keyword);

// A literal text that every match of the expression must hold.
struct RequiredText {
    size_t begin;  // index in the keyword
    size_t length; // 0: no such text could be told
};

// The longest such text that can be told without understanding the expression in full. It is looked
// for outside of brackets, groups and alternatives only, and what is optional is left out, so the
// answer is never wrong, but it may be shorter than it could be. None is told where the locale's
// character set makes it uncertain which bytes are operators.
RequiredText FindRequiredText(const char *keyword);

#endif // MATCH_EXPRESSION_H
