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

size_t next_loud_look = SIZE_MAX;

namespace {

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
    return AnyPairPlace(filter, line.text, line.length,
                        [&](size_t place) { return StandsAt(line, keyword, place, offset); });
}

// `found` is in the line for certain.
bool HasAllKeywords(const Line &line, const SieveEntry &entry, uint16_t anchor)
{
    return std::ranges::all_of(entry.keywords, [&line, anchor](uint16_t id) {
        return id == kNoneSieved || sieve_keywords[id].anchor == anchor || Holds(line, id);
    });
}

bool AnyOfChainMatches(const Line &line, uint16_t anchor)
{
    for (uint16_t i = first_of_anchor[anchor]; i != kNoneSieved; i = sieve_entries[i].next) {
        if (HasAllKeywords(line, sieve_entries[i], anchor))
            return true;
    }
    return false;
}

bool IsSecondAt(const Line &line, const CrowdKeyword &second, size_t place)
{
    if (second.offset > place)
        return false;
    uint64_t bytes = 0;
    memcpy(&bytes, line.text + place - second.offset, sizeof bytes);
    return (bytes & second.mask) == second.value &&
           StandsAt(line, sieve_keywords[second.keyword], place, second.offset);
}

bool AnyOfCrowdMatches(const Line &line, const Crowd &crowd, uint16_t anchor)
{
    return AnyPairPlace(crowd.filter, line.text, line.length, [&](size_t place) {
        const int pair = PairAt(crowd.filter, line.text + place);
        for (const CrowdKeyword *i = crowd.of_pair[pair]; i != crowd.of_pair[pair + 1]; ++i) {
            if (IsSecondAt(line, *i, place) &&
                HasAllKeywords(line, sieve_entries[i->entry], anchor))
                return true;
        }
        return false;
    });
}

bool AnyEntryMatches(const Line &line, uint16_t anchor)
{
    const Crowd *const crowd = CrowdOf(anchor);
    return crowd == nullptr ? AnyOfChainMatches(line, anchor)
                            : AnyOfCrowdMatches(line, *crowd, anchor);
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
    ChooseAnchors(sample, length, kRepeatText);
    GatherCrowds();
    FindRarestPairs();
    return true;
}

void SieveBlock(const char *block, size_t length)
{
    BeginWalk(&walk, &anchor_search, block, length);
    TakeNextHit();
}

bool LineIsLoud(size_t head, size_t end, size_t most)
{
    const Line line = {walk.text + head, std::min(end - head, most)};
    bool is_loud = false;
    for (; next_loud_look < end; TakeNextHit()) {
        const size_t hit_end = next_hit.begin + anchors[next_hit.literal].length;
        if (is_loud || next_hit.begin < head || hit_end > head + line.length)
            continue;
        is_loud = next_hit.literal == text_anchor || AnyEntryMatches(line, next_hit.literal);
    }
    return is_loud;
}
