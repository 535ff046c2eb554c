#include "agent/sinks/sink_kinds.h"

#include "agent/sinks/heartbeat.h"
#include "agent/sinks/rate.h"
#include "agent/sinks/route.h"

namespace sinks {

namespace {

// What a sink of each kind may send without a word about it. A person reads mails; a program is a
// process, and a server in a network is somebody's. What stays on this host has no bound. Alertmanager,
// which gets two hundred in a request, groups them itself, and a notification of SNMP has no field for
// others. The stream of a fleet is a ledger, in which none may be missing.
struct UsualRate {
    const char *kind;
    const char *rate;
};
constexpr UsualRate kUsualRates[] = {
    {"console", "none"},   {"file", "none"},      {"journal", "none"}, {"syslog", "none"},
    {"program", "60/min"}, {"webhook", "60/min"}, {"mail", "12/h"}};

SinkKind WithCommonOptions(SinkKind kind)
{
    kind.options.push_back({kOnlyOption, "CONDITION,...", "",
                            "which alerts: severity>=err, source=DISK*, host=web*, label.team=db",
                            CheckRoute});
    // A receiver with an account of its own has alerts alone in it.
    if (kind.look == nullptr)
        kind.options.push_back({kHeartbeatOption, "SECONDS", "",
                                "a sign of life so often, while the monitor does its work; none",
                                CheckHeartbeat});
    for (const UsualRate &usual : kUsualRates) {
        if (std::string(usual.kind) == kind.name)
            kind.options.push_back({kRateOption, "NUMBER/UNIT", usual.rate,
                                    "the most messages, such as 30/min; what is held back is "
                                    "summed up in the next one",
                                    CheckRate});
    }
    return kind;
}

std::vector<SinkKind> Complete(std::vector<SinkKind> kinds)
{
    for (SinkKind &kind : kinds)
        kind = WithCommonOptions(std::move(kind));
    return kinds;
}

} // namespace

const std::vector<SinkKind> &AllKinds()
{
    // Made with the first call, whoever makes it: the rows of other files need not be there before.
    static const std::vector<SinkKind> kinds = Complete({
        ConsoleKind(),
        FileKind(),
        JournalKind(),
        SyslogKind(),
        ProgramKind(),
        WebhookKind(),
        AlertmanagerKind(),
        SnmpKind(),
        MailKind(),
        NatsKind(),
    });
    return kinds;
}

} // namespace sinks
