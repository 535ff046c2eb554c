// The places of a few pairs of bytes in a text, sixteen places at a time.
//
// Faster than a look at each place when the pairs are few. It is written with the compiler's vectors, which every
// processor of the supported architectures has.
#ifndef MATCH_PAIR_FILTER_H
#define MATCH_PAIR_FILTER_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

struct PairFilter {
    static constexpr int kMostPairs = 12;
    static constexpr size_t kLane = 16; // bytes behind the text that may be read, and one more

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

// The number of the pair that stands at `text`, which is one of the filter.
inline int PairAt(const PairFilter &filter, const char *text)
{
    int i = 0;
    while (memcmp(filter.pairs[i], text, 2) != 0)
        ++i;
    return i;
}

// Calls `act` with each place of a pair that begins in the first `length` bytes, in order, until it returns true.
// Returns whether it did. PairFilter::kLane + 1 bytes behind the text can be read.
template <class Act>
bool AnyPairPlace(const PairFilter &filter, const char *text, size_t length, Act act)
{
    using Lane = uint8_t __attribute__((vector_size(PairFilter::kLane)));
    constexpr size_t kWord = sizeof(uint64_t);
    for (size_t at = 0; at < length; at += PairFilter::kLane) {
        Lane first;
        Lane second;
        memcpy(&first, text + at, sizeof first);
        memcpy(&second, text + at + 1, sizeof second);
        Lane found{};
        for (int i = 0; i < filter.count; ++i)
            found |= (Lane)(first == static_cast<uint8_t>(filter.pairs[i][0])) &
                     (Lane)(second == static_cast<uint8_t>(filter.pairs[i][1]));
        uint64_t words[PairFilter::kLane / kWord];
        memcpy(words, &found, sizeof words);
        for (size_t word = 0; word < PairFilter::kLane / kWord; ++word) {
            for (uint64_t left = words[word]; left != 0;) {
                const size_t byte = static_cast<size_t>(std::countr_zero(left)) / 8;
                left &= ~(uint64_t{0xFF} << (8 * byte));
                const size_t place = at + (word * kWord) + byte;
                if (place < length && act(place))
                    return true;
            }
        }
    }
    return false;
}

// The same with each place.
template <class Act>
void ForEachPairPlace(const PairFilter &filter, const char *text, size_t length, Act act)
{
    AnyPairPlace(filter, text, length, [&act](size_t place) {
        act(place);
        return false;
    });
}

#endif // MATCH_PAIR_FILTER_H
