// Kind "journal": an entry in the journal of systemd, with a field for each part of the alert:
// journalctl SYSLOGMON_SOURCE=DISK. Its identifier is the one by which the monitor knows its own
// messages.
#include <cstring>
#include <sys/uio.h>
#include <unistd.h>

#include <systemd/sd-journal.h>

#include "agent/events/events.h"
#include "agent/sinks/alert_json.h"
#include "agent/sinks/sink_kinds.h"
#include "agent/sinks/syslog_words.h"
#include "agent/text/times.h"
#include "platform/contract.h"

namespace sinks {

namespace {

// Where the journal listens, as sd_journal_sendv has it.
constexpr char kSocket[] = "/run/systemd/journal/socket";

class JournalSink : public Sink {
  public:
    explicit JournalSink(int level) : level_(level) {}

    Outcome Send(std::span<const Message> messages, const Interrupt &interrupt) override
    {
        for (size_t i = 0; i < messages.size(); ++i) {
            const std::string failure = interrupt.IsRaised() ? "interrupted" : Post(messages[i]);
            if (!failure.empty())
                return Failed("cannot write to the journal: " + failure, i);
        }
        return AllTaken(messages, "written to the journal, which acknowledges nothing");
    }
    [[nodiscard]] size_t batch() const override { return 100; }

  private:
    [[nodiscard]] std::string Post(const Message &message) const
    {
        // Without a journal, the library drops the entry and says that all is well.
        if (access(kSocket, F_OK) != 0)
            return std::string(kSocket) + " is missing: is systemd-journald running?";
        const alerts::Alert &alert = message.alert;
        // The journal keeps fields as bytes, so a message that is no UTF-8 stays as it is.
        std::vector<std::string> fields = {
            "MESSAGE=" + AlertLine(message),
            "PRIORITY=" + std::to_string(level_),
            std::string("SYSLOG_IDENTIFIER=") + kSyslogIdentifier,
            "SYSLOGMON_KEY=" + message.key,
            "SYSLOGMON_TIME=" + text::UtcTime(alert.time_ms),
            "SYSLOGMON_HOST=" + alert.HostOfLine(),
            "SYSLOGMON_MONITOR=" + alert.host,
            "SYSLOGMON_LOG=" + alert.log_name,
            "SYSLOGMON_SOURCE=" + alert.source,
            "SYSLOGMON_EVENT_ID=" + events::FormatEventId(alert.event_id),
            "SYSLOGMON_COUNT=" + std::to_string(alert.count),
            "SYSLOGMON_REPORTS=" + std::to_string(alert.reports),
        };
        if (!alert.program.empty())
            fields.push_back("SYSLOGMON_PROGRAM=" + alert.program);
        std::vector<iovec> parts;
        parts.reserve(fields.size());
        for (const std::string &field : fields)
            // The library only reads them; its type is that of writev.
            parts.push_back({const_cast<char *>(field.data()), field.size()});
        const int result = sd_journal_sendv(parts.data(), static_cast<int>(parts.size()));
        return result == 0 ? "" : strerror(-result);
    }

    int level_;
};

} // namespace

SinkKind JournalKind()
{
    SinkKind kind;
    kind.name = "journal";
    kind.help = "the journal of systemd, with a field for each part of the alert";
    kind.options = {{"level", "NAME", "warning", "the level (PRIORITY)", CheckSyslogLevel}};
    kind.open = [](const SinkConfig &config, const std::string &,
                   Secrets &) -> std::unique_ptr<Sink> {
        return std::make_unique<JournalSink>(SyslogLevel(config.Get("level")));
    };
    return kind;
}

} // namespace sinks
