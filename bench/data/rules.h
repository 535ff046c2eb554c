// The rules of the measurements: four sets, so that nothing is tuned for one of them alone.
//
//   kCatalogue      imitates a vendor's event catalogue: up to three keywords, a program or subsystem, a phrase, a
//                   part; many phrases share words with normal traffic, as "error" and "failed" do
//   kSharedPhrases  one of 80 phrases and a device of 3 to 7 bytes (sda, md101, bond17, CPU99), some with a program
//                   as the third keyword
//   kShort          keywords of 2 to 5 bytes: abbreviations, error codes, units
//   kHostile        the rules of kCatalogue; what is hostile is the log that goes with them
#ifndef BENCH_DATA_RULES_H
#define BENCH_DATA_RULES_H

#include <array>
#include <string>
#include <vector>

namespace bench {

enum class RuleSet { kCatalogue, kSharedPhrases, kShort, kHostile };

struct Rule {
    std::array<std::string, 3> keywords; // empty: no condition
};

// `count` rules; the last `expressions` of them have a keyword that is a true regular expression
// with literal text in it.
std::vector<Rule> MakeRules(RuleSet set, int count, int expressions = 0);

} // namespace bench

#endif // BENCH_DATA_RULES_H
