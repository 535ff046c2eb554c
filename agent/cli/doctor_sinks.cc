// The check of the sinks: where alerts go, and whether they arrive.
#include <algorithm>

#include "agent/alerts/alert_store.h"
#include "agent/cli/doctor.h"
#include "agent/cli/sink_commands.h"
#include "agent/sinks/delivery_store.h"
#include "agent/sinks/sink_registry.h"
#include "agent/sinks/undelivered.h"
#include "agent/text/times.h"

namespace cli {

namespace {

// What is known of one receiver of a sink.
void CheckDelivery(const std::string &receiver, const std::string &sink,
                   const sinks::Delivery &delivery, int64_t newest, Examination *examination)
{
    if (delivery.last_error.empty()) {
        examination->Well(receiver,
                          delivery.delivered == 0
                              ? "nothing was sent to it yet"
                              : std::to_string(delivery.delivered) +
                                    (delivery.delivered == 1 ? " alert was" : " alerts were") +
                                    " delivered");
        return;
    }
    // Never below 0: the delivery may be newer than the number that was read before it.
    const int64_t waiting = std::max<int64_t>(0, newest - delivery.last_id);
    examination->Finding(receiver,
                         "the last try failed at " + text::LocalTime(delivery.error_ms) + ": " +
                             delivery.last_error + "; " + std::to_string(waiting) +
                             (waiting == 1 ? " alert waits" : " alerts wait"),
                         "remove the cause, then try it with syslogmon sink test " + sink +
                             "; waiting alerts are then sent by themselves");
}

void CheckSinkOf(host::Host &host, const sinks::StoredSink &sink, int64_t newest,
                 Examination *examination)
{
    const std::string &name = sink.config.name;
    // Nothing else can be said of it: its options are not known to be good.
    if (!sink.problem.empty()) {
        examination->Finding(name, "nothing is sent to it: " + sink.problem,
                             "remove it with syslogmon sink remove " + name + " and add it again");
        return;
    }
    for (const std::string &warning : SinkWarnings(host, sink.config))
        examination->Finding(name, warning,
                             "change it with syslogmon sink set " + name + ", or the file's mode");
    const auto undelivered = sinks::ReadUndelivered(host.store().database(), sink.config.key);
    // With the reason of the newest: it is the one that most likely still holds.
    if (!undelivered.empty())
        examination->Finding(name,
                             "it does not take " + std::to_string(undelivered.size()) +
                                 (undelivered.size() == 1 ? " alert" : " alerts") +
                                 ", although it takes others: " + undelivered.back().reason,
                             "see syslogmon sink undelivered " + name +
                                 "; send them again with syslogmon sink retry " + name +
                                 ", or drop them with syslogmon sink drop " + name);
    const auto rows = sinks::ReadDeliveries(host.store().database(), sink.config.key);
    if (rows.empty())
        examination->Well(name, "nothing was sent to it yet");
    for (const auto &[peer, delivery] : rows) {
        // The row of the sink as a whole says nothing new beside those of its peers.
        if (!peer.empty() || rows.size() == 1)
            CheckDelivery(peer.empty() ? name : name + " " + peer, name, delivery, newest,
                          examination);
    }
}

} // namespace

// No sink is no finding: alerts can be read from the store.
void CheckSinks(const Context &context, Examination *examination)
{
    examination->Begin("sinks");
    sinks::SinkRegistry registry = Sinks(context);
    const auto sinks = registry.ReadAll();
    const int64_t newest = alerts::NewestAlertId(context.Host().store().database());
    if (sinks.empty())
        examination->Well("all sinks", "there are none: alerts are only stored, for syslogmon "
                                       "alerts");
    for (const sinks::StoredSink &sink : sinks)
        CheckSinkOf(context.Host(), sink, newest, examination);
}

} // namespace cli
