#include "match/gram_cover.h"

#include <algorithm>
#include <bitset>
#include <cmath>
#include <cstring>

#include "match/log_sample.h"
#include "match/sieve_table.h"

namespace {

constexpr size_t kGram = 3;

// By slot of the sample, first those of grams, then those of keywords that are shorter.
constexpr size_t kSlots = 2 * kSampleSlots;
// Places of the gram in entries that have none yet; kMany: so many or more, and no longer counted. Never 0 while there is one.
uint16_t waiting[kSlots];
constexpr uint16_t kMany = UINT16_MAX;
std::bitset<kSlots> is_chosen;

// Of a long keyword, so many places are considered.
constexpr size_t kMostPlaces = 32;

// What a gram costs in a search: by being one more to let through, and for each time it does.
constexpr uint32_t kCostOfGram = 48;
constexpr uint32_t kCostOfShort = 64;
constexpr uint32_t kCostOfOccurrence = 8;

// A keyword is too frequent to stand for its entry when it is that much more frequent than another one.
constexpr uint32_t kFew = 160;
constexpr uint32_t kMuch = 4;
bool is_usable[kMaxEntries][kKeywordsOfEntry];

uint32_t Occurrences(size_t slot)
{
    return SampledInSlot(slot % kSampleSlots, slot < kSampleSlots ? kGram : kShortestSieved);
}

// Calls `act` with the slot and the offset of each gram of a keyword.
template <class Act>
void ForEachGram(const SieveKeyword &keyword, Act act)
{
    if (keyword.length < kGram) {
        act(kSampleSlots + SampleSlot(keyword.text, kShortestSieved), size_t{0});
        return;
    }
    const size_t count = std::min(keyword.length - kGram + 1, kMostPlaces);
    for (size_t offset = 0; offset < count; ++offset)
        act(SampleSlot(keyword.text + offset, kGram), offset);
}

// An upper bound for the occurrences of the keyword. UINT32_MAX when it cannot be searched for.
uint32_t LeastOccurrences(uint16_t id)
{
    uint32_t least = UINT32_MAX;
    if (id != kNoneSieved && sieve_keywords[id].length >= kShortestSieved)
        ForEachGram(sieve_keywords[id], [&least](size_t slot, size_t /*offset*/) {
            least = std::min(least, Occurrences(slot));
        });
    return least;
}

// Each time the keyword that stands for an entry is found, the entry has to be looked at.
void FindUsable(int index)
{
    uint32_t occurrences[kKeywordsOfEntry];
    for (int k = 0; k < kKeywordsOfEntry; ++k)
        occurrences[k] = LeastOccurrences(sieve_entries[index].keywords[k]);
    const uint32_t most = kFew + (kMuch * *std::ranges::min_element(occurrences));
    for (int k = 0; k < kKeywordsOfEntry; ++k)
        is_usable[index][k] = occurrences[k] <= most;
}

// Calls `act` with the slot, the keyword and the offset of each gram that an entry can take.
template <class Act>
void ForEachChoice(int index, Act act)
{
    for (int k = 0; k < kKeywordsOfEntry; ++k) {
        if (!is_usable[index][k])
            continue;
        const uint16_t id = sieve_entries[index].keywords[k];
        ForEachGram(sieve_keywords[id],
                    [id, &act](size_t slot, size_t offset) { act(slot, id, offset); });
    }
}

// What choosing a gram gains: entries served for its cost. One that is chosen costs nothing more.
float ValueOf(size_t slot)
{
    const uint32_t cost = (slot < kSampleSlots ? kCostOfGram : kCostOfShort) +
                          (kCostOfOccurrence * Occurrences(slot));
    return is_chosen[slot] ? INFINITY
                           : static_cast<float>(waiting[slot]) / static_cast<float>(cost);
}

// At most so much is the best gram of an entry worth: grams lose value while entries are served. Infinity: unknown.
float most_worth[kMaxEntries];

// Takes the best gram of an entry, if it is worth as much as is wanted.
bool TakeGram(int index, float wanted, GramPlace *place)
{
    float &best = most_worth[index];
    if (best < wanted)
        return false;
    best = 0;
    size_t best_slot = 0;
    ForEachChoice(index, [&](size_t slot, uint16_t keyword, size_t offset) {
        const float value = ValueOf(slot);
        if (value <= best)
            return;
        best = value;
        best_slot = slot;
        *place = {keyword, static_cast<uint16_t>(offset)};
    });
    if (best < wanted)
        return false;
    is_chosen[best_slot] = true;
    ForEachChoice(index, [](size_t slot, uint16_t, size_t) {
        if (waiting[slot] < kMany)
            --waiting[slot];
    });
    return true;
}

void CountWaiting()
{
    memset(waiting, 0, sizeof waiting);
    for (int i = 0; i < sieve_entry_count; ++i) {
        FindUsable(i);
        ForEachChoice(i, [](size_t slot, uint16_t, size_t) {
            if (waiting[slot] < kMany)
                ++waiting[slot];
        });
    }
}

float GreatestValue()
{
    float greatest = 0;
    for (size_t slot = 0; slot < kSlots; ++slot) {
        if (waiting[slot] > 0)
            greatest = std::max(greatest, ValueOf(slot));
    }
    return greatest;
}

} // namespace

// In rounds of falling demands, each over the entries that are left.
void CoverEntries(GramPlace *places)
{
    std::bitset<kMaxEntries> is_covered;
    std::fill_n(most_worth, sieve_entry_count, INFINITY);
    is_chosen.reset();
    CountWaiting();
    int left = sieve_entry_count;
    float wanted = GreatestValue();
    while (left > 0) {
        for (int i = 0; i < sieve_entry_count; ++i) {
            if (is_covered[static_cast<size_t>(i)] || !TakeGram(i, wanted, &places[i]))
                continue;
            is_covered[static_cast<size_t>(i)] = true;
            --left;
        }
        wanted /= 2;
    }
}
