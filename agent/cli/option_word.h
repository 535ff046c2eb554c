// Options that are typed as NAME=VALUE: those of sinks and of inputs.
#ifndef AGENT_CLI_OPTION_WORD_H
#define AGENT_CLI_OPTION_WORD_H

#include <string>
#include <utility>

namespace cli {

// Name and value of such a word. The value may be empty, and may hold further equals signs. Throws host::Error for a word
// without = or without a name.
std::pair<std::string, std::string> SplitOption(const std::string &word);

} // namespace cli

#endif // AGENT_CLI_OPTION_WORD_H
