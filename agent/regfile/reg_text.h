// The text form of registry files (.reg).
//
//   Windows Registry Editor Version 5.00       or REGEDIT4
//
//   ; a comment
//   [HKEY_LOCAL_MACHINE\SOFTWARE\Name]         a key: it is created when it is missing
//   "text"="a \"text\" with a \\"              REG_SZ
//   "number"=dword:0000002a                    REG_DWORD, hexadecimal
//   "bytes"=hex:01,ab,\                        REG_BINARY; the backslash goes on in the next line
//     ff
//   "other"=hex(7):61,00                       any type, its number in hexadecimal
//   @="x"                                      the value without a name
//   "gone"=-                                   the value is deleted
//   [-HKEY_LOCAL_MACHINE\SOFTWARE\Old]         the key is deleted, with everything below it
//
// All bytes of hex forms are those of the registry, whose texts are UTF-8, whichever header the
// file has. Beyond the usual form, so that every name can be written: \xHH in quotes is a byte, and
// a key may stand in quotes, too: ["HKEY_LOCAL_MACHINE\\a\x0Ab"].
//
// Functions here are pure: text in, result or issues out.
#ifndef AGENT_REGFILE_REG_TEXT_H
#define AGENT_REGFILE_REG_TEXT_H

#include <string>
#include <string_view>
#include <vector>

#include "agent/host/registry_tree.h"
#include "agent/regfile/reg_path.h"
#include "agent/text/text_file.h"

namespace regfile {

// Bytes. A registry of 60 MB of values fits in, in UTF-16, too. A file is read as a whole, so there
// must be an end before the memory is used up.
inline constexpr size_t kMaxRegFile = size_t{512} * 1024 * 1024;

// What a file asks for, one step after the other.
struct RegStep {
    enum class Kind { kCreateKey, kDeleteKey, kSetValue, kDeleteValue };

    Kind kind = Kind::kCreateKey;
    std::string path;     // below HKEY_LOCAL_MACHINE; empty for itself
    host::RegValue value; // for kDeleteValue, only the name
};

// An import looks at the issues first: with one of them, nothing of the file is done.
struct ParsedRegText {
    std::vector<RegStep> steps; // complete only without issues
    std::vector<text::Issue> issues;
};

// Reads the bytes of a .reg file. All that is wrong is found, not only the first.
ParsedRegText ParseRegText(std::string_view bytes);

// A key with its values, as it is written.
struct RegKeyContent {
    std::string path; // below HKEY_LOCAL_MACHINE; empty for itself
    std::vector<host::RegValue> values;
};

// The text of a .reg file, in UTF-8 with line feeds. ParseRegText turns it into the same keys and
// values, byte for byte, in the same order.
std::string FormatRegText(const std::vector<RegKeyContent> &keys);

// The same text in UTF-16 with byte-order mark and line ends of Windows.
std::string ToUtf16File(std::string_view text);

} // namespace regfile

#endif // AGENT_REGFILE_REG_TEXT_H
