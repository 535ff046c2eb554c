// Kind "program": a program is run for each alert, with the alert as JSON on its standard input. Its
// exit status decides: 0 it has the alert, 75 it takes none at present; with any other, or without an
// end, it has not taken this alert.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "agent/host/error.h"
#include "agent/host/waitable.h"
#include "agent/sinks/alert_json.h"
#include "agent/sinks/file_trust.h"
#include "agent/sinks/option_checks.h"
#include "agent/sinks/sink_kinds.h"

namespace sinks {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kNotNow = 75;         // EX_TEMPFAIL of sysexits.h
constexpr size_t kMaxOutput = 1024; // bytes of what it says that are kept
constexpr int kSliceMs = 100;       // between two looks whether the thread is to end

// What a program finds, whatever the daemon was started with: no descriptor beside its three
// streams, this folder, and this environment. So it behaves the same from a shell and from systemd,
// and secrets in the daemon's environment are not handed on.
constexpr char kFolder[] = "/";
constexpr const char *kEnvironment[] = {
    "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/", "LANG=C.UTF-8",
    nullptr};

// Closed on exec; the program gets its ends by dup2, which makes copies that stay.
struct Pipe {
    host::Fd read_end;
    host::Fd write_end;
};

Pipe MakePipe()
{
    int fds[2] = {-1, -1};
    if (pipe2(fds, O_CLOEXEC) != 0)
        throw host::Error("cannot start a program", strerror(errno),
                          "raise the limit of open files");
    return {host::Fd(fds[0]), host::Fd(fds[1])};
}

// The program, from its start to its end. Killed, with what it has started, if it is still there in
// the end.
class Process {
  public:
    Process(const std::vector<std::string> &words, int input, int output)
    {
        std::vector<char *> argv;
        argv.reserve(words.size() + 1);
        for (const std::string &word : words)
            argv.push_back(const_cast<char *>(word.c_str()));
        argv.push_back(nullptr);
        // posix_spawn and not fork: in a process with threads little may be done between fork and
        // exec. The actions are done in their order: the streams first, then everything above them
        // is closed.
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&files, output, STDERR_FILENO);
        posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
        posix_spawn_file_actions_addchdir_np(&files, kFolder);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        // A process group of its own, so that its children can be killed with it. The group is
        // there before posix_spawn returns.
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                                  POSIX_SPAWN_SETSIGDEF);
        // The daemon blocks and ignores signals; the program expects them as usual.
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes, &none);
        sigset_t pipe_only = none;
        sigaddset(&pipe_only, SIGPIPE);
        posix_spawnattr_setsigdefault(&attributes, &pipe_only);
        // No shell and no search along PATH: the first word is the path of the program.
        error_ = posix_spawn(&pid_, argv[0], &files, &attributes, argv.data(),
                             const_cast<char **>(kEnvironment));
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&files);
        if (error_ != 0) {
            pid_ = -1;
            return;
        }
        // The C library 2.36 declares pidfd_open for C only.
        fd_ = host::Fd(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
        watch_error_ = fd_.get() < 0 ? errno : 0;
    }
    ~Process()
    {
        if (pid_ > 0) {
            // Not asked politely: its time is over, or nobody can wait for it. Reaped at once, so
            // no zombie stays.
            kill(-pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    [[nodiscard]] int error() const { return error_; } // of its start; 0: it was started
    // Why its end cannot be noticed; 0: it can.
    [[nodiscard]] int watch_error() const { return watch_error_; }
    [[nodiscard]] int fd() const { return fd_.get(); } // readable when it has ended
    // Its status, once it has ended.
    int Reap()
    {
        // What it has left behind. First, since the number of its group is nobody else's only until it was
        // waited for.
        kill(-pid_, SIGKILL);
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return status;
    }

  private:
    pid_t pid_ = -1;
    int error_ = 0;
    int watch_error_ = 0;
    host::Fd fd_;
};

class ProgramSink : public Sink {
  public:
    ProgramSink(std::vector<std::string> words, std::chrono::seconds limit)
        : words_(std::move(words)), limit_(limit)
    {
    }

    Outcome Send(std::span<const Message> messages, const Interrupt &interrupt) override
    {
        // With each alert: the file can be changed any day, and it runs with the rights of the
        // agent.
        const std::string danger = WhyProgramNotTrusted(words_[0]);
        if (!danger.empty())
            return Failed("cannot run " + words_[0] + ": " + danger);
        Pipe input = MakePipe();
        Pipe output = MakePipe();
        Process process(words_, input.read_end.get(), output.write_end.get());
        if (process.error() != 0)
            return Failed("cannot start " + words_[0] + ": " + strerror(process.error()));
        if (process.watch_error() != 0)
            return Failed(words_[0] +
                          " was killed, since its end cannot be waited for: pidfd_open: " +
                          strerror(process.watch_error()));
        // The program has its own ends now. With ours open, its end would not be seen on the pipes.
        input.read_end = host::Fd();
        output.write_end = host::Fd();
        const std::string said = Talk(process, AlertJson(messages[0]) + "\n", input.write_end,
                                      output.read_end, interrupt);
        // Asked in this order: that the daemon stops is no fault of the alert. The destructor kills
        // it.
        if (!ended_ && interrupt.IsRaised())
            return Failed(words_[0] + " was ended with the daemon");
        if (!ended_)
            return Refused(words_[0] + " did not end within " + std::to_string(limit_.count()) +
                           " s and was killed" + (said.empty() ? "" : ": " + said));
        return Judge(process.Reap(), said, messages.first(1));
    }

  private:
    // Feeds and listens until the program ends, or its time does. Returns what it said.
    std::string Talk(const Process &process, std::string_view text, host::Fd &input,
                     const host::Fd &output, const Interrupt &interrupt)
    {
        const auto deadline = Clock::now() + limit_;
        std::string said;
        bool is_open = true; // its output
        fcntl(input.get(), F_SETFL, O_NONBLOCK);
        fcntl(output.get(), F_SETFL, O_NONBLOCK);
        ended_ = false;
        while (!ended_ && Clock::now() < deadline && !interrupt.IsRaised()) {
            // The slice bounds the sleep, since nothing here is told of the interrupt. What is
            // closed has descriptor -1, at which poll does not look.
            pollfd waiting[] = {{process.fd(), POLLIN, 0},
                                {is_open ? output.get() : -1, POLLIN, 0},
                                {input.get(), POLLOUT, 0}};
            poll(waiting, std::size(waiting), kSliceMs);
            ended_ = waiting[0].revents != 0;
            if (waiting[2].revents != 0 && !Feed(input.get(), text))
                input = host::Fd();
            // Behind the look at its end: what it wrote before that is still in the pipe, and is
            // read now.
            is_open = is_open && Listen(output.get(), said);
        }
        return said;
    }
    // False when there is no more to be written, or nobody who reads.
    static bool Feed(int fd, std::string_view &text)
    {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0)
            return errno == EAGAIN || errno == EINTR;
        text.remove_prefix(static_cast<size_t>(written));
        return !text.empty();
    }
    // False when nothing more will come.
    static bool Listen(int fd, std::string &said)
    {
        char piece[4096];
        ssize_t size = 0;
        while ((size = read(fd, piece, sizeof piece)) > 0) {
            // The rest is read and dropped: a program that says much must not hang because nobody
            // reads.
            const auto left = static_cast<ssize_t>(kMaxOutput - said.size());
            said.append(piece, static_cast<size_t>(std::min(size, left)));
        }
        return size < 0 && (errno == EAGAIN || errno == EINTR);
    }
    Outcome Judge(int status, const std::string &said, std::span<const Message> messages) const
    {
        const std::string words = said.empty() ? "" : ": " + said;
        if (WIFSIGNALED(status))
            return Refused(words_[0] + " was ended by signal " + std::to_string(WTERMSIG(status)) +
                           words);
        const int code = WEXITSTATUS(status);
        const std::string ended = words_[0] + " ended with status " + std::to_string(code) + words;
        if (code == 0)
            return AllTaken(messages, ended);
        return code == kNotNow ? Failed(ended) : Refused(ended);
    }

    std::vector<std::string> words_;
    std::chrono::seconds limit_;
    bool ended_ = false;
};

std::vector<std::string> WordsOf(const SinkConfig &config)
{
    std::vector<std::string> words = {config.Get("command")};
    const auto arguments = config.All("arg.");
    for (size_t i = 1; i <= arguments.size(); ++i) {
        const auto argument = arguments.find(std::to_string(i));
        if (argument == arguments.end())
            throw host::Error("cannot use the arguments of " + words[0],
                              "there is no arg." + std::to_string(i),
                              "number them arg.1, arg.2, arg.3");
        words.push_back(argument->second);
    }
    return words;
}

void CheckProgram(const std::string &path)
{
    const std::string danger = WhyProgramNotTrusted(path);
    if (!danger.empty())
        throw host::Error("cannot run " + path, danger,
                          "name a program itself, which only root and its owner can change: chmod "
                          "go-w, and chown root");
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
        access(path.c_str(), X_OK) == 0)
        return;
    throw host::Error("cannot run " + path, "it is not a program, or may not be run",
                      "name an executable file by its absolute path");
}

// An argument may be anything, even empty.
std::string CheckArgument(const std::string &value)
{
    return value.empty() ? "" : CheckText(value);
}

} // namespace

SinkKind ProgramKind()
{
    SinkKind kind;
    kind.name = "program";
    kind.help = "a program that is run for each alert, with JSON on its standard input";
    kind.options = {
        {"command", "FILE", nullptr, "the program; no shell is involved", CheckPath},
        {"arg.", "TEXT", "", "its arguments: arg.1, arg.2 and so on", CheckArgument},
        {"timeout", "SECONDS", "30", "after this long it is killed, which counts as a failure",
         CheckTimeout},
    };
    kind.open = [](const SinkConfig &config, const std::string &,
                   Secrets &) -> std::unique_ptr<Sink> {
        CheckProgram(config.Get("command"));
        return std::make_unique<ProgramSink>(WordsOf(config),
                                             std::chrono::seconds(config.Number("timeout")));
    };
    return kind;
}

} // namespace sinks
