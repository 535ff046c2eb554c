#include "agent/rules/yaml_text.h"

#include <algorithm>
#include <cstdio>

#include "agent/text/base64.h"
#include "agent/text/utf8.h"

namespace rules {

namespace {

// In YAML, \x and two digits are a character below 256 and not a byte. So bytes that are no UTF-8
// cannot be escaped.
std::string Escaped(char32_t code)
{
    char text[16];
    if (code < 0x100)
        snprintf(text, sizeof text, "\\x%02X", static_cast<unsigned>(code));
    else if (code < 0x10000)
        snprintf(text, sizeof text, "\\u%04X", static_cast<unsigned>(code));
    else
        snprintf(text, sizeof text, "\\U%08X", static_cast<unsigned>(code));
    return text;
}

} // namespace

std::string Quoted(std::string_view text)
{
    if (!text::IsUtf8(text))
        return "!!binary \"" + text::EncodeBase64(text) + "\"";
    std::string quoted = "\"";
    while (!text.empty()) {
        const text::Character character = text::FirstCharacter(text);
        if (character.code == '"' || character.code == '\\')
            quoted += '\\';
        if (character.code == '\t' || text::IsInvisible(character.code))
            quoted += Escaped(character.code);
        else
            quoted += text.substr(0, character.bytes);
        text.remove_prefix(character.bytes);
    }
    return quoted + "\"";
}

std::string Comment(std::string_view text)
{
    std::string comment = "# ";
    while (!text.empty()) {
        const text::Character character = text::FirstCharacter(text);
        // A line end in it would end the comment, and the rest be read as YAML.
        const bool is_shown = character.bytes > 0 && !text::IsInvisible(character.code);
        comment += is_shown ? text.substr(0, character.bytes) : "?";
        text.remove_prefix(std::max<size_t>(character.bytes, 1));
    }
    return comment + "\n";
}

} // namespace rules
