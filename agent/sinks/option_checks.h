// The forms that option values of sinks can have. Each check returns an empty text when the value is
// accepted, and otherwise what is.
#ifndef AGENT_SINKS_OPTION_CHECKS_H
#define AGENT_SINKS_OPTION_CHECKS_H

#include <cstdint>
#include <string>

namespace sinks {

std::string CheckText(const std::string &value);    // one line, not empty
std::string CheckPath(const std::string &value);    // absolute
std::string CheckHttpUrl(const std::string &value); // without user and password in it
// Whole numbers of a range, in text such as "seconds from 1 to 300".
std::string CheckRange(const std::string &value, int64_t smallest, int64_t largest,
                       const char *unit);

template <int64_t smallest, int64_t largest>
std::string CheckSeconds(const std::string &value)
{
    return CheckRange(value, smallest, largest, "seconds");
}

// The time limit of one attempt. Beyond two minutes a receiver is down, whatever it says later.
inline std::string CheckTimeout(const std::string &value)
{
    return CheckSeconds<1, 120>(value);
}

// Is it one of the words, which are separated by blanks?
std::string CheckWord(const std::string &value, const char *words);

} // namespace sinks

#endif // AGENT_SINKS_OPTION_CHECKS_H
