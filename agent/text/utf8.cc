#include "agent/text/utf8.h"

namespace text {

namespace {

unsigned Byte(std::string_view text, size_t index)
{
    return static_cast<unsigned char>(text[index]);
}

// How a character of each length, 1 to 4 bytes, begins, and the smallest code that needs that
// length. What is smaller would have two forms, of which a search for text finds one.
struct Form {
    unsigned mask;
    unsigned head;
    char32_t smallest;
};
constexpr Form kForms[] = {
    {0x80, 0x00, 0}, {0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};

// The end of Unicode; four bytes could hold more.
constexpr char32_t kLargest = 0x10FFFF;

// Halves of characters of UTF-16. In UTF-8 they mean nothing, and would not survive a way to UTF-16
// and back.
bool IsSurrogate(char32_t code)
{
    return code >= 0xD800 && code <= 0xDFFF;
}

} // namespace

Character FirstCharacter(std::string_view text)
{
    if (text.empty())
        return {};
    // No form fits a byte that only continues a character, nor F8 and above.
    for (size_t length = 1; length <= std::size(kForms); ++length) {
        const Form &form = kForms[length - 1];
        if ((Byte(text, 0) & form.mask) != form.head)
            continue;
        if (text.size() < length)
            return {};
        char32_t code = Byte(text, 0) & ~form.mask;
        for (size_t i = 1; i < length; ++i) {
            if ((Byte(text, i) & 0xC0U) != 0x80U)
                return {};
            code = (code << 6U) | (Byte(text, i) & 0x3FU);
        }
        if (code < form.smallest || code > kLargest || IsSurrogate(code))
            return {};
        return {code, length};
    }
    return {};
}

bool IsUtf8(std::string_view text)
{
    while (!text.empty()) {
        const size_t bytes = FirstCharacter(text).bytes;
        if (bytes == 0)
            return false;
        text.remove_prefix(bytes);
    }
    return true;
}

namespace {

// Marks, embeddings, overrides and isolates of the direction of writing. A terminal that follows
// them shows a text in another order than it stands in.
bool IsDirection(char32_t code)
{
    return code == 0x061C || code == 0x200E || code == 0x200F ||
           (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

} // namespace

bool IsInvisible(char32_t code)
{
    // Controls of one and of two bytes, the separators of lines and paragraphs, directions, the
    // byte-order mark, and the two codes at the end of each plane, which are no characters.
    return (code < 0x20 && code != '\t') || (code >= 0x7F && code < 0xA0) || code == 0x2028 ||
           code == 0x2029 || IsDirection(code) || code == 0xFEFF || (code & 0xFFFEU) == 0xFFFE;
}

void AppendUtf8(char32_t code, std::string *text)
{
    // Six bits in a byte that continues a character.
    const auto tail = [&](unsigned shift) {
        *text += static_cast<char>(0x80U | ((code >> shift) & 0x3FU));
    };
    if (code < 0x80) {
        *text += static_cast<char>(code);
    } else if (code < 0x800) {
        *text += static_cast<char>(0xC0U | (code >> 6U));
        tail(0);
    } else if (code < 0x10000) {
        *text += static_cast<char>(0xE0U | (code >> 12U));
        tail(6);
        tail(0);
    } else {
        *text += static_cast<char>(0xF0U | (code >> 18U));
        tail(12);
        tail(6);
        tail(0);
    }
}

} // namespace text
