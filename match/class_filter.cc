#include "match/class_filter.h"

#include <bit>
#include <cmath>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

#include "match/found_places.h"
#include "match/processor.h"

namespace {

using Lane = uint8_t __attribute__((vector_size(ClassFilter::kLane)));

constexpr int kClasses = ClassFilter::kClasses;
constexpr size_t kHalves = 2; // of a byte: the lower four bits, and the upper ones

// While classes are filled: how often a half has a value in the sample, and how much of that the classes let through
// at each byte of the gram.
float share[kHalves][ClassFilter::kLane];
float passed[kClasses][ClassFilter::kGram][kHalves];

// The values of the halves of a gram, by sets: a byte that may be any has all of them.
struct Halves {
    uint16_t values[ClassFilter::kGram][kHalves];

    Halves(const char *gram, size_t known)
    {
        for (size_t i = 0; i < ClassFilter::kGram; ++i) {
            const auto byte = static_cast<unsigned char>(i < known ? gram[i] : 0);
            values[i][0] = static_cast<uint16_t>(i < known ? 1U << (byte & 15U) : UINT16_MAX);
            values[i][1] = static_cast<uint16_t>(i < known ? 1U << (byte >> 4U) : UINT16_MAX);
        }
    }
};

template <class Act>
void ForEachValue(uint16_t values, Act act)
{
    for (uint32_t left = values; left != 0; left &= left - 1)
        act(static_cast<size_t>(std::countr_zero(left)));
}

// What the class lets through at one half of one byte, when these values are added to it.
float PassedAt(const ClassFilter &filter, int id, size_t byte, size_t half, uint16_t values)
{
    float sum = passed[id][byte][half];
    ForEachValue(values, [&](size_t value) {
        if ((filter.classes[byte][half][value] >> id & 1) == 0)
            sum += share[half][value];
    });
    return sum;
}

// How much of the sample a class lets through, and how much with one more gram.
float PassedBy(int id)
{
    float product = 1;
    for (const auto &byte : passed[id])
        product *= byte[0] * byte[1];
    return product;
}

float PassedWith(const ClassFilter &filter, int id, const Halves &halves)
{
    float product = 1;
    for (size_t byte = 0; byte < ClassFilter::kGram; ++byte) {
        for (size_t half = 0; half < kHalves; ++half)
            product *= PassedAt(filter, id, byte, half, halves.values[byte][half]);
    }
    return product;
}

void AddValues(uint8_t *classes, int id, uint16_t values)
{
    ForEachValue(values,
                 [classes, id](size_t value) { classes[value] |= static_cast<uint8_t>(1U << id); });
}

void Enter(ClassFilter *filter, int id, const Halves &halves)
{
    for (size_t byte = 0; byte < ClassFilter::kGram; ++byte) {
        for (size_t half = 0; half < kHalves; ++half) {
            const uint16_t values = halves.values[byte][half];
            passed[id][byte][half] = PassedAt(*filter, id, byte, half, values);
            AddValues(filter->classes[byte][half], id, values);
        }
    }
}
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

// Of sixteen bytes, those at these indexes below sixteen.
[[gnu::always_inline]] WITH_TABLE_LOOKUP inline Lane LookUp(Lane table, Lane indexes)
{
#if defined(__x86_64__)
    return (Lane)_mm_shuffle_epi8((__m128i)table, (__m128i)indexes);
#elif defined(__aarch64__)
    return (Lane)vqtbl1q_u8((uint8x16_t)table, (uint8x16_t)indexes);
#else
    Lane found{};
    for (size_t i = 0; i < sizeof found; ++i)
        found[i] = table[indexes[i]];
    return found;
#endif
}

// What the classes have at one byte of the gram, for sixteen places.
[[gnu::always_inline]] WITH_TABLE_LOOKUP inline Lane ClassesAt(const char *text, Lane lower,
                                                               Lane upper)
{
    const Lane bytes = Load(text);
    return LookUp(lower, bytes & 15) & LookUp(upper, bytes >> 4);
}

} // namespace

bool ClassFilterWorks()
{
    return UsableLanes() >= Lanes::kTableLookup;
}

void WeighClasses(const char *sample, size_t length)
{
    float times[kHalves][ClassFilter::kLane] = {};
    for (size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(sample[i]);
        ++times[0][byte & 15];
        ++times[1][byte >> 4];
    }
    for (size_t half = 0; half < kHalves; ++half) {
        for (size_t value = 0; value < ClassFilter::kLane; ++value)
            share[half][value] = (times[half][value] + 1) / static_cast<float>(length + 1);
    }
}

void ClearClasses(ClassFilter *filter)
{
    *filter = {};
    memset(passed, 0, sizeof passed);
}

void AddToClasses(ClassFilter *filter, const char *gram, size_t known)
{
    const Halves halves(gram, known);
    int best = 0;
    float least = INFINITY;
    for (int id = 0; id < kClasses; ++id) {
        const float more = PassedWith(*filter, id, halves) - PassedBy(id);
        if (more < least) {
            least = more;
            best = id;
        }
    }
    Enter(filter, best, halves);
}

void AddToClass(ClassFilter *filter, int id, const char *gram, size_t known)
{
    const Halves halves(gram, known);
    for (size_t byte = 0; byte < ClassFilter::kGram; ++byte) {
        for (size_t half = 0; half < kHalves; ++half)
            AddValues(filter->classes[byte][half], id, halves.values[byte][half]);
    }
}

namespace {

#if defined(__x86_64__)
using Wide = __m256i;

#define WITH_WIDE_LANES __attribute__((target("avx2")))

// One table for both halves of a wide lane.
WITH_WIDE_LANES Wide LoadTwice(const uint8_t *table)
{
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i *>(table)));
}

[[gnu::always_inline]] WITH_WIDE_LANES inline Wide WideClassesAt(const char *text, Wide lower,
                                                                 Wide upper)
{
    const Wide low_bits = _mm256_set1_epi8(15);
    const Wide bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(text));
    return _mm256_and_si256(
        _mm256_shuffle_epi8(lower, _mm256_and_si256(bytes, low_bits)),
        _mm256_shuffle_epi8(upper, _mm256_and_si256(_mm256_srli_epi16(bytes, 4), low_bits)));
}

// PassClasses, thirty-two places at a time.
WITH_WIDE_LANES int PassClassesWide(const ClassFilter &filter, const char *text, size_t begin,
                                    size_t end, uint32_t *places)
{
    Wide tables[ClassFilter::kGram][kHalves];
    for (size_t i = 0; i < ClassFilter::kGram; ++i) {
        tables[i][0] = LoadTwice(filter.classes[i][0]);
        tables[i][1] = LoadTwice(filter.classes[i][1]);
    }
    int count = 0;
    for (size_t at = begin; at < end; at += sizeof(Wide)) {
        Wide classes = WideClassesAt(text + at, tables[0][0], tables[0][1]);
        for (size_t i = 1; i < ClassFilter::kGram; ++i)
            classes =
                _mm256_and_si256(classes, WideClassesAt(text + at + i, tables[i][0], tables[i][1]));
        const Wide none = _mm256_cmpeq_epi8(classes, _mm256_setzero_si256());
        for (uint32_t left = ~static_cast<uint32_t>(_mm256_movemask_epi8(none)); left != 0;
             left &= left - 1)
            places[count++] =
                static_cast<uint32_t>(at) + static_cast<uint32_t>(std::countr_zero(left));
    }
    return CountUpTo(places, count, end);
}
#endif

WITH_TABLE_LOOKUP int PassClassesNarrow(const ClassFilter &filter, const char *text, size_t begin,
                                        size_t end, uint32_t *places)
{
    Lane tables[ClassFilter::kGram][2];
    for (size_t i = 0; i < ClassFilter::kGram; ++i) {
        tables[i][0] = Load(filter.classes[i][0]);
        tables[i][1] = Load(filter.classes[i][1]);
    }
    int count = 0;
    for (size_t at = begin; at < end; at += ClassFilter::kLane) {
        Lane found = ClassesAt(text + at, tables[0][0], tables[0][1]);
        found &= ClassesAt(text + at + 1, tables[1][0], tables[1][1]);
        found &= ClassesAt(text + at + 2, tables[2][0], tables[2][1]);
        uint64_t words[ClassFilter::kLane / kWord];
        memcpy(words, &found, sizeof words);
        if ((words[0] | words[1]) == 0)
            continue;
        count += AppendPlaces(words[0], at, places + count);
        count += AppendPlaces(words[1], at + kWord, places + count);
    }
    return CountUpTo(places, count, end);
}

} // namespace

int PassClasses(const ClassFilter &filter, const char *text, size_t begin, size_t end,
                uint32_t *places)
{
#if defined(__x86_64__)
    if (UsableLanes() == Lanes::kWide)
        return PassClassesWide(filter, text, begin, end, places);
#endif
    return PassClassesNarrow(filter, text, begin, end, places);
}
