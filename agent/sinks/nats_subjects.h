// The names by which the hosts of a fleet, its collectors and its servers know each other's messages. They stand in
// configurations of servers, so they stay what they are.
#ifndef AGENT_SINKS_NATS_SUBJECTS_H
#define AGENT_SINKS_NATS_SUBJECTS_H

namespace sinks {

// Each with the UUID of a store behind it.
inline constexpr char kAlertSubject[] = "syslogmon.alerts.";
inline constexpr char kTestSubject[] = "syslogmon.tests.";
// Of all stores.
inline constexpr char kAllAlerts[] = "syslogmon.alerts.*";

inline constexpr char kDefaultStream[] = "syslogmon-alerts";

// Headers of an alert; see agent/sinks/nats_sink.cc.
inline constexpr char kKeyHeader[] = "Nats-Msg-Id";
inline constexpr char kAfterHeader[] = "Syslogmon-After";
inline constexpr char kDroppedHeader[] = "Syslogmon-Dropped";

} // namespace sinks

#endif // AGENT_SINKS_NATS_SUBJECTS_H
