// Rules files: what is set up on a host, as a file that people write.
//
//   version: 1
//   events: ...                      # see event_reader.h
//   sinks: ...                       # and the other sections: see sections.h
//
// A section that is not there says nothing of its part of the host; one that is there says all of it.
//
// It is YAML without the parts that nobody needs here: no anchors, no tags (except !!binary, for
// bytes that are not UTF-8), one document, each key once.
//
// Functions here are pure, but for ReadRulesFiles: text in, result or issues out.
#ifndef AGENT_RULES_RULES_FILE_H
#define AGENT_RULES_RULES_FILE_H

#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/events/events.h"
#include "agent/rules/event_reader.h"
#include "agent/rules/sections.h"
#include "agent/text/text_file.h"

namespace rules {

// More than a full table of the longest events, each character of them escaped, needs (8.4 MB).
inline constexpr size_t kMaxRulesFile = size_t{16} * 1024 * 1024;

// The bytes of a file, wherever they come from, and its name for messages.
struct SourceText {
    std::string name;
    std::string bytes;
};

// What was read. With issues, the rules and sections are those that were sound, which are of use for nothing but
// further checks. The places of several files count those from 0.
struct ParsedRules {
    bool has_events = false;
    std::vector<Rule> rules; // in the order of the files; complete only without issues
    Sections sections;
    // Where each section stands, in the order of the files; also one without entries.
    std::vector<std::pair<std::string, text::Position>> sections_at;
    std::vector<text::Issue> issues;
};

// Reads the bytes of a rules file. All that is wrong is found, not only the first: after a fault in
// the YAML itself, though, nothing more can be read.
ParsedRules ParseRules(std::string_view bytes);

// Reads files that go together: as if what they have were in one.
ParsedRules ParseRulesFiles(const std::vector<SourceText> &files);

// The file, standard input for "-", or of a folder all files NAME.yaml, by their names. Throws host::Error when one cannot be
// read, and for a folder without one.
std::vector<SourceText> ReadRulesFiles(const std::string &path);

// The names that a file may have.
std::vector<std::string> FileKeys();

// What is written into a rules file beside the events.
struct RulesFileNotes {
    std::string schema;                // for editors: where the schema is; empty: nowhere
    std::vector<std::string> left_out; // what the file cannot hold, and why
    bool has_sections = false;         // they follow the events
};

// The text of a rules file with events alone. ParseRules turns it into the same events again, byte for byte. The
// events must be such as CheckEvent lets pass.
std::string FormatRules(const std::vector<events::EventRecord> &events,
                        const RulesFileNotes &notes);

// The keywords of an event as a YAML list. What follows the last one that is not empty is left out.
std::string FormatKeywords(const std::array<std::string, 3> &keywords);

} // namespace rules

#endif // AGENT_RULES_RULES_FILE_H
