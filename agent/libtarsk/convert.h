// Conversion between the registry's character set (UTF-8) and the log's.
#ifndef AGENT_LIBTARSK_CONVERT_H
#define AGENT_LIBTARSK_CONVERT_H

#include <string>

namespace tarsk {

// Sets the log's character set, as iconv names it. Returns false, and changes nothing, when iconv
// does not know it.
bool SetLogCharset(const std::string &name);

// Does iconv know it?
bool CharsetIsKnown(const std::string &name);

} // namespace tarsk

#endif // AGENT_LIBTARSK_CONVERT_H
