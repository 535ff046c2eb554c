#include "match/anchors.h"

#include <algorithm>
#include <cstring>

#include "match/gram_cover.h"
#include "match/log_sample.h"
#include "match/sieve_table.h"
#include "match/windows.h"

BlockSearch anchor_search;
Searched anchors[kMostSearched];
int anchor_count = 0;
uint16_t first_text_anchor = kNoneSieved;
uint16_t first_of_anchor[kMostSearched];
uint16_t users_of_anchor[kMostSearched];

namespace {

// The length from which on nothing is gained.
constexpr size_t kLongest = kMostStep + 3;

// Below this length, a longer window means larger grams, which are in fewer lines; above it, larger steps only.
constexpr size_t kSelectiveGram = 4;

void ForgetAnchors()
{
    anchor_count = 0;
    for (int i = 0; i < sieve_keyword_count; ++i)
        sieve_keywords[i].anchor = kNoneSieved;
}

uint16_t AddAnchor(const char *text, size_t length, size_t window)
{
    anchors[anchor_count] = {text, static_cast<uint16_t>(length), static_cast<uint16_t>(window)};
    first_of_anchor[anchor_count] = kNoneSieved;
    users_of_anchor[anchor_count] = 0;
    return static_cast<uint16_t>(anchor_count++);
}

// The keyword stands for the entry; its window is used if it stands for none yet.
void ChainUnderAnchor(int index, uint16_t id, size_t window)
{
    SieveKeyword &keyword = sieve_keywords[id];
    if (keyword.anchor == kNoneSieved)
        keyword.anchor = AddAnchor(keyword.text, keyword.length, window);
    sieve_entries[index].next = first_of_anchor[keyword.anchor];
    first_of_anchor[keyword.anchor] = static_cast<uint16_t>(index);
    ++users_of_anchor[keyword.anchor];
}

// ---- in large steps ----

Window windows[kKeywordsOfEntry * kMaxEntries]; // by keyword

// Of the longest keywords of an entry that has none of the wanted length, the one that most entries have: few of them
// are to be entered.
uint16_t MostUsed(const SieveEntry &entry)
{
    uint16_t best = kNoneSieved;
    ForEachKeyword(entry, entry.longest, [&best](uint16_t id) {
        if (best == kNoneSieved || sieve_keywords[id].users > sieve_keywords[best].users)
            best = id;
    });
    return best;
}

// By how many bytes would literals be too short, if all others had at least this length?
int CountCutShort(size_t length)
{
    int count = 0;
    ForgetAnchors();
    for (int i = 0; i < sieve_entry_count; ++i) {
        if (sieve_entries[i].longest >= length)
            continue;
        SieveKeyword &keyword = sieve_keywords[MostUsed(sieve_entries[i])];
        count += keyword.anchor == kNoneSieved ? static_cast<int>(length - keyword.length) : 0;
        keyword.anchor = 0;
    }
    return count;
}

// The texts are all entered, and none may be cut by more than a literal can be.
size_t LongestFor(const MoreTexts &texts)
{
    size_t longest = kLongest;
    for (const char *text : texts)
        longest = std::min(longest, strlen(text) + kMostCut);
    return longest;
}

// The length that decides in which steps the log is searched.
size_t ChooseLength(const MoreTexts &texts)
{
    const size_t longest = LongestFor(texts);
    const size_t shortest = std::min(ShortestOfLongest(), longest);
    size_t length = std::min(shortest + kMostCut, longest);
    const int most_cut = shortest < kSelectiveGram ? kMostCutShort : kMostCutShort / 4;
    while (length > shortest && CountCutShort(length) > most_cut)
        --length;
    return length;
}

// What a keyword costs as an anchor.
uint32_t CostOf(uint16_t id)
{
    const SieveKeyword &keyword = sieve_keywords[id];
    if (keyword.anchor == kNoneSieved)
        windows[id] = CheapestWindow(keyword.text, keyword.length);
    return windows[id].cost;
}

// The keyword of an entry that is cheapest to look for, of those that are long enough.
uint16_t ChooseKeyword(const SieveEntry &entry, size_t length)
{
    uint16_t best = kNoneSieved;
    uint32_t least = 0;
    ForEachKeyword(entry, length, [&best, &least](uint16_t id) {
        const uint32_t cost = CostOf(id);
        if (best != kNoneSieved && cost >= least)
            return;
        best = id;
        least = cost;
    });
    return best;
}

void ChooseWindow(int index, size_t length)
{
    const SieveEntry &entry = sieve_entries[index];
    if (entry.longest < length) {
        ChainUnderAnchor(index, MostUsed(entry), 0);
        return;
    }
    const uint16_t id = ChooseKeyword(entry, length);
    if (sieve_keywords[id].anchor == kNoneSieved)
        TakeWindow(sieve_keywords[id].text, windows[id]);
    ChainUnderAnchor(index, id, windows[id].begin);
}

void PrepareInSteps(const MoreTexts &texts)
{
    const GramKind kind = KindFor(ChooseLength(texts));
    BeginWindows(kind);
    ForgetAnchors();
    for (int i = 0; i < sieve_entry_count; ++i)
        ChooseWindow(i, kind.window());
    first_text_anchor = static_cast<uint16_t>(anchor_count);
    for (const char *text : texts)
        AddAnchor(text, strlen(text), CheapestWindow(text, strlen(text)).begin);
    PrepareSearch(&anchor_search, anchors, anchor_count, kind);
}

// ---- by class ----

constexpr GramKind kByClass = {ClassFilter::kGram, 1};

size_t RarestGram(const char *text)
{
    size_t best = 0;
    for (size_t offset = 1; offset + kByClass.size <= strlen(text); ++offset) {
        if (SampledTimes(text + offset, kByClass.size) < SampledTimes(text + best, kByClass.size))
            best = offset;
    }
    return best;
}

// False when too many keywords are shorter than a gram.
bool PrepareByClass(const MoreTexts &texts)
{
    if (!ClassFilterWorks())
        return false;
    static GramPlace places[kMaxEntries];
    CoverEntries(places);
    ForgetAnchors();
    int cut_short = 0;
    for (int i = 0; i < sieve_entry_count; ++i) {
        const SieveKeyword &keyword = sieve_keywords[places[i].keyword];
        cut_short += keyword.anchor == kNoneSieved && keyword.length < kByClass.size ? 1 : 0;
        ChainUnderAnchor(i, places[i].keyword, places[i].offset);
    }
    if (cut_short > kMostCutShort)
        return false;
    first_text_anchor = static_cast<uint16_t>(anchor_count);
    for (const char *text : texts)
        AddAnchor(text, strlen(text), RarestGram(text));
    PrepareSearch(&anchor_search, anchors, anchor_count, kByClass);
    return true;
}

// What the search of a text costs, in looks: those that pass the first filter cost as much as some others. Measured with
// the rules and logs of bench/data and of bench/other_words.py.
uint64_t CostOfSearch(size_t length, uint64_t passed)
{
    constexpr uint64_t kCostOfPassed = 13;
    constexpr uint64_t kLooksAtATime = 12; // by class, for what one look costs
    const uint64_t looks =
        length / (anchor_search.is_by_class ? kLooksAtATime : anchor_search.kind.step);
    return looks + (kCostOfPassed * passed);
}

} // namespace

// By class, if that lets next to nothing through; or else what is cheaper.
uint64_t ChooseAnchors(const char *sample, size_t length, const MoreTexts &texts)
{
    constexpr uint64_t kBytesForOne = 400; // so many for each that passes are next to nothing
    length = std::min(length, kSampleSize);
    TakeSample(sample, length);
    WeighClasses(sample, length);
    const bool is_possible = PrepareByClass(texts);
    const uint64_t by_class = is_possible ? CountPassed(anchor_search, sample, length) : 0;
    if (is_possible && by_class <= length / kBytesForOne)
        return by_class;
    const uint64_t cost = is_possible ? CostOfSearch(length, by_class) : UINT64_MAX;
    PrepareInSteps(texts);
    const uint64_t in_steps = CountPassed(anchor_search, sample, length);
    if (CostOfSearch(length, in_steps) <= cost)
        return in_steps;
    PrepareByClass(texts);
    return by_class;
}
