// The words by which the module knows its own lines, and those that repeat the line before. An entry that
// holds them because its writer chose so must not be passed over, nor make another one count.
//
// So they are broken up with one control character. Rendered lines hold no other: those of the entries are
// shown as numbers.
#ifndef AGENT_INPUTS_PROTECTED_WORDS_H
#define AGENT_INPUTS_PROTECTED_WORDS_H

#include <string>
#include <string_view>

namespace inputs {

inline constexpr char kBreak = '\x1f';
// No such word has more bytes.
inline constexpr size_t kLongestWord = 32;

// Breaks up each such word in the text from this position on.
void BreakWords(std::string *text, size_t from);

// The text as it was.
std::string WithWholeWords(std::string_view text);

} // namespace inputs

#endif // AGENT_INPUTS_PROTECTED_WORDS_H
