// Expressions in a character set whose characters can end in a byte that looks like an operator. The locale is
// made here, from a small map of GB18030, so no other one has to be installed.
#include <array>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "match/expression.h"
#include "match/index.h"
#include "match/literal_set.h"
#include "match/match.h"
#include "match/report.h"
#include "tests/support/campaign.h"
#include "tests/support/random_log.h"
#include "tests/support/twin/matcher.h"
#include "tests/unit/vkevmon/pass_fixture.h"

namespace test {
namespace {

class GB18030 : public SyslogScanTest {
  protected:
    GB18030()
    {
        std::ofstream(folder_.path() + "/charmap") << CharMap();
        std::ofstream(folder_.path() + "/definition")
            << "LC_CTYPE\nupper <U0041>\nlower <U0061>\nspace <U0020>;<U0009>;<U000A>;<U000D>\n"
               "END LC_CTYPE\n";
        // It warns of all that the locale has not, and writes it all the same.
        const std::string command = "localedef --no-archive -c -f " + folder_.path() +
                                    "/charmap -i " + folder_.path() + "/definition " +
                                    folder_.path() + "/xx_XX.GB18030 >/dev/null 2>&1";
        EXPECT_LE(0, system(command.c_str()));
        setenv("LOCPATH", folder_.path().c_str(), 1);
        EXPECT_NE(nullptr, setlocale(LC_CTYPE, "xx_XX.GB18030")) << command;
        EXPECT_EQ(4U, MB_CUR_MAX);
    }

    ~GB18030() override
    {
        setlocale(LC_CTYPE, "C");
        unsetenv("LOCPATH");
    }

  private:
    // All of ASCII.
    static std::string CharMap()
    {
        std::string map = "<code_set_name> GB18030\n<comment_char> %\n<escape_char> /\n"
                          "<mb_cur_min> 1\n<mb_cur_max> 4\nCHARMAP\n";
        for (int code = 0; code < 128; ++code) {
            char row[40];
            snprintf(row, sizeof row, "<U%04X> /x%02x CHARACTER\n", static_cast<unsigned>(code),
                     static_cast<unsigned>(code));
            map += row;
        }
        return map + "END CHARMAP\n";
    }

    TempDir folder_;
};

// "\x81]" is one character, so the bracket ends behind the b, and "zz]" is what any match holds.
constexpr char kKeyword[] = "[a\x81]"
                            "b]zz]";

TEST_F(GB18030, AByteOfACharacterIsNoOperator)
{
    ASSERT_TRUE(twin::ExpressionMatches("qbzz]", kKeyword)) << "the locale is not in use";
    EXPECT_EQ(0U, FindRequiredText(kKeyword).length);
    EXPECT_EQ(2U, FindRequiredText("[ab]zz").length);
}

TEST_F(GB18030, ALineThatMatchesIsNotHeldBackByTheIndex)
{
    IsFTServer = 1;
    AddEntry({.keywords = {kKeyword, "", ""}});
    std::array<char, kLineBufferSize + kSearchPadding> line{};
    const std::string text = Line("qbzz]");
    memcpy(line.data(), text.data(), text.size());
    LocalMoment moment;
    FoundLiterals found{};
    for (int i = 0; i < 40; ++i)
        CheckLineOfPass(&moment, &found, line.data(), text.size(), 1);
    EXPECT_EQ(40U, Host().reports.size());
}

TEST_F(GB18030, WhatIsRequiredIsInEveryMatch)
{
    Campaign("expressions in GB18030", 10000).Run([](Random &random) {
        std::string keyword;
        for (size_t parts = 1 + random.Below(5); parts > 0; --parts) {
            static const std::array<std::string, 10> kParts = {
                "a", "bc", "[", "]", "\x81]", "\x81\\", "\x81|", "\x81", "*", "(a)"};
            keyword += random.OneOf(kParts);
        }
        const std::string line = random.Text(random.Below(8), "abc]|\\\x81");
        const RequiredText required = FindRequiredText(keyword.c_str());
        const std::string text = keyword.substr(required.begin, required.length);
        const bool is_in = line.find(text) != std::string::npos;
        ASSERT_TRUE(is_in || !twin::ExpressionMatches(line, keyword)) << keyword << " in " << line;
    });
}

TEST(RequiredText, InUtf8IsFoundBehindCharactersOfSeveralBytes)
{
    ASSERT_NE(nullptr, setlocale(LC_CTYPE, "C.UTF-8"));
    EXPECT_EQ(5U, FindRequiredText("\xC3\xA4.error").length);
    setlocale(LC_CTYPE, "C");
}

} // namespace
} // namespace test
