#include "agent/policy/zone.h"

#include <algorithm>
#include <cctz/time_zone.h>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <strings.h>
#include <vector>

#include "agent/host/error.h"
#include "agent/text/suggestion.h"
#include "agent/text/text_file.h"

namespace policy {

namespace {

bool IsUpper(char c)
{
    return c >= 'A' && c <= 'Z';
}

bool IsOfAName(char c)
{
    return IsUpper(c) || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           std::string_view("/_+-").find(c) != std::string_view::npos;
}

// The library takes more for a zone than has a name in the world: "localtime", "posix/Europe/Berlin" and a
// path, too. Zones begin with a capital letter, and none of those others does.
bool Find(const std::string &name, cctz::time_zone *zone)
{
    return IsZoneName(name) && IsUpper(name[0]) && cctz::load_time_zone(name, zone);
}

// The names of all zones of this host, in order; none when it has no zone files. Folders of small letters
// hold the same zones again.
std::vector<std::string> KnownZones()
{
    namespace fs = std::filesystem;
    const char *set = getenv("TZDIR"); // the library looks there, too
    const fs::path folder = set != nullptr ? set : "/usr/share/zoneinfo";
    std::vector<std::string> names = {"UTC"};
    std::error_code failed;
    for (fs::recursive_directory_iterator at(folder, failed), end; !failed && at != end;
         at.increment(failed)) {
        if (!IsUpper(at->path().filename().string()[0]))
            at.disable_recursion_pending();
        else if (!at->is_directory(failed))
            names.push_back(at->path().lexically_relative(folder).string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// "berlin" and "europe/berlin" mean Europe/Berlin; other mistakes are looked for by their letters.
std::string ZoneMeant(const std::string &name)
{
    const std::vector<std::string> known = KnownZones();
    const auto city = [](const std::string &zone) { return zone.substr(zone.rfind('/') + 1); };
    const auto is_like = [&](const std::string &zone) {
        return strcasecmp(name.c_str(), zone.c_str()) == 0;
    };
    auto found = std::ranges::find_if(known, is_like);
    if (found == known.end())
        found = std::ranges::find_if(known, is_like, city);
    if (found != known.end())
        return "did you mean " + *found + "? ";
    return text::Suggestion(name, known);
}

} // namespace

bool IsZoneName(const std::string &text)
{
    const bool begins_with_letter =
        !text.empty() && (IsUpper(text[0]) || (text[0] >= 'a' && text[0] <= 'z'));
    return begins_with_letter && std::all_of(text.begin(), text.end(), IsOfAName);
}

void CheckZone(const std::string &name)
{
    cctz::time_zone zone;
    if (!Find(name, &zone))
        throw host::Error("cannot use the time zone " + text::Shown(name),
                          "this host has none of that name",
                          ZoneMeant(name) + "use a name such as Europe/Berlin or UTC; timedatectl "
                                            "list-timezones lists them");
}

std::optional<ZoneClock> ClockOf(int64_t time_s, const std::string &zone)
{
    cctz::time_zone found;
    if (!Find(zone, &found))
        return std::nullopt;
    const cctz::civil_second civil =
        cctz::convert(cctz::time_point<cctz::seconds>(cctz::seconds(time_s)), found);
    // The library's week begins on Monday.
    const int weekday = (static_cast<int>(cctz::get_weekday(cctz::civil_day(civil))) + 1) % 7;
    return ZoneClock{weekday, civil.hour() * 60 + civil.minute()};
}

} // namespace policy
