// Lines of a rules file that say what must come of them:
//
//     tests:
//       - counted: "web1 sshd[7]: Failed password for root"
//       - reported: "web1 sshd[7]: Failed password for root"
//         after: 5m
//       - not matched: "web1 sshd[7]: Accepted password for root"
//
// They are the file's own: what is registered of an event has none.
#ifndef AGENT_RULES_RULE_TEST_H
#define AGENT_RULES_RULE_TEST_H

#include <cstdint>
#include <string>
#include <vector>

#include "agent/rules/node_reader.h"
#include "agent/text/text_file.h"

namespace rules {

// What can come of a line, as a file names it.
inline const Names kTestOutcomes = {"reported", "counted", "held back", "not matched"};

struct RuleTest {
    std::string outcome; // one of kTestOutcomes
    std::string line;
    int64_t after_s = 0; // that pass before the line
    text::Position at;
};

// Reads the tests among the values of an event. False, and issues, when some cannot be used.
bool ReadTests(const Values &values, NodeReader *nodes, std::vector<RuleTest> *tests);

} // namespace rules

#endif // AGENT_RULES_RULE_TEST_H
