// Random campaigns: the same rounds in every run, unless the environment asks for others.
//
//   SYSLOGMON_TEST_SEED    the seed of all campaigns, a number (1 unless set), or "random"
//   SYSLOGMON_TEST_ROUND   runs this one round of each campaign only, to see a failure again
//   SYSLOGMON_TEST_SCALE   so many times the usual number of rounds (1 unless set)
#ifndef TESTS_SUPPORT_CAMPAIGN_H
#define TESTS_SUPPORT_CAMPAIGN_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace test {

class Random {
  public:
    explicit Random(uint64_t seed) : engine_(seed) {}

    uint64_t Bits() { return engine_(); }
    // 0 to n - 1.
    size_t Below(size_t n) { return static_cast<size_t>(engine_() % n); }
    // least to most, both included.
    int Between(int least, int most)
    {
        return least + static_cast<int>(Below(static_cast<size_t>(most - least) + 1));
    }
    bool Chance(int percent) { return Below(100) < static_cast<size_t>(percent); }

    template <typename List>
    const auto &OneOf(const List &list)
    {
        return *(std::begin(list) + static_cast<std::ptrdiff_t>(Below(std::size(list))));
    }

    std::string Text(size_t length, std::string_view alphabet)
    {
        std::string text;
        text.reserve(length);
        while (text.size() < length)
            text += alphabet[Below(alphabet.size())];
        return text;
    }

  private:
    std::mt19937_64 engine_;
};

// The rounds of one campaign. Each has a seed of its own, so that it can be run alone.
class Campaign {
  public:
    Campaign(std::string_view name, int rounds);

    // Runs round after round until one has failed: the message says how to see it again.
    template <typename Round>
    void Run(Round round) const
    {
        for (const int number : numbers_) {
            Random random(SeedOf(number));
            SCOPED_TRACE(HowToRepeat(number));
            round(random);
            if (testing::Test::HasFailure())
                return;
        }
    }

  private:
    [[nodiscard]] uint64_t SeedOf(int number) const;
    [[nodiscard]] std::string HowToRepeat(int number) const;

    std::string name_;
    uint64_t seed_;
    std::vector<int> numbers_;
};

} // namespace test

#endif // TESTS_SUPPORT_CAMPAIGN_H
