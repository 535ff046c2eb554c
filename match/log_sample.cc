#include "match/log_sample.h"

#include <algorithm>

uint16_t sampled_times[3][kSampleSlots];

void TakeSample(const char *sample, size_t length)
{
    memset(sampled_times, 0, sizeof sampled_times);
    length = std::min(length, kSampleSize);
    for (size_t at = 0; at < length; ++at) {
        ++sampled_times[0][SampleSlot(sample + at, 2)];
        ++sampled_times[1][SampleSlot(sample + at, 3)];
        ++sampled_times[2][SampleSlot(sample + at, 4)];
    }
}
