#include "agent/text/printable.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "agent/text/utf8.h"

namespace text {

// Character by character, not byte by byte: what moves the cursor can be a character of several
// bytes, and a byte of an ordinary one can look like a control character.
std::string Printable(const std::string &text)
{
    std::string shown;
    for (std::string_view rest = text; !rest.empty();) {
        const Character character = FirstCharacter(rest);
        const bool is_shown = character.bytes > 0 && !IsInvisible(character.code);
        shown += is_shown ? rest.substr(0, character.bytes) : "?";
        // A byte that is not UTF-8 is passed alone, so that a whole character behind it is shown.
        rest.remove_prefix(std::max<size_t>(character.bytes, 1));
    }
    return shown;
}

namespace {

std::string EscapeOf(char32_t code)
{
    constexpr char32_t kFirstOfPairs = 0x10000;
    char text[16];
    if (code < kFirstOfPairs) {
        snprintf(text, sizeof text, "\\u%04x", static_cast<unsigned>(code));
        return text;
    }
    const auto rest = static_cast<unsigned>(code - kFirstOfPairs);
    snprintf(text, sizeof text, "\\u%04x\\u%04x", 0xD800U + (rest >> 10U),
             0xDC00U + (rest & 0x3FFU));
    return text;
}

} // namespace

std::string PrintableJson(const std::string &json)
{
    constexpr char32_t kLastOfOneByte = 0x7E;
    std::string shown;
    for (std::string_view rest = json; !rest.empty();) {
        const Character character = FirstCharacter(rest);
        const std::string_view bytes = rest.substr(0, std::max<size_t>(character.bytes, 1));
        if (character.code > kLastOfOneByte && IsInvisible(character.code))
            shown += EscapeOf(character.code);
        else
            shown += bytes;
        rest.remove_prefix(bytes.size());
    }
    return shown;
}

} // namespace text
