// Writing of .reg files.
#include <cstdio>
#include <cstring>

#include "agent/regfile/reg_text.h"
#include "agent/text/utf8.h"
#include "platform/registry.h"

namespace regfile {

namespace {

constexpr size_t kLineWidth = 78; // of lines of bytes, as such files have them

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

std::string Quoted(std::string_view text)
{
    std::string quoted = "\"";
    while (!text.empty()) {
        const text::Character character = text::FirstCharacter(text);
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
    if (value.type == REG_SZ && value.data.size() == shown.size() + 1 && IsPlain(shown)) {
        *text += name + Quoted(shown);
    } else if (value.type == REG_DWORD && value.data.size() == sizeof(uint32_t)) {
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
    std::string bytes = "\xFF\xFE";
    const auto append = [&](char32_t unit) {
        bytes += static_cast<char>(unit & 0xFFU);
        bytes += static_cast<char>(unit >> 8U);
    };
    while (!text.empty()) {
        const text::Character character = text::FirstCharacter(text);
        if (character.code == '\n')
            append('\r');
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
