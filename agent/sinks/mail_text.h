// The text of a mail about alerts.
#ifndef AGENT_SINKS_MAIL_TEXT_H
#define AGENT_SINKS_MAIL_TEXT_H

#include <span>
#include <string>

#include "agent/sinks/sink.h"

namespace sinks {

// The whole mail with its headers, lines ended by CR LF. It has one header X-Syslogmon-Key for each
// alert, and its Message-ID is made of the first and the last key. `to` is a list separated by
// commas; `now` is in seconds since 1970.
std::string MailText(std::span<const Message> messages, const std::string &from,
                     const std::string &to, int64_t now);

// Text of any bytes as lines of at most 76 ASCII characters (RFC 2045). "\n" ends a line of the
// text; all other control characters are written in hexadecimal.
std::string QuotedPrintable(const std::string &text);

} // namespace sinks

#endif // AGENT_SINKS_MAIL_TEXT_H
