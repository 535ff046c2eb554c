// What rules files change, shown: as a patch for people, and as JSON.
#ifndef AGENT_CLI_RULES_OUTPUT_H
#define AGENT_CLI_RULES_OUTPUT_H

#include <string>

#include <nlohmann/json_fwd.hpp>

#include "agent/rules/apply.h"

namespace cli {

// Between what the change is, by names that stand at its head.
struct ShownChange {
    std::string before; // "registered"
    std::string after;  // a file
    bool dry_run = false;
};

void PrintChange(const ShownChange &shown, const rules::RulesChange &change);
nlohmann::json ChangeToJson(const ShownChange &shown, const rules::RulesChange &change,
                            bool has_sections);

// Of a sink, an input or a silence; a list of texts where it is one.
nlohmann::json EntryToJson(const rules::EntryValue &value);
nlohmann::json EntryToJson(const rules::EntryValues &values);

} // namespace cli

#endif // AGENT_CLI_RULES_OUTPUT_H
