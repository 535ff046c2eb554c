// A line of a trial as the policies of events get to see it.
#ifndef AGENT_CLI_MATCHED_LINE_H
#define AGENT_CLI_MATCHED_LINE_H

#include <string_view>

#include "agent/monitor/module.h"
#include "agent/policy/policies.h"

namespace cli {

// With its host, its program and its time, as the daemon finds them out. Parts of the text, which must
// outlive the result.
policy::MatchedLine MatchedLineOf(const monitor::Module &module, const char *text, int64_t times);

} // namespace cli

#endif // AGENT_CLI_MATCHED_LINE_H
