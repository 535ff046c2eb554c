// UTF-8, the character set of the registry, character by character.
#ifndef AGENT_TEXT_UTF8_H
#define AGENT_TEXT_UTF8_H

#include <cstddef>
#include <string>
#include <string_view>

namespace text {

// The head of a text, as it was read. `bytes` is 1 to 4; the text goes on behind them.
struct Character {
    char32_t code = 0;
    size_t bytes = 0; // 0: the text is empty, or does not begin with a character of UTF-8
};

// The character at the head of a text. Over-long forms and surrogates are no characters.
Character FirstCharacter(std::string_view text);

// Is all of it? An empty text is.
bool IsUtf8(std::string_view text);

// A control character, or one that no editor shows, or that turns round what stands behind it: a
// tab is none.
bool IsInvisible(char32_t code);

// Appends a character. The code is the caller's to check: it must be at most 10FFFF and no
// surrogate.
void AppendUtf8(char32_t code, std::string *text);

} // namespace text

#endif // AGENT_TEXT_UTF8_H
