// Rules files: the registered events as a file that people write.
//
//   version: 1
//   events:
//     - source: DISK
//       id: 1A2B                     # hexadecimal, as the registry names it
//       keywords: ["I/O error"]      # one to three texts that a line must contain
//       report_count: 1              # hits that make one report; 1 without it
//       hours: 8-18                  # all, none, a span, a list; all without it
//
// It is YAML without the parts that nobody needs here: no anchors, no tags (except !!binary, for
// bytes that are not UTF-8), one document, each key once.
//
// Functions here are pure: text in, result or issues out.
#ifndef AGENT_RULES_RULES_FILE_H
#define AGENT_RULES_RULES_FILE_H

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "agent/events/events.h"
#include "agent/rules/rule_test.h"
#include "agent/text/text_file.h"

namespace rules {

// More than a full table of the longest events, each character of them escaped, needs (8.4 MB).
inline constexpr size_t kMaxRulesFile = size_t{16} * 1024 * 1024;

// An event of a rules file, and where it stands there: it, and each of its keywords, for what is
// found wrong with them later, when they are compared with the registry.
struct Rule {
    events::EventRecord event;
    text::Position at;
    std::array<text::Position, 3> keywords_at;
    std::vector<RuleTest> tests = {};
};

// What was read. With issues, the rules are those that were sound, which are of use for nothing but
// further checks.
struct ParsedRules {
    std::vector<Rule> rules; // in the order of the file; complete only without issues
    std::vector<text::Issue> issues;
};

// Reads the bytes of a rules file. All that is wrong is found, not only the first: after a fault in
// the YAML itself, though, nothing more can be read.
ParsedRules ParseRules(std::string_view bytes);

// The names that a file, and an event in it, may have.
std::vector<std::string> FileKeys();
std::vector<std::string> EventKeys();

// What is written into a rules file beside the events.
struct RulesFileNotes {
    std::string schema;                // for editors: where the schema is; empty: nowhere
    std::vector<std::string> left_out; // events that the file cannot hold, and why
};

// The text of a rules file. ParseRules turns it into the same events again, byte for byte. The
// events must be such as CheckEvent lets pass.
std::string FormatRules(const std::vector<events::EventRecord> &events,
                        const RulesFileNotes &notes);

// The keywords of an event as a YAML list. What follows the last one that is not empty is left out.
std::string FormatKeywords(const std::array<std::string, 3> &keywords);

// Source and ID as texts that compare equal for one event: the registry does not see the case of
// ASCII letters.
std::pair<std::string, uint32_t> ComparableKey(const events::EventKey &key);

} // namespace rules

#endif // AGENT_RULES_RULES_FILE_H
