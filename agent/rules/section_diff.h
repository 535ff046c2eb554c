// What the sections of a rules file would change on this host, beside its events.
//
//   sinks      by name: one that is not in the file is removed; one that is changed goes on where it was, unless its
//              kind is another one
//   inputs     likewise; the customer file, which is an input while there are others, is a setting
//   settings   one that is not in the file takes its default
//   silences   by what they say: one that an earlier file had ends; one that a command has added stays, because it is
//              of the moment; those of the file that are over do not count
//
// A file of the fleet changes and removes what the fleet has brought. A setting that this host has set itself stays; one
// that the fleet has set, and whose file no longer names it, takes its default. The host's own file leaves what the
// fleet has set alone, unless it names it. A silence that both files have is there twice.
#ifndef AGENT_RULES_SECTION_DIFF_H
#define AGENT_RULES_SECTION_DIFF_H

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "agent/host/registry_tree.h"
#include "agent/host/store.h"
#include "agent/rules/rules_diff.h"
#include "agent/rules/sections.h"

namespace rules {

// A value of an entry under the name that it has in the file.
struct EntryValue {
    std::string name;
    std::vector<std::string> texts; // one, unless it is a list
    bool is_list = false;

    bool operator==(const EntryValue &) const = default;
};
using EntryValues = std::vector<EntryValue>;

struct SectionChange {
    EventChange::Kind kind = EventChange::Kind::kAdd;
    std::string section; // one of kSectionKeys
    std::string name;    // of the sink, the input, the setting; of a silence, its patterns
    EntryValues before;  // not for kAdd
    EntryValues after;   // not for kRemove
    std::function<void()> make;
};

struct SectionDifference {
    std::vector<SectionChange> changes;
    size_t unchanged = 0;
    std::vector<std::string> staying; // silences that a command has added, by their numbers
    std::vector<std::string> local;   // settings of the fleet's file that this host has set itself
    std::vector<text::Issue> issues;
    // By the name of a sink: what a trial could not read of its secrets, a line each.
    std::map<std::string, std::vector<std::string>> unread;
    std::set<std::string> wakes; // named events to set behind the commit
};

// Whose what is set up is, when the fleet has brought a part of it.
struct Owners {
    EventOwners events;
    std::set<std::string> fleets_settings; // by name
};

struct SectionOptions {
    bool prune = false;      // ends the silences that would stay, too
    int64_t now_s = 0;       // seconds since 1970
    std::string author = {}; // of new silences that name none
    Owners owners = {};
    bool is_trial = false; // nothing will be written: secrets of sinks may be missing
};

// Compares the sections that are there with the host. Store and registry must outlive the changes, and stay as they
// are until these are made: a transaction, or for showing alone a snapshot.
SectionDifference CompareSections(host::Store &store, host::RegistryTree &registry,
                                  const Sections &sections, const SectionOptions &options);

// The changes, entry by entry and value by value.
std::vector<DifferenceLine> FormatSectionDifference(const SectionDifference &difference);

// All that the sections of this host have, as entries; the settings are one. `left_out` gets what a file cannot hold,
// and why.
struct HostSection {
    std::string name;
    std::vector<EntryValues> entries;
};
std::vector<HostSection> SectionsOfHost(host::Store &store, host::RegistryTree &registry,
                                        int64_t now_s, std::vector<std::string> *left_out);

// As they are written into a rules file, behind the events.
std::string FormatSections(const std::vector<HostSection> &sections);

} // namespace rules

#endif // AGENT_RULES_SECTION_DIFF_H
