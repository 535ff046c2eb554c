// What is set up, as values under the names that a rules file has for them.
#ifndef AGENT_RULES_SECTION_VALUES_H
#define AGENT_RULES_SECTION_VALUES_H

#include "agent/inputs/input_registry.h"
#include "agent/policy/silence.h"
#include "agent/rules/section_diff.h"
#include "agent/sinks/sink.h"

namespace rules {

// Without the name, which tells one sink or input from another.
EntryValues ValuesOf(const sinks::SinkConfig &sink);
EntryValues ValuesOf(const inputs::InputConfig &input);
// What is set; the begin too, so that one that is written and read again is the same.
EntryValues ValuesOf(const policy::Silence &silence);

} // namespace rules

#endif // AGENT_RULES_SECTION_VALUES_H
