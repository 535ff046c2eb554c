#include "agent/text/say.h"

#include <algorithm>
#include <poll.h>
#include <unistd.h>

namespace text {

namespace {

constexpr std::string_view kName = "syslogmond: ";
// So much can be written without blocking once poll says so (PIPE_BUF).
constexpr size_t kPiece = 4096;

} // namespace

void Say(std::string_view text) noexcept
{
    char line[kPiece];
    text = text.substr(0, kPiece - kName.size() - 1);
    char *end = std::copy(kName.begin(), kName.end(), line);
    end = std::copy(text.begin(), text.end(), end);
    *end++ = '\n';
    pollfd output{STDERR_FILENO, POLLOUT, 0};
    const bool is_read = poll(&output, 1, 0) == 1 && (output.revents & POLLOUT) != 0;
    if (!is_read || write(STDERR_FILENO, line, static_cast<size_t>(end - line)) < 0)
        return; // dropped
}

} // namespace text
