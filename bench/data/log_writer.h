// The logs of the measurements, one kind for each set of rules.
//
// All imitate /var/log/messages of a busy server: about 110 bytes a line, some forty programs, numbers, addresses
// and names that change from line to line, one line in a thousand of a few kilobytes (a stack trace, a long command
// line). Besides:
//
//   kSharedPhrases  half of the lines hold a phrase of the rules, half an identifier of theirs; both of one rule in
//                   one line are rare
//   kShort          every second line holds codes of the rules, seldom all of one rule
//   kHostile        lines are made of the rules' own keywords with another byte at the end, so that the most crowded
//                   grams of the rules are everywhere, and a third of the lines are hits
//
// Everything comes from a seed, so two runs see the same bytes.
#ifndef BENCH_DATA_LOG_WRITER_H
#define BENCH_DATA_LOG_WRITER_H

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "bench/data/rules.h"

namespace bench {

constexpr uint64_t kSeed = 20261121;

// Writes lines one by one.
class LogWriter {
  public:
    // One line in `1 / hit_rate` is made to hold all keywords of one of the rules; 0: none is. Of kHostile, one
    // in three is, whatever the rate.
    LogWriter(RuleSet set, const std::vector<Rule> &rules, double hit_rate, uint64_t seed = kSeed);

    // The next line, without its line end. Its stamp is of this month, and not in the future.
    std::string Next();

    [[nodiscard]] int64_t hits() const { return hits_; }

  private:
    std::string Message();
    std::string Hit();
    std::string Ordinary();
    std::string Apart();
    std::string Codes();
    std::string Crowded();
    const std::string &Keyword();
    int Number(int below);
    template <size_t Size>
    const char *Pick(const char *const (&list)[Size]);
    std::string Fill(const char *text);

    RuleSet set_;
    const std::vector<Rule> &rules_;
    double hit_rate_;
    std::mt19937_64 random_;
    time_t time_;
    int64_t lines_ = 0;
    int64_t hits_ = 0;
};

} // namespace bench

#endif // BENCH_DATA_LOG_WRITER_H
