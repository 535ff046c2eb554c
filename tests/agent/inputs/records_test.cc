// Records out of bytes.
#include "agent/inputs/records.h"

#include <gtest/gtest.h>

#include "agent/host/error.h"
#include "agent/inputs/rotated_names.h"

namespace {

using inputs::Charset;
using inputs::Ending;
using inputs::Joining;
using inputs::NameKind;
using inputs::RecordSplitter;
using inputs::RotatedNameOf;

// All records of the bytes, as they are taken one after the other, with what is left.
struct Taken {
    std::vector<std::string> records;
    std::string rest;
    bool skipping = false;

    bool operator==(const Taken &) const = default;
};

Taken TakeAll(const Joining &joining, std::string_view bytes, Ending ending = Ending::kGrowing,
              const std::string &encoding = "", bool skipping = false)
{
    RecordSplitter splitter(joining, std::make_shared<Charset>(encoding, "UTF-8"));
    Taken taken;
    taken.skipping = skipping;
    for (;;) {
        const auto cut = splitter.Take(bytes, ending, &taken.skipping);
        if (cut.used == 0)
            break;
        if (cut.has_record)
            taken.records.emplace_back(cut.record);
        bytes.remove_prefix(cut.used);
    }
    taken.rest = bytes;
    return taken;
}

using Records = std::vector<std::string>;

TEST(Records, EachLineIsOne)
{
    const Taken taken = TakeAll({}, "one\ntwo\r\n\nthree");
    EXPECT_EQ((Records{"one", "two"}), taken.records);
    EXPECT_EQ("three", taken.rest);
}

TEST(Records, TheLastLineNeedsNoEndWhenNothingComesAnyMore)
{
    EXPECT_EQ((Records{"one", "two"}), TakeAll({}, "one\ntwo", Ending::kComplete).records);
    EXPECT_EQ("two", TakeAll({}, "one\ntwo", Ending::kQuiet).rest);
}

TEST(Records, ALineThatIsTooLongIsCutAndItsRestSkipped)
{
    const std::string line(inputs::kLongestRecord + 100, 'x');
    EXPECT_EQ((Records{line.substr(0, inputs::kLongestRecord), "next"}),
              TakeAll({}, line + "\nnext\n").records);

    const Taken unfinished = TakeAll({}, line);
    EXPECT_EQ(1U, unfinished.records.size());
    EXPECT_TRUE(unfinished.skipping);
    EXPECT_EQ("", unfinished.rest);

    const Taken rest = TakeAll({}, "xxx\nnext\n", Ending::kGrowing, "", true);
    EXPECT_EQ((Records{"next"}), rest.records);
    EXPECT_FALSE(rest.skipping);
}

TEST(Records, IndentedLinesGoOnWithTheOneBefore)
{
    Joining joining;
    joining.by_indentation = true;
    const Taken taken = TakeAll(joining, "Error\n at a\n\tat b\nnext\n at c\n");
    EXPECT_EQ((Records{"Error\n at a\n\tat b"}), taken.records);
    EXPECT_EQ("next\n at c\n", taken.rest) << "its next line may go on with it";
}

TEST(Records, AnExpressionSaysWhichLinesBeginOne)
{
    Joining joining;
    joining.begins_with = "^[0-9]{4}-";
    EXPECT_EQ((Records{"stray", "2026-11 a\nb\n\nc"}),
              TakeAll(joining, "stray\n2026-11 a\nb\n\nc\n2026-12 d\n").records);
}

TEST(Records, TheLastOneIsWholeWhenNoMoreLinesComeForAWhile)
{
    Joining joining;
    joining.by_indentation = true;
    const Taken taken = TakeAll(joining, "Error\n at a\nno end", Ending::kQuiet);
    EXPECT_EQ((Records{"Error\n at a"}), taken.records);
    EXPECT_EQ("no end", taken.rest);
}

TEST(Records, ManyZerosEndALineAndAreNoPartOfTheNextOne)
{
    const std::string zeros(4096, '\0');
    EXPECT_EQ((Records{"one", "half", "two"}), TakeAll({}, "one\nhalf" + zeros + "two\n").records);
    EXPECT_EQ((Records{"one", "two"}), TakeAll({}, zeros + "one\n" + zeros + "\ntwo\n").records);
    for (size_t before = 1; before < 70; ++before) {
        const std::string text(before, 'x');
        const std::string just_many(32, '\0');
        EXPECT_EQ((Records{text, "b"}), TakeAll({}, text + just_many + "b\n").records);
    }
    const std::string few(31, '\0');
    EXPECT_EQ(Records{"a" + few + "b"}, TakeAll({}, "a" + few + "b\n").records);
    const Joining joining{true, ""};
    EXPECT_EQ((Records{"one", "two\n more"}),
              TakeAll(joining, "one" + zeros + "two\n more\nend\n").records);
}

TEST(Records, ZerosAtTheEndAreLeftAlone)
{
    const std::string zeros(4096, '\0');
    const Taken taken = TakeAll({}, "one\nhalf" + zeros);
    EXPECT_EQ(Records{"one"}, taken.records);
    EXPECT_EQ("half" + zeros, taken.rest) << "they may be space that is to be written still";
    EXPECT_EQ("", TakeAll({}, std::string(size_t{200} * 1024, '\0')).rest) << "not without bound";
}

TEST(Records, JoinedLinesAreBounded)
{
    Joining joining;
    joining.by_indentation = true;
    std::string bytes = "begin\n";
    while (bytes.size() < 3 * inputs::kLongestRecord)
        bytes += " and so on, and on and on\n";
    const Taken taken = TakeAll(joining, bytes + "next\nlast\n");
    ASSERT_EQ(5U, taken.records.size());
    for (const std::string &record : taken.records)
        EXPECT_LE(record.size(), inputs::kLongestRecord);
    EXPECT_EQ("next", taken.records.back());
}

TEST(Records, AnExpressionThatCannotBeUsedIsRefused)
{
    Joining joining;
    joining.begins_with = "([a-z";
    EXPECT_THROW(TakeAll(joining, "x"), host::Error);
}

TEST(Records, OtherEncodingsBecomeThatOfTheMonitor)
{
    EXPECT_EQ((Records{"gr\xC3\xB6\xC3\x9F"
                       "er"}),
              TakeAll({},
                      "gr\xF6\xDF"
                      "er\n",
                      Ending::kGrowing, "ISO-8859-1")
                  .records);
    EXPECT_THROW(TakeAll({}, "x", Ending::kGrowing, "no-such-set"), host::Error);
}

TEST(Records, LineEndsOfUtf16AreOfTwoBytes)
{
    using namespace std::string_view_literals;
    const Taken taken = TakeAll({},
                                "\xff\xfe"
                                "a\0\x0a\x0a\n\0b\0\r\0\n\0c\0"sv,
                                Ending::kGrowing, "UTF-16LE");
    EXPECT_EQ((Records{"a\xE0\xA8\x8A", "b"}), taken.records);
    EXPECT_EQ("c\0"sv, taken.rest);
}

// Half of one character and half of the next one look like a line end.
TEST(Records, ALineEndOfTwoBytesBeginsWhereACharacterDoes)
{
    using namespace std::string_view_literals;
    const Taken taken =
        TakeAll({}, "a\0\x15\x0a\0\x01\x0a\0b\0\x0a\0"sv, Ending::kGrowing, "UTF-16LE");
    EXPECT_EQ((Records{"a\xE0\xA8\x95\xC4\x80", "b"}), taken.records);
}

// Sets have many names. In some, a line end is one byte that is another character in ASCII.
TEST(Records, LineEndsAreThoseOfTheSetWhateverItsNameIs)
{
    using namespace std::string_view_literals;
    for (const char *name : {"UTF16LE", "UCS-2LE", "utf-16", "UTF16", "UNICODELITTLE"}) {
        const Taken taken = TakeAll({}, "o\0n\0\n\0\n\x01\n\0t\0"sv, Ending::kGrowing, name);
        EXPECT_EQ((Records{"on", "\xC4\x8A"}), taken.records) << name;
        EXPECT_EQ("t\0"sv, taken.rest) << name;
    }
    EXPECT_EQ((Records{"on"}),
              TakeAll({}, "\0\0\0o\0\0\0n\0\0\0\n"sv, Ending::kGrowing, "UCS-4").records);
}

TEST(Records, ALineEndCanBeAByteThatIsAnotherCharacterInAscii)
{
    const iconv_t known = iconv_open("IBM037", "ASCII");
    if (known == reinterpret_cast<iconv_t>(-1))
        GTEST_SKIP() << "the C library here does not know the set";
    iconv_close(known);
    EXPECT_EQ((Records{"one", "two"}),
              TakeAll({}, "\x96\x95\x85\x25\xA3\xA6\x96\x25", Ending::kGrowing, "IBM037").records);
}

TEST(Records, AByteOrderMarkIsNoPartOfALine)
{
    EXPECT_EQ((Records{"one", "two"}), TakeAll({}, "\xEF\xBB\xBFone\ntwo\n").records);
}

TEST(Records, WhatCannotBeConvertedIsMarked)
{
    EXPECT_EQ((Records{"a?b"}), TakeAll({},
                                        "a\x81"
                                        "b\n",
                                        Ending::kGrowing, "ASCII")
                                    .records);
}

TEST(RotatedNames, AreKnownByTheHabitsOfAllRotatingPrograms)
{
    for (const char *name :
         {"app.log.1", "app.log.12", "app.log.1.gz", "app.log.gz", "app.log-20261121",
          "app.log-20261121.xz", "app.log-20261121-1795255201.zst", "app.log.2026-11-21T10:00:01",
          "app.log.old", "app.log_20261121.bz2", "app.log-20261121.1"})
        EXPECT_EQ(NameKind::kRotated, RotatedNameOf(name, "app.log")) << name;
    for (const char *name : {"app-20261121.log", "app.1.log", "app.1.log.gz", "app_2.log"})
        EXPECT_EQ(NameKind::kBetween, RotatedNameOf(name, "app.log")) << name;
    for (const char *name : {"app.log", "app.log.d", "app.log2", "other.log.1", "apps.log",
                             "app.log.", "app.", "app-web.log", "app.log.swp"})
        EXPECT_EQ(NameKind::kOther, RotatedNameOf(name, "app.log")) << name;
    EXPECT_EQ(NameKind::kRotated, RotatedNameOf("messages-20261121", "messages"));
    EXPECT_EQ(NameKind::kRotated, RotatedNameOf("messages.1", "messages"));
}

} // namespace
