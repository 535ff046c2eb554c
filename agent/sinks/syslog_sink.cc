// Kind "syslog": a message to the syslog daemon of this host. It carries the identifier by which the
// monitor knows its own messages, or each report would be matched and reported again.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <syslog.h>

#include "agent/host/waitable.h"
#include "agent/sinks/alert_json.h"
#include "agent/sinks/option_checks.h"
#include "agent/sinks/sink_kinds.h"
#include "agent/sinks/syslog_words.h"
#include "platform/contract.h"

namespace sinks {

namespace {

// The longest message that the usual daemons take, less what stands before the text.
constexpr size_t kMaxMessage = 8192 - 256;
constexpr timeval kPatience{5, 0}; // for a daemon that does not read

class SyslogSink : public Sink {
  public:
    SyslogSink(std::string path, int priority) : path_(std::move(path)), priority_(priority) {}

    Outcome Send(std::span<const Message> messages, const Interrupt &interrupt) override
    {
        for (size_t i = 0; i < messages.size(); ++i) {
            const std::string failure = interrupt.IsRaised() ? "interrupted" : Post(messages[i]);
            if (!failure.empty())
                return Failed("cannot send to " + path_ + ": " + failure, i);
        }
        return AllTaken(messages, "sent to " + path_ + ", which acknowledges nothing");
    }
    [[nodiscard]] size_t batch() const override { return 100; }

  private:
    std::string Post(const Message &message)
    {
        if (socket_.get() < 0) {
            std::string failure = Connect();
            if (!failure.empty())
                return failure;
        }
        const std::string text = TextOf(message);
        // A datagram, so a message is sent whole or not at all. NOSIGNAL: a daemon that is gone is
        // an error here, not the end of this process.
        if (send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL) >= 0)
            return {};
        const int error = errno;
        socket_ = host::Fd(); // the daemon may have been started anew
        return error == EAGAIN ? "nobody reads it" : strerror(error);
    }
    std::string Connect()
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        // Fits: CheckSocket has seen to that.
        path_.copy(address.sun_path, sizeof address.sun_path - 1);
        // A socket that could not be made shows itself in the connect below.
        host::Fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
        if (connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
            return strerror(errno);
        socket_ = std::move(fd);
        return {};
    }
    [[nodiscard]] std::string TextOf(const Message &message) const
    {
        // The time of the message, not of the alert, which can be hours old by now. In the form of
        // syslog's socket: local time without a year.
        const time_t now = time(nullptr);
        struct tm local {};
        localtime_r(&now, &local);
        char stamp[32];
        strftime(stamp, sizeof stamp, "%b %e %H:%M:%S", &local);
        std::string text = AlertLine(message);
        // What is too long is cut at its end; the key stands in front of it.
        text.resize(std::min(text.size(), kMaxMessage));
        return "<" + std::to_string(priority_) + ">" + stamp + " " + kSyslogIdentifier + ": [" +
               message.key + " x" + std::to_string(message.alert.count) + "] " + text;
    }

    std::string path_;
    int priority_;
    host::Fd socket_;
};

std::string CheckSocket(const std::string &value)
{
    if (value.size() < sizeof sockaddr_un{}.sun_path)
        return CheckPath(value);
    return "an absolute path of at most 107 bytes";
}

} // namespace

SinkKind SyslogKind()
{
    SinkKind kind;
    kind.name = "syslog";
    kind.help = "the syslog daemon of this host";
    kind.options = {
        {"facility", "NAME", "daemon", "the facility", CheckSyslogFacility},
        {"level", "NAME", "warning", "the level", CheckSyslogLevel},
        {"socket", "FILE", "/dev/log", "the socket of the syslog daemon", CheckSocket},
    };
    kind.open = [](const SinkConfig &config, const std::string &,
                   Secrets &) -> std::unique_ptr<Sink> {
        return std::make_unique<SyslogSink>(config.Get("socket"),
                                            SyslogFacility(config.Get("facility")) |
                                                SyslogLevel(config.Get("level")));
    };
    return kind;
}

} // namespace sinks
