// Writing of .reg files.
//
// What is written is read back as the same bytes, whatever names and texts hold: the usual form
// where it can do that, escapes or bytes in hexadecimal where it cannot. The text is always UTF-8.
#include <cstdio>
#include <cstring>

#include "agent/regfile/reg_text.h"
#include "agent/text/utf8.h"
#include "platform/registry.h"

namespace regfile {

namespace {

// Characters in a line of bytes, at most, as such files have them. A long name may make its first
// line longer.
constexpr size_t kLineWidth = 78;

// Can it be written as it is? A character that an editor does not show might get lost in one.
bool IsPlain(std::string_view text)
{
    while (!text.empty()) {
        const text::Character character = text::FirstCharacter(text);
        if (character.bytes == 0 || text::IsInvisible(character.code))
            return false;
        text.remove_prefix(character.bytes);
    }
    return true;
}

// A byte that belongs to no UTF-8 character, and each byte of a character that is not seen, becomes
// \xHH.
std::string Quoted(std::string_view text)
{
    std::string quoted = "\"";
    while (!text.empty()) {
        const text::Character character = text::FirstCharacter(text);
        // One that is no UTF-8 stands for itself.
        const size_t bytes = character.bytes > 0 ? character.bytes : 1;
        if (character.bytes == 0 || text::IsInvisible(character.code)) {
            for (const char byte : text.substr(0, bytes)) {
                char escape[8];
                snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned char>(byte));
                quoted += escape;
            }
        } else {
            if (text[0] == '"' || text[0] == '\\')
                quoted += '\\';
            quoted += text.substr(0, bytes);
        }
        text.remove_prefix(bytes);
    }
    return quoted + "\"";
}

// Would a reader take the key to end earlier, at a ] with a comment behind it?
bool LooksLikeComment(std::string_view path)
{
    for (size_t i = path.find(']'); i != std::string_view::npos; i = path.find(']', i + 1)) {
        const size_t next = path.find_first_not_of(" \t", i + 1);
        if (next != std::string_view::npos && path[next] == ';')
            return true;
    }
    return false;
}

// In quotes only where it must be: other programs do not know that form.
std::string FormatPath(const std::string &below)
{
    const std::string path = kRegRootName + (below.empty() ? "" : "\\" + below);
    return "[" + (IsPlain(path) && !LooksLikeComment(path) ? path : Quoted(path)) + "]";
}

// Appends bytes as hexadecimal digits behind `head`, over as many lines as that takes.
void AppendBytes(const std::string &head, std::string_view data, std::string *text)
{
    *text += head;
    size_t width = head.size();
    for (size_t i = 0; i < data.size(); ++i) {
        const bool is_last = i + 1 == data.size();
        char byte[8];
        snprintf(byte, sizeof byte, "%02x%s", static_cast<unsigned char>(data[i]),
                 is_last ? "" : ",");
        *text += byte;
        width += 3;
        // Two digits and a comma more, and the backslash that may have to follow.
        if (!is_last && width + 4 > kLineWidth) {
            *text += "\\\n  ";
            width = 2;
        }
    }
}

void AppendValue(const host::RegValue &value, std::string *text)
{
    const std::string name = (value.name.empty() ? "@" : Quoted(value.name)) + "=";
    const std::string shown = TextOf(value);
    // As a text only with exactly one zero byte, at its end: reading adds one. Any other stays as
    // its bytes, hex(1).
    if (value.type == REG_SZ && value.data.size() == shown.size() + 1 && IsPlain(shown)) {
        *text += name + Quoted(shown);
    } else if (value.type == REG_DWORD && value.data.size() == sizeof(uint32_t)) {
        // One of another size has no form but its bytes, hex(4).
        uint32_t number = 0;
        memcpy(&number, value.data.data(), sizeof number);
        char digits[16];
        snprintf(digits, sizeof digits, "dword:%08x", number);
        *text += name + digits;
    } else if (value.type == REG_BINARY) {
        AppendBytes(name + "hex:", value.data, text);
    } else {
        char type[16];
        snprintf(type, sizeof type, "hex(%x):", value.type);
        AppendBytes(name + type, value.data, text);
    }
    *text += "\n";
}

} // namespace

std::string FormatRegText(const std::vector<RegKeyContent> &keys)
{
    std::string text = "Windows Registry Editor Version 5.00\n";
    for (const RegKeyContent &key : keys) {
        text += "\n" + FormatPath(key.path) + "\n";
        for (const host::RegValue &value : key.values)
            AppendValue(value, &text);
    }
    return text;
}

std::string ToUtf16File(std::string_view text)
{
    // Little-endian, with its mark: that is what such programs write and read.
    std::string bytes = "\xFF\xFE";
    const auto append = [&](char32_t unit) {
        bytes += static_cast<char>(unit & 0xFFU);
        bytes += static_cast<char>(unit >> 8U);
    };
    while (!text.empty()) {
        const text::Character character = text::FirstCharacter(text);
        if (character.code == '\n')
            append('\r');
        // Beyond the first plane, as a pair of surrogates.
        if (character.code >= 0x10000) {
            append(0xD800 + ((character.code - 0x10000) >> 10U));
            append(0xDC00 + ((character.code - 0x10000) & 0x3FFU));
        } else {
            append(character.code);
        }
        text.remove_prefix(character.bytes > 0 ? character.bytes : 1);
    }
    return bytes;
}

} // namespace regfile
