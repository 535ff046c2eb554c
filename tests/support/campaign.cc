#include "tests/support/campaign.h"

#include <cstdlib>
#include <numeric>

namespace test {

namespace {

// The seed of this process: drawn once, so that all campaigns of a run have the same.
uint64_t ProcessSeed()
{
    static const uint64_t seed = [] {
        const char *text = getenv("SYSLOGMON_TEST_SEED");
        if (text == nullptr)
            return uint64_t{1};
        if (std::string_view(text) == "random")
            return uint64_t{std::random_device()()};
        return uint64_t{strtoull(text, nullptr, 10)};
    }();
    return seed;
}

int Scaled(int rounds)
{
    const char *text = getenv("SYSLOGMON_TEST_SCALE");
    const double scale = text != nullptr ? strtod(text, nullptr) : 1;
    const double scaled = rounds * scale;
    return scaled >= 1 ? static_cast<int>(scaled) : 1;
}

uint64_t Mix(uint64_t seed, uint64_t value)
{
    // Neighbouring rounds must not have neighbouring seeds.
    uint64_t mixed = seed + (value * 0x9E3779B97F4A7C15U);
    mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EBU;
    return mixed ^ (mixed >> 31U);
}

} // namespace

Campaign::Campaign(std::string_view name, int rounds) : name_(name), seed_(ProcessSeed())
{
    const char *only = getenv("SYSLOGMON_TEST_ROUND");
    if (only != nullptr) {
        numbers_ = {atoi(only)};
        return;
    }
    numbers_.resize(static_cast<size_t>(Scaled(rounds)));
    std::iota(numbers_.begin(), numbers_.end(), 0);
}

uint64_t Campaign::SeedOf(int number) const
{
    uint64_t seed = seed_;
    for (const char c : name_)
        seed = Mix(seed, static_cast<unsigned char>(c));
    return Mix(seed, static_cast<uint64_t>(number));
}

std::string Campaign::HowToRepeat(int number) const
{
    return name_ + ": to see this again, set SYSLOGMON_TEST_SEED=" + std::to_string(seed_) +
           " SYSLOGMON_TEST_ROUND=" + std::to_string(number);
}

} // namespace test
