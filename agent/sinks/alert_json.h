// An alert as JSON, for sinks.
#ifndef AGENT_SINKS_ALERT_JSON_H
#define AGENT_SINKS_ALERT_JSON_H

#include <string>

#include "agent/sinks/sink.h"

namespace sinks {

// One line without its end:
//   {"key":"...","id":7,"time":"2026-11-21T10:00:01.000Z","host":"h","log":"Application",
//    "source":"DISK","event_id":"1A2B","count":3,"message":"..."}
// With "severity", "summary", "labels" (an object) and "runbook_url" as far as the event's policy says
// so. An alert that stands for many reports has "reports", "last_time" and "last_message" as well. A test
// has "test":true. One that tells of others that were held back has "digest": their "alerts", "hits",
// "first_time", "last_time", and "events" with the same of each, its "first" line and its "last". Bytes that are no UTF-8 are replaced, since JSON has none.
// "terms" are those by which the event was reported. With `why`, for people, that is one more field.
std::string AlertJson(const Message &message, const std::string &why = "");

// "DISK 1A2B: Nov 21 10:00:00 host kernel: ...", one line, no control characters. The summary of the
// event's policy, if there is one, stands before the line: "DISK 1A2B: disk of host: Nov 21 ...". Of many reports:
// "... (and 12 more until 2026-11-21T10:00:09.000Z, the last: Nov 21 10:00:09 host ...)".
std::string AlertSummary(const Message &message);

// What stands in front of it for people: "web07: ", the host of the line; "TEST web07: " of a test. No control characters.
std::string HostInFront(const Message &message);

// Both: "web07: DISK 1A2B: ...".
std::string AlertLine(const Message &message);

// "971 alerts of 5000 hits were held back from 2026-11-21T10:00:01.000Z to 2026-11-21T10:04:00.000Z: 900
// of DISK 1A2B, 71 of NET 3". At most five events; not of an empty one.
std::string DigestInWords(const Digest &digest);

} // namespace sinks

#endif // AGENT_SINKS_ALERT_JSON_H
