// The text of a mail about alerts.
#ifndef AGENT_ALERTS_MAIL_TEXT_H
#define AGENT_ALERTS_MAIL_TEXT_H

#include <span>
#include <string>

#include "agent/alerts/sink.h"

namespace alerts {

// The whole mail with its headers, lines ended by CR LF. It has one header X-Syslogmon-Key for each
// alert, and its Message-ID is made of the first and the last key. `to` is a list separated by
// commas; `now` is in seconds since 1970.
std::string MailText(std::span<const Message> messages, const std::string &from,
                     const std::string &to, int64_t now);

// Text of any bytes as lines of at most 76 ASCII characters (RFC 2045).
std::string QuotedPrintable(const std::string &text);

} // namespace alerts

#endif // AGENT_ALERTS_MAIL_TEXT_H
