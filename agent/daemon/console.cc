#include "agent/daemon/console.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <unistd.h>

#include "agent/alerts/alert_store.h"
#include "agent/alerts/alert_text.h"
#include "agent/daemon/trace_unit.h"

namespace syslogmond {

namespace {

// Alerts read in one go, at most 4 KB each: what is behind a reader that has stopped must not fill
// the memory.
constexpr int64_t kAtOnce = 100;
// Bytes. So many can be written to a pipe without blocking once poll says so (PIPE_BUF); more could
// block, and the daemon's end would wait for it.
constexpr size_t kPiece = 4096;
// Milliseconds for a reader, when the daemon ends. One that is there takes the rest in less.
constexpr int kLastPatienceMs = 500;

} // namespace

Console::Console(const std::filesystem::path &store)
    : database_(store, host::Database::Mode::kReadOnly), printed_(alerts::NewestAlertId(database_)),
      thread_([this] { Run(); })
{
}

Console::~Console()
{
    // Before the bell: whoever answers it must see it.
    stop_ = true;
    bell_.Ring();
    thread_.join();
}

void Console::Run()
{
    TraceLogSetThrName("console");
    for (bool last = false; !last;) {
        last = stop_; // what is stored by now is printed all the same
        try {
            PrintNews();
        } catch (const std::exception &error) {
            // The store cannot be read at the moment. What is not printed stays where it is, and
            // the next bell tries again.
            TRACE(TRACE_SYSTEM, "The alerts are printed later: %s", error.what());
        }
        if (!stop_)
            WaitForBell();
    }
}

void Console::WaitForBell() const
{
    pollfd bell{bell_.fd(), POLLIN, 0};
    poll(&bell, 1, -1);
    bell_.Answer();
}

void Console::PrintNews()
{
    for (;;) {
        // A read for each hundred: no transaction is open while somebody reads the lines, or the
        // journal could not be emptied.
        const auto news = alerts::ReadAlerts(database_, printed_, 0, kAtOnce);
        if (news.empty())
            return;
        for (const auto &alert : news) {
            if (!Print(alerts::AlertLine(alert) + "\n"))
                return;
            // Only behind its last byte.
            printed_ = alert.id;
        }
    }
}

// False when nobody reads it at the end, or nobody ever will.
bool Console::Print(std::string_view text)
{
    while (!text.empty()) {
        if (!WaitForReader())
            return false;
        const ssize_t written = write(STDOUT_FILENO, text.data(), std::min(text.size(), kPiece));
        // Nobody reads any more (EPIPE; its signal is ignored). The rest is not printed, and the
        // daemon works on.
        if (written < 0 && errno != EINTR && errno != EAGAIN)
            return false;
        text.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
    }
    return true;
}

// Without end while the daemon runs. The bell rings for news, which wait as well, and for the end.
bool Console::WaitForReader() const
{
    for (;;) {
        const bool at_end = stop_;
        pollfd waiting[] = {{STDOUT_FILENO, POLLOUT, 0}, {at_end ? -1 : bell_.fd(), POLLIN, 0}};
        const int ready = poll(waiting, std::size(waiting), at_end ? kLastPatienceMs : -1);
        if (waiting[0].revents != 0)
            return true; // or write says what is wrong with it
        if (ready == 0)
            return false;
        bell_.Answer(); // the news are read behind those that wait here
    }
}

} // namespace syslogmond
