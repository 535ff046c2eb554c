#include "match/windows.h"

#include <cstring>

#include "match/log_sample.h"

namespace {

// Only while windows are chosen.
uint16_t users[kSampleSlots]; // windows that have a gram of the slot
GramKind chosen_kind;

// A look that passes the map, against one more literal that shares the gram.
constexpr uint32_t kCostOfLook = 64;

// A gram that is looked up in any case passes the map no more often for one more literal.
uint32_t CostOfGram(const char *gram)
{
    const size_t slot = SampleSlot(gram, chosen_kind.size);
    return users[slot] > 0 ? users[slot] : SampledInSlot(slot, chosen_kind.size) * kCostOfLook;
}

} // namespace

void BeginWindows(GramKind kind)
{
    memset(users, 0, sizeof users);
    chosen_kind = kind;
}

Window CheapestWindow(const char *text, size_t length)
{
    uint32_t costs[kMostStep] = {}; // of the last grams, by offset modulo `step`
    uint32_t sum = 0;
    Window best = {0, UINT32_MAX};
    for (size_t offset = 0; offset + chosen_kind.size <= length; ++offset) {
        uint32_t &cost = costs[offset % chosen_kind.step];
        sum -= cost;
        cost = CostOfGram(text + offset);
        sum += cost;
        if (offset + 1 >= chosen_kind.step && sum < best.cost)
            best = {static_cast<uint16_t>(offset + 1 - chosen_kind.step), sum};
    }
    return best;
}

void TakeWindow(const char *text, Window window)
{
    for (size_t i = 0; i < chosen_kind.step; ++i)
        ++users[SampleSlot(text + window.begin + i, chosen_kind.size)];
}
