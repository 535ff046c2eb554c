#include "match/loud_lines.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "match/block_search.h"
#include "match/index.h"
#include "match/pair_filter.h"
#include "match/report.h"
#include "match/table_data.h"

size_t next_loud_look = SIZE_MAX;

namespace {

constexpr uint16_t kNone = UINT16_MAX;

// From so many entries under one anchor on, the line is searched for all their second keywords at once.
constexpr int kCrowd = 4;

// The cost of a pair that is as common as most, against which a rarer one counts little.
constexpr uint32_t kOrdinaryPair = 1000;

// The shortest keyword that can be searched for, and the length from which on nothing is gained.
constexpr size_t kShortest = 2;
constexpr size_t kLongest = kMostStep + 3;

// Below this length, a longer window means larger grams, which are in fewer lines; above it, larger steps only.
constexpr size_t kSelectiveGram = 4;

// A keyword of the table. Equal texts are one keyword.
struct Keyword {
    const char *text;
    uint16_t length;
    uint16_t users;  // entries that have it
    uint16_t anchor; // its number in the search, or kNone
    Window window;
};
constexpr int kMostKeywords = kKeywordsOfEntry * kMaxEntries;

// An entry of the table as the sieve knows it.
struct Sieved {
    const VKVMon *entry;
    uint16_t keywords[kKeywordsOfEntry]; // kNone: empty
    uint16_t longest;                    // length of its longest keyword
    uint16_t next;                       // entry under the same anchor, or kNone
};

// A second keyword of an entry in a crowd: a pair of its bytes is looked for in the line, then its first bytes.
struct Second {
    uint64_t value;
    uint64_t mask;   // of the bytes that count
    uint16_t offset; // of the pair in the keyword
    uint16_t keyword;
    uint16_t entry;
    char pair[2];
};

// The entries under one anchor, when they are many.
struct Crowd {
    int begin, end; // of its seconds
    PairFilter filter;
};
constexpr int kMostCrowds = kMaxEntries / kCrowd;

// The sieve. Written by PrepareSieve, on the monitor thread.
Sieved sieved[kMaxEntries];
int sieved_count = 0;
Keyword keywords[kMostKeywords];
int keyword_count = 0;
uint16_t
    keyword_slots[size_t{1} << 13]; // 1 + the keyword of a text's hash, or of one before; 0: none
static_assert(std::size(keyword_slots) > kMostKeywords);
Searched anchors[kMostSearched];
int anchor_count = 0;
BlockSearch search;
uint16_t first_of_anchor[kMostSearched]; // entry, or kNone
uint16_t users_of_anchor[kMostSearched];
uint16_t crowd_of_anchor[kMostSearched]; // or kNone
uint16_t repeat_anchor = kNone;
Crowd crowds[kMostCrowds];
int crowd_count = 0;
Second seconds[kMaxEntries];
int second_count = 0;

// The block under search.
SearchWalk walk;
Hit next_hit;

// ---- the keywords of the table ----

uint32_t HashText(const char *text, size_t length)
{
    uint32_t hash = 2166136261U; // FNV-1a
    for (size_t i = 0; i < length; ++i)
        hash = (hash ^ static_cast<unsigned char>(text[i])) * 16777619U;
    return hash;
}

uint16_t AddKeyword(const char *text, size_t length)
{
    size_t slot = HashText(text, length) % std::size(keyword_slots);
    for (; keyword_slots[slot] != 0; slot = (slot + 1) % std::size(keyword_slots)) {
        const auto id = static_cast<uint16_t>(keyword_slots[slot] - 1);
        if (keywords[id].length == length && memcmp(keywords[id].text, text, length) == 0)
            return id;
    }
    keywords[keyword_count] = {text, static_cast<uint16_t>(length), 0, kNone, {}};
    keyword_slots[slot] = static_cast<uint16_t>(++keyword_count);
    return static_cast<uint16_t>(keyword_count - 1);
}

// A keyword with a line end is in no line.
bool CanMatch(const VKVMon &entry)
{
    for (int k = 0; k < kKeywordsOfEntry; ++k) {
        if (strchr(KeywordOf(entry, k), '\n') != nullptr)
            return false;
    }
    return true;
}

void CollectKeywords(const VKVMon &entry)
{
    Sieved &known = sieved[sieved_count++];
    known = {&entry, {kNone, kNone, kNone}, 0, kNone};
    for (int k = 0; k < kKeywordsOfEntry; ++k) {
        const char *text = KeywordOf(entry, k);
        const size_t length = strnlen(text, kKeywordSize);
        if (length == 0)
            continue;
        known.keywords[k] = AddKeyword(text, length);
        ++keywords[known.keywords[k]].users;
        known.longest = std::max(known.longest, static_cast<uint16_t>(length));
    }
}

void CollectTable()
{
    sieved_count = keyword_count = 0;
    memset(keyword_slots, 0, sizeof keyword_slots);
    for (int i = 0; i < nCnt && lpVKVMon[i] != nullptr; ++i) {
        if (CanMatch(*lpVKVMon[i]))
            CollectKeywords(*lpVKVMon[i]);
    }
}

// ---- anchors ----

// Calls `act` with each keyword of the entry of at least this length.
template <class Act>
void ForEachKeyword(const Sieved &entry, size_t length, Act act)
{
    for (const uint16_t id : entry.keywords) {
        if (id != kNone && keywords[id].length >= length)
            act(id);
    }
}

// Of the longest keywords of an entry that has none of the wanted length, the one that most entries have: few of them
// are to be entered.
uint16_t MostUsed(const Sieved &entry)
{
    uint16_t best = kNone;
    ForEachKeyword(entry, entry.longest, [&best](uint16_t id) {
        if (best == kNone || keywords[id].users > keywords[best].users)
            best = id;
    });
    return best;
}

void ForgetAnchors()
{
    for (int i = 0; i < keyword_count; ++i)
        keywords[i].anchor = kNone;
}

// By how many bytes would literals be too short, if all others had at least this length?
int CountCutShort(size_t length)
{
    int count = 0;
    ForgetAnchors();
    for (int i = 0; i < sieved_count; ++i) {
        if (sieved[i].longest >= length)
            continue;
        Keyword &keyword = keywords[MostUsed(sieved[i])];
        count += keyword.anchor == kNone ? static_cast<int>(length - keyword.length) : 0;
        keyword.anchor = 0;
    }
    return count;
}

size_t ShortestAnchor()
{
    size_t shortest = kLongest;
    for (int i = 0; i < sieved_count; ++i)
        shortest = std::min<size_t>(shortest, sieved[i].longest);
    return shortest;
}

// The length that decides in which steps the log is searched.
size_t ChooseLength()
{
    const size_t shortest = ShortestAnchor();
    size_t length = std::min(shortest + kMostCut, kLongest);
    const int most_cut = shortest < kSelectiveGram ? kMostCutShort : kMostCutShort / 4;
    while (length > shortest && CountCutShort(length) > most_cut)
        --length;
    ForgetAnchors();
    return length;
}

// What a keyword costs as an anchor.
uint32_t CostOf(Keyword *keyword)
{
    if (keyword->anchor == kNone)
        keyword->window = CheapestWindow(keyword->text, keyword->length);
    return keyword->window.cost;
}

// The keyword of an entry that is cheapest to look for, of those that are long enough.
uint16_t ChooseAnchor(const Sieved &entry, size_t length)
{
    if (entry.longest < length)
        return MostUsed(entry);
    uint16_t best = kNone;
    uint32_t least = 0;
    ForEachKeyword(entry, length, [&best, &least](uint16_t id) {
        const uint32_t cost = CostOf(&keywords[id]);
        if (best != kNone && cost >= least)
            return;
        best = id;
        least = cost;
    });
    return best;
}

uint16_t AddAnchor(const char *text, size_t length, Window window)
{
    anchors[anchor_count] = {text, static_cast<uint16_t>(length), window.begin};
    first_of_anchor[anchor_count] = kNone;
    users_of_anchor[anchor_count] = 0;
    crowd_of_anchor[anchor_count] = kNone;
    return static_cast<uint16_t>(anchor_count++);
}

void ChainUnderAnchor(int index, size_t length)
{
    Keyword &keyword = keywords[ChooseAnchor(sieved[index], length)];
    if (keyword.anchor == kNone) {
        if (keyword.length < length)
            keyword.window = {};
        else
            TakeWindow(keyword.text, keyword.window);
        keyword.anchor = AddAnchor(keyword.text, keyword.length, keyword.window);
    }
    sieved[index].next = first_of_anchor[keyword.anchor];
    first_of_anchor[keyword.anchor] = static_cast<uint16_t>(index);
    ++users_of_anchor[keyword.anchor];
}

void PrepareAnchors(const char *sample, size_t length, GramKind kind)
{
    TakeSample(sample, length, kind);
    ForgetAnchors();
    anchor_count = 0;
    for (int i = 0; i < sieved_count; ++i)
        ChainUnderAnchor(i, kind.window());
    const size_t repeat_length = sizeof kRepeatText - 1;
    repeat_anchor =
        AddAnchor(kRepeatText, repeat_length, CheapestWindow(kRepeatText, repeat_length));
    PrepareSearch(&search, anchors, anchor_count, kind);
}

// What the search of a text costs, in looks: those that pass the first filter cost as much as some twenty others.
uint64_t CostOfSearch(const char *sample, size_t length)
{
    constexpr uint64_t kCostOfPassed = 20;
    constexpr uint64_t kLooksAtATime = 6; // by class, at what sixteen of them cost
    const uint64_t looks = length / (search.is_by_class ? kLooksAtATime : search.kind.step);
    return looks + (kCostOfPassed * CountPassed(search, sample, length));
}

// Tries the large steps, and single steps by class, and keeps what is cheaper in this log.
void ChooseSearch(const char *sample, size_t length)
{
    constexpr GramKind kByClass = {ClassFilter::kGram, 1};
    const GramKind in_steps = KindFor(ChooseLength());
    const bool is_by_class_possible =
        ClassFilterWorks() && CountCutShort(kByClass.window()) <= kMostCutShort;
    if (!is_by_class_possible) {
        PrepareAnchors(sample, length, in_steps);
        return;
    }
    PrepareAnchors(sample, length, kByClass);
    const uint64_t by_class = CostOfSearch(sample, length);
    PrepareAnchors(sample, length, in_steps);
    if (by_class < CostOfSearch(sample, length))
        PrepareAnchors(sample, length, kByClass);
}

// ---- crowds ----

// The keyword besides the anchor that the fewest entries have; of these, the longest.
uint16_t ChooseSecond(const Sieved &entry, uint16_t anchor)
{
    uint16_t best = kNone;
    ForEachKeyword(entry, kShortest, [&best, anchor](uint16_t id) {
        const Keyword &keyword = keywords[id];
        if (keyword.anchor != anchor &&
            (best == kNone || keyword.users < keywords[best].users ||
             (keyword.users == keywords[best].users && keyword.length > keywords[best].length)))
            best = id;
    });
    return best;
}

uint16_t PairAt(const char *text)
{
    uint16_t pair = 0;
    memcpy(&pair, text, sizeof pair);
    return pair;
}

// How many times each pair of bytes stands in the second keywords of a crowd. All zero between two crowds.
uint16_t pair_users[size_t{UINT16_MAX} + 1];

void CountPairs(const Keyword &keyword, int by)
{
    for (size_t i = 0; i + 1 < keyword.length; ++i) {
        uint16_t &users = pair_users[PairAt(keyword.text + i)];
        users = static_cast<uint16_t>(users + by);
    }
}

// Where the pair of a keyword is that many of the crowd share and few lines have.
uint16_t ChoosePair(const Keyword &keyword)
{
    uint16_t best = 0;
    uint64_t best_value = 0;
    for (uint16_t i = 0; i + 1 < keyword.length; ++i) {
        constexpr uint64_t kScale = 1U << 20;
        const uint64_t value = pair_users[PairAt(keyword.text + i)] * kScale /
                               (kOrdinaryPair + CheapestWindow(keyword.text + i, 2).cost);
        if (value <= best_value)
            continue;
        best = i;
        best_value = value;
    }
    return best;
}

// False when the crowd looks for as many pairs as it can.
bool EnterSecond(Crowd *crowd, uint16_t entry, uint16_t id)
{
    const Keyword &keyword = keywords[id];
    const uint16_t offset = ChoosePair(keyword);
    if (AddPair(&crowd->filter, keyword.text + offset) < 0)
        return false;
    const size_t length = std::min<size_t>(keyword.length, sizeof(uint64_t));
    Second &second = seconds[crowd->end++];
    second = {0, UINT64_MAX >> (8 * (sizeof(uint64_t) - length)), offset, id, entry, {}};
    memcpy(&second.value, keyword.text, length);
    memcpy(second.pair, keyword.text + offset, sizeof second.pair);
    return true;
}

// Calls `act` with each entry under an anchor and its second keyword, until it returns false. Returns whether all had one
// and none did.
template <class Act>
bool ForEachSecond(uint16_t anchor, Act act)
{
    for (uint16_t i = first_of_anchor[anchor]; i != kNone; i = sieved[i].next) {
        const uint16_t second = ChooseSecond(sieved[i], anchor);
        if (second == kNone || !act(i, second))
            return false;
    }
    return true;
}

// Makes a crowd of the entries under an anchor, if each has a second keyword and few pairs of bytes are in all of them.
void GatherCrowd(uint16_t anchor)
{
    Crowd &crowd = crowds[crowd_count];
    crowd = {second_count, second_count, {}};
    const auto count = [anchor](int by) {
        return ForEachSecond(anchor, [by](uint16_t /*entry*/, uint16_t id) {
            CountPairs(keywords[id], by);
            return true;
        });
    };
    const bool is_crowd = count(1) && ForEachSecond(anchor, [&crowd](uint16_t entry, uint16_t id) {
                              return EnterSecond(&crowd, entry, id);
                          });
    count(-1);
    if (!is_crowd)
        return;
    second_count = crowd.end;
    crowd_of_anchor[anchor] = static_cast<uint16_t>(crowd_count++);
}

void GatherCrowds(const char *sample, size_t length)
{
    crowd_count = second_count = 0;
    TakeSample(sample, length, {sizeof Second::pair, 1});
    for (int anchor = 0; anchor < anchor_count; ++anchor) {
        if (users_of_anchor[anchor] >= kCrowd)
            GatherCrowd(static_cast<uint16_t>(anchor));
    }
}

// ---- a line ----

struct Line {
    const char *text;
    size_t length;
};

bool Holds(const Line &line, uint16_t keyword)
{
    return memmem(line.text, line.length, keywords[keyword].text, keywords[keyword].length) !=
           nullptr;
}

bool HasAllKeywords(const Line &line, const Sieved &entry)
{
    return std::ranges::all_of(entry.keywords,
                               [&line](uint16_t id) { return id == kNone || Holds(line, id); });
}

bool AnyOfChainMatches(const Line &line, uint16_t anchor)
{
    for (uint16_t i = first_of_anchor[anchor]; i != kNone; i = sieved[i].next) {
        if (HasAllKeywords(line, sieved[i]))
            return true;
    }
    return false;
}

bool IsSecondAt(const Line &line, const Second &second, size_t place)
{
    const Keyword &keyword = keywords[second.keyword];
    const size_t begin = place - second.offset;
    if (second.offset > place || begin + keyword.length > line.length)
        return false;
    uint64_t bytes = 0;
    memcpy(&bytes, line.text + begin, sizeof bytes);
    return (bytes & second.mask) == second.value &&
           memcmp(line.text + begin, keyword.text, keyword.length) == 0;
}

bool AnyOfCrowdMatches(const Line &line, const Crowd &crowd)
{
    return AnyPairPlace(crowd.filter, line.text, line.length, [&](size_t place) {
        for (int i = crowd.begin; i < crowd.end; ++i) {
            if (memcmp(seconds[i].pair, line.text + place, sizeof Second::pair) == 0 &&
                IsSecondAt(line, seconds[i], place) &&
                HasAllKeywords(line, sieved[seconds[i].entry]))
                return true;
        }
        return false;
    });
}

bool AnyEntryMatches(const Line &line, uint16_t anchor)
{
    const uint16_t crowd = crowd_of_anchor[anchor];
    return crowd == kNone ? AnyOfChainMatches(line, anchor)
                          : AnyOfCrowdMatches(line, crowds[crowd]);
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
    CollectTable();
    if (ShortestAnchor() < kShortest)
        return false;
    ChooseSearch(sample, length);
    GatherCrowds(sample, length);
    return true;
}

void SieveBlock(const char *block, size_t length)
{
    BeginWalk(&walk, &search, block, length);
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
        is_loud = next_hit.literal == repeat_anchor || AnyEntryMatches(line, next_hit.literal);
    }
    return is_loud;
}
