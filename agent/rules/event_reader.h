// The events of a rules file:
//
//   events:
//     - source: DISK
//       id: 1A2B                     # hexadecimal, as the registry names it
//       keywords: ["I/O error"]      # one to three texts that a line must contain
//       report_count: 1              # hits that make one report; 1 without it
//       hours: 8-18                  # all, none, a span, a list; all without it
#ifndef AGENT_RULES_EVENT_READER_H
#define AGENT_RULES_EVENT_READER_H

#include <array>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "agent/events/events.h"
#include "agent/rules/node_reader.h"
#include "agent/rules/rule_test.h"
#include "agent/text/text_file.h"

namespace rules {

// An event of a rules file, and where it stands there: it, and each of its keywords, for what is
// found wrong with them later, when they are compared with the registry.
struct Rule {
    events::EventRecord event;
    text::Position at;
    std::array<text::Position, 3> keywords_at;
    std::vector<RuleTest> tests = {};
};

// The names that an event may have.
std::vector<std::string> EventKeys();

// Source and ID as texts that compare equal for one event: the registry does not see the case of
// ASCII letters.
std::pair<std::string, uint32_t> ComparableKey(const events::EventKey &key);

// What was read of the file so far, or of the files that go together: each event stands in them once.
struct SeenEvents {
    // By ComparableKey, where the event stands first.
    std::map<std::pair<std::string, uint32_t>, text::Position> place_of_event;
    // By the comparable name, how the first event writes a source, and where.
    std::map<std::string, std::pair<std::string, text::Position>> spelling_of_source;
};

// Reads the list of events. Adds those that are sound, and an issue for each mistake, at its place.
void ReadEvents(const YamlNode &events, NodeReader *nodes, SeenEvents *seen,
                std::vector<Rule> *rules);

} // namespace rules

#endif // AGENT_RULES_EVENT_READER_H
