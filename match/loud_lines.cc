#include "match/loud_lines.h"

#include <algorithm>
#include <cstring>

#include "match/anchors.h"
#include "match/block_search.h"
#include "match/crowds.h"
#include "match/log_sample.h"
#include "match/pair_filter.h"
#include "match/report.h"
#include "match/sieve_table.h"
#include "platform/contract.h"

size_t next_loud_look = SIZE_MAX;
uint64_t sieves_made = 0;
uint64_t seconds_compared = 0;

namespace {

constexpr MoreTexts kTexts = {kRepeatText, kSyslogIdentifier};

// How much of some text passed the first filter of the search.
struct Yield {
    uint64_t passed;
    uint64_t bytes;
};
Yield promised; // of the sample
Yield since;    // of what was searched since, or since it was last looked at

// One look in so many bytes that passes makes the search as slow as a line by itself.
constexpr uint64_t kBytesForOne = 4;

// What is too much more than was promised, and what is so little that it does not matter: a look in so many bytes.
constexpr uint64_t kMuchMore = 3;
constexpr uint64_t kLittle = 200;

// Bytes to be searched before the sieve may be called aged.
constexpr uint64_t kFirstPatience = uint64_t{2} << 20;
uint64_t patience = kFirstPatience;

// The block under search.
SearchWalk walk;
Hit next_hit;

// Of each keyword of the table, the rarest pair of its bytes.
uint16_t rarest_pair[kKeywordsOfEntry * kMaxEntries];

struct Line {
    const char *text;
    size_t length;
};

void FindRarestPairs()
{
    for (int id = 0; id < sieve_keyword_count; ++id) {
        const SieveKeyword &keyword = sieve_keywords[id];
        uint16_t best = 0;
        for (uint16_t i = 1; i + 1 < keyword.length; ++i) {
            if (SampledTimes(keyword.text + i, 2) < SampledTimes(keyword.text + best, 2))
                best = i;
        }
        rarest_pair[id] = best;
    }
}

bool StandsAt(const Line &line, const SieveKeyword &keyword, size_t place, size_t offset)
{
    const size_t begin = place - offset;
    return offset <= place && begin + keyword.length <= line.length &&
           memcmp(line.text + begin, keyword.text, keyword.length) == 0;
}

bool Holds(const Line &line, uint16_t id)
{
    const SieveKeyword &keyword = sieve_keywords[id];
    if (keyword.length < kShortestSieved)
        return memchr(line.text, keyword.text[0], line.length) != nullptr;
    const uint16_t offset = rarest_pair[id];
    PairFilter filter{};
    AddPair(&filter, keyword.text + offset);
    return AnyPlace(
        [&filter](const char *text, size_t begin, size_t end, uint32_t *places) {
            return FindPairs(filter, text, begin, end, places);
        },
        line.text, line.length,
        [&](size_t place) { return StandsAt(line, keyword, place, offset); });
}

// The anchor is in the line for certain.
bool HasAllKeywords(const Line &line, const SieveEntry &entry, uint16_t anchor)
{
    return std::ranges::all_of(entry.keywords, [&line, anchor](uint16_t id) {
        return id == kNoneSieved || sieve_keywords[id].anchor == anchor || Holds(line, id);
    });
}

void NoteMatchesOfChain(const Line &line, uint16_t anchor, LineMatches *matches)
{
    for (uint16_t i = first_of_anchor[anchor]; i != kNoneSieved; i = sieve_entries[i].next) {
        if (HasAllKeywords(line, sieve_entries[i], anchor))
            NoteMatch(matches, sieve_entries[i].index);
    }
}

bool IsSecondAt(const Line &line, const CrowdKeyword &second, size_t place)
{
    if (second.offset > place)
        return false;
    uint64_t bytes = 0;
    memcpy(&bytes, line.text + place - second.offset, sizeof bytes);
    if ((bytes & second.mask) != second.value)
        return false;
    const SieveKeyword &keyword = sieve_keywords[second.keyword];
    return keyword.length > sizeof bytes ? StandsAt(line, keyword, place, second.offset)
                                         : place - second.offset + keyword.length <= line.length;
}

void NoteMatchesOfCrowd(const Line &line, const Crowd &crowd, uint16_t anchor, LineMatches *matches)
{
    const auto find = [&crowd](const char *text, size_t begin, size_t end, uint32_t *places) {
        return FindOfCrowd(crowd, text, begin, end, places);
    };
    AnyPlace(find, line.text, line.length, [&](size_t place) {
        ++seconds_compared;
        for (const CrowdKeyword &second : SecondsAt(crowd, line.text + place)) {
            if (IsSecondAt(line, second, place) &&
                HasAllKeywords(line, sieve_entries[second.entry], anchor))
                NoteMatch(matches, sieve_entries[second.entry].index);
        }
        return false; // on to the next place
    });
}

void NoteHit(const Line &line, uint16_t anchor, LineMatches *matches)
{
    if (anchor == first_text_anchor)
        matches->is_repeat = true;
    else if (anchor == first_text_anchor + 1)
        matches->is_own = true;
    else if (const Crowd *const crowd = CrowdOf(anchor); crowd != nullptr)
        NoteMatchesOfCrowd(line, *crowd, anchor, matches);
    else
        NoteMatchesOfChain(line, anchor, matches);
}

void TakeNextHit()
{
    next_loud_look = NextHit(&walk, &next_hit) ? next_hit.look : SIZE_MAX;
}

} // namespace

bool PrepareSieve(const char *sample, size_t length)
{
    if (ServerIsFaultTolerant())
        return false;
    CollectSieveTable();
    if (ShortestOfLongest() < kShortestSieved)
        return false;
    ++sieves_made;
    length = std::min(length, kSampleSize);
    promised = Yield{ChooseAnchors(sample, length, kTexts), length};
    since = {};
    GatherCrowds();
    FindRarestPairs();
    return true;
}

bool SieveIsTooCoarse()
{
    return promised.passed > promised.bytes / kBytesForOne;
}

void ForgetSieve()
{
    patience = kFirstPatience;
}

void SieveBlock(const char *block, size_t length)
{
    since.passed += walk.passed;
    since.bytes += length;
    BeginWalk(&walk, &anchor_search, block, length);
    TakeNextHit();
}

bool SieveHasAged()
{
    if (since.bytes < patience)
        return false;
    const bool has_aged = since.passed * promised.bytes >
                          kMuchMore * since.bytes * (promised.passed + promised.bytes / kLittle);
    since = {};
    patience *= has_aged ? 2 : 1;
    return has_aged;
}

bool LineIsLoud(size_t head, size_t end, size_t most, LineMatches *matches)
{
    const Line line = {walk.text + head, std::min(end - head, most)};
    matches->is_known = true;
    matches->is_repeat = matches->is_own = false;
    matches->count = 0;
    for (; next_loud_look < end; TakeNextHit()) {
        const size_t hit_end = next_hit.begin + anchors[next_hit.literal].length;
        if (next_hit.begin >= head && hit_end <= head + line.length)
            NoteHit(line, next_hit.literal, matches);
    }
    // The agent's own lines match nothing, but whoever follows the pass is told of them.
    return matches->is_repeat || matches->is_own || matches->count > 0;
}
