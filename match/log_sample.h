// How often a few bytes stand in a sample of a log: what a search for them would find, but in vain.
//
// The bytes of a gram, 2 to 4, are counted under a slot, by a hash. Other grams may have the same one, so a gram can
// seem more frequent than it is.
#ifndef MATCH_LOG_SAMPLE_H
#define MATCH_LOG_SAMPLE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

// Of a sample, so many bytes count: no counter overflows.
constexpr size_t kSampleSize = UINT16_MAX;

constexpr unsigned kSampleSlotBits = 16;
constexpr size_t kSampleSlots = size_t{1} << kSampleSlotBits;

// Of grams of 2, 3 and 4 bytes. Written by TakeSample, on the monitor thread.
extern uint16_t sampled_times[3][kSampleSlots];

// Counts the grams of a sample; what was counted before is forgotten. Three bytes behind it can be read.
void TakeSample(const char *sample, size_t length);

inline size_t SampleSlot(const char *gram, size_t size)
{
    uint32_t bytes = 0;
    switch (size) {
    case 2:
        memcpy(&bytes, gram, 2);
        break;
    case 3:
        memcpy(&bytes, gram, 3);
        break;
    default:
        memcpy(&bytes, gram, 4);
    }
    return (bytes * 0x9E3779B1U) >> (32 - kSampleSlotBits);
}

// How often grams of this size and slot were met.
inline uint32_t SampledInSlot(size_t slot, size_t size)
{
    return sampled_times[size - 2][slot];
}

// How often the gram was met, or one that shares its slot.
inline uint32_t SampledTimes(const char *gram, size_t size)
{
    return SampledInSlot(SampleSlot(gram, size), size);
}

#endif // MATCH_LOG_SAMPLE_H
