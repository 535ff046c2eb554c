#include "match/expression.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <langinfo.h>

namespace {

constexpr char kOperators[] = ".[](){}*+?^$|\\";
constexpr char kAnchors[] = "^$";
constexpr char kEscapedAnchors[] = "<>bB`'"; // behind a backslash

bool IsAscii(char c)
{
    constexpr unsigned char kAscii = 128;
    return static_cast<unsigned char>(c) < kAscii;
}

// Can a byte that looks like an operator be a part of a character? So it is in character sets of several
// bytes, such as GB18030, Big5 and Shift-JIS, whose characters can end in "]", "|" or "\\". In UTF-8 all
// bytes of such a character are above 127.
bool MayHideOperators(const char *text)
{
    if (MB_CUR_MAX == 1 || strcmp(nl_langinfo(CODESET), "UTF-8") == 0)
        return false;
    while (*text != '\0' && IsAscii(*text))
        ++text;
    return *text != '\0';
}

bool IsOperator(char c)
{
    return c != '\0' && strchr(kOperators, c) != nullptr;
}

bool IsQuantifier(char c)
{
    return c == '*' || c == '?' || c == '{' || c == '+';
}

// May what stands before this quantifier be missing from a match?
bool MakesOptional(char quantifier)
{
    return quantifier != '+';
}

// The index behind a bracket expression that begins at `at`, or the end of the text when it is not
// closed.
size_t SkipBracket(const char *text, size_t at)
{
    ++at;
    if (text[at] == '^')
        ++at;
    if (text[at] == ']')
        ++at; // stands for itself at the beginning
    while (text[at] != '\0' && text[at] != ']') {
        // A class, an equivalence or a collating element, such as [:space:], has brackets of its
        // own.
        const char kind = text[at] == '[' ? text[at + 1] : '\0';
        if (kind == ':' || kind == '=' || kind == '.') {
            const char closing[] = {kind, ']', '\0'};
            const char *end = strstr(text + at + 2, closing);
            if (end == nullptr)
                return strlen(text);
            at = static_cast<size_t>(end - text) + 2;
        } else {
            ++at;
        }
    }
    return text[at] == ']' ? at + 1 : at;
}

// The index behind a group that begins at `at`, or the end of the text when it is not closed.
size_t SkipGroup(const char *text, size_t at)
{
    int depth = 0;
    while (text[at] != '\0') {
        if (text[at] == '\\' && text[at + 1] != '\0') {
            at += 2;
        } else if (text[at] == '[') {
            at = SkipBracket(text, at);
        } else {
            if (text[at] == '(')
                ++depth;
            if (text[at] == ')')
                --depth;
            ++at;
            if (depth == 0)
                return at;
        }
    }
    return at;
}

// The index behind the quantifiers that follow at `at`.
size_t SkipQuantifiers(const char *text, size_t at)
{
    while (IsQuantifier(text[at])) {
        if (text[at] == '{') {
            const char *end = strchr(text + at, '}');
            at = end != nullptr ? static_cast<size_t>(end - text) + 1 : strlen(text);
        } else {
            ++at;
        }
    }
    return at;
}

// Does a part that ends before `at` have a quantifier that may leave it out?
bool IsOptional(const char *text, size_t at)
{
    const size_t end = SkipQuantifiers(text, at);
    for (; at < end; ++at) {
        if (IsQuantifier(text[at]) && MakesOptional(text[at]))
            return true;
    }
    return false;
}

// Where the character that ends at `end` begins. In a multi-byte character set it can have several bytes,
// and then all bytes above 127 before it are taken for its own: too many are no harm.
size_t CharacterBegin(const char *text, size_t end)
{
    size_t begin = end - 1;
    while (!IsAscii(text[end - 1]) && begin > 0 && !IsAscii(text[begin - 1]))
        --begin;
    return begin;
}

void KeepLonger(size_t begin, size_t end, RequiredText *longest)
{
    if (end > begin && end - begin > longest->length)
        *longest = {begin, end - begin};
}

// Does an anchor stand inside a group? "^", "$", and the words' and the text's ends.
bool HasAnchorInGroup(const char *text)
{
    int depth = 0;
    for (size_t at = 0; text[at] != '\0';) {
        const char c = text[at];
        if (c == '[') {
            at = SkipBracket(text, at);
            continue;
        }
        const bool is_escaped = c == '\\' && text[at + 1] != '\0';
        if (c == '(')
            ++depth;
        else if (c == ')' && depth > 0)
            --depth; // one that closes nothing stands for itself
        if (is_escaped)
            ++at;
        if (depth > 0 && strchr(is_escaped ? kEscapedAnchors : kAnchors, text[at]) != nullptr)
            return true;
        ++at;
    }
    return false;
}

constexpr size_t kSubMatches = 20; // room for them is given, but they are not used

bool HasBackReference(const char *expression)
{
    for (const char *at = expression; (at = strchr(at, '\\')) != nullptr; ++at) {
        if (at[1] >= '1' && at[1] <= '9')
            return true;
    }
    return false;
}

// Nobody sees the sub-matches, and without them a match is found in a fraction of the time. But the answer of the C
// library is then another one in three cases: it takes a line end inside the text for the end of it (no line of a log
// holds one), a repeated group that a back-reference names counts as empty, so "(a*){2}\2b" matches "abcd", and one
// that holds an anchor matches where it does not otherwise: "(^a){2}" in "aa".
bool NeedsSubMatches(const Pattern &pattern)
{
    return MayHideOperators(pattern.text) || HasBackReference(pattern.text) ||
           HasAnchorInGroup(pattern.text);
}

bool CompileWith(int flags, const Pattern &pattern, CompiledPattern *compiled)
{
    return regcomp(&compiled->expression, pattern.text, REG_EXTENDED | flags) == 0;
}

} // namespace

void MakePattern(const char *keyword, Pattern *pattern)
{
    snprintf(pattern->text, sizeof pattern->text, "%s%s%s", kPatternBegin, keyword, kPatternEnd);
}

bool MatchesPattern(const char *line, const Pattern &pattern)
{
    const bool has_line_end = strchr(line, '\n') != nullptr;
    CompiledPattern compiled;
    if (!(has_line_end ? CompileWith(0, pattern, &compiled) : Compile(pattern, &compiled)))
        return false;
    const bool found = Matches(line, compiled);
    Free(&compiled);
    return found;
}

bool Compile(const Pattern &pattern, CompiledPattern *compiled)
{
    return CompileWith(NeedsSubMatches(pattern) ? 0 : REG_NOSUB, pattern, compiled);
}

bool Matches(const char *line, const CompiledPattern &compiled)
{
    regmatch_t sub_matches[kSubMatches];
    return regexec(&compiled.expression, line, kSubMatches, sub_matches, 0) == 0;
}

void Free(CompiledPattern *compiled)
{
    regfree(&compiled->expression);
}

bool HasOperator(const char *keyword)
{
    return strpbrk(keyword, kOperators) != nullptr;
}

RequiredText FindRequiredText(const char *keyword)
{
    RequiredText longest{0, 0};
    if (MayHideOperators(keyword))
        return longest;
    size_t begin = 0; // of the run of literal characters that ends at `at`
    for (size_t at = 0; keyword[at] != '\0';) {
        const char c = keyword[at];
        if (c == '|')
            return {0, 0}; // an alternative: nothing before or after it must be there
        if (!IsOperator(c)) {
            const size_t behind = at + 1;
            if (!IsQuantifier(keyword[behind])) {
                at = behind;
                continue;
            }
            // The last character of the run has a quantifier: with "+" it is there once, with the
            // others it may be missing. Either way the run ends here.
            const bool is_optional = IsOptional(keyword, behind);
            KeepLonger(begin, is_optional ? CharacterBegin(keyword, behind) : behind, &longest);
            at = SkipQuantifiers(keyword, behind);
        } else {
            KeepLonger(begin, at, &longest);
            if (c == '[')
                at = SkipBracket(keyword, at);
            else if (c == '(')
                at = SkipGroup(keyword, at);
            else if (c == '\\')
                at += keyword[at + 1] != '\0' ? 2 : 1;
            else if (!IsQuantifier(c))
                ++at;
            // Also one that stands alone: it belongs to what is put before the keyword.
            at = SkipQuantifiers(keyword, at);
        }
        begin = at;
    }
    KeepLonger(begin, strlen(keyword), &longest);
    return longest;
}
