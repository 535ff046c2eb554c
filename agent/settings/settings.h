// The settings that can be changed while the monitor runs: one row per setting, in settings.cc.
//
// They are registry values: some of the module, which reads its own, and some of the agent, which
// the daemon reads. Both are woken by the event of the row, and read what is stored then; nothing
// is handed over in the event itself. So a value that is stored by other means counts as well, from
// the next waking or start.
#ifndef AGENT_SETTINGS_SETTINGS_H
#define AGENT_SETTINGS_SETTINGS_H

#include <string>
#include <vector>

#include "agent/host/host.h"

namespace settings {

// As a value: takes the one that is set away.
inline constexpr char kDefaultWord[] = "default";

struct Setting {
    // One row. All texts are literals.
    const char *name;     // for the command: "cycle"
    const char *unit;     // "seconds", or empty
    const char *help;     // what it is, in one line
    const char *accepted; // the range or form of its values
    const char *key;      // where it is in the registry
    const char *value;
    const char *wake_event; // set when it was changed, so that the daemon takes it
    const char *shown_default;
    // Without a stored value the running monitor goes on with what it has, so that its default has
    // to be stored.
    bool default_is_stored;

    // Turns what was typed into the stored value. Throws host::Error when it is not accepted.
    host::RegValue (*parse)(const std::string &text);
    // The reverse; for a value of the wrong type, the default.
    std::string (*format)(const host::RegValue *stored);
};

// In the order in which they are shown.
const std::vector<Setting> &AllSettings();

// Throws host::Error for a name that is not known.
const Setting &FindSetting(const std::string &name);

// What is in force, in the form that is typed: the stored value, or the default where there is
// none, or none that is accepted. Throws host::Error when the registry cannot be read.
std::string GetSetting(host::RegistryTree &registry, const Setting &setting);

// Is this host a fault-tolerant server, whose monitor takes keywords as regular expressions, too?
bool IsFaultTolerant(host::RegistryTree &registry);

// Stores a value. "default" takes the stored value away, where the monitor then takes the default at once. Throws
// host::Error, and changes nothing, when the value is not accepted or cannot be stored. The caller wakes the daemon.
void StoreSetting(host::Store &store, host::RegistryTree &registry, const Setting &setting,
                  const std::string &text);

// The same, and wakes the daemon. Without one the value is there for the next one.
void ChangeSetting(host::Host &host, const Setting &setting, const std::string &text);

} // namespace settings

#endif // AGENT_SETTINGS_SETTINGS_H
