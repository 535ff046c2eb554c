// Kind "file": one JSON object a line, appended. When the file was renamed or removed since, as
// logrotate does, a new one is begun: nobody has to tell.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/host/error.h"
#include "agent/host/waitable.h"
#include "agent/sinks/alert_json.h"
#include "agent/sinks/file_trust.h"
#include "agent/sinks/option_checks.h"
#include "agent/sinks/sink_kinds.h"

namespace sinks {

namespace {

class FileSink : public Sink {
  public:
    explicit FileSink(std::string path) : path_(std::move(path)) {}

    Outcome Send(std::span<const Message> messages, const Interrupt &) override
    {
        std::string text;
        for (const Message &message : messages)
            text += AlertJson(message) + "\n";
        // All of them or none: an error in the middle takes back what was written.
        const std::string failure = Append(text);
        if (!failure.empty())
            return Failed("cannot write to " + path_ + ": " + failure);
        return AllTaken(messages, "written to " + path_);
    }
    [[nodiscard]] size_t batch() const override { return 500; }

  private:
    // All of these are empty when all is well, or say why not.
    std::string Append(const std::string &text)
    {
        std::string failure = Open();
        if (!failure.empty())
            return failure;
        // The file is taken to be the sink's alone: it is cut back to here when the write fails.
        const off_t size = lseek(fd_.get(), 0, SEEK_END);
        failure = WriteAll(text);
        // A part of a line would spoil the next one, and the lines before it come again.
        if (!failure.empty() && ftruncate(fd_.get(), size) != 0)
            failure += "; it may end inside a line";
        return failure;
    }
    std::string WriteAll(std::string_view text) const
    {
        while (!text.empty()) {
            const ssize_t written = write(fd_.get(), text.data(), text.size());
            if (written < 0 && errno != EINTR)
                return strerror(errno);
            text.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
        }
        // Only what is on the disk counts as taken. A disk that is full, or was pulled out, may say
        // so only here.
        return fdatasync(fd_.get()) == 0 ? "" : strerror(errno);
    }
    std::string Open()
    {
        // With each batch: a rotation tells nobody.
        if (fd_.get() >= 0 && IsInPlace())
            return {};
        // Without O_NONBLOCK, a FIFO would be waited for.
        fd_ = host::Fd(open(path_.c_str(),
                            O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW,
                            0640));
        // NOFOLLOW says ELOOP for a link; the words for that are the same as for any file that is
        // not trusted.
        struct stat status {};
        if (fd_.get() < 0 && errno == ELOOP && lstat(path_.c_str(), &status) == 0)
            return WhyNotTrusted(status);
        if (fd_.get() < 0 || fstat(fd_.get(), &status) != 0)
            return strerror(errno);
        // Through the descriptor: what is looked at is what is written to.
        std::string why =
            S_ISREG(status.st_mode) ? WhyNotTrusted(status) : "it is not a regular file";
        if (!why.empty())
            fd_ = host::Fd();
        return why;
    }
    [[nodiscard]] bool IsInPlace() const
    {
        struct stat named {};
        struct stat opened {};
        // By device and inode. A link that was put in the place of the file is another file.
        return lstat(path_.c_str(), &named) == 0 && fstat(fd_.get(), &opened) == 0 &&
               named.st_ino == opened.st_ino && named.st_dev == opened.st_dev;
    }

    std::string path_;
    host::Fd fd_;
};

// For whoever sets the sink up. Each opening looks again: the rights can change any day.
void CheckLog(const std::string &path)
{
    struct stat status {};
    const std::string why = lstat(path.c_str(), &status) == 0 ? WhyNotTrusted(status) : "";
    if (!why.empty())
        throw host::Error("cannot write alerts to " + path, why,
                          "name the file itself, and take the right to write to it from others: "
                          "chmod go-w");
}

} // namespace

SinkKind FileKind()
{
    SinkKind kind;
    kind.name = "file";
    kind.help = "one JSON object a line, appended to a file";
    kind.options = {
        {"path", "FILE", nullptr, "the file; it may be rotated at any time", CheckPath}};
    kind.written = "path";
    kind.open = [](const SinkConfig &config, const std::string &,
                   Secrets &) -> std::unique_ptr<Sink> {
        CheckLog(config.Get("path"));
        return std::make_unique<FileSink>(config.Get("path"));
    };
    return kind;
}

} // namespace sinks
