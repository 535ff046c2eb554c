// Why each event matches one line, or does not.
#ifndef AGENT_CLI_EXPLAIN_H
#define AGENT_CLI_EXPLAIN_H

#include <string>
#include <vector>

#include "agent/cli/line_trial.h"
#include "agent/host/database.h"
#include "agent/host/registry_tree.h"

namespace cli {

// What becomes of the line under one event.
struct Verdict {
    std::string source;
    std::string id;
    bool matches = false;
    std::string reason;
};

// For each event of the table, in its order, and then for those that were left out of it.
//   text     a line as the monitor gets to see it
//   counted  the store of this host, from whose counts policies go on; null: from the beginning
std::vector<Verdict> Explain(LineTrial &trial, const monitor::Module &module,
                             host::RegistryTree &registry, const std::string &text,
                             host::Database *counted);

} // namespace cli

#endif // AGENT_CLI_EXPLAIN_H
