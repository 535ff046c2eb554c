// Lines against tables, with the index, with the sieve and with neither, beside the obvious loop. Input: kind of server, entries
// of three keywords each, then lines.
#include <cstring>
#include <vector>

#include "fuzz/fuzz.h"
#include "match/block_search.h"
#include "match/index.h"
#include "match/literal_set.h"
#include "match/loud_lines.h"
#include "match/match.h"
#include "match/report.h"
#include "match/table_data.h"
#include "tests/support/outcome.h"
#include "tests/support/random_log.h"
#include "tests/support/system.h"
#include "tests/support/twin/matcher.h"

namespace {

constexpr size_t kLongestKeyword = 256;
constexpr size_t kLongestLine = 3328;
constexpr time_t kClock = 1710072000; // 10 March 2024, 12:00 UTC
constexpr char kHead[] = "Mar 10 11:59:58 ";

// The C library's compiler of expressions takes hours for some, and is not what is tested here.
bool IsQuickExpression(const std::string &keyword)
{
    size_t quantifiers = 0;
    size_t digits = 0;
    for (const char c : keyword) {
        quantifiers += strchr("*+?{", c) != nullptr ? 1 : 0;
        digits = c >= '0' && c <= '9' ? digits + 1 : 0;
        if (digits > 1)
            return false;
    }
    return quantifiers <= 3 && keyword.size() <= 40;
}

void AddEntry(fuzz::Input *input)
{
    auto *entry = static_cast<VKVMon *>(calloc(1, sizeof(VKVMon)));
    char *const places[] = {entry->Keyword1, entry->Keyword2, entry->Keyword3};
    const uint8_t kind = input->Byte();
    for (char *place : places) {
        const std::string keyword = input->Text(kLongestKeyword - 1);
        if (IsFTServer < 1 || IsQuickExpression(keyword))
            memcpy(place, keyword.c_str(), keyword.size() + 1);
    }
    strcpy(entry->Source, (kind & 1U) != 0 ? "FTREPORT" : "SRC");
    entry->EventID = static_cast<uint32_t>(nCnt);
    entry->WatchTime = (kind & 2U) != 0 ? 1U << 12U : 0xFFFFFFU;
    entry->ReportCount = static_cast<int32_t>((kind >> 2U) & 3U);
    lpVKVMon[nCnt++] = entry;
}

struct Line {
    std::string text;
    int times;
};

template <typename Matcher>
test::Outcome Match(const std::vector<Line> &lines, Matcher matcher)
{
    const std::vector<int32_t> before = test::HitCounters();
    test::BeginOutcome();
    char buffer[kLongestLine + 1 + kSearchPadding] = {};
    for (const Line &line : lines) {
        memcpy(buffer, line.text.c_str(), line.text.size() + 1);
        test::NoteStep("result " + std::to_string(matcher(buffer, line.text.size(), line.times)));
    }
    test::Outcome outcome = test::TakeOutcome();
    test::SetHitCounters(before);
    return outcome;
}

// The lines as a block that is searched as a whole. Nothing is said where there is no sieve for the table, or the lines
// are none of a block.
std::string DifferenceWithTheSieve(const test::Outcome &slow, const std::vector<Line> &lines)
{
    std::string block;
    for (const Line &line : lines) {
        if (line.text.find_first_of(std::string("\n\0", 2)) != std::string::npos)
            return {};
        block += line.text + '\n';
    }
    const size_t length = block.size();
    block.append(kGramPadding, '\0');
    RelyOnAllKeywords();
    if (!PrepareSieve(block.data(), length))
        return {};
    SieveBlock(block.data(), length);
    LocalMoment moment;
    size_t head = 0;
    return test::Difference(slow, Match(lines, [&](char *line, size_t size, int times) {
                                const size_t end = head + size;
                                LineMatches matches{};
                                matches.is_known = true;
                                if (next_loud_look < end)
                                    LineIsLoud(head, end, kLongestLine, &matches);
                                head = end + 1;
                                if (!matches.is_known)
                                    return CheckLine(line, times);
                                return CheckSievedLine(&moment, matches, line, times);
                            }));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    fuzz::StartOver();
    setenv("TZ", "UTC0", 1);
    tzset();
    test::Sys().now = kClock;
    const uint8_t kind = input.Byte();
    IsFTServer = (kind & 1U) != 0 ? 1 : 0;
    report_ft = (kind & 2U) != 0 ? 1 : 0;
    for (int entries = 1 + (input.Byte() % 24); entries > 0 && !input.IsUsedUp(); --entries)
        AddEntry(&input);
    std::vector<Line> lines;
    while (!input.IsUsedUp() && lines.size() < 6) {
        const int times = static_cast<int8_t>(input.Byte());
        std::string text = input.Text(IsFTServer == 1 ? 255 : kLongestLine);
        if ((times & 1) != 0)
            text.insert(0, kHead);
        lines.push_back({text.substr(0, kLongestLine), times});
    }

    const test::Outcome slow = Match(
        lines, [](char *line, size_t, int times) { return test::twin::CheckLine(line, times); });
    const std::string plain = test::Difference(
        slow, Match(lines, [](char *line, size_t, int times) { return CheckLine(line, times); }));
    fuzz::Expect(plain.empty(), "CheckLine: " + plain);
    BuildIndex();
    LocalMoment moment;
    FoundLiterals found{};
    const std::string indexed =
        test::Difference(slow, Match(lines, [&](char *line, size_t length, int times) {
                             return CheckLineOfPass(&moment, &found, line, length, times);
                         }));
    fuzz::Expect(indexed.empty(), "with the index: " + indexed);
    BuildIndex();
    const std::string sieved = DifferenceWithTheSieve(slow, lines);
    fuzz::Expect(sieved.empty(), "with the sieve: " + sieved);
    test::EmptyTable();
    return 0;
}
