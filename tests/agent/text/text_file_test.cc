// Files as text: character sets, positions, and the small tools around them.
#include "agent/text/text_file.h"

#include <fstream>
#include <sys/stat.h>

#include "agent/text/base64.h"
#include "agent/text/utf8.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/issues_test.h"
#include "tests/agent/support/random_test.h"

namespace {

using text::DecodedText;
using text::DecodeText;
using namespace std::string_literals;

// ---- characters ----

TEST(Utf8, EveryCharacterIsReadAsItWasWritten)
{
    for (char32_t code = 1; code <= 0x10FFFF; ++code) {
        if (code >= 0xD800 && code <= 0xDFFF)
            continue;
        std::string text;
        text::AppendUtf8(code, &text);
        const text::Character character = text::FirstCharacter(text + "x");
        ASSERT_EQ(code, character.code);
        ASSERT_EQ(text.size(), character.bytes);
    }
}

TEST(Utf8, OverlongFormsSurrogatesAndHalvesAreNoCharacters)
{
    for (const char *bytes :
         {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xED\xBF\xBF",
          "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF8", "\xFF", "\xC3", "\xE2\x82",
          "\xF0\x9F\x98", "\xC3x"}) {
        EXPECT_EQ(0U, text::FirstCharacter(bytes).bytes);
        EXPECT_FALSE(text::IsUtf8("a"s + bytes));
    }
    EXPECT_EQ(0U, text::FirstCharacter("").bytes);
    EXPECT_TRUE(text::IsUtf8(""));
}

// ---- decoding ----

TEST(DecodeText, TakesUtf8WithAndWithoutAMark)
{
    EXPECT_EQ("a\u00E4\n", DecodeText("a\u00E4\n").text);
    EXPECT_EQ("a\u00E4\n", DecodeText("\xEF\xBB\xBF"
                                      "a\u00E4\n")
                               .text);
    EXPECT_EQ("", DecodeText("").text);
    EXPECT_EQ("", DecodeText("\xEF\xBB\xBF").text);
}

TEST(DecodeText, TakesUtf16OfBothByteOrders)
{
    const std::string little = "\xFF\xFE" + "a\0\xE4\0\x3D\xD8\x00\xDE\r\0\n\0"s;
    const std::string big = "\xFE\xFF" + "\0a\0\xE4\xD8\x3D\xDE\x00\0\r\0\n"s;
    for (const std::string &bytes : {little, big}) {
        const DecodedText decoded = DecodeText(bytes);
        EXPECT_EQ("a\u00E4\U0001F600\r\n", decoded.text);
        EXPECT_EQ("", test::Text(decoded.issues));
    }
}

TEST(DecodeText, NamesTheByteThatIsNotUtf8)
{
    EXPECT_EQ("2:3: cannot read the text: the byte E4 is not part of UTF-8; save the file as "
              "UTF-8\n",
              test::Text(DecodeText("\u00E4\n\u00E4x\xE4y").issues));
}

TEST(DecodeText, NamesHalvesOfUtf16Characters)
{
    const std::string issue = "cannot read the text: half of a character of UTF-16 is missing "
                              "here; save the file as UTF-8\n";
    EXPECT_EQ("1:2: " + issue, test::Text(DecodeText("\xFF\xFE" + "a\0\x00\xD8"s).issues));
    EXPECT_EQ("1:2: " + issue, test::Text(DecodeText("\xFF\xFE" + "a\0\x00\xDC"
                                                                  "b\0"s)
                                              .issues));
    EXPECT_EQ("1:2: " + issue, test::Text(DecodeText("\xFF\xFE" + "a\0b"s).issues));
}

TEST(DecodeText, NamesCharactersThatNoTextHas)
{
    EXPECT_EQ("1:1: cannot read the text: it holds a zero byte; save the file as UTF-8, or as "
              "UTF-16 with a byte-order mark\n",
              test::Text(DecodeText("\0a"s).issues));
    EXPECT_EQ("1:2: cannot read the text: it holds a carriage return without a line feed; save "
              "the file with line ends of Unix or of Windows\n",
              test::Text(DecodeText("a\rb\r\n").issues));
    EXPECT_EQ("1:2: cannot read the text: it holds the control character U+001B; write it as an "
              "escape in quotes, \\x1B\n",
              test::Text(DecodeText("a\x1B\t\n").issues));
}

TEST(DecodeText, OfAFileThatIsNoTextShowsTheFirstIssuesAndCountsTheOthers)
{
    const DecodedText decoded = DecodeText(std::string(1000000, '\xFF'));
    ASSERT_EQ(text::IssueList::kMax + 1, decoded.issues.size());
    EXPECT_EQ("999800 more mistakes are not shown: is this the file that you meant?",
              decoded.issues.back().what);
}

// ---- issues ----

TEST(IssueList, CountsLinesAndCharacters)
{
    const std::string text = "ab\n\u00E4\u00F6x\r\n\ny";
    text::IssueList issues(text);
    EXPECT_EQ((text::Position{1, 1}), issues.At(0));
    EXPECT_EQ((text::Position{1, 3}), issues.At(2));
    EXPECT_EQ((text::Position{2, 1}), issues.At(3));
    EXPECT_EQ((text::Position{2, 3}), issues.At(7));
    EXPECT_EQ((text::Position{3, 1}), issues.At(10));
    EXPECT_EQ((text::Position{4, 2}), issues.At(12));
    EXPECT_EQ((text::Position{4, 2}), issues.At(99));
}

TEST(IssueList, GivesThemInTheOrderOfTheFile)
{
    text::IssueList issues("abc");
    EXPECT_TRUE(issues.empty());
    issues.Add(2, "third");
    issues.Add(0, "first");
    issues.Add(0, "second", "of", "them");
    EXPECT_EQ("1:1: first\n1:1: second: of; them\n1:3: third\n", test::Text(issues.Take()));
}

TEST(IssueList, SaysHowManyAreNotShown)
{
    text::IssueList issues("abc");
    for (size_t i = 0; i < text::IssueList::kMax + 7; ++i)
        issues.Add(1, "again");
    EXPECT_TRUE(issues.full());
    const auto taken = issues.Take();
    ASSERT_EQ(text::IssueList::kMax + 1, taken.size());
    EXPECT_EQ("7 more mistakes are not shown: is this the file that you meant?", taken.back().what);
    EXPECT_EQ(text::IssueList::kMax + 7, text::CountMistakes(taken));
}

TEST(Shown, IsShortAndHarmless)
{
    EXPECT_EQ("\"\"", text::Shown(""));
    EXPECT_EQ("\"a \u00E4\"", text::Shown("a \u00E4"));
    EXPECT_EQ("\"?[2J?\\xFF\"", text::Shown("\x1B[2J\u2028\xFF"));
    EXPECT_EQ("\"" + std::string(60, 'x') + "\"", text::Shown(std::string(60, 'x')));
    EXPECT_EQ("\"" + std::string(60, 'x') + "...\"", text::Shown(std::string(61, 'x')));
}

// ---- files ----

class ReadWholeFile : public test::RootTest {};

TEST_F(ReadWholeFile, GivesEveryByte)
{
    std::string bytes(300000, 'x');
    bytes[7] = '\0';
    test::WriteFile(File("f"), bytes);
    EXPECT_EQ(bytes, text::ReadWholeFile(File("f").string(), bytes.size()));
    test::WriteFile(File("f"), "");
    EXPECT_EQ("", text::ReadWholeFile(File("f").string(), 0));
}

TEST_F(ReadWholeFile, RefusesWhatItCannotRead)
{
    const auto error = [](const std::string &path) {
        return test::ErrorOf([&] { text::ReadWholeFile(path, size_t{2} << 20U); });
    };
    EXPECT_EQ("cannot read " + File("none").string() +
                  ": No such file or directory; name a file that you may read, or - for standard "
                  "input",
              error(File("none").string()));
    EXPECT_EQ("cannot read " + Root().string() + ": it is a folder; name a file in it",
              error(Root().string()));
    EXPECT_EQ("cannot read /dev/zero: it has more than 2 MiB; is this the file that you meant?",
              error("/dev/zero"));
    test::WriteFile(File("f"), std::string((size_t{2} << 20U) + 1, 'x'));
    EXPECT_EQ("cannot read " + File("f").string() +
                  ": it has more than 2 MiB; is this the file that you meant?",
              error(File("f").string()));
}

// ---- base64 ----

TEST(Base64, WritesWhatTheStandardGives)
{
    const std::vector<std::pair<std::string, std::string>> examples = {{"", ""},
                                                                       {"f", "Zg=="},
                                                                       {"fo", "Zm8="},
                                                                       {"foo", "Zm9v"},
                                                                       {"foob", "Zm9vYg=="},
                                                                       {"fooba", "Zm9vYmE="},
                                                                       {"foobar", "Zm9vYmFy"},
                                                                       {"\xFF\xFE", "//4="}};
    for (const auto &[bytes, text] : examples) {
        EXPECT_EQ(text, text::EncodeBase64(bytes));
        EXPECT_EQ(bytes, text::DecodeBase64(text));
    }
    EXPECT_EQ("foobar", text::DecodeBase64(" Zm9v\n\tYmFy "));
}

TEST(Base64, AnyBytesComeBack)
{
    test::RandomData random;
    for (int i = 0; i < 1000; ++i) {
        const std::string bytes = random.Bytes(20);
        EXPECT_EQ(bytes, text::DecodeBase64(text::EncodeBase64(bytes)));
    }
}

TEST(Base64, RefusesWhatIsNone)
{
    for (const char *text :
         {"Z", "Zg", "Zg=", "Z===", "====", "Zg==Zg==", "Z!==", "Zm9\xFF", "=Zg="})
        EXPECT_EQ(std::nullopt, text::DecodeBase64(text)) << text;
}

} // namespace
