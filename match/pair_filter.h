// The places of a few pairs of bytes in a text, sixteen places at a time or thirty-two.
//
// Faster than a look at each place when the pairs are few. It is written with the compiler's vectors, which every
// processor of the supported architectures has.
#ifndef MATCH_PAIR_FILTER_H
#define MATCH_PAIR_FILTER_H

#include <cstddef>
#include <cstdint>
#include <cstring>

struct PairFilter {
    static constexpr int kMostPairs = 12;
    static constexpr size_t kWidest = 32; // places looked at together, at most

    int count;
    char pairs[kMostPairs][2];
};

// The number of the pair, added if need be; -1 when there is no room.
inline int AddPair(PairFilter *filter, const char *pair)
{
    for (int i = 0; i < filter->count; ++i) {
        if (memcmp(filter->pairs[i], pair, 2) == 0)
            return i;
    }
    if (filter->count == PairFilter::kMostPairs)
        return -1;
    memcpy(filter->pairs[filter->count], pair, 2);
    return filter->count++;
}

// The number of the pair that stands at `text`; -1 when it is none of the filter's.
inline int PairAt(const PairFilter &filter, const char *text)
{
    for (int i = 0; i < filter.count; ++i) {
        if (memcmp(filter.pairs[i], text, 2) == 0)
            return i;
    }
    return -1;
}

// Writes the places from `begin` to `end` - 1 at which a pair stands to `places`, in order, and returns how many they
// are. There is room for all, and for PairFilter::kWidest more. PairFilter::kWidest + 1 bytes behind the text can be
// read.
int FindPairs(const PairFilter &filter, const char *text, size_t begin, size_t end,
              uint32_t *places);

// Finds the places of a text, a round at a time, as FindPairs does with its last four arguments, and calls `act` with each,
// in order, until it returns true. Returns whether it did. What `find` may read behind the text can be read.
template <class Find, class Act>
bool AnyPlace(Find find, const char *text, size_t length, Act act)
{
    constexpr size_t kRound = 256;
    uint32_t places[kRound + PairFilter::kWidest];
    for (size_t begin = 0; begin < length; begin += kRound) {
        const size_t end = begin + kRound < length ? begin + kRound : length;
        const int count = find(text, begin, end, places);
        for (int i = 0; i < count; ++i) {
            if (act(size_t{places[i]}))
                return true;
        }
    }
    return false;
}

#endif // MATCH_PAIR_FILTER_H
