// The set of literals beside memmem, literal by literal.
#include "match/literal_set.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "tests/support/campaign.h"
#include "tests/support/random_log.h"

namespace test {
namespace {

struct Wanted {
    std::string text;
    bool is_wanted = false;
    LiteralId id = 0;
};

// As many literals as the set takes are large to hold: one for all rounds.
FoundLiterals found;

std::string RandomLiteral(Random &random, const std::vector<Wanted> &others)
{
    std::string text;
    if (!others.empty() && random.Chance(30)) {
        text = random.OneOf(others).text;
        text = text.substr(random.Below(text.size()));
        text += random.Text(random.Below(3), "ab");
        text.resize(std::min<size_t>(text.size(), 256));
    } else {
        text = RandomPlainKeyword(random).text;
    }
    return text.empty() ? "a" : text;
}

// Adds them all; each twice now and then, which must not matter.
std::vector<Wanted> FillSet(Random &random, size_t count)
{
    std::vector<Wanted> literals;
    std::set<std::string> seen;
    while (literals.size() < count) {
        Wanted literal;
        literal.text = RandomLiteral(random, literals);
        for (int tries = 0; !seen.insert(literal.text).second && tries < 100; ++tries)
            literal.text = random.Text(1 + random.Below(20), "abcdefgh \x90");
        literal.is_wanted = random.Chance(80);
        literals.push_back(literal);
    }
    ClearLiterals();
    for (Wanted &literal : literals) // the texts must not move from here on
        literal.id = AddLiteral(literal.text.c_str(), literal.text.size());
    for (const Wanted &literal : literals) {
        if (literal.is_wanted)
            WantLiteral(literal.id);
    }
    for (int again = 0; again < 5; ++again) {
        const Wanted &literal = random.OneOf(literals);
        const std::string copy = literal.text;
        EXPECT_EQ(literal.id, AddLiteral(copy.c_str(), copy.size()));
    }
    PrepareLiterals();
    return literals;
}

std::string RandomHaystack(Random &random, const std::vector<Wanted> &literals)
{
    std::string line = random.Text(random.Below(9), "ab .\x80");
    for (size_t left = random.Below(6); left > 0; --left) {
        const std::string &text = random.OneOf(literals).text;
        line += random.Chance(30) ? Edited(random, text) : text;
        if (random.Chance(60))
            line += random.Text(random.Below(7), "abc: ");
    }
    const size_t length = RandomLineLength(random);
    if (length > line.size())
        line.insert(random.Below(line.size() + 1), random.Text(length - line.size(), "ab"));
    return line;
}

// In a buffer whose padding holds what would complete a literal that the line only begins.
void ExpectAsByMemmem(Random &random, const std::vector<Wanted> &literals, const std::string &line)
{
    std::string buffer = line + '\0' + random.Text(kSearchPadding - 1, "ab");
    ForgetFound(&found);
    FindLiterals(buffer.data(), line.size(), &found);

    std::set<LiteralId> expected;
    for (const Wanted &literal : literals) {
        const bool is_in =
            memmem(line.data(), line.size(), literal.text.data(), literal.text.size()) != nullptr;
        const bool wanted = std::any_of(literals.begin(), literals.end(), [&](const Wanted &other) {
            return other.id == literal.id && other.is_wanted;
        });
        if (is_in && wanted)
            expected.insert(literal.id);
        ASSERT_EQ(is_in && wanted, IsFound(found, literal.id))
            << '"' << literal.text << "\" in \"" << line << '"';
    }
    const std::set<LiteralId> got(found.ids, found.ids + found.count);
    ASSERT_EQ(expected, got);
    ASSERT_EQ(expected.size(), static_cast<size_t>(found.count)) << "one was noted twice";
}

void RunRound(Random &random, size_t count)
{
    const std::vector<Wanted> literals = FillSet(random, count);
    for (int lines = 0; lines < 4; ++lines)
        ExpectAsByMemmem(random, literals, RandomHaystack(random, literals));
}

TEST(LiteralSetTwin, FindsWhatMemmemFinds)
{
    Campaign("literal set", 4000).Run([](Random &random) {
        RunRound(random, random.Chance(60) ? 1 + random.Below(8) : 1 + random.Below(90));
    });
}

TEST(LiteralSetTwin, FindsWhatMemmemFindsWithAFullSet)
{
    Campaign("full literal set", 1).Run([](Random &random) {
        std::vector<Wanted> literals;
        std::set<std::string> seen;
        while (literals.size() < kMaxLiterals) {
            const std::string text = random.Text(1 + random.Below(12), "abcdefghijklmnop");
            if (seen.insert(text).second)
                literals.push_back({text, true, 0});
        }
        ClearLiterals();
        for (Wanted &literal : literals) {
            literal.id = AddLiteral(literal.text.c_str(), literal.text.size());
            WantLiteral(literal.id);
        }
        PrepareLiterals();
        for (int lines = 0; lines < 3; ++lines) {
            std::string line;
            for (int pieces = 0; pieces < 200; ++pieces)
                line += random.OneOf(literals).text;
            std::string buffer = line + std::string(kSearchPadding, 'a');
            ForgetFound(&found);
            FindLiterals(buffer.data(), line.size(), &found);
            for (const Wanted &literal : literals)
                ASSERT_EQ(line.find(literal.text) != std::string::npos, IsFound(found, literal.id))
                    << literal.text;
        }
    });
}

// Every place of every length, in lines so short that each step of the search is met.
TEST(LiteralSetTwin, FindsALiteralOfAnyLengthAtEveryPlace)
{
    for (size_t length = 1; length <= 40; ++length) {
        for (size_t place = 0; place < 12; ++place) {
            for (const size_t behind : {0U, 1U, 2U, 3U, 5U}) {
                std::string text;
                for (size_t i = 0; i < length; ++i)
                    text += static_cast<char>('a' + (i % 17));
                ClearLiterals();
                WantLiteral(AddLiteral(text.c_str(), length));
                PrepareLiterals();
                const std::string line = std::string(place, '#') + text + std::string(behind, '#');
                const std::string buffer = line + std::string(kSearchPadding, '#');
                ForgetFound(&found);
                FindLiterals(buffer.data(), line.size(), &found);
                ASSERT_EQ(1, found.count) << length << " bytes at " << place << " of " << line;
                // Cut by a byte, it is not there, whatever stands behind the line.
                ForgetFound(&found);
                FindLiterals(buffer.data(), place + length - 1, &found);
                ASSERT_EQ(0, found.count) << length << " bytes at " << place << " of " << line;
            }
        }
    }
}

} // namespace
} // namespace test
