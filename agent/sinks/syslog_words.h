// The names of syslog's levels and facilities.
#ifndef AGENT_SINKS_SYSLOG_WORDS_H
#define AGENT_SINKS_SYSLOG_WORDS_H

#include <string>

namespace sinks {

// For option tables: see option_checks.h.
std::string CheckSyslogLevel(const std::string &value);
std::string CheckSyslogFacility(const std::string &value);

// Of names that were checked. The facility is shifted as in a message's priority.
int SyslogLevel(const std::string &name);
int SyslogFacility(const std::string &name);

} // namespace sinks

#endif // AGENT_SINKS_SYSLOG_WORDS_H
