// The logs and rules of the measurements.
//
// The log imitates /var/log/messages of a busy server: about 110 bytes a line, some forty programs,
// numbers, addresses and names that change from line to line, one line in a thousand of a few
// kilobytes (a stack trace, a long command line). The rules imitate a vendor's event catalogue: up
// to three keywords, a program or subsystem, a phrase, a part; many phrases share words with normal
// traffic, as "error" and "failed" do. Everything comes from a seed, so two runs see the same
// bytes.
#ifndef BENCH_DATA_H
#define BENCH_DATA_H

#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace bench {

constexpr uint64_t kSeed = 20261121;

struct Rule {
    std::array<std::string, 3> keywords; // empty: no condition
};

// `count` rules; the last `expressions` of them have a keyword that is a true regular expression
// with literal text in it.
std::vector<Rule> MakeRules(int count, int expressions = 0);

// Writes lines one by one.
class LogWriter {
  public:
    // One line in `1 / hit_rate` holds all keywords of one of the rules; 0: none does.
    LogWriter(const std::vector<Rule> &rules, double hit_rate, uint64_t seed = kSeed);

    // The next line, without its line end. Its stamp is of this month, and not in the future.
    std::string Next();

    [[nodiscard]] int64_t hits() const { return hits_; }

  private:
    std::string Message();
    int Number(int below);
    template <size_t Size>
    const char *Pick(const char *const (&list)[Size]);
    std::string Fill(const char *text);

    const std::vector<Rule> &rules_;
    double hit_rate_;
    std::mt19937_64 random_;
    time_t time_;
    int64_t lines_ = 0;
    int64_t hits_ = 0;
};

} // namespace bench

#endif // BENCH_DATA_H
