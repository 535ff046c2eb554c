// What the processor can do beyond the baseline of its architecture, asked once.
#ifndef MATCH_PROCESSOR_H
#define MATCH_PROCESSOR_H

#include <algorithm>
#include <cstdint>

// Each can do what those before it can.
enum class Lanes : uint8_t {
    kBaseline,
    kTableLookup, // looks sixteen bytes up in a table of sixteen at once
    kWide,        // works on thirty-two bytes at once, and looks them up likewise
};

extern const Lanes lanes_of_processor;

// More is not made use of. Tests lower it, to see what other processors do.
inline Lanes most_lanes = Lanes::kWide;

inline Lanes UsableLanes()
{
    return std::min(lanes_of_processor, most_lanes);
}

#endif // MATCH_PROCESSOR_H
