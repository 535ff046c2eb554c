#include "tests/agent/support/process.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

namespace {

constexpr int kPatienceMs = 30000; // no step of a test takes this long

struct Pipe {
    host::Fd reading;
    host::Fd writing;

    Pipe()
    {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            throw std::runtime_error("cannot create a pipe");
        reading = host::Fd(ends[0]);
        writing = host::Fd(ends[1]);
    }
};

// Starts a program with the given standard streams; -1 keeps the test's own.
pid_t Start(const Words &command, int input, int output, int errors)
{
    std::vector<char *> arguments;
    for (const std::string &word : command)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const auto &[from, to] : {std::pair{input, 0}, {output, 1}, {errors, 2}}) {
        if (from >= 0)
            dup2(from, to);
    }
    execv(arguments[0], arguments.data());
    _exit(127);
}

int StatusOf(int wait_status)
{
    return WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : 128 + WTERMSIG(wait_status);
}

int WaitFor(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR)
        continue;
    return StatusOf(status);
}

// Reads what there is; false at the end.
bool ReadSome(int fd, std::string *text)
{
    char bytes[4096];
    const ssize_t got = read(fd, bytes, sizeof bytes);
    if (got > 0)
        text->append(bytes, static_cast<size_t>(got));
    return got > 0;
}

} // namespace

Finished RunToEnd(const Words &command)
{
    Pipe out;
    Pipe err;
    const host::Fd nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const pid_t pid = Start(command, nothing.get(), out.writing.get(), err.writing.get());
    out.writing = host::Fd();
    err.writing = host::Fd();
    Finished finished;
    pollfd streams[] = {{out.reading.get(), POLLIN, 0}, {err.reading.get(), POLLIN, 0}};
    std::string *texts[] = {&finished.out, &finished.err};
    for (int open = 2; open > 0;) {
        if (poll(streams, 2, kPatienceMs) <= 0) {
            kill(pid, SIGKILL);
            break;
        }
        for (size_t i = 0; i < 2; ++i) {
            if (streams[i].revents != 0 && !ReadSome(streams[i].fd, texts[i])) {
                streams[i].fd = -1;
                --open;
            }
        }
    }
    finished.status = WaitFor(pid);
    return finished;
}

Words Helper(const std::filesystem::path &root, const Words &words)
{
    Words all = {HOST_HELPER, root.string()};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

Words Command(const std::filesystem::path &root, const Words &words)
{
    Words all = {SYSLOGMON, "--root", root.string()};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

Child::Child(const Words &command)
{
    Pipe in;
    Pipe out;
    pid_ = Start(command, in.reading.get(), out.writing.get(), -1);
    input_ = std::move(in.writing);
    output_ = std::move(out.reading);
}

Child::~Child()
{
    if (pid_ > 0)
        Kill();
}

std::string Child::ReadLine()
{
    size_t end = 0;
    while ((end = read_.find('\n')) == std::string::npos) {
        pollfd waiting{output_.get(), POLLIN, 0};
        if (poll(&waiting, 1, kPatienceMs) <= 0)
            return "(silent)";
        if (!ReadSome(output_.get(), &read_))
            return "(ended)";
    }
    std::string line = read_.substr(0, end);
    read_.erase(0, end + 1);
    return line;
}

void Child::Say(const std::string &line) const
{
    const std::string text = line + "\n";
    if (write(input_.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("the child does not listen");
}

void Child::Signal(int number) const
{
    kill(pid_, number);
}

int Child::Wait()
{
    const int status = WaitFor(pid_);
    pid_ = -1;
    return status;
}

void Child::Kill()
{
    Signal(SIGKILL);
    Wait();
}

} // namespace test
