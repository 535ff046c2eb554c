// The tests in a rules file, run: by the module, and by the policies of the events, as in the daemon.
#ifndef AGENT_CLI_RULE_TESTS_H
#define AGENT_CLI_RULE_TESTS_H

#include <vector>

#include "agent/cli/trial.h"
#include "agent/rules/rules_file.h"

namespace cli {

size_t CountTests(const std::vector<rules::Rule> &rules);

// Runs the tests of each event, in their order, from the beginning of its count. What came of a line
// otherwise than the file says is an issue at its place. Hours of the day do not count, so the result is
// the same at any time. Throws host::Error when the rules cannot be tried.
//   settings  of the host; its events are not used
std::vector<text::Issue> RunTests(const RulesCopy &settings, const std::vector<rules::Rule> &rules);

} // namespace cli

#endif // AGENT_CLI_RULE_TESTS_H
