// The sieve beside the obvious one, which looks for every keyword of every entry in every line.
#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "match/block_search.h"
#include "match/index.h"
#include "match/loud_lines.h"
#include "match/processor.h"
#include "match/table_data.h"
#include "tests/support/campaign.h"
#include "tests/support/random_log.h"
#include "tests/unit/vkevmon/pass_fixture.h"

namespace test {
namespace {

constexpr size_t kMost = 200; // bytes of a line that count

class LoudLinesTwin : public ModuleTest, public testing::WithParamInterface<Lanes> {
  protected:
    void SetUp() override
    {
        if (lanes_of_processor < GetParam())
            GTEST_SKIP() << "this processor cannot do that";
        most_lanes = GetParam();
    }
    void TearDown() override { most_lanes = Lanes::kWide; }

    // Tables of few letters, so that keywords overlap and share their grams; of phrases that many entries share; of
    // keywords of any kind. Of some, all are longer than what else is looked for.
    static void FillTable(Random &random)
    {
        const size_t kind = random.Below(3);
        if (kind == 0) {
            TableShape shape = RandomShape(random);
            shape.expressions = false;
            const RandomTable table(random, shape);
            return;
        }
        const int entries = random.Between(1, random.Chance(90) ? 60 : kMaxEntries);
        const size_t shortest = random.Chance(80) ? 2 + random.Below(6) : 16;
        for (int i = 0; i < entries; ++i) {
            EventSpec event;
            event.keywords[0] = kind == 1 ? random.Text(shortest + random.Below(8), "abc")
                                          : "a shared phrase " + std::to_string(random.Below(4));
            if (random.Chance(60))
                event.keywords[random.Below(2) + 1] =
                    random.Text(1 + random.Below(7), kind == 1 ? "abcd" : "xyz0123456789");
            if (random.Chance(5))
                std::swap(event.keywords[0], event.keywords[1]);
            if (random.Chance(2))
                event.keywords[0] += '\n';
            AddEntry(event);
        }
    }

    static std::string RandomLine(Random &random)
    {
        std::string line;
        while (random.Chance(75)) {
            const VKVMon &entry = *lpVKVMon[random.Below(static_cast<size_t>(nCnt))];
            std::string word = KeywordOf(entry, static_cast<int>(random.Below(3)));
            if (random.Chance(20))
                word = Edited(random, word);
            line += random.Chance(3)   ? "last message repeated"
                    : random.Chance(3) ? "TARSKvkvmain"
                                       : word;
            line += random.Chance(50) ? random.Text(random.Below(9), "abc xyz0") : "";
        }
        if (random.Chance(10))
            line.insert(0, std::string(kMost - std::min(line.size(), kMost - 1), '-'));
        std::ranges::replace(line, '\n', ' ');
        return line;
    }

    static bool ObviouslyLoud(std::string line)
    {
        line.resize(std::min(line.size(), kMost));
        if (line.find("last message repeated") != std::string::npos ||
            line.find("TARSKvkvmain") != std::string::npos)
            return true;
        for (int i = 0; i < nCnt; ++i) {
            bool has_all = true;
            for (int k = 0; k < kKeywordsOfEntry; ++k)
                has_all = has_all && line.find(KeywordOf(*lpVKVMon[i], k)) != std::string::npos;
            if (has_all)
                return true;
        }
        return false;
    }

    static bool ObviouslySearchable()
    {
        for (int i = 0; i < nCnt; ++i) {
            size_t longest = 0;
            bool is_in_no_line = false;
            for (int k = 0; k < kKeywordsOfEntry; ++k) {
                longest = std::max(longest, strlen(KeywordOf(*lpVKVMon[i], k)));
                is_in_no_line =
                    is_in_no_line || strchr(KeywordOf(*lpVKVMon[i], k), '\n') != nullptr;
            }
            if (longest < 2 && !is_in_no_line)
                return false;
        }
        return true;
    }
};

TEST_P(LoudLinesTwin, CallsThoseLoudThatAnEntryMatchesOrThatAreRepeats)
{
    size_t rounds = 0;
    size_t tables = 0;
    size_t loud = 0;
    size_t quiet = 0;
    Campaign("blocks", 700).Run([&](Random &random) {
        ++rounds;
        EmptyTable();
        FillTable(random);
        std::vector<std::string> lines;
        std::string block;
        for (size_t count = random.Below(200); count > 0; --count) {
            lines.push_back(RandomLine(random));
            block += lines.back() + '\n';
        }
        const size_t length = block.size();
        block.append(kGramPadding, random.Chance(50) ? 'a' : '\0');
        ASSERT_EQ(ObviouslySearchable(), PrepareSieve(block.data(), length));
        if (!ObviouslySearchable())
            return;
        ++tables;
        SieveBlock(block.data(), length);
        size_t head = 0;
        for (const std::string &line : lines) {
            const size_t end = head + line.size();
            LineMatches matches{};
            const bool is_loud = next_loud_look < end && LineIsLoud(head, end, kMost, &matches);
            ASSERT_EQ(ObviouslyLoud(line), is_loud) << line;
            ++(is_loud ? loud : quiet);
            head = end + 1;
        }
    });
    EmptyTable();
    EXPECT_LT(rounds / 2, tables);
    EXPECT_LT(rounds, loud);
    EXPECT_LT(rounds, quiet);
}

// The storage of the sieve is fixed, so the largest table has to fit: 2,048 entries, nothing in common.
TEST_P(LoudLinesTwin, HasRoomForAnyTable)
{
    for (const size_t length : std::array<size_t, 7>{2, 3, 4, 5, 7, 15, 256}) {
        EmptyTable();
        Random random(length);
        while (nCnt < kMaxEntries)
            AddEntry({.keywords = {random.Text(length, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMN"),
                                   random.Text(length, "0123456789_-.:/()"), ""}});
        std::string block =
            std::string(KeywordOf(*lpVKVMon[2047], 0)) + " " + KeywordOf(*lpVKVMon[2047], 1) + "\n";
        const size_t size = block.size();
        block.append(kGramPadding, 'x');
        ASSERT_TRUE(PrepareSieve(block.data(), size));
        SieveBlock(block.data(), size);
        LineMatches matches{};
        EXPECT_TRUE(LineIsLoud(0, size - 1, size, &matches)) << length;
    }
    EmptyTable();
}

// 2,048 keywords that begin with a ruler have its three bytes in 65,536 places.
TEST_P(LoudLinesTwin, FindsEntriesOfWhichMoreThanCanBeCountedAreAlike)
{
    EmptyTable();
    for (int i = 0; i < kMaxEntries; ++i) {
        const std::string number = std::to_string(10000 + i);
        if (i < kMaxEntries / 2)
            AddEntry({.keywords = {"ordinary word " + number, "", ""}});
        else
            AddEntry({.keywords = {std::string(34, '-') + " A" + number,
                                   std::string(34, '-') + " B" + number, ""}});
    }
    static constexpr char kOther[16 + kGramPadding] = "of other things";
    for (int i = 0; i < kMaxEntries; ++i) {
        std::string block =
            std::string(KeywordOf(*lpVKVMon[i], 0)) + " " + KeywordOf(*lpVKVMon[i], 1) + "\n";
        const size_t size = block.size();
        block.append(kGramPadding, 'x');
        if (i == 0) {
            ASSERT_TRUE(PrepareSieve(kOther, std::size(kOther) - kGramPadding));
        }
        SieveBlock(block.data(), size);
        LineMatches matches{};
        ASSERT_TRUE(LineIsLoud(0, size - 1, size, &matches)) << i;
    }
    EmptyTable();
}

// As the processors do it that there are.
INSTANTIATE_TEST_SUITE_P(ByLanes, LoudLinesTwin,
                         testing::Values(Lanes::kBaseline, Lanes::kTableLookup, Lanes::kWide));

} // namespace
} // namespace test
