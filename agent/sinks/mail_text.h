// The text of a mail about alerts.
#ifndef AGENT_SINKS_MAIL_TEXT_H
#define AGENT_SINKS_MAIL_TEXT_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "agent/sinks/sink.h"

namespace sinks {

// The addresses of a list with commas, blanks around each taken away. An empty one between two commas stays, and is none.
std::vector<std::string> ReceiversIn(const std::string &to);

// The headers, "Name: value", some of them folded over lines; those of MIME are not among them. There is one
// X-Syslogmon-Key for each alert, and the Message-ID is made of the first and the last key. `to` is a list
// separated by commas; `now` is in seconds since 1970. No text of an alert can end a header or add one.
std::vector<std::string> MailHeaders(std::span<const Message> messages, const std::string &from,
                                     const std::string &to, int64_t now);

// The text, in UTF-8, with lines ended by CR LF. What cannot be shown, and what is no UTF-8, is "?".
std::string MailBody(std::span<const Message> messages);

} // namespace sinks

#endif // AGENT_SINKS_MAIL_TEXT_H
