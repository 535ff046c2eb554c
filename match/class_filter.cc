#include "match/class_filter.h"

#include <bit>
#include <cstring>

namespace {

using Lane = uint8_t __attribute__((vector_size(ClassFilter::kLane)));

constexpr int kClasses = 8;
constexpr size_t kWord = sizeof(uint64_t);

Lane Load(const void *bytes)
{
    Lane lane;
    memcpy(&lane, bytes, sizeof lane);
    return lane;
}

#if defined(__x86_64__)
#define WITH_TABLE_LOOKUP __attribute__((target("ssse3")))
#else
#define WITH_TABLE_LOOKUP
#endif

// What the classes have at one byte of the gram, for sixteen places.
[[gnu::always_inline]] WITH_TABLE_LOOKUP inline Lane ClassesAt(const char *text, Lane lower,
                                                               Lane upper)
{
    const Lane bytes = Load(text);
    return __builtin_shuffle(lower, bytes & 15) & __builtin_shuffle(upper, bytes >> 4);
}

// Appends the places of the bytes of a word that are not zero.
int AppendPlaces(uint64_t word, size_t at, uint32_t *places)
{
    int count = 0;
    while (word != 0) {
        const auto byte = static_cast<size_t>(std::countr_zero(word)) / 8;
        places[count++] = static_cast<uint32_t>(at + byte);
        word &= ~(uint64_t{0xFF} << (8 * byte));
    }
    return count;
}

int CountUpTo(const uint32_t *places, int count, size_t end)
{
    while (count > 0 && places[count - 1] >= end)
        --count;
    return count;
}

} // namespace

bool ClassFilterWorks()
{
#if defined(__x86_64__)
    return __builtin_cpu_supports("ssse3") != 0;
#else
    return true;
#endif
}

void ClearClasses(ClassFilter *filter)
{
    *filter = {};
}

void AddToClasses(ClassFilter *filter, const char *gram, size_t known)
{
    unsigned char bytes[ClassFilter::kGram] = {};
    memcpy(bytes, gram, known);
    uint8_t &id = filter->class_of[(bytes[0] & 0xF0) | (bytes[1] >> 4)];
    if (id == 0)
        id = static_cast<uint8_t>(1 + (filter->next_class++ % kClasses));
    const auto bit = static_cast<uint8_t>(1U << (id - 1U));
    for (size_t i = 0; i < known; ++i) {
        filter->classes[i][0][bytes[i] & 15] |= bit;
        filter->classes[i][1][bytes[i] >> 4] |= bit;
    }
    for (size_t i = known; i < ClassFilter::kGram; ++i) {
        for (size_t half = 0; half < ClassFilter::kLane; ++half) {
            filter->classes[i][0][half] |= bit;
            filter->classes[i][1][half] |= bit;
        }
    }
}

WITH_TABLE_LOOKUP int PassClasses(const ClassFilter &filter, const char *text, size_t begin,
                                  size_t end, uint32_t *places)
{
    Lane tables[ClassFilter::kGram][2];
    for (size_t i = 0; i < ClassFilter::kGram; ++i) {
        tables[i][0] = Load(filter.classes[i][0]);
        tables[i][1] = Load(filter.classes[i][1]);
    }
    int count = 0;
    for (size_t at = begin; at < end; at += ClassFilter::kLane) {
        Lane passed = ClassesAt(text + at, tables[0][0], tables[0][1]);
        passed &= ClassesAt(text + at + 1, tables[1][0], tables[1][1]);
        passed &= ClassesAt(text + at + 2, tables[2][0], tables[2][1]);
        uint64_t words[ClassFilter::kLane / kWord];
        memcpy(words, &passed, sizeof words);
        if ((words[0] | words[1]) == 0)
            continue;
        count += AppendPlaces(words[0], at, places + count);
        count += AppendPlaces(words[1], at + kWord, places + count);
    }
    return CountUpTo(places, count, end);
}
