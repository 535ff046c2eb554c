// The names that a log's files get when it is rotated, by the habits of all rotating programs.
#ifndef AGENT_INPUTS_ROTATED_NAMES_H
#define AGENT_INPUTS_ROTATED_NAMES_H

#include <functional>
#include <set>
#include <string>
#include <string_view>

namespace inputs {

enum class NameKind {
    kOther,
    kRotated, // app.log.1, app.log-20261121, app.log.3.gz, app.log.gz, app.log.old
    kBetween, // app-20261121.log, app.1.log.xz: the number stands before the ending
};

// Is this the name of a rotated file of the log that is written to under the name `log`? Both are names
// without their folder.
NameKind RotatedNameOf(std::string_view name, std::string_view log);

// Is it the name of a rotated file of some log? A number before the ending, as in app.1.log, says too little.
bool IsNameOfRotated(std::string_view name);

// Is it the name that a compressing program gives the file of the other name?
bool IsPackedNameOf(std::string_view name, std::string_view plain);

// The log among these of which it is one, that of the longest name; kRotated comes before kBetween.
using LogNames = std::set<std::string, std::less<>>;
struct RotatedName {
    NameKind kind = NameKind::kOther;
    std::string log;
};
RotatedName FindLogOf(std::string_view name, const LogNames &logs);

} // namespace inputs

#endif // AGENT_INPUTS_ROTATED_NAMES_H
