// Who types a command.
#ifndef AGENT_CLI_AUTHOR_H
#define AGENT_CLI_AUTHOR_H

#include <string>

namespace cli {

// The name of the user, also behind sudo; a number when there is no name.
std::string Author();

} // namespace cli

#endif // AGENT_CLI_AUTHOR_H
