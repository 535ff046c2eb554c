// The options by which the servers of a fleet are reached: of the sink that sends there, of the collector and of the
// membership in the fleet.
#ifndef AGENT_SINKS_NATS_OPTIONS_H
#define AGENT_SINKS_NATS_OPTIONS_H

#include <string>
#include <vector>

#include "agent/nats/connection.h"
#include "agent/sinks/sink.h"

namespace sinks {

// servers, credentials and certificates.
std::vector<SinkOption> NatsOptions();

// What is set up, with its secrets read. The answers to this client are addressed to its store alone. Throws
// host::Error when options do not go together, or a file cannot be read.
nats::Access AccessOf(const SinkConfig &config, Secrets &secrets);

// What goes there without encryption, for everybody on the way to read.
std::vector<std::string> PlainNatsWarnings(const SinkConfig &config);

// The name of a stream or a bucket: it is a part of subjects.
std::string CheckStreamName(const std::string &value);

} // namespace sinks

#endif // AGENT_SINKS_NATS_OPTIONS_H
