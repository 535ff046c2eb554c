// The text form of registry files, form by form.
#include "agent/regfile/reg_text.h"

#include "platform/registry.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/issues_test.h"

namespace {

using host::RegValue;
using regfile::ParseRegText;
using regfile::RegStep;
using namespace std::string_literals;
using Kind = RegStep::Kind;

constexpr char kHeader[] = "Windows Registry Editor Version 5.00\n";

std::string IssuesOf(const std::string &lines)
{
    return test::Text(ParseRegText(kHeader + lines).issues);
}

std::string KindName(Kind kind)
{
    switch (kind) {
    case Kind::kCreateKey:
        return "key";
    case Kind::kDeleteKey:
        return "delete key";
    case Kind::kSetValue:
        return "set";
    case Kind::kDeleteValue:
        return "delete";
    }
    return "";
}

std::string Hex(const std::string &bytes)
{
    std::string text;
    for (const char byte : bytes) {
        char digits[4];
        snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

// The steps of a file without issues, one line each: "set PATH NAME TYPE BYTES".
std::string StepsOf(const std::string &bytes)
{
    const auto parsed = ParseRegText(bytes);
    EXPECT_EQ("", test::Text(parsed.issues)) << bytes;
    std::string text;
    for (const RegStep &step : parsed.steps) {
        text += KindName(step.kind) + " " + step.path;
        if (step.kind == Kind::kSetValue)
            text += " " + step.value.name + " " + std::to_string(step.value.type) + " " +
                    Hex(step.value.data);
        if (step.kind == Kind::kDeleteValue)
            text += " " + step.value.name;
        text += "\n";
    }
    return text;
}

// What a value becomes in the key K.
std::string ValueOf(const std::string &line)
{
    return StepsOf(kHeader + "[HKLM\\K]\n"s + line).substr(6);
}

// What is said about a line of values.
std::string ValueIssue(const std::string &line)
{
    return IssuesOf("[HKLM\\K]\n" + line);
}

// ---- the file ----

TEST(RegText, BothHeadersAreTaken)
{
    for (const char *header :
         {"Windows Registry Editor Version 5.00", "REGEDIT4", "\n; a comment\n  REGEDIT4  \r"})
        EXPECT_EQ("key K\n", StepsOf(header + "\n\n[HKEY_LOCAL_MACHINE\\K]\n"s));
    EXPECT_EQ("", StepsOf("REGEDIT4"));
    EXPECT_EQ("", StepsOf("REGEDIT4\n"));
}

TEST(RegText, AFileWithoutAHeaderIsRefused)
{
    const std::string issue = "cannot read the file: it does not begin as a registry file does; "
                              "write \"Windows Registry Editor Version 5.00\" or \"REGEDIT4\" into "
                              "the first line\n";
    EXPECT_EQ("1:1: " + issue, test::Text(ParseRegText("").issues));
    EXPECT_EQ("3:1: " + issue, test::Text(ParseRegText("\n;x\n[HKLM\\K]\n\"a\"=foo\n").issues));
    EXPECT_EQ("1:1: " + issue, test::Text(ParseRegText("REGEDIT5\n").issues));
    EXPECT_EQ("1:1: " + issue,
              test::Text(ParseRegText("Windows Registry Editor Version 6.00\n").issues));
}

TEST(RegText, Utf8AndBothByteOrdersOfUtf16AreTaken)
{
    const std::string text = "REGEDIT4\r\n[HKLM\\K]\r\n\"a\"=\"\u00E4\U0001F600\"\r\n";
    const std::string steps = "key K\nset K a 1 c3a4f09f988000\n";
    EXPECT_EQ(steps, StepsOf(text));
    EXPECT_EQ(steps, StepsOf("\xEF\xBB\xBF" + text));
    std::string little = regfile::ToUtf16File("REGEDIT4\n[HKLM\\K]\n\"a\"=\"\u00E4\U0001F600\"\n");
    EXPECT_EQ(0U, little.find("\xFF\xFER\0E\0"s));
    EXPECT_NE(std::string::npos, little.find("\r\0\n\0"s));
    EXPECT_EQ(steps, StepsOf(little));
    for (size_t i = 0; i < little.size(); i += 2)
        std::swap(little[i], little[i + 1]);
    EXPECT_EQ(steps, StepsOf(little));
}

TEST(RegText, BytesThatAreNoTextAreNamed)
{
    EXPECT_EQ(
        "2:7: cannot read the text: the byte E4 is not part of UTF-8; save the file as UTF-8\n",
        IssuesOf("[HKLM\\\xE4]\n"));
    EXPECT_EQ(
        "1:2: cannot read the text: it holds a zero byte; save the file as UTF-8, or as UTF-16 "
        "with a byte-order mark\n",
        test::Text(ParseRegText("R\0"s).issues));
}

TEST(RegText, CommentsAndEmptyLinesAreSkipped)
{
    EXPECT_EQ("key K\nset K a 1 7800\n",
              StepsOf("REGEDIT4\n; [x]\n\n  ;\t\n[HKLM\\K] ; key\n\t\n \"a\" = \"x\" ; value\n;"));
}

// ---- keys ----

TEST(RegText, KeysAreBelowTheRoot)
{
    EXPECT_EQ("key \nkey A\nkey A\\B\nkey A\n",
              StepsOf("REGEDIT4\n[HKEY_LOCAL_MACHINE]\n[hkey_local_machine\\A]\n[HKLM\\A\\B]\n  "
                      "[HKLM\\A]  \n"));
}

TEST(RegText, KeyNamesMayBeOdd)
{
    EXPECT_EQ("key  a ] b\n", StepsOf("REGEDIT4\n[HKLM\\ a ] b]\n"));
    EXPECT_EQ("key a\n", StepsOf("REGEDIT4\n[HKLM\\a] ; see [b]\n"));
    EXPECT_EQ("key a[\";=\n", StepsOf("REGEDIT4\n[HKLM\\a[\";=]\n"));
    EXPECT_EQ("key a] ;\xFF\\b\"\n", StepsOf("REGEDIT4\n[\"HKLM\\\\a] ;\\xFF\\\\b\\\"\"]\n"));
}

TEST(RegText, AKeyIsDeletedWithADash)
{
    EXPECT_EQ("delete key A\\B\nkey A\\B\ndelete key -C\n",
              StepsOf("REGEDIT4\n[-HKLM\\A\\B]\n[HKLM\\A\\B]\n[-\"HKLM\\\\-C\"]\n"));
}

TEST(RegText, AKeyThatCannotBeUsedIsNamed)
{
    const std::string form = "; write it as [HKEY_LOCAL_MACHINE\\NAME\\NAME]\n";
    for (const std::string path :
         {"HKEY_CURRENT_USER\\A", "SOFTWARE\\A", "", "HKLMX\\A", " HKLM\\A"})
        EXPECT_EQ("2:1: cannot use the key " + text::Shown(path) +
                      ": there is only the root HKEY_LOCAL_MACHINE here" + form,
                  IssuesOf("[" + path + "]\n"));
    for (const std::string path : {"A\\\\B", "A\\", "\\A"})
        EXPECT_EQ("2:1: cannot use the key " + text::Shown(path) +
                      ": a name in it is empty; write one backslash between two names, and none at "
                      "the end\n",
                  IssuesOf("[HKLM\\" + path + "]\n"));
    EXPECT_EQ("2:8: cannot read the key: its ] is missing" + form, IssuesOf("[HKLM\\A\n"));
    EXPECT_EQ("2:11: cannot read the key: its ] is missing" + form, IssuesOf("[\"HKLM\\\\A\"\n"));
    EXPECT_EQ("2:2: cannot read the key: its closing quote is missing; end it on this line; a line "
              "end in it is written \\x0A\n",
              IssuesOf("[\"HKLM\\\\A]\n"));
    EXPECT_EQ(
        "2:10: cannot read the line: there is something behind the key; end the line there; a "
        "comment begins with ;\n",
        IssuesOf("[HKLM\\A] x\n"));
    EXPECT_EQ("2:1: cannot delete HKEY_LOCAL_MACHINE: it is the root; name a key below it\n",
              IssuesOf("[-HKEY_LOCAL_MACHINE]\n"));
}

TEST(RegText, AKeyNameHasAtMost255Bytes)
{
    const std::string next =
        ": it has more than 255 bytes, or a zero byte; choose a shorter name\n";
    EXPECT_EQ("", IssuesOf("[HKLM\\" + std::string(255, 'k') + "]\n"));
    EXPECT_EQ("2:1: cannot use the key name " + text::Shown(std::string(256, 'k')) + next,
              IssuesOf("[HKLM\\a\\" + std::string(256, 'k') + "]\n"));
    EXPECT_EQ("2:1: cannot use the key name \"a?\"" + next, IssuesOf("[\"HKLM\\\\a\\x00\"]\n"));
}

// ---- values ----

TEST(RegText, ATextIsStoredWithItsZeroByte)
{
    EXPECT_EQ("set K a 1 7800\n", ValueOf("\"a\"=\"x\""));
    EXPECT_EQ("set K a 1 00\n", ValueOf("\"a\"=\"\""));
    EXPECT_EQ("set K a 1 225c09ff00\n", ValueOf("\"a\"=\"\\\"\\\\\t\\xFF\""));
}

TEST(RegText, AValueMayHaveNoNameOrAnOddOne)
{
    EXPECT_EQ("set K  1 7800\n", ValueOf("@=\"x\""));
    EXPECT_EQ("set K  1 7800\n", ValueOf("\"\"=\"x\""));
    EXPECT_EQ("set K @ 1 7800\n", ValueOf("\"@\"=\"x\""));
    EXPECT_EQ("set K =;\"\\\n 1 7800\n", ValueOf("\"=;\\\"\\\\\\x0A\" =\t\"x\""));
}

TEST(RegText, ANumberIsHexadecimal)
{
    EXPECT_EQ("set K a 4 2a000000\n", ValueOf("\"a\"=dword:0000002a"));
    EXPECT_EQ("set K a 4 ffffffff\n", ValueOf("\"a\"=DWORD:FFFFFFFF"));
    EXPECT_EQ("set K a 4 00000000\n", ValueOf("\"a\"=dword:0"));
}

TEST(RegText, BytesAreTakenOverSeveralLines)
{
    EXPECT_EQ("set K a 3 01abff\n", ValueOf("\"a\"=hex:01,aB,FF"));
    EXPECT_EQ("set K a 3 \n", ValueOf("\"a\"=hex:"));
    EXPECT_EQ("set K a 3 \n", ValueOf("\"a\"=hex: ; none"));
    EXPECT_EQ("set K a 3 0102030405\n",
              ValueOf("\"a\"=hex:01,02,\\\n  03,\\  \r\n\t\t04 , \\\n\\\n05 ; end"));
    EXPECT_EQ("set K a 3 01\n", ValueOf("\"a\"=hex:\\\n  01"));
}

TEST(RegText, EveryTypeHasItsNumber)
{
    EXPECT_EQ("set K a 1 61\n", ValueOf("\"a\"=hex(1):61"));
    EXPECT_EQ("set K a 7 6100\n", ValueOf("\"a\"=hex(7):61,00"));
    EXPECT_EQ("set K a 0 \n", ValueOf("\"a\"=hex(0):"));
    EXPECT_EQ("set K a 4294967295 00\n", ValueOf("\"a\"=HEX(ffffFFFF):00"));
}

TEST(RegText, AValueIsDeletedWithADash)
{
    EXPECT_EQ("delete K a\n", ValueOf("\"a\"=-"));
    EXPECT_EQ("delete K \n", ValueOf("@ = - ; gone"));
}

TEST(RegText, AValueWithoutAKeyIsRefused)
{
    EXPECT_EQ("2:1: cannot place the value \"a\": no key stands before it; write it as "
              "[HKEY_LOCAL_MACHINE\\NAME\\NAME]\n",
              IssuesOf("\"a\"=\"x\"\n[HKLM\\A]\n"));
    EXPECT_EQ("3:2: cannot place the value \"a\": the key before it is deleted; write the key once "
              "more, without the -, before its values\n",
              IssuesOf("[-HKLM\\A]\n \"a\"=\"x\"\n"));
    // A key that cannot be used is said once.
    EXPECT_EQ(1U, ParseRegText(kHeader + "[HKCU\\A]\n\"a\"=\"x\"\n\"b\"=-\n"s).issues.size());
}

TEST(RegText, AValueThatCannotBeReadIsNamed)
{
    const std::string forms =
        "; use \"text\", dword:0000002a, hex:01,ff, hex(7):61,00, or - to delete "
        "the value\n";
    for (const char *data : {"x", "", "dword 1", "qword:1", "hex=1", "1"})
        EXPECT_EQ("3:5: cannot read the data of the value \"a\": it has none of the forms that are "
                  "known" +
                      forms,
                  ValueIssue("\"a\"="s + data));
    EXPECT_EQ("3:4: cannot read the value \"a\": there is no = behind its name; write "
              "\"name\"=data\n",
              ValueIssue("\"a\""));
    EXPECT_EQ("3:5: cannot read the value \"a\": there is no = behind its name; write "
              "\"name\"=data\n",
              ValueIssue("\"a\" :\"x\""));
    EXPECT_EQ(
        "3:8: cannot read the line: there is something behind the data; end the line there; a "
        "comment begins with ;\n",
        ValueIssue("\"a\"=\"x\"y"));
    EXPECT_EQ(
        "3:6: cannot read the line: there is something behind the data; end the line there; a "
        "comment begins with ;\n",
        ValueIssue("\"a\"=-1"));
}

TEST(RegText, ATextThatCannotBeReadIsNamed)
{
    const std::string quote =
        "its closing quote is missing; end it on this line; a line end in it is "
        "written \\x0A\n";
    EXPECT_EQ("3:1: cannot read the name of a value: " + quote, ValueIssue("\"a=1\n"));
    EXPECT_EQ("3:5: cannot read the text: " + quote, ValueIssue("\"a\"=\"x\n@=-\n"));
    EXPECT_EQ("3:5: cannot read the text: " + quote, ValueIssue("\"a\"=\"x\\\""));
    const std::string escape = "its backslash begins nothing that is known; write \\\\ for a "
                               "backslash, \\\" for a quote, \\x0A for a byte\n";
    for (const char *data : {"\\n", "\\x", "\\x1", "\\x1g", "\\ "})
        EXPECT_EQ("3:7: cannot read the text: " + escape, ValueIssue("\"a\"=\"C"s + data + "\""));
    EXPECT_EQ("3:3: cannot read the name of a value: " + escape, ValueIssue("\"a\\b\"=\"x\""));
    EXPECT_EQ("3:5: cannot read the text: it has a zero byte in it; write its bytes as hex(1):\n",
              ValueIssue("\"a\"=\"x\\x00\""));
}

TEST(RegText, ANumberThatCannotBeReadIsNamed)
{
    for (const char *digits : {"", "123456789", "x", "-1"})
        EXPECT_EQ("3:11: cannot read the number: it is not of the form that is known; write one to "
                  "eight hexadecimal digits, such as dword:0000002a\n",
                  ValueIssue("\"a\"=dword:"s + digits));
    EXPECT_EQ(
        "3:13: cannot read the line: there is something behind the data; end the line there; a "
        "comment begins with ;\n",
        ValueIssue("\"a\"=dword:1 2"));
}

TEST(RegText, BytesThatCannotBeReadAreNamedOnTheirLine)
{
    const std::string next = ": two hexadecimal digits must stand here; write bytes as 01,ab,ff; a "
                             "line that goes on ends in a comma and a backslash\n";
    EXPECT_EQ("3:12: cannot read the bytes" + next, ValueIssue("\"a\"=hex:01,2"));
    EXPECT_EQ("3:9: cannot read the bytes" + next, ValueIssue("\"a\"=hex:0"));
    EXPECT_EQ("3:12: cannot read the bytes" + next, ValueIssue("\"a\"=hex:01,"));
    EXPECT_EQ(
        "3:11: cannot read the line: there is something behind the data; end the line there; a "
        "comment begins with ;\n",
        ValueIssue("\"a\"=hex:0102"));
    EXPECT_EQ("4:6: cannot read the bytes" + next,
              ValueIssue("\"a\"=hex:01,\\\n  02,x3,\\\n  04\n\"b\"=\"x\"\n"));
    EXPECT_EQ("3:12: cannot read the bytes: a backslash stands before the end of the line; end the "
              "line behind it\n",
              ValueIssue("\"a\"=hex:01,\\ 02\n"));
    EXPECT_EQ(
        "3:12: cannot read the bytes: the file ends before they do; write the next line, or end "
        "the bytes without a comma and a backslash\n",
        ValueIssue("\"a\"=hex:01,\\\n"));
    for (const char *type : {"", "x", "123456789", "7", "-1"})
        EXPECT_EQ(
            "3:9: cannot read the type of the data: it is not of the form that is known; write "
            "the number of the type in hexadecimal digits, such as hex(7):61,00\n",
            ValueIssue("\"a\"=hex("s + type + "01,02"));
}

TEST(RegText, NamesAndDataHaveLimits)
{
    EXPECT_EQ("", ValueIssue("\"" + std::string(16383, 'n') + "\"=\"\""));
    EXPECT_EQ("3:1: cannot use the value name " + text::Shown(std::string(16384, 'n')) +
                  ": it has more than 16383 bytes, or a zero byte; choose a shorter name\n",
              ValueIssue("\"" + std::string(16384, 'n') + "\"=\"\""));
    EXPECT_EQ("3:1: cannot use the value name \"?\": it has more than 16383 bytes, or a zero byte; "
              "choose a shorter name\n",
              ValueIssue("\"\\x00\"=\"\""));
    EXPECT_EQ("", ValueIssue("\"a\"=\"" + std::string((1U << 20U) - 1, 'x') + "\""));
    EXPECT_EQ("3:1: cannot use the value \"a\": it has 1048577 bytes; a value has at most 1 MiB\n",
              ValueIssue("\"a\"=\"" + std::string(1U << 20U, 'x') + "\""));
}

TEST(RegText, ALineThatIsNothingIsNamed)
{
    for (const char *line : {"x", "a=1", "-", "=", "]", "#comment"})
        EXPECT_EQ("2:1: cannot read the line: it is neither a key nor a value nor a comment; begin "
                  "a key with "
                  "[, a value with \" or @, a comment with ;\n",
                  IssuesOf(line));
}

TEST(RegText, AllMistakesAreFound)
{
    EXPECT_EQ(5U, ParseRegText(kHeader + "x\n[HKCU\\A]\n\"a\"=x\n[HKLM\\A]\n\"b\"=dword:\ny\n"s)
                      .issues.size());
}

// ---- writing ----

TEST(FormatRegText, WritesTheUsualForms)
{
    const std::string number("\x2A\0\0\0", 4);
    EXPECT_EQ("Windows Registry Editor Version 5.00\n"
              "\n"
              "[HKEY_LOCAL_MACHINE]\n"
              "\n"
              "[HKEY_LOCAL_MACHINE\\A\\B c]\n"
              "@=\"x\"\n"
              "\"a \\\"b\\\" \\\\\"=\"c:\\\\d \\\"e\\\"\t\u00E4\"\n"
              "\"bytes\"=hex:01,ff\n"
              "\"multi\"=hex(7):61,00,00\n"
              "\"none\"=hex(0):\n"
              "\"number\"=dword:0000002a\n",
              regfile::FormatRegText({{"", {}},
                                      {"A\\B c",
                                       {{"", REG_SZ, "x\0"s},
                                        {"a \"b\" \\", REG_SZ, "c:\\d \"e\"\t\u00E4\0"s},
                                        {"bytes", REG_BINARY, "\x01\xFF"},
                                        {"multi", 7, "a\0\0"s},
                                        {"none", 0, ""},
                                        {"number", REG_DWORD, number}}}}));
}

TEST(FormatRegText, WritesOddDataAsBytes)
{
    const auto text = [](uint32_t type, const std::string &data) {
        const std::string all = regfile::FormatRegText({{"", {{"a", type, data}}}});
        return all.substr(all.find("\"a\""));
    };
    EXPECT_EQ("\"a\"=hex(1):\n", text(REG_SZ, ""));
    EXPECT_EQ("\"a\"=hex(1):78\n", text(REG_SZ, "x"));
    EXPECT_EQ("\"a\"=hex(1):78,00,00\n", text(REG_SZ, "x\0\0"s));
    EXPECT_EQ("\"a\"=hex(1):0a,00\n", text(REG_SZ, "\n\0"s));
    EXPECT_EQ("\"a\"=hex(1):ff,00\n", text(REG_SZ, "\xFF\0"s));
    EXPECT_EQ("\"a\"=hex(4):01\n", text(REG_DWORD, "\x01"));
    EXPECT_EQ("\"a\"=hex(4):01,02,03,04,05\n", text(REG_DWORD, "\1\2\3\4\5"));
    EXPECT_EQ("\"a\"=hex(ffffffff):00\n", text(0xFFFFFFFF, "\0"s));
}

TEST(FormatRegText, WritesOddNamesWithEscapes)
{
    const std::string text = regfile::FormatRegText(
        {{"a\nb\\\xFF", {{"c\x1B\u2028\xC3", REG_SZ, "\0"s}}}, {"a] ;b", {}}, {"a]b", {}}});
    EXPECT_NE(std::string::npos, text.find("\n[\"HKEY_LOCAL_MACHINE\\\\a\\x0Ab\\\\\\xFF\"]\n"
                                           "\"c\\x1B\\xE2\\x80\\xA8\\xC3\"=\"\"\n"
                                           "\n[\"HKEY_LOCAL_MACHINE\\\\a] ;b\"]\n"
                                           "\n[HKEY_LOCAL_MACHINE\\a]b]\n"))
        << text;
}

TEST(FormatRegText, BreaksLongLines)
{
    const std::string text =
        regfile::FormatRegText({{"", {{"a", REG_BINARY, std::string(100, '\xAB')}}}});
    size_t lines = 0;
    for (size_t begin = text.find("\"a\""); begin < text.size(); ++lines) {
        const size_t end = text.find('\n', begin);
        EXPECT_GE(80U, end - begin);
        EXPECT_EQ(lines > 0, text.substr(begin, 2) == "  ");
        begin = end + 1;
    }
    EXPECT_EQ(5U, lines);
}

TEST(PathBelowRoot, TakesBothNamesOfTheRoot)
{
    EXPECT_EQ("", regfile::PathBelowRoot("HKEY_LOCAL_MACHINE"));
    EXPECT_EQ("", regfile::PathBelowRoot("HKLM\\"));
    EXPECT_EQ("a\\b", regfile::PathBelowRoot("hklm\\a\\b"));
    EXPECT_EQ(std::nullopt, regfile::PathBelowRoot("a\\b"));
    EXPECT_EQ(std::nullopt, regfile::PathBelowRoot(""));
    EXPECT_EQ(std::nullopt, regfile::PathBelowRoot("HKEY_LOCAL_MACHINES\\a"));
}

} // namespace
