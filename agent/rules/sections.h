// What a rules file can have beside events: everything that is set up on a host by other commands.
//
//   sinks:                           # where alerts go, by the options of syslogmon-sinks(5)
//     - name: ops
//       kind: webhook
//       url-file: /etc/syslogmon/ops.url
//   inputs:                          # by those of syslogmon-inputs(5)
//     - name: web
//       kind: files
//       path: [/var/log/nginx/error.log]
//   silences:
//     - source: BACKUP
//       every: sat,sun 02:00-04:00 Europe/Berlin
//   settings:
//     cycle: 60
#ifndef AGENT_RULES_SECTIONS_H
#define AGENT_RULES_SECTIONS_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/inputs/input_registry.h"
#include "agent/policy/silence.h"
#include "agent/rules/node_reader.h"
#include "agent/settings/settings.h"
#include "agent/sinks/sink.h"
#include "agent/text/text_file.h"

namespace rules {

// Each with its place in the file, for what is found wrong with it later.
struct SinkEntry {
    sinks::SinkConfig config;
    text::Position at;
};
struct InputEntry {
    inputs::InputConfig config;
    text::Position at;
};
struct SilenceEntry {
    policy::Silence silence; // its begin is 0 when the file has none
    text::Position at;
};
struct SettingEntry {
    const settings::Setting *setting = nullptr;
    std::string value; // as it is typed
    text::Position at;
};

// Null for a section that the file does not have: an empty one is something else.
struct Sections {
    std::optional<std::vector<SinkEntry>> sinks;
    std::optional<std::vector<InputEntry>> inputs;
    std::optional<std::vector<SilenceEntry>> silences;
    std::optional<std::vector<SettingEntry>> settings;
};

// The names of the sections, in the order in which they are written; and those that a silence may have.
extern const Names kSectionKeys;
extern const Names kSilenceKeys;

// Where things stand of which there can be one of a name, by section and name.
using SeenNames = std::map<std::pair<std::string, std::string>, text::Position>;

// Reads the section of this name behind what was read of it in other files. All that can be said without a
// registry is checked; an issue for each mistake, at its place.
void ReadSection(const std::string &name, const YamlNode &node, NodeReader *nodes, SeenNames *seen,
                 Sections *sections);

} // namespace rules

#endif // AGENT_RULES_SECTIONS_H
