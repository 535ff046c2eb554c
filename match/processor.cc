#include "match/processor.h"

namespace {

Lanes AskProcessor()
{
#if defined(__x86_64__)
    // The library is loaded: nobody has asked before.
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2") != 0)
        return Lanes::kWide;
    return __builtin_cpu_supports("ssse3") != 0 ? Lanes::kTableLookup : Lanes::kBaseline;
#elif defined(__aarch64__)
    return Lanes::kTableLookup;
#else
    return Lanes::kBaseline;
#endif
}

} // namespace

const Lanes lanes_of_processor = AskProcessor();
