#include "agent/text/say.h"

#include <algorithm>
#include <cstdio>
#include <poll.h>
#include <unistd.h>

namespace text {

namespace {

// The program that speaks. Set before there are threads.
const char *speaker = "syslogmond";

// So much can be written without blocking once poll says so (PIPE_BUF).
constexpr size_t kPiece = 4096;

} // namespace

void SayAs(const char *program) noexcept
{
    speaker = program;
}

void Say(std::string_view text) noexcept
{
    // On the stack, and with one write: a line of this thread is not mixed with one of another.
    char line[kPiece];
    // The messages of many programs meet in one journal.
    const int named = snprintf(line, sizeof line, "%.200s: ", speaker);
    text = text.substr(0, sizeof line - static_cast<size_t>(named) - 1);
    char *end = std::copy(text.begin(), text.end(), line + named);
    *end++ = '\n';
    // Asked first, because the descriptor is left blocking: it is shared with whoever started the
    // daemon, and O_NONBLOCK would hold for them, too.
    pollfd output{STDERR_FILENO, POLLOUT, 0};
    const bool is_read = poll(&output, 1, 0) == 1 && (output.revents & POLLOUT) != 0;
    if (!is_read || write(STDERR_FILENO, line, static_cast<size_t>(end - line)) < 0)
        return; // dropped
}

} // namespace text
