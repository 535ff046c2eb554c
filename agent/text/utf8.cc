#include "agent/text/utf8.h"

namespace text {

namespace {

unsigned Byte(std::string_view text, size_t index)
{
    return static_cast<unsigned char>(text[index]);
}

// How a character of each length begins, and the smallest code that needs that length.
struct Form {
    unsigned mask;
    unsigned head;
    char32_t smallest;
};
constexpr Form kForms[] = {
    {0x80, 0x00, 0}, {0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};

constexpr char32_t kLargest = 0x10FFFF;

bool IsSurrogate(char32_t code)
{
    return code >= 0xD800 && code <= 0xDFFF;
}

} // namespace

Character FirstCharacter(std::string_view text)
{
    if (text.empty())
        return {};
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

// Marks, embeddings, overrides and isolates of the direction of writing.
bool IsDirection(char32_t code)
{
    return code == 0x061C || code == 0x200E || code == 0x200F ||
           (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

} // namespace

bool IsInvisible(char32_t code)
{
    return (code < 0x20 && code != '\t') || (code >= 0x7F && code < 0xA0) || code == 0x2028 ||
           code == 0x2029 || IsDirection(code) || code == 0xFEFF || (code & 0xFFFEU) == 0xFFFE;
}

void AppendUtf8(char32_t code, std::string *text)
{
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
