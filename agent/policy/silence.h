// A silence: alerts that are stored, and told of to nobody, because somebody knows of the trouble.
//
// It holds for lines of its time, whenever they are read: what a host has written while it was worked on
// is silent even when the daemon reads it afterwards, and what it wrote before is not.
#ifndef AGENT_POLICY_SILENCE_H
#define AGENT_POLICY_SILENCE_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "agent/alerts/alert_store.h"

namespace policy {

// A part of the day, on some days of the week. One that ends before it begins goes on past midnight, and
// belongs to the day on which it began.
struct WeeklyWindow {
    unsigned days = 0;    // bit 0: Sunday
    int begin_minute = 0; // of the day
    int end_minute = 0;   // the first one behind it; the same as the begin: a whole day
    std::string zone;     // such as "Europe/Berlin"; empty: that of the host

    // Is the moment (seconds since 1970) in it, by the clocks of the zone? An hour that a change of clocks
    // leaves out is in none, and both are meant when it repeats one. Nothing is in one whose zone this
    // host does not know: better an alert too many.
    [[nodiscard]] bool Holds(int64_t time_s) const;
    // Does this host know the zone?
    [[nodiscard]] bool HasZone() const;
    bool operator==(const WeeklyWindow &) const = default;
};

struct Silence {
    uint32_t number = 0; // its name, for ever
    // Which alerts: patterns with *, ? and [...], in which case counts. The host is the one that wrote
    // the line, or where the line was found.
    std::string source = "*";
    std::string host = "*";
    std::optional<uint32_t> event_id;
    std::map<std::string, std::string>
        labels; // patterns by name; a label that is not there is empty
    // When, in seconds since 1970; the end is the first second behind it, 0: there is none.
    int64_t begin_s = 0;
    int64_t end_s = 0;
    std::optional<WeeklyWindow> window; // and then only within it
    bool wants_summary = false;         // one alert at its end, of what it has held back
    std::string comment;
    std::string author;
    bool is_from_file = false;  // a rules file has it, so one without it ends it
    bool is_from_fleet = false; // that file is the fleet's, and not this host's own

    [[nodiscard]] bool Matches(const alerts::Alert &alert) const;
    [[nodiscard]] bool Holds(int64_t time_s) const;
    [[nodiscard]] bool IsOver(int64_t now_s) const { return end_s != 0 && end_s <= now_s; }
    // "holds"; "waits" for its time; "over"; or "no zone": this host does not know the one of its window, so it never holds.
    [[nodiscard]] const char *StateName(int64_t now_s) const;
    bool operator==(const Silence &) const = default;
};

// Throws host::Error when a text of a silence is too long or holds a control character, or a pattern is empty.
void CheckPattern(const std::string &text);
void CheckComment(const std::string &text);

// "team=db,tier=web*", conditions of which all must hold; empty: none. Throws host::Error, which says what is allowed.
std::map<std::string, std::string> ParseLabels(const std::string &text);
std::string LabelsText(const std::map<std::string, std::string> &labels);

// "mon-fri 22:00-06:00", "sat,sun", "22:00-06:00 Europe/Berlin": days or hours or both, and a zone if wished.
// Throws host::Error, which says what is allowed.
WeeklyWindow ParseWindow(const std::string &text);
// The same of a text that has been stored: a zone may be gone from this host since.
WeeklyWindow ParseStoredWindow(const std::string &text);
// The same text again, as short as can be: "mon-fri 22:00-06:00".
std::string WindowText(const WeeklyWindow &window);

} // namespace policy

#endif // AGENT_POLICY_SILENCE_H
