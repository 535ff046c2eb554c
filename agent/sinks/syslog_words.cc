#include "agent/sinks/syslog_words.h"

#include <iterator>
#include <syslog.h>

#include "agent/sinks/option_checks.h"

namespace sinks {

namespace {

// In the order of their numbers, from 0.
constexpr const char *kLevels[] = {"emerg",   "alert",  "crit", "err",
                                   "warning", "notice", "info", "debug"};

// Not all of syslog's: those that belong to the kernel, to mail and the like would say that the
// message is from there.
struct Facility {
    const char *name;
    int number;
};
constexpr Facility kFacilities[] = {
    {"user", LOG_USER},     {"daemon", LOG_DAEMON}, {"auth", LOG_AUTH},     {"cron", LOG_CRON},
    {"local0", LOG_LOCAL0}, {"local1", LOG_LOCAL1}, {"local2", LOG_LOCAL2}, {"local3", LOG_LOCAL3},
    {"local4", LOG_LOCAL4}, {"local5", LOG_LOCAL5}, {"local6", LOG_LOCAL6}, {"local7", LOG_LOCAL7}};

} // namespace

std::string CheckSyslogLevel(const std::string &value)
{
    return CheckWord(value, "emerg alert crit err warning notice info debug");
}

std::string CheckSyslogFacility(const std::string &value)
{
    std::string names;
    for (const Facility &facility : kFacilities)
        names += std::string(facility.name) + " ";
    return CheckWord(value, names.c_str());
}

int SyslogLevel(const std::string &name)
{
    for (size_t level = 0; level < std::size(kLevels); ++level) {
        if (name == kLevels[level])
            return static_cast<int>(level);
    }
    // Not for a name that was checked.
    return LOG_WARNING;
}

int SyslogFacility(const std::string &name)
{
    for (const Facility &facility : kFacilities) {
        if (name == facility.name)
            return facility.number;
    }
    return LOG_DAEMON;
}

} // namespace sinks
