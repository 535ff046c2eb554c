// Text conversion between the registry's character set (UTF-8) and the log's.
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

#include "agent/host/convert.h"
#include "platform/agent.h"

namespace {

constexpr int kToRegistry[] = {CODE_LOG, CODE_REGISTRY};
constexpr int kToLog[] = {CODE_REGISTRY, CODE_LOG};

struct Converted {
    int result = 0;
    std::string text; // up to the zero byte
};

// Converts into a destination of `size` bytes, and checks that nothing is written behind it.
Converted Convert(const std::string &source, const int (&codes)[2], size_t size, int length = -1)
{
    std::string destination(size + 4, '\xEE');
    const int result = TarskCodeConvert(source.c_str(), length, destination.data(),
                                        static_cast<int>(size), codes[0], codes[1]);
    EXPECT_EQ(std::string(4, '\xEE'), destination.substr(size)) << "written behind its end";
    const size_t end = destination.find('\0');
    EXPECT_LT(end, size) << "not terminated";
    return {result, destination.substr(0, end)};
}

std::string ToRegistry(const std::string &source)
{
    return Convert(source, kToRegistry, 1000).text;
}

std::string ToLog(const std::string &source)
{
    return Convert(source, kToLog, 1000).text;
}

// A text as its characters in both sets.
struct Character {
    const char *utf8;
    const char *log;
};
using Text = std::vector<Character>;

std::string Utf8Of(const Text &text)
{
    std::string bytes;
    for (const Character &character : text)
        bytes += character.utf8;
    return bytes;
}

std::string LogOf(const Text &text)
{
    std::string bytes;
    for (const Character &character : text)
        bytes += character.log;
    return bytes;
}

// The characters that fit whole before the zero byte.
std::string Fitting(const std::vector<std::string> &characters, size_t size)
{
    std::string bytes;
    for (const std::string &character : characters) {
        if (bytes.size() + character.size() + 1 > size)
            break;
        bytes += character;
    }
    return bytes;
}

void ExpectWholeCharactersAtEverySize(const std::string &source, const int (&codes)[2],
                                      const std::vector<std::string> &characters)
{
    size_t full = 0;
    for (const std::string &character : characters)
        full += character.size();
    for (size_t size = 1; size <= full + 3; ++size) {
        const Converted converted = Convert(source, codes, size);
        EXPECT_EQ(Fitting(characters, size), converted.text) << size;
        EXPECT_EQ(static_cast<int>(converted.text.size()), converted.result) << size;
    }
}

class Conversion : public testing::Test {
  protected:
    ~Conversion() override { host::SetLogCharset("UTF-8"); }

    static void ExpectBothWaysAtEverySize(const char *charset, const Text &text)
    {
        ASSERT_TRUE(host::SetLogCharset(charset));
        std::vector<std::string> utf8;
        std::vector<std::string> log;
        for (const Character &character : text) {
            utf8.emplace_back(character.utf8);
            log.emplace_back(character.log);
        }
        EXPECT_EQ(Utf8Of(text), ToRegistry(LogOf(text)));
        EXPECT_EQ(LogOf(text), ToLog(Utf8Of(text)));
        ExpectWholeCharactersAtEverySize(LogOf(text), kToRegistry, utf8);
        ExpectWholeCharactersAtEverySize(Utf8Of(text), kToLog, log);
    }
};

// ---- each character set, both ways, at every size of the destination ----

TEST_F(Conversion, OfUtf8IsACopy)
{
    ExpectBothWaysAtEverySize("UTF-8",
                              {{"a", "a"}, {"é", "é"}, {"あ", "あ"}, {"😀", "😀"}, {"b", "b"}});
}

TEST_F(Conversion, KnowsUtf8ByItsOtherNames)
{
    for (const char *name : {"utf-8", "UTF8", "utf8"}) {
        ASSERT_TRUE(host::SetLogCharset(name));
        ExpectWholeCharactersAtEverySize("あい", kToLog, {"あ", "い"});
        EXPECT_EQ("a\xFF\xC3", ToRegistry("a\xFF\xC3"));
    }
}

TEST_F(Conversion, OfLatin1)
{
    ExpectBothWaysAtEverySize(
        "ISO-8859-1", {{"a", "a"}, {"é", "\xE9"}, {"ß", "\xDF"}, {"ÿ", "\xFF"}, {"z", "z"}});
}

TEST_F(Conversion, OfEucJp)
{
    ExpectBothWaysAtEverySize("EUC-JP", {{"a", "a"},
                                         {"あ", "\xA4\xA2"},
                                         {"日", "\xC6\xFC"},
                                         {"本", "\xCB\xDC"},
                                         {"ｱ", "\x8E\xB1"},
                                         {"b", "b"}});
}

TEST_F(Conversion, OfShiftJis)
{
    ExpectBothWaysAtEverySize("SHIFT_JIS", {{"a", "a"},
                                            {"あ", "\x82\xA0"},
                                            {"表", "\x95\x5C"}, // ends in the byte of a backslash
                                            {"ソ", "\x83\x5C"},
                                            {"ｱ", "\xB1"},
                                            {"b", "b"}});
}

TEST_F(Conversion, OfAKeywordThatFillsItsBufferKeepsWholeCharacters)
{
    ASSERT_TRUE(host::SetLogCharset("EUC-JP"));
    std::string utf8;
    for (int i = 0; i < 85; ++i)
        utf8 += "あ"; // 255 bytes, as long as a keyword of these can be
    const Converted converted = Convert(utf8, kToLog, 257);
    EXPECT_EQ(170, converted.result);
    EXPECT_EQ(utf8, ToRegistry(converted.text));
}

TEST_F(Conversion, WithoutAChangeOfCodeIsACopyOfWholeCharacters)
{
    const int registry[2] = {CODE_REGISTRY, CODE_REGISTRY};
    const int log[2] = {CODE_LOG, CODE_LOG};
    ASSERT_TRUE(host::SetLogCharset("EUC-JP"));
    ExpectWholeCharactersAtEverySize("aéあ", registry, {"a", "é", "あ"});
    ExpectWholeCharactersAtEverySize("a\xA4\xA2\xC6\xFC", log, {"a", "\xA4\xA2", "\xC6\xFC"});
}

// ---- what cannot be converted ----

TEST_F(Conversion, KeepsTheBytesOfCharactersThatTheLogsSetDoesNotHave)
{
    ASSERT_TRUE(host::SetLogCharset("ISO-8859-1"));
    EXPECT_EQ("a€あ😀\xE9", ToLog("a€あ😀é"));
    ExpectWholeCharactersAtEverySize("a€é", kToLog, {"a", "€", "\xE9"});
}

TEST_F(Conversion, KeepsTheBytesThatAreNoUtf8)
{
    ASSERT_TRUE(host::SetLogCharset("ISO-8859-1"));
    EXPECT_EQ("a\xFF\xE9", ToLog("a\xFF"
                                 "é"));
    EXPECT_EQ("a\x80\xE9", ToLog("a\x80"
                                 "é"));
    EXPECT_EQ("a\xE3\x81", ToLog("a\xE3\x81")) << "a character that is not finished";
    EXPECT_EQ("\xE3\x81"
              "b",
              ToLog("\xE3\x81"
                    "b"));
    EXPECT_EQ("\xC3(\xE9", ToLog("\xC3(é"));
}

TEST_F(Conversion, KeepsTheBytesThatAreNoCharacterOfTheLogsSet)
{
    ASSERT_TRUE(host::SetLogCharset("EUC-JP"));
    EXPECT_EQ("a\xFFz", ToRegistry("a\xFFz"));
    EXPECT_EQ("あ\xA4", ToRegistry("\xA4\xA2\xA4")) << "a character that is not finished";
    EXPECT_EQ("\xA4zあ", ToRegistry("\xA4z\xA4\xA2"));
}

TEST_F(Conversion, GoesOnRightBehindACharacterOfTheLogsSetThatIsUnknown)
{
    // A9A1 has the form of a character and is none. What stands behind it must not be taken apart.
    ASSERT_TRUE(host::SetLogCharset("EUC-JP"));
    EXPECT_EQ("\xA9\xA1あ日", ToRegistry("\xA9\xA1\xA4\xA2\xC6\xFC"));
}

TEST_F(Conversion, OfBytesThatAreNoUtf8IsCutWherePossible)
{
    EXPECT_EQ("\x80\x80\x80", Convert("\x80\x80\x80\x80\x80", kToLog, 4).text);
    EXPECT_EQ("\xFF\xFF", Convert("\xFF\xFF\xFF", kToLog, 3).text);
}

TEST_F(Conversion, KeepsInvalidBytesAtEverySizeWithinTheDestination)
{
    for (const char *charset : {"UTF-8", "ISO-8859-1", "EUC-JP", "SHIFT_JIS"}) {
        ASSERT_TRUE(host::SetLogCharset(charset));
        std::string all;
        for (int byte = 255; byte > 0; --byte)
            all += static_cast<char>(byte);
        for (size_t size = 1; size < 600; ++size) {
            for (const auto &codes : {kToLog, kToRegistry}) {
                const int pair[2] = {codes[0], codes[1]};
                const Converted converted = Convert(all, pair, size);
                EXPECT_EQ(static_cast<int>(converted.text.size()), converted.result);
            }
        }
    }
}

// ---- arguments ----

TEST_F(Conversion, TakesTheGivenLengthOrUpToTheZeroByte)
{
    for (const char *charset : {"UTF-8", "ISO-8859-1"}) {
        ASSERT_TRUE(host::SetLogCharset(charset));
        EXPECT_EQ("abc", Convert("abcdef", kToLog, 100, 3).text);
        EXPECT_EQ("", Convert("abcdef", kToLog, 100, 0).text);
        EXPECT_EQ("abcdef", Convert("abcdef", kToLog, 100, -1).text);
        EXPECT_EQ("abc", Convert(std::string("abc\0def", 7), kToLog, 100, 7).text);
        EXPECT_EQ("abc", Convert("abc", kToLog, 100, 50).text);
        EXPECT_EQ("", Convert("", kToLog, 1).text);
    }
}

TEST_F(Conversion, ReadsNothingBehindTheGivenLength)
{
    // The bytes behind the end of the source belong to nobody: the sanitizer builds see a read.
    std::vector<char> source = {'a', 'b', 'c'};
    char destination[8] = {};
    EXPECT_EQ(3, TarskCodeConvert(source.data(), 3, destination, 8, CODE_REGISTRY, CODE_LOG));
    EXPECT_STREQ("abc", destination);
    EXPECT_EQ(2, TarskCodeConvert(source.data(), 3, destination, 3, CODE_REGISTRY, CODE_LOG));
    EXPECT_STREQ("ab", destination);
}

TEST_F(Conversion, WithoutADestinationFails)
{
    char destination[4] = "old";
    EXPECT_EQ(-1, TarskCodeConvert("abc", -1, nullptr, 4, CODE_REGISTRY, CODE_LOG));
    EXPECT_EQ(-1, TarskCodeConvert("abc", -1, destination, 0, CODE_REGISTRY, CODE_LOG));
    EXPECT_EQ(-1, TarskCodeConvert("abc", -1, destination, -1, CODE_REGISTRY, CODE_LOG));
    EXPECT_STREQ("old", destination);
}

TEST_F(Conversion, WithoutASourceFailsAndTheDestinationIsEmpty)
{
    char destination[4] = "old";
    EXPECT_EQ(-1, TarskCodeConvert(nullptr, -1, destination, 4, CODE_REGISTRY, CODE_LOG));
    EXPECT_STREQ("", destination);
}

// ---- the setting ----

TEST_F(Conversion, KeepsTheSetBeforeWhenOneIsNotKnown)
{
    ASSERT_TRUE(host::SetLogCharset("ISO-8859-1"));
    EXPECT_FALSE(host::SetLogCharset("NO-SUCH-SET"));
    EXPECT_EQ("\xE9", ToLog("é"));
}

TEST_F(Conversion, KnowsCharacterSetsByTheirNames)
{
    for (const char *name : {"UTF-8", "ISO-8859-1", "EUC-JP", "SHIFT_JIS", "KOI8-R", "GB18030"})
        EXPECT_TRUE(host::CharsetIsKnown(name)) << name;
    for (const char *name : {"NO-SUCH-SET", ""})
        EXPECT_FALSE(host::CharsetIsKnown(name)) << name;
}

TEST_F(Conversion, KnowsNoSetInWhichAPlainTextIsNotItself)
{
    // A keyword in one of these would be found in no line.
    for (const char *name : {"UTF-16", "UTF-16LE", "UTF-32", "UCS-2", "EBCDIC-US"}) {
        EXPECT_FALSE(host::CharsetIsKnown(name)) << name;
        EXPECT_FALSE(host::SetLogCharset(name)) << name;
    }
}

TEST_F(Conversion, KnowsNoSetWithASuffixThatChangesHowItIsConverted)
{
    for (const char *name : {"ISO-8859-1//IGNORE", "ISO-8859-1//TRANSLIT", "UTF-8//IGNORE"}) {
        EXPECT_FALSE(host::CharsetIsKnown(name)) << name;
        EXPECT_FALSE(host::SetLogCharset(name)) << name;
    }
}

TEST_F(Conversion, ReadsNothingBehindTheSourceWhateverTheSetIsCalled)
{
    const auto convert = [] {
        host::SetLogCharset("ISO-8859-1//IGNORE");
        char destination[100] = {};
        const int result =
            TarskCodeConvert("a€b", 5, destination, sizeof destination, CODE_REGISTRY, CODE_LOG);
        exit(result > 5 ? 1 : 0);
    };
    EXPECT_EXIT(convert(), testing::ExitedWithCode(0), "");
}

} // namespace
