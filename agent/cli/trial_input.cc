#include "agent/cli/trial_input.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/host/error.h"
#include "agent/host/waitable.h"
#include "agent/logs/log_files.h"
#include "agent/text/text_file.h"

namespace cli {

namespace fs = std::filesystem;

namespace {

// How a compressed file begins. By its content: a name can say anything.
constexpr std::string_view kPackings[] = {"\x1F\x8B",
                                          "\xFD"
                                          "7zXZ",
                                          "\x28\xB5\x2F\xFD", "BZh"};

// `why` without a next step of its own: for a log there is only one.
[[noreturn]] void Fail(const std::string &name, const std::string &why)
{
    throw host::Error("cannot read " + name, why, "name a log that can be read");
}

// Standard input is copied whatever it is: a file there has no name to be opened by.
bool IsPipe(const std::string &name)
{
    struct stat status {};
    return name == "-" || (stat(name.c_str(), &status) == 0 && S_ISFIFO(status.st_mode));
}

host::Fd OpenPipe(const std::string &name)
{
    // A copy of the descriptor, so that closing it leaves the real one alone.
    host::Fd pipe(name == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                              : open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (pipe.get() < 0)
        Fail(text::ShownName(name), strerror(errno));
    return pipe;
}

void WriteAll(int file, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = write(file, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            throw host::Error("cannot copy a log into a temporary folder", strerror(errno),
                              "make room, or name another place with TMPDIR");
        bytes.remove_prefix(static_cast<size_t>(written));
    }
}

bool IsPacked(const fs::path &path)
{
    // More than the longest head.
    const std::string head = logs::ReadPart(path, 0, 8);
    return std::any_of(std::begin(kPackings), std::end(kPackings),
                       [&](std::string_view packing) { return head.starts_with(packing); });
}

bool IsJournal(const std::string &name)
{
    return name == "journal" && access(name.c_str(), F_OK) != 0;
}

} // namespace

// Pipes are read to their end here, one after the other, before anything is tried.
TrialInput::TrialInput(const std::vector<std::string> &names, bool as_input,
                       const RenderOptions &options, const std::function<bool()> &go_on)
{
    for (const std::string &name : names) {
        TrialLog log;
        log.name = text::ShownName(name);
        log.path = IsJournal(name)
                       ? Fill([&](const auto &take) { RenderJournal(options, take); }, go_on)
                   : IsPipe(name) ? Copy(name, go_on)
                                  : fs::path(name);
        const std::string why = logs::WhyUnreadable(log.path);
        if (!why.empty())
            Fail(log.name, why);
        const fs::path as_it_is = log.path;
        if (as_input && !IsJournal(name))
            log.path = Fill([&](const auto &take) { RenderLog(as_it_is, log.name, options, take); },
                            go_on);
        else if (IsPacked(as_it_is))
            log.path = Fill([&](const auto &take) { ReadUnpacked(as_it_is, take); }, go_on);
        log.bytes = static_cast<int64_t>(fs::file_size(log.path));
        logs_.push_back(std::move(log));
    }
}

int64_t TrialInput::bytes() const
{
    int64_t sum = 0;
    for (const TrialLog &log : logs_)
        sum += log.bytes;
    return sum;
}

fs::path TrialInput::Fill(const std::function<void(const TakeText &)> &put,
                          const std::function<bool()> &go_on)
{
    if (!folder_)
        folder_.emplace();
    fs::path path = folder_->path() / std::to_string(copies_++);
    // For this user alone, whatever the umask; O_EXCL, since the folder is new.
    const host::Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (file.get() < 0)
        Fail(path, strerror(errno));
    put([&](const std::string &text) {
        WriteAll(file.get(), text);
        return go_on();
    });
    return path;
}

// When it is told to stop, the copy is what was read so far; the caller asks as well, and gives up.
fs::path TrialInput::Copy(const std::string &name, const std::function<bool()> &go_on)
{
    const host::Fd pipe = OpenPipe(name);
    return Fill(
        [&](const TakeText &take) {
            std::string block(size_t{64} * 1024, '\0');
            for (;;) {
                const ssize_t got = read(pipe.get(), block.data(), block.size());
                if (got < 0 && errno != EINTR)
                    Fail(text::ShownName(name), strerror(errno));
                // A signal may have come: whoever takes it is asked with nothing, too.
                if (got == 0 || !take(block.substr(0, got < 0 ? 0 : static_cast<size_t>(got))))
                    return;
            }
        },
        go_on);
}

} // namespace cli
