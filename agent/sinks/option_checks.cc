#include "agent/sinks/option_checks.h"

#include <algorithm>
#include <charconv>
#include <sstream>

namespace sinks {

namespace {

// No option needs as much; without a bound a pasted file would be a setting.
constexpr size_t kMaxOption = 4096; // bytes

bool IsOneLine(const std::string &value)
{
    return !value.empty() && value.size() <= kMaxOption &&
           std::none_of(value.begin(), value.end(),
                        [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; });
}

} // namespace

std::string CheckText(const std::string &value)
{
    return IsOneLine(value) ? "" : "one line of 1 to 4096 bytes without control characters";
}

std::string CheckPath(const std::string &value)
{
    return IsOneLine(value) && value[0] == '/' ? "" : "an absolute path";
}

std::string CheckHttpUrl(const std::string &value)
{
    constexpr char kAllowed[] =
        "a URL http://HOST... or https://HOST..., without user and password in it";
    const bool is_http = value.starts_with("http://") || value.starts_with("https://");
    if (!is_http || !IsOneLine(value) || value.find(' ') != std::string::npos)
        return kAllowed;
    const size_t host = value.find("//") + 2;
    // A user and a password in the address would be shown with the settings.
    const std::string authority = value.substr(host, value.find_first_of("/?#", host) - host);
    return authority.empty() || authority.find('@') != std::string::npos ? kAllowed : "";
}

std::string CheckRange(const std::string &value, int64_t smallest, int64_t largest,
                       const char *unit)
{
    int64_t number = 0;
    const char *end = value.data() + value.size();
    // from_chars takes no sign but a minus, no blanks and no more than the number, in every locale.
    const auto [stopped, failed] = std::from_chars(value.data(), end, number);
    if (failed == std::errc() && stopped == end && number >= smallest && number <= largest)
        return "";
    return "a number of " + std::string(unit) + " from " + std::to_string(smallest) + " to " +
           std::to_string(largest);
}

std::string CheckWord(const std::string &value, const char *words)
{
    std::istringstream list(words);
    std::string names;
    for (std::string word; list >> word;) {
        if (word == value)
            return "";
        names += (names.empty() ? "" : ", ") + word;
    }
    return "one of " + names;
}

} // namespace sinks
