// A 64-bit value in the registry: two REG_DWORD values, always written and read low half first.
//
//   -1           low 0xFFFFFFFF, high 0xFFFFFFFF
//   0x100000005  low 5, high 1
#ifndef PLATFORM_SPLIT64_H
#define PLATFORM_SPLIT64_H

#include <cstdint>

constexpr uint32_t LowHalf(int64_t value)
{
    return static_cast<uint32_t>(value);
}

constexpr uint32_t HighHalf(int64_t value)
{
    return static_cast<uint32_t>(value >> 32); // keeps the sign
}

constexpr int64_t JoinHalves(uint32_t low, uint32_t high)
{
    return static_cast<int64_t>((uint64_t{high} << 32) | low);
}

static_assert(LowHalf(-1) == 0xFFFFFFFFU && HighHalf(-1) == 0xFFFFFFFFU);
static_assert(JoinHalves(0xFFFFFFFFU, 0xFFFFFFFFU) == -1);
static_assert(JoinHalves(LowHalf(0x100000005), HighHalf(0x100000005)) == 0x100000005);

#endif // PLATFORM_SPLIT64_H
