// Conversion between the registry's character set (UTF-8) and the log's.
//
// The log's set is a setting of the process: the daemon sets it at its start and whenever it is
// changed, from its main thread, while the monitor thread converts. A conversion sees one set or
// the other, never half of each.
#ifndef AGENT_HOST_CONVERT_H
#define AGENT_HOST_CONVERT_H

#include <string>

namespace host {

// Sets the log's character set, as iconv names it. Returns false, and changes nothing, when it
// cannot be used.
bool SetLogCharset(const std::string &name);

// Converts as TarskCodeConvert does, but is no sign that a line was reported: for any thread, while the module runs.
int ConvertText(const char *source, int source_length, char *destination, int destination_size,
                int source_code, int destination_code);

// Can it be used? Not one that iconv does not know, and not one in which a plain text is not itself,
// such as UTF-16: no keyword would ever be found.
bool CharsetIsKnown(const std::string &name);

} // namespace host

#endif // AGENT_HOST_CONVERT_H
