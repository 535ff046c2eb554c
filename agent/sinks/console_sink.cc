// Kind "console": one JSON object a line on the standard output of the daemon.
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <unistd.h>

#include "agent/sinks/alert_json.h"
#include "agent/sinks/sink_kinds.h"

namespace sinks {

namespace {

// Messages of one Send, as a bound for what is read at once; each is written by itself.
constexpr int kSliceMs = 100;            // between two looks whether the thread is to end
constexpr int kReaderPatienceMs = 10000; // for a reader of the other end
// So much can be written without blocking once poll says so (PIPE_BUF).
constexpr size_t kPiece = 4096;

class ConsoleSink : public Sink {
  public:
    Outcome Send(std::span<const Message> messages, const Interrupt &interrupt) override
    {
        // One that failed in the middle is sent again from its beginning: a reader can see a part
        // of a line.
        for (size_t i = 0; i < messages.size(); ++i) {
            const std::string failure = Write(AlertJson(messages[i]) + "\n", interrupt);
            if (!failure.empty())
                return Failed("cannot write to standard output: " + failure, i);
        }
        return AllTaken(messages, "written to standard output");
    }
    [[nodiscard]] size_t batch() const override { return 100; }

  private:
    // Empty, or why it failed. Never waits in write: whoever reads the other end may have stopped.
    static std::string Write(std::string_view text, const Interrupt &interrupt)
    {
        int waited_ms = 0;
        while (!text.empty()) {
            pollfd output{STDOUT_FILENO, POLLOUT, 0};
            // A poll that fails falls through to write, which says why.
            if (poll(&output, 1, kSliceMs) == 0) {
                waited_ms += kSliceMs;
                if (waited_ms >= kReaderPatienceMs || interrupt.IsRaised())
                    return "nobody reads it";
                continue;
            }
            // EAGAIN: somebody who shares the descriptor has made it non-blocking.
            const ssize_t written =
                write(STDOUT_FILENO, text.data(), std::min(text.size(), kPiece));
            if (written < 0 && errno != EINTR && errno != EAGAIN)
                return strerror(errno);
            text.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
        }
        return {};
    }
};

} // namespace

SinkKind ConsoleKind()
{
    SinkKind kind;
    kind.name = "console";
    kind.help = "one JSON object a line on the daemon's standard output";
    kind.open = [](const SinkConfig &, const std::string &, Secrets &) -> std::unique_ptr<Sink> {
        return std::make_unique<ConsoleSink>();
    };
    return kind;
}

} // namespace sinks
