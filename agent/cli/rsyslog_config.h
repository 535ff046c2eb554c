// What the configuration of rsyslog does to the logs that are watched.
#ifndef AGENT_CLI_RSYSLOG_CONFIG_H
#define AGENT_CLI_RSYSLOG_CONFIG_H

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace cli {

// A setting because of which a log does not hold each line as it came.
struct RsyslogSetting {
    std::filesystem::path file; // in which it stands, as the host calls it
    int line = 0;               // counted from 1; of an action(), the one in which it begins
    std::string text;           // "$RepeatedMsgReduction on", "asyncWriting=\"on\""
    std::filesystem::path log;  // the watched log that is written so; empty: every log is
};

// What was found. Only what does harm is noted.
struct RsyslogConfig {
    bool is_there = false;
    // As the host calls them, without the root. What stands in them is not known.
    std::vector<std::filesystem::path> unreadable; // files of it
    std::optional<RsyslogSetting> reduction;       // equal lines in a row become one
    std::vector<RsyslogSetting> buffered;          // a log can end in the middle of a line
};

// Reads etc/rsyslog.conf below the root, and all that it includes, as rsyslog 8 does. Looks for
// actions that write one of the logs by its name; names that rsyslog makes up from the message
// (dynaFile) are not seen.
//   root   "/" for this host; another folder for a test
//   logs   absolute paths in normal form (lexically_normal)
// Nothing is thrown for a configuration that cannot be read, and a syntax that is wrong is passed
// over.
RsyslogConfig ReadRsyslogConfig(const std::filesystem::path &root,
                                const std::vector<std::filesystem::path> &logs);

} // namespace cli

#endif // AGENT_CLI_RSYSLOG_CONFIG_H
